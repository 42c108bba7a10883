// Tasks that a process left behind when it ended.

#include "recovery.h"

#include "helpers.h"
#include "phases.h"
#include "statuses.h"
#include "store.h"
#include "task_record.h"

#include <QSet>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

bool hasEnded(const QJsonObject &run)
{
    return isEndedRun(run["status"_L1].toString());
}

/// The run as it was last stored: its own row is newer than the task's document, which may have been put off.
QJsonObject endedRun(Store &store, const QString &taskId, const QJsonObject &known)
{
    const QString runId = known["id"_L1].toString();
    QJsonObject run = store.get(u"agent_runs"_s, runId);
    if (run.isEmpty())
        run = known;
    if (!hasEnded(run)) {
        run["status"_L1] = RunStatus::interrupted;
        store.put(u"agent_runs"_s, runId, taskId, run);
    }
    return TaskRecord::slimRun(run);
}

QJsonArray endedRuns(Store &store, const QString &taskId, const QJsonArray &known)
{
    QJsonArray runs;
    QSet<QString> seen;
    const auto take = [&](const QJsonArray &from) {
        for (const QJsonValue &entry : from) {
            const QJsonObject run = entry.toObject();
            const QString runId = run["id"_L1].toString();
            if (seen.contains(runId))
                continue;
            seen.insert(runId);
            runs.append(hasEnded(run) ? TaskRecord::slimRun(run) : endedRun(store, taskId, run));
        }
    };
    take(known);
    take(store.list(u"agent_runs"_s, taskId));
    return runs;
}

/// The nodes as they were last stored: like a run, a node's own row is newer than the task's document.
QJsonArray lastNodes(const Store &store, const QString &taskId, const QJsonArray &known)
{
    QJsonArray nodes;
    QSet<QString> seen;
    for (const QJsonValue &node : known) {
        const QString nodeId = node["id"_L1].toString();
        seen.insert(nodeId);
        const QJsonObject stored = store.get(u"task_nodes"_s, taskId + u':' + nodeId);
        nodes.append(stored.isEmpty() ? node : QJsonValue(stored));
    }
    // What stands before the first known one is of a plan that was given up.
    bool isOfPlan = seen.isEmpty();
    const QList<Store::Row> rows = store.rowsAfter(u"task_nodes"_s, taskId, 0);
    for (const Store::Row &row : rows) {
        const bool isKnown = seen.contains(row.body["id"_L1].toString());
        isOfPlan = isOfPlan || isKnown;
        if (isOfPlan && !isKnown)
            nodes.append(row.body);
    }
    return nodes;
}

} // namespace

void recoverInterruptedTasks(Store &store)
{
    // From the outlines: reading hundreds of whole documents to find the one that was cut off took seconds.
    const QJsonArray outlines = store.taskOutlines({});
    for (const QJsonValue &outline : outlines) {
        if (isEndPhase(outline["phase"_L1].toString()))
            continue;
        const QString taskId = outline["id"_L1].toString();
        QJsonObject task = store.get(u"tasks"_s, taskId);
        if (task.isEmpty())
            continue; // No longer readable; rows are never repaired.
        store.atomic([&] {
            task["phase"_L1] = Phase::interrupted;
            task["pending"_L1] = QJsonArray();
            task["error"_L1]
                = u"Предыдущий сеанс был прерван. История сохранена; незавершённую задачу нужно запустить заново."_s;
            const QJsonArray nodes = lastNodes(store, taskId, std::as_const(task)["graph"_L1].toArray());
            if (!nodes.isEmpty())
                task["graph"_L1] = nodes;
            task["runs"_L1] = endedRuns(store, taskId, std::as_const(task)["runs"_L1].toArray());
            store.put(u"tasks"_s, taskId, std::as_const(task)["project_id"_L1].toString(), task);
        });
    }
}

} // namespace vesk
