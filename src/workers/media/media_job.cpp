// One job on a medium, from its text to the printed result.

#include "media_job.h"

#include "helpers.h"
#include "media_parts.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QJsonDocument>

#include <cstdio>
#include <exception>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int jobFailed = 2;

void requirePlainPart(const QString &part)
{
    const bool plain = !part.isEmpty() && part != "."_L1 && part != ".."_L1
        && part.compare(".git"_L1, Qt::CaseInsensitive) != 0 && !part.endsWith(u'.') && !part.endsWith(u' ');
    require(plain, u"Invalid media path"_s);
}

/// The operations that make a new file of one in the project.
QJsonObject editFile(const QJsonObject &job)
{
    const QString operation = job["operation"_L1].toString();
    const QString root = job["root"_L1].toString();
    const QString result = job["output"_L1].toString();
    const QString input = safeMediaPath(root, job["input"_L1].toString());
    const QString output = safeMediaPath(root, result);
    require(!QFileInfo::exists(output), u"Результат должен быть новым файлом; оригинал сохраняется."_s);
    // Opening a pipe or a device may take for ever.
    const QFileInfo source(input);
    require(!source.exists() || source.isFile() || source.isDir(), u"Исходный файл должен быть обычным файлом"_s);
    require(QDir().mkpath(QFileInfo(output).path()), u"Не удалось создать папку результата"_s);
    if (operation == "image"_L1)
        editImage(job, input, output);
    else if (operation == "obj_transform"_L1)
        transformObj(job, input, output);
    else
        editVideo(job, input, output);
    return {{u"success"_s, true}, {u"path"_s, result}, {u"bytes"_s, QFileInfo(output).size()}};
}

QJsonObject carryOut(const QJsonObject &job)
{
    const QString operation = job["operation"_L1].toString();
    if (operation == "find_files"_L1)
        return findFiles(job);
    if (operation == "import"_L1)
        return importFile(job);
    if (operation == "preview"_L1)
        return showImage(job);
    static const QStringList edits{u"image"_s, u"video"_s, u"frame"_s, u"obj_transform"_s};
    require(edits.contains(operation), u"Неизвестная операция медиа"_s);
    return editFile(job);
}

} // namespace

QString mediaKind(const QString &name)
{
    static const QHash<QString, QString> kinds = [] {
        const QHash<QString, QString> suffixes{
            {u"image"_s, u"png jpg jpeg webp bmp"_s},
            {u"video"_s, u"mp4 mov webm mkv avi"_s},
            {u"3d"_s, u"obj stl gltf glb fbx blend"_s},
            {u"text"_s, u"svg txt md json mtl csv html css js ts py cpp h xml yaml yml log"_s},
        };
        QHash<QString, QString> bySuffix;
        for (auto kind = suffixes.cbegin(); kind != suffixes.cend(); ++kind) {
            const QStringList list = kind.value().split(u' ');
            for (const QString &suffix : list)
                bySuffix.insert(suffix, kind.key());
        }
        return bySuffix;
    }();
    return kinds.value(QFileInfo(name).suffix().toLower(), u"file"_s);
}

QString safeMediaPath(QString root, QString relative)
{
    root = QFileInfo(root).canonicalFilePath();
    const bool plain = !root.isEmpty() && !relative.isEmpty() && QDir::isRelativePath(relative)
        && !relative.contains(u':') && !relative.contains(u'\\') && !relative.contains(QChar::Null);
    require(plain, u"Invalid media path"_s);
    QString path = root;
    const QStringList parts = relative.split(u'/');
    for (const QString &part : parts) {
        requirePlainPart(part);
        path += u'/' + part;
        const QFileInfo info(path);
        // A link to nothing is a link, though it doesn't "exist".
        require(!info.isSymLink() && !info.isJunction(), u"Media symlinks are not allowed"_s);
        require(!info.exists() || info.canonicalFilePath().startsWith(root + u'/', Qt::CaseInsensitive),
                u"Media path escapes project"_s);
    }
    return root + u'/' + relative;
}

QJsonObject mediaJob(const QJsonObject &job)
{
    try {
        return carryOut(job);
    } catch (const std::exception &failure) {
        return {{u"success"_s, false}, {u"error"_s, textOf(failure)}};
    }
}

int runMediaJob(const QByteArray &job)
{
    const QJsonObject result = mediaJob(QJsonDocument::fromJson(job).object());
    const QByteArray text = jsonBytes(result) + '\n';
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
    fflush(stdout);
    return result["success"_L1].toBool() ? 0 : jobFailed;
}

} // namespace vesk
