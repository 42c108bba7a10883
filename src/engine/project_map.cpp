// A project at a glance.

#include "project_map.h"

#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype leastLine = 60;

using Folders = QMap<QString, QStringList>;

Folders foldersOf(const QStringList &paths, int depth)
{
    Folders folders;
    for (const QString &path : paths) {
        const qsizetype slash = path.lastIndexOf(u'/');
        const QString folder = path.first(std::max<qsizetype>(slash, 0));
        folders[folder.section(u'/', 0, depth - 1)].append(path.sliced(slash + 1));
    }
    return folders;
}

QString lineOf(const QString &folder, const QStringList &names, qsizetype room)
{
    QString line = u"%1/ (%2):"_s.arg(folder.isEmpty() ? u"."_s : folder).arg(names.size());
    for (qsizetype i = 0; i < names.size(); ++i) {
        const QString next = (i == 0 ? u" "_s : u", "_s) + names[i];
        if (line.size() + next.size() + 3 > room)
            return line + u", …"_s;
        line += next;
    }
    return line;
}

} // namespace

QString projectMap(const QStringList &paths, qsizetype room)
{
    constexpr int deepest = 8;
    Folders folders;
    for (int depth = deepest; depth > 0; --depth) {
        folders = foldersOf(paths, depth);
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

} // namespace vesk
