#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace vesk {

/// One job on a user's media, in a short-lived process of its own: a broken picture or a hung FFmpeg hurts only that.
/// docs/media.md has the form of jobs and results, with a sample of each.
///
/// Returns {"success": true, ...}, or exactly {"success": false, "error": TEXT}; throws nothing.
QJsonObject mediaJob(const QJsonObject &job);

/// The same on the JSON text of a job; the text of the result and a line feed are written to standard output. Returns
/// the exit code of the process: 0 when the job succeeded, else 2. Text that is no JSON object is an empty job.
int runMediaJob(const QByteArray &job);

/// The absolute path of a file in the project folder, which may not exist yet. No part of it may be hidden in another
/// way of writing, lead through a link or belong to git. Throws "Invalid media path", "Media symlinks are not allowed"
/// or "Media path escapes project".
QString safeMediaPath(QString root, QString relative);

/// What a file is by its name: "image", "video", "3d", "text" or "file".
QString mediaKind(const QString &name);

/// The seconds of a video at which its pictures are taken; at most 8, evenly over its length.
QList<double> sampleTimes(double seconds);

} // namespace vesk
