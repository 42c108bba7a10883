// A program runs only under a grant for its exact command; without one its node waits for the user.

#include "engine_p.h"

#include "data_syntax.h"
#include "media_command.h"
#include "project_checks.h"
#include "rework.h"

#include <QCoreApplication>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

const QString &runCommand()
{
    static const QString tool = u"run_command"_s;
    return tool;
}

/// The application reads the files itself: there is no program to ask about.
bool isOwnParse(const QJsonObject &input)
{
    return input["builtin"_L1] == true;
}

} // namespace

void Engine::runTool(int index)
{
    const QJsonObject input = graph.nodes.at(index).input;
    const QString fingerprint = ToolRouter::fingerprint(runCommand(), input);
    if (isOwnParse(input) || needsNoQuestion(input))
        grantAction(fingerprint);

    if (!permissions.allowed(runCommand(), PermissionLevel::Execute, taskId, workspace.project(), fingerprint, false)) {
        askPermission(index, fingerprint);
        return;
    }
    // The grant waits for resume(), or for a file that is being rewritten since the question was asked.
    if (paused || !isReleased(index)) {
        graph.nodes[index].status = NodeStatus::queued;
        persist();
        return;
    }
    startTool(index);
}

void Engine::grantAction(const QString &fingerprint)
{
    permissions.grants.append(actionGrant(runCommand(), taskId, workspace.project(), fingerprint));
}

bool Engine::needsNoQuestion(const QJsonObject &command) const
{
    return computerAccess
        || isSafeMediaJob(command,
                          {QCoreApplication::applicationFilePath(), workspace.root(),
                           mediaTools["ffmpeg"_L1].toString(),
                           [this](const QString &path) { return pathFault(path).isEmpty(); }});
}

void Engine::askPermission(int index, const QString &fingerprint)
{
    const QString approval = taskId + u':' + fingerprint;
    graph.nodes[index].status = NodeStatus::blocked;
    pendingPermissions.insert(approval, index);
    publish(u"PermissionRequested"_s, u"Approve exact terminal command"_s,
            {{u"id"_s, approval}, {u"arguments"_s, graph.nodes.at(index).input}, {u"cwd"_s, workspace.root()}});
    persist();
}

void Engine::approve(const QString &approval, bool allow)
{
    const auto pending = pendingPermissions.constFind(approval);
    require(pending != pendingPermissions.cend(), u"Approval is no longer pending"_s);
    const int index = *pending;
    pendingPermissions.erase(pending);
    if (!allow) {
        fail(u"Terminal permission denied"_s);
        return;
    }

    step([&] {
        grantAction(ToolRouter::fingerprint(runCommand(), graph.nodes.at(index).input));
        store.put(u"permissions"_s, id(), taskId,
                  {{u"tool"_s, runCommand()},
                   {u"scope"_s, u"THIS_ACTION"_s},
                   {u"action"_s, approval},
                   {u"granted_at"_s, now()}});
        publish(u"PermissionGranted"_s, u"Exact command approved"_s);
        const bool hasTwins = requeueTwins(index);
        runTool(index);
        if (hasTwins)
            scheduleNodes();
        persist();
    });
}

/// Nodes with the same command share one question, and its answer is for one of them: lets the others ask for
/// themselves. True when there are any.
bool Engine::requeueTwins(int index)
{
    bool found = false;
    for (int i = 0; i < graph.nodes.size(); ++i) {
        Node &node = graph.nodes[i];
        if (i == index || node.status != NodeStatus::blocked || node.input != graph.nodes.at(index).input)
            continue;
        node.status = NodeStatus::queued;
        found = true;
    }
    return found;
}

void Engine::startTool(int index)
{
    const int noted = generation;
    Node &node = graph.nodes[index];
    node.status = NodeStatus::running;
    const Agent terminal = makeAgent(u"terminal"_s, u"Terminal Agent"_s, {u"process"_s}, {runCommand()});
    const QJsonObject run = terminalRun(terminal, taskId, node.input);
    saveRun(run);
    // Whoever was told of the run may have ended it.
    if (noted != generation)
        return;
    if (isOwnParse(node.input)) {
        later(0, [this, index, tested = testedRevisions(graph.nodes, index), run] {
            takeToolResult(index, tested, run, readData(graph.nodes.at(index)));
        });
        return;
    }
    tools.execute(
        taskId, terminal.id, terminal.allowed_tools, runCommand(), node.input,
        whileThisRun([this, index, tested = testedRevisions(graph.nodes, index), run](const QJsonObject &result) {
            step([&] { takeToolResult(index, tested, run, result); });
        }));
}

