#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk {

/// Holds a role's answer to the shape that the stages rely on; what the answer means is judged later.
/// Throws at the first fault. The text goes back to the model, which gets one chance to repair its answer.
/// `editsOffered` lets a coder's file have "edits" in place of its "content".
void validateOutput(const QString &role, const QJsonObject &result, bool editsOffered = false);

} // namespace vesk
