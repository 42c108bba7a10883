// Where a new project's files go.

#include "project_folder.h"

#include "helpers.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSaveFile>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxFolderName = 60;

} // namespace

QString safeFolderName(const QString &name)
{
    static const QRegularExpression forbidden(u"[<>:\"/\\\\|?*\\x00-\\x1f]"_s);
    QString safe = name.trimmed().replace(forbidden, u"_"_s).left(maxFolderName);
    // Half a letter, which no file system takes, may be left of one that the limit has cut.
    while (!safe.isEmpty() && (safe.endsWith(u'.') || safe.endsWith(u' ') || safe.back().isHighSurrogate()))
        safe.chop(1);
    return safe.isEmpty() ? u"project"_s : safe;
}

QString projectFolder(const QString &name, const QString &folder, const QString &projectId)
{
    const QString parent = folder.startsWith("file:"_L1) ? QUrl(folder).toLocalFile() : folder;
    return QDir(parent).filePath(safeFolderName(name) + u'-' + projectId.left(8));
}

void writeProjectFile(const QString &root, const QString &name, const QString &projectId)
{
    const QJsonObject document{{u"name"_s, name}, {u"project_id"_s, projectId}, {u"created_at"_s, now()}};
    QSaveFile file(root + u"/VESK-project.json"_s);
    const QByteArray text = QJsonDocument(document).toJson(QJsonDocument::Indented);
    require(file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit(),
            u"Не удалось сохранить описание проекта."_s);
}

} // namespace vesk
