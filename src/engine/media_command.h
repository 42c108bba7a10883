#pragma once

#include <QJsonObject>
#include <QString>

#include <functional>

namespace vesk {

/// What a media job may do without a question.
struct MediaBounds {
    QString program; ///< Our own executable, which is the media worker.
    QString root; ///< The project's folder.
    QString ffmpeg; ///< The user's; empty when there is none.
    std::function<bool(const QString &path)> isInside; ///< Whether a path leads to a place in the project.
};

/// Whether a command, {"program", "arguments"}, is our own media worker on files of the project: then it needs no
/// permission. The job is the last of two arguments (docs/media.md).
bool isSafeMediaJob(const QJsonObject &command, const MediaBounds &bounds);

} // namespace vesk
