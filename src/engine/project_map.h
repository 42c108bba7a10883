#pragma once

#include <QString>
#include <QStringList>

namespace vesk {

/// The files of a project too large to be listed, folder by folder: "src/core/ (21): budget.cpp, budget.h, …". Not more
/// than `room` characters; folders give way to those above them, names to their number.
QString projectMap(const QStringList &paths, qsizetype room);

} // namespace vesk
