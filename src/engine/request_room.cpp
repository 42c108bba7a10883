// Which parts of a request give way when they are too much together.

#include "request_room.h"

#include "file_excerpt.h"
#include "helpers.h"
#include "statuses.h"
#include "task_graph.h"

#include <QJsonArray>

#include <algorithm>
#include <functional>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype firstFloor = 1000;
constexpr qsizetype lastFloor = 100;
constexpr qsizetype markChars = 100; ///< What tells of a cut takes at most so many, without the key.
constexpr qsizetype smallestExcerpt = 500;
constexpr qsizetype shownToolChars = 200;

/// A text inside of an artifact: keys and indices on the way to it.
struct Text {
    QStringList at;
    QString text;
};

using Choice = std::function<bool(const QStringList &at)>;

bool isPrinted(const QStringList &at)
{
    return at.constLast() == "stdout"_L1 || at.constLast() == "stderr"_L1;
}

bool isOutput(const QStringList &at)
{
    return isPrinted(at) || (at.size() > 3 && at.constFirst() == "graph"_L1 && at.at(2) == "output"_L1);
}

void collect(const QJsonValue &value, const QStringList &at, const Choice &wanted, QList<Text> &texts)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            collect(it.value(), at + QStringList{it.key()}, wanted, texts);
    } else if (value.isArray()) {
        const QJsonArray array = value.toArray();
        for (qsizetype i = 0; i < array.size(); ++i)
            collect(array.at(i), at + QStringList{QString::number(i)}, wanted, texts);
    } else if (value.isString() && wanted(at)) {
        texts.append({at, value.toString()});
    }
}

/// The end that is kept of a text, without half a character.
QString kept(const Text &text, qsizetype chars)
{
    if (isPrinted(text.at)) {
        const QString tail = text.text.right(chars);
        return !tail.isEmpty() && tail.front().isLowSurrogate() ? tail.sliced(1) : tail;
    }
    const QString head = text.text.left(chars);
    return !head.isEmpty() && head.back().isHighSurrogate() ? head.chopped(1) : head;
}

/// Shortens the text at the end of a way, and tells how much of it was left out.
QJsonValue shortened(const QJsonValue &value, const Text &text, qsizetype depth, qsizetype chars)
{
    const QString &key = text.at.at(depth);
    const bool last = depth == text.at.size() - 1;
    const QString part = kept(text, chars);
    const qsizetype omitted = text.text.size() - part.size();
    if (value.isArray()) {
        QJsonArray array = value.toArray();
        const qsizetype i = key.toLongLong();
        array[i] = last ? QJsonValue(part + u" [… %1 characters left out]"_s.arg(omitted))
                        : shortened(array.at(i), text, depth + 1, chars);
        return array;
    }
    QJsonObject object = value.toObject();
    if (!last) {
        object[key] = shortened(object.value(key), text, depth + 1, chars);
        return object;
    }
    object[key] = part;
    object[key + "_truncated"_L1] = true;
    const QString count = key + "_chars_omitted"_L1;
    object[count] = object.value(count).toInteger() + omitted;
    if (object.contains("truncated"_L1)) // how a file of the project says it
        object["truncated"_L1] = true;
    return object;
}

class Room {
public:
    Room(QJsonObject artifact, qsizetype room)
        : artifact(std::move(artifact))
        , room(room)
    {
    }

    qsizetype excess() const { return json(artifact).size() - room; }

    void dropResolvedFixes()
    {
        QJsonArray fixes = artifact.value("open_fixes"_L1).toArray();
        int omitted = 0;
        for (qsizetype over = excess(), i = 0; over > 0 && i < fixes.size();) {
            if (fixes.at(i)["status"_L1].toString() != FixStatus::resolved) {
                ++i;
                continue;
            }
            over -= json(fixes.at(i).toObject()).size();
            fixes.removeAt(i);
            ++omitted;
        }
        if (omitted == 0)
            return;
        artifact["open_fixes"_L1] = fixes;
        artifact["open_fixes_omitted"_L1] = omitted;
    }

    /// Cuts the chosen texts down to one length, so that the longest give most, but leaves `floor` of each.
    void cut(const Choice &chosen, qsizetype floor)
    {
        const qsizetype over = excess();
        if (over <= 0)
            return;
        QList<Text> texts;
        collect(artifact, {}, chosen, texts);
        const auto saved = [&](qsizetype level) {
            qsizetype sum = 0;
            for (const Text &text : std::as_const(texts)) {
                if (text.text.size() > level + 2 * markChars)
                    sum += escapedLength(text.text) - escapedLength(kept(text, level)) - markChars
                        - 2 * text.at.constLast().size();
            }
            return sum;
        };
        qsizetype low = floor; // the highest level that saves enough lies between
        qsizetype high = room;
        while (low < high) {
            const qsizetype middle = (low + high + 1) / 2;
            if (saved(middle) >= over)
                low = middle;
            else
                high = middle - 1;
        }
        QJsonValue whole = artifact;
        for (const Text &text : std::as_const(texts)) {
            if (text.text.size() > low + 2 * markChars)
                whole = shortened(whole, text, 0, low);
        }
        artifact = whole.toObject();
    }

