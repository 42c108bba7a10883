// Which commands are jobs of our own media worker that stay inside the project.

#include "media_command.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace vesk {

bool isSafeMediaJob(const QJsonObject &command, const MediaBounds &bounds)
{
    static const QStringList safe{u"image"_s, u"obj_transform"_s, u"video"_s, u"frame"_s};
    const QJsonArray arguments = command["arguments"_L1].toArray();
    if (command["program"_L1].toString() != bounds.program || arguments.size() != 2
        || arguments.first().toString() != "--media-job"_L1)
        return false;

    const QJsonObject job = QJsonDocument::fromJson(arguments.last().toString().toUtf8()).object();
    const QString ffmpeg = job["ffmpeg"_L1].toString();
    return safe.contains(job["operation"_L1].toString()) && job["root"_L1].toString() == bounds.root
        && (ffmpeg.isEmpty() || ffmpeg == bounds.ffmpeg) && bounds.isInside(job["input"_L1].toString())
        && bounds.isInside(job["output"_L1].toString());
}

} // namespace vesk
