// Pictures, videos and the pictures of videos, each made anew from one in the project.

#include "helpers.h"
#include "media_parts.h"
#include "programs.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QImageReader>
#include <QJsonArray>
#include <QPainter>
#include <QProcess>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTransform>
#include <algorithm>

#include <optional>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype keptOfEachEnd = 65536;
constexpr qsizetype shownErrorChars = 1500;
constexpr int startMs = 10000;
constexpr int killMs = 1000;
constexpr int videoMs = 110000;
constexpr double maxSeconds = 864000;

void keepEnds(QByteArray &text)
{
    if (text.size() > 2 * keptOfEachEnd)
        text = text.left(keptOfEachEnd) + text.right(keptOfEachEnd);
}

QImage readImage(const QString &path)
{
    allowPixels();
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const auto requireSupported = [](QSize size) {
        require(size.width() >= 0 && size.height() >= 0 && fitsPixels(size.width(), size.height()),
                u"Неподдерживаемый размер изображения"_s);
    };
    requireSupported(reader.size());
    QImage image = reader.read();
    require(!image.isNull(), u"Изображение не читается"_s);
    requireSupported(image.size()); // which may be larger than what it said of itself
    return image;
}

QImage cropped(const QImage &image, const QJsonArray &crop)
{
    require(crop.size() == 4, u"crop: [x,y,width,height]"_s);
    const qint64 x = crop[0].toInteger(-1);
    const qint64 y = crop[1].toInteger(-1);
    const qint64 width = crop[2].toInteger();
    const qint64 height = crop[3].toInteger();
    // Compared without sums, which huge numbers would overflow.
    require(x >= 0 && y >= 0 && width > 0 && height > 0 && width <= image.width() && height <= image.height()
                && x <= image.width() - width && y <= image.height() - height,
            u"Область обрезки за границами"_s);
    return image.copy(int(x), int(y), int(width), int(height));
}

