// Copying a user's file into the project, with what a model can see of it.

#include "helpers.h"
#include "media_job.h"
#include "media_parts.h"
#include "path_rules.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QImageIOHandler>
#include <QImageReader>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSaveFile>
#include <QScopeGuard>

#include <cmath>
#include <optional>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qint64 pieceBytes = 1048576;
constexpr int previewSide = 1536;
constexpr int previewQuality = 82;
constexpr qint64 excerptBytes = 12000;
constexpr int maxFrames = 8;
constexpr int probeMs = 10000;
constexpr int frameMs = 15000;

void copyFile(const QString &source, const QString &target)
{
    QFile from(source);
    require(from.open(QIODevice::ReadOnly), u"Не удалось прочитать вложение"_s);
    QSaveFile to(target);
    require(to.open(QIODevice::WriteOnly), u"Не удалось сохранить вложение"_s);
    QByteArray piece(pieceBytes, Qt::Uninitialized);
    qint64 copied = 0;
    while (const qint64 count = from.read(piece.data(), pieceBytes)) {
        require(count > 0, u"Ошибка чтения"_s);
        copied += count; // it may grow while it is read
        require(copied <= maxAttachmentBytes, u"Файл должен быть обычным файлом до 256 МиБ."_s);
        require(to.write(piece.constData(), count) == count, u"Ошибка копирования"_s);
    }
    require(to.commit(), u"Ошибка сохранения"_s);
}

bool exceedsPreview(QSize size)
{
    return size.width() > previewSide || size.height() > previewSide;
}

QSize previewSize(QSize size)
{
    return size.scaled(previewSide, previewSide, Qt::KeepAspectRatio).expandedTo({1, 1});
}

/// A picture within the size of a preview, and the size that it has itself.
struct SmallImage {
    QImage image;
    QSize size;
};
SmallImage smallImage(const QString &path)
{
    allowPixels();
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QString tooLarge = u"Изображение превышает 50 мегапикселей"_s;
    QSize size = reader.size();
    require(fitsPixels(size.width(), size.height()), tooLarge);
    const bool decodesSmall = reader.supportsOption(QImageIOHandler::ScaledSize);
    if (decodesSmall && exceedsPreview(size))
        reader.setScaledSize(previewSize(size));
    QImage image = reader.read();
    require(!image.isNull(), u"Не удалось декодировать изображение"_s);
    // Some formats tell a size other than that of the picture in them, or none.
    if (!decodesSmall && image.size() != size && image.size() != size.transposed())
        size = image.size();
    require(fitsPixels(size.width(), size.height()), tooLarge);
    if (exceedsPreview(image.size()))
        image = image.scaled(previewSize(image.size()), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (image.hasAlphaChannel())
        image = onColor(image, Qt::white); // JPEG knows no transparency and would make it black
    return {image, size};
}

void previewImage(const QString &path, QJsonObject &result)
{
    const auto [image, size] = smallImage(path);
    require(image.save(path + u".preview.jpg"_s, "JPG", previewQuality), u"Не удалось создать превью"_s);
    result["preview"_L1] = result["path"_L1].toString() + u".preview.jpg"_s;
    result["width"_L1] = size.width();
    result["height"_L1] = size.height();
}

/// The length in seconds that FFmpeg tells of a file, if it tells any.
std::optional<double> lengthOf(const QString &ffmpeg, const QString &path)
{
    const FfmpegRun probe = runFfmpeg(
        ffmpeg, {u"-nostdin"_s, u"-hide_banner"_s, u"-protocol_whitelist"_s, u"file,pipe"_s, u"-i"_s, path}, probeMs);
    static const QRegularExpression duration(u"Duration: (\\d+):(\\d+):(\\d+(?:\\.\\d+)?)"_s);
    const QRegularExpressionMatch told = duration.match(QString::fromUtf8(probe.errors));
    if (!probe.inTime || !told.hasMatch())
        return {};
    return told.captured(1).toDouble() * 3600 + told.captured(2).toDouble() * 60 + told.captured(3).toDouble();
}

bool takeFrame(const QString &ffmpeg, const QString &path, const QString &second, const QString &picture)
{
    const QStringList arguments{u"-nostdin"_s,  u"-loglevel"_s, u"error"_s, u"-y"_s,           u"-protocol_whitelist"_s,
                                u"file,pipe"_s, u"-ss"_s,       second,     u"-i"_s,           path,
                                u"-frames:v"_s, u"1"_s,         u"-vf"_s,   u"scale=1024:-2"_s};
    return makeWithFfmpeg(ffmpeg, arguments, picture, frameMs).made;
}

void previewVideo(const QString &ffmpeg, const QString &path, QJsonObject &result)
{
    QJsonArray frames;
    if (QFileInfo(ffmpeg).isFile()) {
        QList<double> times{0, 5, 10};
        if (const auto seconds = lengthOf(ffmpeg, path)) {
            result["duration_seconds"_L1] = *seconds;
            times = sampleTimes(*seconds);
        }
        for (const double time : std::as_const(times)) {
            const QString second = shortNumber(time);
            const QString ending = u'.' + second + u".preview.jpg"_s;
            if (takeFrame(ffmpeg, path, second, path + ending))
                frames.append(QJsonObject{{u"second"_s, time}, {u"preview"_s, result["path"_L1].toString() + ending}});
        }
    }
    if (!frames.isEmpty())
        result["preview"_L1] = frames.first()["preview"_L1];
    result["frames"_L1] = frames;
}

QString noteOf(const QString &kind)
{
    if (kind == "video"_L1)
        return u"Видео: модели передаются до 8 кадров по длительности ролика с временными метками. Звук и события "
               "между кадрами не анализируются."_s;
    if (kind == "3d"_L1)
        return u"3D-ресурс: геометрия не визуализирована автоматически."_s;
    if (kind == "file"_L1)
        return u"Файл приложен как ресурс. Содержимое этого формата автоматически не распознано; нужен подходящий "
               "инструмент."_s;
    return {};
}

/// The name under which a file lies in the project: its own as far as any system and the workspace take it, with room
/// for what the names of its previews have behind it.
QString storedName(QString name)
{
    constexpr qsizetype maxNameBytes = 220;
    constexpr qsizetype maxSuffixBytes = 20;
    static const QRegularExpression forbidden(u"[<>:\"/\\\\|?*\\p{Cc}\\p{Cf}\\p{Zl}\\p{Zp}]"_s);
    name.replace(forbidden, u"_"_s);
    QString ending = QFileInfo(name).suffix().prepend(u'.');
    if (ending.size() == 1 || ending.toUtf8().size() > maxSuffixBytes)
        ending.clear();
    name.chop(ending.size());
    while (name.toUtf8().size() + ending.toUtf8().size() > maxNameBytes)
        name.chop(name.back().isLowSurrogate() ? 2 : 1);
    name += ending;
    while (name.endsWith(u'.') || name.endsWith(u' '))
        name.chop(1);
    const JudgedPath path = judged(name);
    return path.fault.isEmpty() && path.newFault.isEmpty() ? name : u'_' + name;
}

/// The name that the one who ordered the import knows the copy's folder by, so that it can clear up after a worker that
/// was ended; a fresh one otherwise.
QString folderOf(const QJsonObject &job)
{
    static const QRegularExpression name(u"\\A[0-9a-f-]{36}\\z"_s);
    const QString given = job["folder"_L1].toString();
    return name.match(given).hasMatch() ? given : id();
}

bool hasExcerpt(const QString &name, const QString &kind)
{
    const QString suffix = QFileInfo(name).suffix().toLower();
    return kind == "text"_L1 || suffix == "obj"_L1 || suffix == "gltf"_L1;
}

} // namespace

