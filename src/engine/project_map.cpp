// A project at a glance.

#include "project_map.h"

#include "path_rules.h"
#include "test_trial.h"

#include <QJsonObject>
#include <QMap>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype leastLine = 60;
constexpr qsizetype maxListedFiles = 200;

struct Folder {
    QStringList names;
    qint64 bytes = 0;
    bool isMeasured = true;
};
using Folders = QMap<QString, Folder>;

Folders foldersOf(const QList<MappedFile> &files, int depth)
{
    Folders folders;
    for (const MappedFile &file : files) {
        const qsizetype slash = file.path.lastIndexOf(u'/');
        const QString above = file.path.first(std::max<qsizetype>(slash, 0));
        Folder &folder = folders[above.section(u'/', 0, depth - 1)];
        folder.names.append(file.path.sliced(slash + 1));
        folder.bytes += file.bytes;
        folder.isMeasured = folder.isMeasured && file.bytes >= 0;
    }
    return folders;
}

QString lineOf(const QString &path, const Folder &folder, qsizetype room)
{
    constexpr qint64 kibibyte = 1024;
    const QStringList &names = folder.names;
    QString line = u"%1/ (%2"_s.arg(path.isEmpty() ? u"."_s : path).arg(names.size());
    if (folder.isMeasured)
        line += u", %1 KiB"_s.arg((folder.bytes + kibibyte - 1) / kibibyte);
    line += u"):"_s;
    for (qsizetype i = 0; i < names.size(); ++i) {
        const QString next = (i == 0 ? u" "_s : u", "_s) + names[i];
        if (line.size() + next.size() + 3 > room)
            return line + u", …"_s;
        line += next;
    }
    return line;
}

} // namespace

QString projectMap(const QList<MappedFile> &files, qsizetype room)
{
    constexpr int deepest = 8;
    Folders folders;
    for (int depth = deepest; depth > 0; --depth) {
        folders = foldersOf(files, depth);
        if (folders.size() * leastLine <= room)
            break;
    }
    QStringList lines;
    qsizetype left = room;
    for (auto folder = folders.cbegin(); folder != folders.cend(); ++folder) {
        // What short lines leave goes to those that follow.
        const qsizetype share = left / (folders.size() - lines.size());
        lines.append(lineOf(folder.key(), folder.value(), std::max<qsizetype>(share - 1, leastLine)));
        left -= lines.constLast().size() + 1;
    }
    return lines.join(u'\n').left(room);
}

QStringList filesToOpen(const QStringList &paths)
{
    constexpr qsizetype mostOpened = 24;
    QStringList chosen;
    for (const QString &path : paths) {
        if (isSource(path) || path.section(u'/', -1).startsWith("README"_L1, Qt::CaseInsensitive))
            chosen.append(path);
    }
    std::ranges::stable_sort(chosen, {}, [](const QString &path) { return path.count(u'/'); });
    return chosen.first(std::min(chosen.size(), mostOpened));
}

QString openingOf(const QString &text)
{
    constexpr qsizetype longestOpening = 100;
    const QList<QStringView> lines = QStringView(text).first(std::min<qsizetype>(text.size(), 4096)).split(u'\n');
    const auto first = std::ranges::find_if(
        lines, [](QStringView line) { return std::ranges::any_of(line, [](QChar c) { return c.isLetter(); }); });
    return first == lines.end() ? QString() : first->trimmed().left(longestOpening).toString();
}

ProjectGlance glanceAt(const QJsonArray &tracked, const QStringList &tree, const QString &treeMap,
                       const QString &request)
{
    if (tracked.size() <= maxListedFiles && tree.size() <= maxListedFiles)
        return {};
    ProjectGlance glance;
    const auto take = [&](const QString &path, int revision) {
        const QString name = path.section(u'/', -1);
        if (glance.named.size() < maxListedFiles && name.size() > 3 && request.contains(name))
            glance.named.append(QJsonObject{{u"path"_s, path}, {u"revision"_s, revision}});
    };
    QSet<QString> known;
    QList<MappedFile> mapped;
    for (const QJsonValue &file : tracked) {
        const QString path = slashed(file["path"_L1].toString());
        known.insert(path);
        mapped.append({path, -1});
        take(path, file["revision"_L1].toInt());
    }
    for (const QString &path : tree) {
        if (!known.contains(path))
            take(path, 0);
    }
    glance.map = treeMap.isEmpty() ? projectMap(mapped, maxMapChars) : treeMap;
    return glance;
}

} // namespace vesk
