#pragma once

#include "links.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

/// One step of a plan.
struct Node {
    QString id; ///< Unique in the graph.
    QString title; ///< For people, in Russian.
    QString kind; ///< "code", "tool", "research" or "mcp".
    QString agent; ///< Carried through; nothing decides on it.
    QString status; ///< "QUEUED", "READY", "RUNNING", "BLOCKED", "REVIEWING", "REVISION_REQUIRED", "COMPLETED", ...
    QStringList dependencies; ///< Ids of nodes that must be "COMPLETED" first.
    QJsonObject input; ///< What to do; keys by kind ("path", "program", "arguments", "verification", ...).
    QJsonObject output; ///< What came of it: a file revision, a tool result, a role's answer.
    int priority = 1; ///< Higher runs first.
    int revision = 0; ///< Code nodes: the revision of the file once written.

    Node();

    /// Never fails: a missing or mistyped field takes its default.
    static Node fromJson(const QJsonObject &object);
    QJsonObject toJson() const;

    bool operator==(const Node &) const = default;
};

/// Who waits for whom.
Links linksOf(const QList<Node> &nodes);

/// The plan in its executable form: an ordered list of at most 64 nodes, addressed by index.
/// Nodes are only appended, so indices stay valid.
class TaskGraph {
public:
    static constexpr int maxNodes = 64;

    QList<Node> nodes;

    /// Replaces the content, then validates; after a failure the graph holds whatever was appended.
    void load(const QJsonArray &array);

    /// Throws at the first fault: size, ids, kinds, titles, document lengths, then dependencies and cycles.
    void validate() const;

    /// Indices of the nodes that may start now, by falling priority, equals in list order.
    QList<int> ready() const;

    /// True when there is at least one node and all are "COMPLETED".
    bool complete() const;

    QJsonArray toJson() const;
};

} // namespace vesk
