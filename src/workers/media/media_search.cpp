// Looking for a user's files by a part of their names.

#include "helpers.h"
#include "media_parts.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxFound = 100;
constexpr int maxVisited = 20000;
constexpr qint64 maxSearchMs = 4999;

class Search {
public:
    explicit Search(QString part)
        : query(std::move(part))
    {
        clock.start();
    }
    void below(const QString &root);
    QJsonObject result() const
    {
        return {{u"success"_s, true},
                {u"files"_s, found},
                {u"visited"_s, visited},
                {u"limited"_s, exhausted() || !folders.isEmpty()}};
    }

private:
    bool exhausted() const
    {
        return found.size() >= maxFound || visited >= maxVisited || clock.elapsed() > maxSearchMs;
    }
    void list(const QString &folder);
    void look(const QFileInfo &entry);

    QString query;
    QElapsedTimer clock;
    QStringList folders;
    QJsonArray found;
    int visited = 0;
};

void Search::below(const QString &root)
{
    folders = {root};
    while (!folders.isEmpty() && !exhausted())
        list(folders.takeLast());
}

void Search::list(const QString &folder)
{
    // Entry by entry: a folder may hold millions.
    QDirIterator entries(folder, QDir::Dirs | QDir::Files | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    while (entries.hasNext()) {
        entries.next();
        ++visited;
        if (exhausted())
            return;
        look(entries.fileInfo());
    }
}

void Search::look(const QFileInfo &entry)
{
    static const QStringList skipped{u"AppData"_s, u"node_modules"_s, u".git"_s, u".ssh"_s, u".codex"_s};
    if (entry.isJunction() || entry.isSymLink())
        return;
    if (entry.isDir()) {
        if (!skipped.contains(entry.fileName(), Qt::CaseInsensitive))
            folders.append(entry.filePath());
        return;
    }
    if (entry.fileName().contains(query, Qt::CaseInsensitive) && entry.size() <= maxAttachmentBytes)
        found.append(QJsonObject{{u"path"_s, entry.absoluteFilePath()}, {u"bytes"_s, entry.size()}});
}

} // namespace

QJsonObject findFiles(const QJsonObject &job)
{
    const QFileInfo root(job["root"_L1].toString());
    require(root.isDir(), u"Папка поиска не найдена"_s);
    const QString query = job["query"_L1].toString().trimmed();
    require(!query.isEmpty(), u"Укажите часть имени файла"_s);
    Search search(query);
    search.below(root.canonicalFilePath());
    return search.result();
}

} // namespace vesk
