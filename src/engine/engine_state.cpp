// What of a task is kept, and when it is written.

#include "engine_p.h"

using namespace Qt::StringLiterals;

namespace vesk {

QJsonObject Engine::snapshot() const
{
    QJsonArray allRuns;
    for (const QJsonObject &run : runs)
        allRuns.append(run);

    QJsonObject state = headOfState();
    state["spec"_L1] = spec;
    state["decision"_L1] = decision;
    state["plan"_L1] = plan;
    state["structure"_L1] = structure;
    state["graph"_L1] = graph.toJson();
    state["runs"_L1] = allRuns;
    if (!evidence.isEmpty())
        state["evidence"_L1] = evidence;
    return state;
}

/// The keys of the state whose values are small.
QJsonObject Engine::headOfState() const
{
    QJsonArray pending;
    for (auto entry = pendingPermissions.cbegin(); entry != pendingPermissions.cend(); ++entry)
        pending.append(QJsonObject{{u"id"_s, entry.key()}, {u"node"_s, graph.nodes.at(entry.value()).toJson()}});

    return {
        {u"id"_s, taskId},
        {u"project_id"_s, taskId.isEmpty() ? workspace.project() : runProject},
        {u"phase"_s, phase},
        {u"paused"_s, paused},
        {u"simulation"_s, simulation},
        {u"error"_s, error},
        {u"pending"_s, pending},
        {u"tokens"_s, budget.used},
        {u"token_limit"_s, budget.limit},
        {u"reserved_tokens"_s, budget.reserved},
        {u"provider"_s, provider->name()},
        {u"updated"_s, now()},
    };
}

/// Each node that has changed is written at once; the state document, which repeats them all and grows with the run, is
/// written as often as its size allows.
void Engine::persist()
{
    if (!taskId.isEmpty())
        store.atomic([this] { writeState(); });
    record.confirm();
    Q_EMIT changed();
}

/// Inside a transaction.
void Engine::writeState()
{
    record.takeNodes(graph.nodes);
    record.eachUnwritten([this](const QString &node, const QByteArray &body) {
        store.putText(u"task_nodes"_s, taskId + u':' + node, taskId, body);
    });
    if (!busy() || documentPace.due() || phase != writtenPhase || waiting() || !pendingPermissions.isEmpty())
        writeDocument();
    else if (!documentTimer.isActive())
        documentTimer.start(documentPace.delayMs());
}

void Engine::writeDocument()
{
    documentPace.begin();
    documentTimer.stop();
    store.putTask(taskId, runProject, documentText(),
                  {{u"id"_s, taskId}, {u"project_id"_s, runProject}, {u"phase"_s, phase}, {u"spec"_s, spec}});
    writtenPhase = phase;
    documentPace.end();
}

/// The document that was put off, when nothing else has written it meanwhile.
void Engine::writeLateDocument()
{
    step([this] {
        store.atomic([this] { writeDocument(); });
        Q_EMIT changed();
    });
}

/// What snapshot() gives, with slim runs, put together from the text of what has not changed.
QByteArray Engine::documentText()
{
    QByteArray text = jsonBytes(headOfState());
    text.chop(1);
    const auto add = [&](const char *key, const QByteArray &value) {
        text += ",\"";
        text += key;
        text += "\":";
        text += value;
    };
    add("spec", record.object(u"spec"_s, spec));
    add("decision", record.object(u"decision"_s, decision));
    add("plan", record.object(u"plan"_s, plan));
    add("structure", record.object(u"structure"_s, structure));
    add("graph", record.graph(graph.nodes));
    add("runs", record.runs(runs));
    if (!evidence.isEmpty())
        add("evidence", record.object(u"evidence"_s, evidence));
    text += '}';
    return text;
}

void Engine::saveRun(const QJsonObject &run)
{
    const QString runId = run["id"_L1].toString();
    const auto known = runIndex.constFind(runId);
    if (known != runIndex.cend()) {
        runs[*known] = run;
    } else {
        runIndex.insert(runId, runs.size());
        runs.append(run);
    }

    // The run and the state that names it, in one transaction.
    store.atomic([&] {
        store.put(u"agent_runs"_s, runId, taskId, run);
        writeState();
    });
    record.confirm();
    Q_EMIT changed();
}

} // namespace vesk
