#pragma once

// What the operations of the media worker share.

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QJsonObject>
#include <QString>
#include <QStringList>

class QIODevice;

namespace vesk {

constexpr qint64 maxAttachmentBytes = 268435456;
constexpr qint64 maxPixels = 50000000;

/// What has become of one FFmpeg. Of its standard error, no more than 64 KiB of each end are kept.
struct FfmpegRun {
    bool started = false;
    bool inTime = false;
    bool succeeded = false;
    bool made = false; ///< What it was to make is there.
    QByteArray errors;
};
FfmpegRun runFfmpeg(const QString &program, const QStringList &arguments, int limitMs);

/// The same with the file to make as the last argument. It is "made" when it has something in it; else nothing is left
/// there.
FfmpegRun makeWithFfmpeg(const QString &program, const QStringList &arguments, const QString &output, int limitMs);

/// The FFmpeg that a job names, else the one that comes with the application.
QString ffmpegOf(const QJsonObject &job);

/// A number as FFmpeg is given it: 6 significant digits.
QString shortNumber(double value);

bool fitsPixels(qint64 width, qint64 height);

/// Lets Qt decode any picture that fits, also with 16 bits for each colour.
void allowPixels();

/// The picture with a colour behind what is transparent.
QImage onColor(const QImage &image, const QColor &color);

QJsonObject findFiles(const QJsonObject &job);
QJsonObject importFile(const QJsonObject &job);
QJsonObject showImage(const QJsonObject &job);
void editImage(const QJsonObject &job, const QString &input, const QString &output);
void editVideo(const QJsonObject &job, const QString &input, const QString &output);
/// The lines of an OBJ file with its vertices scaled and moved as the job says.
void moveVertices(const QJsonObject &job, QIODevice &from, QIODevice &to);
void transformObj(const QJsonObject &job, const QString &input, const QString &output);

} // namespace vesk