QJsonObject Engine::terminalRun(const Agent &terminal, const QString &task, const QJsonObject &command)
{
    return {
        {u"id"_s, id()},
        {u"agent_id"_s, terminal.id},
        {u"role"_s, u"terminal"_s},
        {u"task_id"_s, task},
        {u"status"_s, RunStatus::usingTool},
        {u"model"_s, u"ToolRouter / QProcess"_s},
        {u"started_at"_s, now()},
        {u"context"_s, command},
    };
}

/// Throws when the result could not be recorded.
void Engine::endTerminalRun(QJsonObject run, const QString &status, const QJsonObject &result)
{
    run["status"_L1] = status;
    run["output"_L1] = result;
    run["finished_at"_L1] = now();
    saveRun(run);
    store.put(u"tool_calls"_s, result["id"_L1].toString(), taskId, result);
    requireRecorded(result);
}

/// Of files of this task, as they are now.
QJsonObject Engine::readData(const Node &node) const
{
    const QString started = now();
    QJsonObject result = dataSyntaxResult(strings(node.input["arguments"_L1].toArray()),
                                          [this](const QString &path) { return fileText(path); });
    result["id"_L1] = id();
    result["tool"_L1] = node.input["program"_L1];
    result["started_at"_L1] = started;
    result["finished_at"_L1] = now();
    return result;
}

void Engine::takeToolResult(int index, const QHash<QString, int> &tested, const QJsonObject &run,
                            const QJsonObject &result)
{
    const bool success = result["success"_L1].toBool();
    endTerminalRun(run, success ? RunStatus::completed : RunStatus::error, result);
    Node &node = graph.nodes[index];
    const bool isOutdated = testedRevisions(graph.nodes, index) != tested;
    if (!isCheck(node) && success && isOutdated) {
        // A copy of what is gone: made again, under the consent it had.
        rearm(node);
        grantAction(ToolRouter::fingerprint(runCommand(), node.input));
        persist();
        scheduleNodes();
        return;
    }
    if (isCheck(node) && (isOutdated || (!success && isBeingRewritten(graph.nodes, index)))) {
        // Files were, or are being, rewritten because of another check: this one has to see them, too.
        rearm(node);
        persist();
        scheduleNodes();
        return;
    }
    if (success && tellDeadControls(index, result))
        return;
    const BrowserVerdict verdict = verdictOf(index, result);
    QJsonObject output = result;
    if (!verdict.opened)
        output["limitation"_L1] = verdict.limitation;
    finishNode(index, output, success || !verdict.opened);
    noteLimitation(index, verdict.limitation);
    if (success || !verdict.opened)
        scheduleNodes();
    else
        recoverVerification(index, result);
}

/// What a tool did and nobody could record has not happened for anyone who reads the task later: the run ends over it.
void Engine::requireRecorded(const QJsonObject &result)
{
    const QString fault = result["unrecorded"_L1].toString();
    require(fault.isEmpty(), fault);
}

void Engine::finishNode(int index, const QJsonObject &result, bool done)
{
    Node &node = graph.nodes[index];
    node.output = result;
    node.status = done ? NodeStatus::completed : NodeStatus::failed;
    persist();
}

void Engine::callMcp(int index)
{
    require(bool(mcpCall), u"MCP-клиент недоступен"_s);
    const QJsonObject input = graph.nodes.at(index).input;
    mcpCall(input["server_id"_L1].toString(), input["tool"_L1].toString(), input["arguments"_L1].toObject(),
            whileThisRun([this, index](const QJsonObject &result) {
                step([&] {
                    const bool success = result["success"_L1].toBool();
                    finishNode(index, result, success);
                    const QString reason = result["error"_L1].toString();
                    if (success)
                        scheduleNodes();
                    else
                        fail(reason.isEmpty() ? u"Ошибка инструмента MCP"_s : reason);
                });
            }));
}

} // namespace vesk
