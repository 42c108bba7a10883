#pragma once

// What the operations of the media worker share.

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace vesk {

constexpr qint64 maxAttachmentBytes = 268435456;
constexpr qint64 maxPixels = 50000000;

/// What has become of one FFmpeg. Of its standard error, no more than 64 KiB of each end are kept.
struct FfmpegRun {
    bool started = false;
    bool inTime = false;
    bool succeeded = false;
    QByteArray errors;
};
FfmpegRun runFfmpeg(const QString &program, const QStringList &arguments, int limitMs);

/// The FFmpeg that a job names, else the one that comes with the application.
QString ffmpegOf(const QJsonObject &job);

/// A number as FFmpeg is given it: 6 significant digits.
QString shortNumber(double value);

bool fitsPixels(qint64 width, qint64 height);

QJsonObject findFiles(const QJsonObject &job);
QJsonObject importFile(const QJsonObject &job);
void editImage(const QJsonObject &job, const QString &input, const QString &output);
void editVideo(const QJsonObject &job, const QString &input, const QString &output);
void transformObj(const QJsonObject &job, const QString &input, const QString &output);

} // namespace vesk
