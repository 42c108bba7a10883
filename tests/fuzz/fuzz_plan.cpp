// A plan as a model writes it.

#include "fuzz.h"
#include "task_graph.h"

#include <QJsonDocument>

using namespace vesk;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    TaskGraph graph;
    try {
        graph.load(QJsonDocument::fromJson(bytesOf(data, size)).array());
    } catch (const std::exception &) {
        return 0;
    }
    TaskGraph again;
    again.load(graph.toJson());
    holds(again.nodes == graph.nodes && again.complete() == graph.complete());
    const QList<int> ready = graph.ready();
    for (const int index : ready)
        holds(index >= 0 && index < graph.nodes.size());
    // Without a cycle something can be done until all is.
    for (int round = 0; round <= TaskGraph::maxNodes && !again.complete(); ++round) {
        for (Node &node : again.nodes)
            node.status = node.status == u"COMPLETED" ? node.status : QStringLiteral("QUEUED");
        const QList<int> next = again.ready();
        holds(!next.isEmpty());
        for (const int index : next)
            again.nodes[index].status = QStringLiteral("COMPLETED");
    }
    holds(again.complete());
    return 0;
}
