#pragma once

#include <QJsonArray>
#include <QString>

namespace vesk {

class Workspace;

/// Writes files as they are recorded, records of a snapshot or of now, to a place outside: a folder, or a zip file if
/// the name ends so. The target must not exist, and is there whole or not at all. Throws std::runtime_error with a text
/// for people.
void exportFiles(const Workspace &workspace, const QJsonArray &records, const QString &target);

} // namespace vesk
