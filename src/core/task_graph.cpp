// The plan as a graph: what it refuses, what may start, when it is done.

#include "task_graph.h"

#include "helpers.h"
#include "links.h"
#include "statuses.h"

#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxDocumentChars = 60000;

void requireSoundNode(const Node &node, QSet<QString> &seen)
{
    static const QStringList kinds{u"code"_s, u"tool"_s, u"research"_s, u"mcp"_s};
    require(!node.id.isEmpty() && !seen.contains(node.id), u"Duplicate/empty node ID"_s);
    seen.insert(node.id);
    require(kinds.contains(node.kind), u"Unsupported node kind"_s);
    require(!node.title.isEmpty(), u"Node needs title"_s);
    // Compared as a number: 1e300 has no integer value, and toInt() would read it as 0.
    require(node.input["min_chars"_L1].toDouble() < maxDocumentChars + 1,
            u"Split long documents into chapters of at most 60000 characters each"_s);
}

} // namespace

Node::Node()
    : status(NodeStatus::queued)
{
}

Node Node::fromJson(const QJsonObject &object)
{
    Node node;
    node.id = object["id"_L1].toString();
    node.title = object["title"_L1].toString();
    node.kind = object["kind"_L1].toString();
    node.agent = object["agent"_L1].toString();
    node.status = object["status"_L1].toString(NodeStatus::queued);
    node.dependencies = strings(object["dependencies"_L1].toArray());
    node.input = object["input"_L1].toObject();
    node.output = object["output"_L1].toObject();
    node.priority = object["priority"_L1].toInt(1);
    node.revision = object["revision"_L1].toInt(0);
    return node;
}

QJsonObject Node::toJson() const
{
    return {
        {u"id"_s, id},
        {u"title"_s, title},
        {u"kind"_s, kind},
        {u"agent"_s, agent},
        {u"status"_s, status},
        {u"dependencies"_s, QJsonArray::fromStringList(dependencies)},
        {u"input"_s, input},
        {u"output"_s, output},
        {u"priority"_s, priority},
        {u"revision"_s, revision},
    };
}

Links linksOf(const QList<Node> &nodes)
{
    Links links;
    for (const Node &node : nodes)
        links.insert(node.id, node.dependencies);
    return links;
}

void TaskGraph::load(const QJsonArray &array)
{
    nodes.clear();
    for (const QJsonValue &value : array) {
        require(value.isObject(), u"Node must be object"_s);
        // A plan from a model may hold a million entries; more than one over the limit tells nothing new.
        if (nodes.size() <= maxNodes)
            nodes.append(Node::fromJson(value.toObject()));
    }
    validate();
}

void TaskGraph::validate() const
{
    require(!nodes.isEmpty() && nodes.size() <= maxNodes, u"Graph requires 1..64 nodes"_s);

    QSet<QString> seen;
    for (const Node &node : nodes)
        requireSoundNode(node, seen);

    const Links links = linksOf(nodes);
    QStringList ids;
    for (const Node &node : nodes)
        ids.append(node.id);
    requireSoundLinks(links, ids, u"Dependency cycle"_s, [&](const QString &, const QString &dependency) {
        require(links.contains(dependency), u"Missing dependency: "_s + dependency);
    });
}

QList<int> TaskGraph::ready() const
{
    QSet<QString> completed;
    for (const Node &node : nodes) {
        if (node.status == NodeStatus::completed)
            completed.insert(node.id);
    }

    QList<int> indices;
    for (int i = 0; i < nodes.size(); ++i) {
        const Node &node = nodes.at(i);
        if (isStartable(node.status)
            && std::ranges::all_of(node.dependencies, [&](const QString &id) { return completed.contains(id); }))
            indices.append(i);
    }
    std::ranges::stable_sort(indices, [this](int a, int b) { return nodes.at(a).priority > nodes.at(b).priority; });
    return indices;
}

bool TaskGraph::complete() const
{
    return !nodes.isEmpty()
        && std::ranges::all_of(nodes, [](const Node &node) { return node.status == NodeStatus::completed; });
}

QJsonArray TaskGraph::toJson() const
{
    QJsonArray array;
    for (const Node &node : nodes)
        array.append(node.toJson());
    return array;
}

} // namespace vesk