QImage resized(const QImage &image, const QJsonObject &job)
{
    const qint64 width = job.contains("width"_L1) ? job["width"_L1].toInteger() : image.width();
    const qint64 height = job.contains("height"_L1) ? job["height"_L1].toInteger() : image.height();
    require(width > 0 && height > 0 && width <= maxPixels && height <= maxPixels && fitsPixels(width, height),
            u"Размер результата превышен"_s);
    return image.scaled(int(width), int(height), Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

QImage turned(const QImage &image, double degrees)
{
    const QTransform turn = QTransform().rotate(degrees);
    const QSizeF size = turn.mapRect(QRectF(image.rect())).size();
    require(size.width() * size.height() <= maxPixels, u"Размер результата превышен"_s); // false of no number, too
    return image.transformed(turn, Qt::SmoothTransformation);
}

QImage onBackground(const QImage &image, const QString &name)
{
    const QColor color = QColor::fromString(name);
    require(color.isValid(), u"Неверный цвет фона"_s);
    return onColor(image, color);
}

/// All but the last one, which is the output.
QStringList videoArguments(const QJsonObject &job, const QString &input, const QString &output)
{
    const double start = job["start"_L1].toDouble();
    const double duration = job["duration"_L1].toDouble();
    require(start >= 0 && start < maxSeconds && duration >= 0 && duration < maxSeconds, u"Неверный интервал видео"_s);
    const bool frame = job["operation"_L1].toString() == "frame"_L1;
    QStringList arguments{
        u"-nostdin"_s,  u"-hide_banner"_s, u"-loglevel"_s,     u"error"_s, u"-y"_s, u"-protocol_whitelist"_s,
        u"file,pipe"_s, u"-ss"_s,          shortNumber(start), u"-i"_s,    input};
    if (frame)
        arguments += {u"-frames:v"_s, u"1"_s};
    else if (duration > 0)
        arguments += {u"-t"_s, shortNumber(duration)};
    if (const qint64 width = job["width"_L1].toInteger(); width != 0) {
        require(width >= 16 && width <= 7680, u"Ширина видео должна быть 16–7680"_s);
        arguments += {u"-vf"_s, u"scale="_s + QString::number(width) + u":-2"_s};
    }
    const QString suffix = QFileInfo(output).suffix().toLower();
    if (frame) {
        require(suffix == "png"_L1 || suffix == "jpg"_L1 || suffix == "jpeg"_L1, u"Кадр сохраняется в PNG/JPG"_s);
    } else {
        require(suffix == "mp4"_L1, u"Видео сохраняется в MP4"_s);
        arguments += {u"-c:v"_s, u"libx264"_s, u"-preset"_s, u"fast"_s, u"-crf"_s, u"23"_s, u"-c:a"_s, u"aac"_s};
    }
    return arguments;
}

} // namespace

bool fitsPixels(qint64 width, qint64 height)
{
    return width * height <= maxPixels;
}

void allowPixels()
{
    constexpr int bytesOfPixel = 8;
    QImageReader::setAllocationLimit(int(maxPixels * bytesOfPixel / 1048576 + 1));
}

QImage onColor(const QImage &image, const QColor &color)
{
    QImage filled(image.size(), QImage::Format_ARGB32);
    filled.fill(color);
    QPainter(&filled).drawImage(0, 0, image);
    return filled;
}

QString shortNumber(double value)
{
    return QString::number(value, 'g', 6);
}

QString ffmpegOf(const QJsonObject &job)
{
    const QString named = job["ffmpeg"_L1].toString();
    return named.isEmpty() ? bundledProgram(QCoreApplication::applicationDirPath(), u"ffmpeg"_s) : named;
}

FfmpegRun runFfmpeg(const QString &program, const QStringList &arguments, int limitMs)
{
    FfmpegRun run;
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(program, arguments);
    run.started = process.waitForStarted(startMs);
    if (!run.started)
        return run;
    QElapsedTimer clock;
    clock.start();
    process.setReadChannel(QProcess::StandardError);
    while (process.state() != QProcess::NotRunning && clock.elapsed() < limitMs) {
        process.waitForReadyRead(int(std::max<qint64>(limitMs - clock.elapsed(), 0))); // -1 is for ever
        run.errors += process.readAllStandardError();
        keepEnds(run.errors);
        // Its standard error may be closed long before it ends.
        if (process.state() != QProcess::NotRunning)
            process.waitForFinished(20);
    }
    run.inTime = process.state() == QProcess::NotRunning;
    if (!run.inTime) {
        process.kill();
        process.waitForFinished(killMs);
    }
    run.errors += process.readAllStandardError();
    keepEnds(run.errors);
    run.succeeded = run.inTime && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return run;
}

FfmpegRun makeWithFfmpeg(const QString &program, const QStringList &arguments, const QString &output, int limitMs)
{
    // In the path of a picture "%d" stands for its number: one with such a name is made elsewhere, and moved.
    std::optional<QTemporaryDir> elsewhere;
    if (output.contains(u'%'))
        elsewhere.emplace();
    const QString file = elsewhere ? elsewhere->filePath(u"made."_s + QFileInfo(output).suffix()) : output;
    FfmpegRun run = runFfmpeg(program, QStringList(arguments) << file, limitMs);
    run.made = run.succeeded && QFileInfo(file).isFile() && QFileInfo(file).size() > 0
        && (!elsewhere || QFile::rename(file, output));
    if (!run.made)
        QFile::remove(output);
    return run;
}

void editImage(const QJsonObject &job, const QString &input, const QString &output)
{
    QImage image = readImage(input);
    if (job["crop"_L1].isArray())
        image = cropped(image, job["crop"_L1].toArray());
    image = resized(image, job);
    if (job.contains("rotate"_L1))
        image = turned(image, job["rotate"_L1].toDouble());
    if (job.contains("background"_L1))
        image = onBackground(image, job["background"_L1].toString());
    QSaveFile file(output);
    require(file.open(QIODevice::WriteOnly), u"Не удалось создать результат"_s);
    const QByteArray format = QFileInfo(output).suffix().toUpper().toLatin1();
    require(!format.isEmpty() && image.save(&file, format.constData()), u"Формат изображения не поддерживается"_s);
    require(file.commit(), u"Ошибка сохранения изображения"_s);
}

void editVideo(const QJsonObject &job, const QString &input, const QString &output)
{
    const QString ffmpeg = ffmpegOf(job);
    require(QFileInfo(ffmpeg).isFile(), u"FFmpeg не найден. Укажите путь в настройках API."_s);
    const FfmpegRun run = makeWithFfmpeg(ffmpeg, videoArguments(job, input, output), output, videoMs);
    require(run.started, u"Не удалось запустить FFmpeg"_s);
    require(run.inTime, u"Обработка превысила 110 секунд; разделите видео на части"_s);
    require(run.succeeded, u"FFmpeg: "_s + QString::fromUtf8(run.errors).right(shownErrorChars));
    require(run.made, u"FFmpeg не создал файл: в этом месте видео ничего нет"_s);
}

} // namespace vesk
