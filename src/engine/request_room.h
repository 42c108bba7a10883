#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

struct Node;

/// What decides which parts of a request matter most.
struct RoomFacts {
    QList<int> distances; ///< Of the entries of "dependencies", see dependencyDistances().
    QStringList named; ///< Texts that name what is to be done: the request, the node, its fixes.
    QString before; ///< The text of a reviewed file before its last revision.
};

/// How far the direct dependencies of a node are from it, in the order of the graph: 1, and one more for each step of
/// the longest way round by other nodes.
QList<int> dependencyDistances(const QList<Node> &nodes, const QString &id);

/// A request's artifact in at most `room` characters of compact JSON. What is too much gives way in this order, each
/// part no further than needed:
/// 1. resolved fixes of "open_fixes", the oldest first ("open_fixes_omitted" has their number);
/// 2. what tools and checks gave ("stdout" and "stderr" keep their ends), the longest first;
/// 3. the texts of dependencies, the farthest first, then the longest;
/// 4. the files of a project, the last first;
/// 5. the text of the file under work, which becomes an excerpt (file_excerpt.h);
/// 6. whatever else is long, but for the node itself.
/// 2 to 4 leave 1000 characters of each text at first, and fewer only when nothing else is left. A text that was cut
/// has "<key>_truncated" and "<key>_chars_omitted" beside it; one in a list says so at its end. Comes back longer than
/// `room` when all that was not enough.
QJsonObject fitted(QJsonObject artifact, qsizetype room, const RoomFacts &facts);

/// The tools of MCP servers in at most `room` characters of compact JSON, or a little more: whole when they fit.
/// Otherwise each has an even share: descriptions keep 200 characters, a schema that does not fit in the share gives
/// way ("inputSchema_omitted"), and of more tools than there is room for the last are left out.
QJsonArray fittedTools(const QJsonArray &tools, qsizetype room);

} // namespace vesk