    void excerptFile(const QString &key, const RoomFacts &facts)
    {
        const QJsonObject file = artifact.value(key).toObject();
        const QString text = file["content"_L1].toString();
        const qsizetype over = excess();
        if (over <= 0 || text.size() <= smallestExcerpt)
            return;
        const LineWeights weights = key == "file"_L1 ? changedLines(text, facts.before) : namedLines(text, facts.named);
        qsizetype limit = escapedLength(text) - over;
        // The outline takes room as well, how much shows when it is there.
        for (int tries = 0; tries < 4 && excess() > 0; ++tries) {
            artifact[key] = excerpted(file, weights, std::max(limit, smallestExcerpt));
            limit -= std::max<qsizetype>(excess(), 0);
        }
    }

    QJsonObject artifact;

private:
    qsizetype room;
};

Choice dependenciesAt(int distance, const QList<int> &distances)
{
    return [=](const QStringList &at) {
        return at.size() > 2 && at.constFirst() == "dependencies"_L1
            && distances.value(at.at(1).toLongLong(), 1) == distance;
    };
}

/// All that is less than the work itself, in its order.
void cutWhatIsBeside(Room &room, qsizetype floor, const RoomFacts &facts)
{
    room.cut(isOutput, floor);
    const int farthest = facts.distances.isEmpty() ? 1 : *std::ranges::max_element(facts.distances);
    for (int distance = farthest; distance > 0; --distance)
        room.cut(dependenciesAt(distance, facts.distances), floor);
    for (qsizetype i = room.artifact.value("project_files"_L1).toArray().size() - 1; i >= 0 && room.excess() > 0; --i)
        room.cut(
            [=](const QStringList &at) {
                return at.constFirst() == "project_files"_L1 && at.at(1).toLongLong() == i
                    && at.constLast() == "content"_L1;
            },
            floor);
}

} // namespace

QList<int> dependencyDistances(const QList<Node> &nodes, const QString &id)
{
    const Links links = linksOf(nodes);
    QHash<QString, int> distances{{id, 0}};
    // As often as a way can have steps: a graph of 64 nodes without a cycle.
    for (bool grown = true; grown;) {
        grown = false;
        for (const Node &node : nodes) {
            for (const QString &next : node.dependencies) {
                const int step = distances.contains(node.id) ? distances.value(node.id) + 1 : 0;
                if (step > distances.value(next) && step <= nodes.size()) {
                    distances[next] = step;
                    grown = true;
                }
            }
        }
    }
    QList<int> list;
    for (const Node &node : nodes) {
        if (links.value(id).contains(node.id))
            list.append(distances.value(node.id));
    }
    return list;
}

QJsonObject fitted(QJsonObject artifact, qsizetype space, const RoomFacts &facts)
{
    Room room(std::move(artifact), space);
    room.dropResolvedFixes();
    cutWhatIsBeside(room, firstFloor, facts);
    for (const QString &key : {u"previous_file"_s, u"file"_s})
        room.excerptFile(key, facts);
    cutWhatIsBeside(room, lastFloor, facts);
    room.cut([](const QStringList &at) { return at.constFirst() != "node"_L1; }, lastFloor);
    return room.artifact;
}

QJsonArray fittedTools(const QJsonArray &tools, qsizetype room)
{
    const auto chars = [](const QJsonValue &value) { return json({{u"t"_s, value}}).size(); };
    if (chars(tools) <= room)
        return tools;
    const qsizetype share = room / tools.size();
    QJsonArray kept;
    for (const QJsonValue &whole : tools) {
        QJsonObject tool{{u"name"_s, whole["name"_L1]}, {u"server_id"_s, whole["server_id"_L1]}};
        for (const QString &key : {u"server_name"_s, u"description"_s})
            tool[key] = whole[key].toString().left(shownToolChars);
        if (chars(tool) + chars(whole["inputSchema"_L1]) <= share)
            tool["inputSchema"_L1] = whole["inputSchema"_L1];
        else
            tool["inputSchema_omitted"_L1] = true;
        room -= chars(tool);
        if (room < 0)
            break;
        kept.append(tool);
    }
    return kept;
}

} // namespace vesk
