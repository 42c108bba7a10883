// Where pictures of pages are.

#include "page_pictures.h"

#include "helpers.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxTasks = 50;
constexpr qsizetype nameChars = 16;

} // namespace

QString pictureStem(const QString &pictures, const QString &task, const QString &page)
{
    return pictures + u'/' + task + u'/' + digest(page.toUtf8()).left(nameChars);
}

QStringList picturesAt(const QString &pictures, const QString &stem)
{
    QStringList found;
    if (!QDir::cleanPath(stem).startsWith(pictures + u'/'))
        return found;
    for (const QString &width : {u"-1280.png"_s, u"-390.png"_s}) {
        if (QFileInfo(stem + width).isFile())
            found.append(stem + width);
    }
    return found;
}

void removeOldPictures(const QString &pictures)
{
    const QFileInfoList tasks = QDir(pictures).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Time);
    for (const QFileInfo &task : tasks.mid(maxTasks))
        QDir(task.filePath()).removeRecursively();
}

} // namespace vesk