QList<double> sampleTimes(double seconds)
{
    const int count = int(std::min(double(maxFrames), std::ceil(seconds)));
    if (count <= 1)
        return {0};
    const double last = seconds / 2 <= 1 ? seconds / 2 : seconds - 1;
    QList<double> times;
    for (int i = 0; i < count; ++i)
        times.append(i * last / (count - 1));
    return times;
}

QJsonObject importFile(const QJsonObject &job)
{
    const QFileInfo source(job["source"_L1].toString());
    require(source.isFile() && !source.isSymLink() && source.size() <= maxAttachmentBytes,
            u"Файл должен быть обычным файлом до 256 МиБ."_s);
    const QString name = source.fileName();
    const QString kind = mediaKind(name);
    const QString relative = u"assets/"_s + folderOf(job) + u'/' + storedName(name);
    const QString target = safeMediaPath(job["root"_L1].toString(), relative);
    require(QDir().mkpath(QFileInfo(target).path()), u"Не удалось создать папку вложения"_s);
    auto noCopy = qScopeGuard([&] { QDir(QFileInfo(target).path()).removeRecursively(); }); // of what can't be imported
    copyFile(source.filePath(), target);
    QJsonObject result{{u"success"_s, true},  {u"id"_s, id()},   {u"name"_s, name},
                       {u"path"_s, relative}, {u"kind"_s, kind}, {u"bytes"_s, QFileInfo(target).size()}};
    if (kind == "image"_L1)
        previewImage(target, result);
    if (kind == "video"_L1)
        previewVideo(ffmpegOf(job), target, result);
    if (const QString note = noteOf(kind); !note.isEmpty())
        result["note"_L1] = note;
    if (hasExcerpt(name, kind)) {
        QFile file(target);
        require(file.open(QIODevice::ReadOnly), u"Не удалось прочитать вложение"_s);
        result["excerpt"_L1] = QString::fromUtf8(file.read(excerptBytes));
    }
    noCopy.dismiss();
    return result;
}

QJsonObject showImage(const QJsonObject &job)
{
    const QString input = safeMediaPath(job["root"_L1].toString(), job["input"_L1].toString());
    require(QFileInfo(input).isFile(), u"Исходный файл должен быть обычным файлом"_s);
    const auto [image, size] = smallImage(input);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    require(buffer.open(QIODevice::WriteOnly) && image.save(&buffer, "JPG", previewQuality),
            u"Не удалось создать превью"_s);
    return {{u"success"_s, true},
            {u"width"_s, size.width()},
            {u"height"_s, size.height()},
            {u"jpeg"_s, QString::fromLatin1(bytes.toBase64())}};
}

} // namespace vesk
