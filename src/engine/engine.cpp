// How a task begins and ends, and what stands between it and a step that throws.

#include "engine_p.h"

#include "path_rules.h"
#include "programs.h"
#include "request_room.h"

#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qint64 smallestBudget = 1000;
constexpr qsizetype maxNotesChars = 6000;

/// Name to full path of what a plan may use on this computer.
QJsonObject availableExecutables()
{
    QJsonObject found;
    for (const QString &name :
         {u"node"_s, u"python"_s, u"cmake"_s, u"git"_s, u"powershell"_s, u"pwsh"_s, u"blender"_s, u"sh"_s, u"bash"_s}) {
        const QString path = QStandardPaths::findExecutable(name);
        if (!path.isEmpty())
            found[name] = path;
    }
    // Distributions have it under the name with its version alone.
    const QString python = QStandardPaths::findExecutable(u"python3"_s);
    if (!found.contains("python"_L1) && !python.isEmpty())
        found["python"_L1] = python;
    if (found.contains("node"_L1)) {
        const QString script = npmScript(found["node"_L1].toString());
        if (!script.isEmpty())
            found["npm_cli"_L1] = script;
    }
    return found;
}

} // namespace

Engine::Engine(Store &store, Workspace &workspace, EventBus &events, PermissionManager &permissions, ToolRouter &tools,
               ILLMProvider *provider, QObject *parent)
    : QObject(parent)
    , store(store)
    , workspace(workspace)
    , events(events)
    , permissions(permissions)
    , tools(tools)
    , provider(provider)
    , phase(Phase::idle)
{
    documentTimer.setSingleShot(true);
    connect(&documentTimer, &QTimer::timeout, this, &Engine::writeLateDocument);
}

Engine::~Engine()
{
    if (documentTimer.isActive())
        attempt([this] { store.atomic([this] { writeDocument(); }); });
}

bool Engine::busy() const
{
    return phase != Phase::idle && !isEndPhase(phase);
}

void Engine::start(const QString &request, bool simulated, qint64 tokens, QJsonObject buildCommand)
{
    require(!busy(), u"A task is already active"_s);
    require(!workspace.root().isEmpty(), u"Create or select a project first"_s);
    require(!request.trimmed().isEmpty(), u"Enter a task request"_s);
    requireFilesAsLeft();

    // What may throw comes before anything changes: a bad network or a failing store leaves the last task in view.
    validateAgentWorkflow(agentNetwork);
    const QJsonArray files = existingFiles();
    const QString newTask = id();
    store.put(u"messages"_s, id(), newTask, {{u"role"_s, u"user"_s}, {u"content"_s, request}, {u"time"_s, now()}});

    ++generation;
    reset();
    simulation = simulated;
    budget = {std::max(tokens, smallestBudget), 0, 0};

    taskId = newTask;
    runProject = workspace.project();
    spec = {
        {u"original_request"_s, request},
        {u"build_command"_s, buildCommand},
        {u"available_executables"_s, availableExecutables()},
        {u"existing_files"_s, files},
        {u"media"_s, requestMedia},
        {u"media_tools"_s, mediaTools},
        {u"conversation_history"_s, conversationHistory},
        {u"previous_requirements"_s, std::as_const(previousSpec)["requirements"_L1]},
        {u"available_mcp_tools"_s, fittedTools(mcpTools, maxToolChars)},
        {u"available_specialists"_s, availableSpecialists()},
        {u"automatic_routing"_s, automaticRouting},
        {u"disabled_agents"_s, QJsonArray::fromStringList([this] {
             QStringList sorted = disabledAgents.values();
             sorted.sort();
             return sorted;
         }())},
    };

    glance = glanceAt(files, projectTree, projectTreeMap, request);
    if (!glance.map.isEmpty()) {
        const QString lines = openings(files);
        glance.map = glance.map.left(maxMapChars - lines.size()) + lines;
    }
    const QString notes = projectNotes();
    if (!notes.isEmpty())
        spec["project_notes"_L1] = notes;
    grantFileAccess();
    step([&] {
        enter(Phase::intake);
        publish(u"TaskCreated"_s, request);
        intake();
    });
}

/// What the user has changed is not to be overwritten, and a run over it would end at its checkpoint, after all that
/// was asked of the models.
void Engine::requireFilesAsLeft() const
{
    const QList<HandEdit> edits = workspace.handEdits();
    require(edits.isEmpty(),
            u"Задача не начата: файлы проекта изменены вне программы: "_s + namedEdits(edits)
                + u". Возьмите свои версии (--accept-edits) или верните версии программы."_s);
}

void Engine::reset()
{
    workflowGroups.clear();
    workflowResults.clear();
    delegations = {};
    seenDelegations.clear();
    delegationRounds = 0;
    queue.clear();
    deferred.clear();
    active.clear();
    pendingPermissions.clear();
    agents.clear();
    runs.clear();
    runIndex.clear();
    record.clear();
    documentTimer.stop();
    documentPace = {};
    writtenPhase.clear();
    graph = {};
    limitations.clear();
    decision = {};
    decisionContinuation = {};
    leftOut.clear();
    plan = {};
    structure = {};
    evidence = {};
    hollowTests.clear();
    error.clear();
    planRevisions = 0;
    structureRevisions = 0;
    paused = false;
}

QJsonArray Engine::existingFiles() const
{
    QJsonArray list;
    const QJsonArray files = workspace.files();
    for (const QJsonValue &file : files) {
        if (!file["deleted"_L1].toBool())
            list.append(QJsonObject{{u"path"_s, file["path"_L1]}, {u"revision"_s, file["revision"_L1]}});
    }
    return list;
}

/// How the files begin that tell most of a project, for its map.
QString Engine::openings(const QJsonArray &files) const
{
    constexpr qint64 quickBytes = 65536;
    QStringList paths = projectTree;
    if (paths.isEmpty()) {
        for (const QJsonValue &file : files)
            paths.append(slashed(file["path"_L1].toString()));
    }
    QString lines;
    const QStringList chosen = filesToOpen(paths);
    for (const QString &path : chosen) {
        try {
            const QString line = QFileInfo(workspace.resolve(path)).size() > quickBytes
                ? QString()
                : openingOf(QString::fromUtf8(workspace.read(path)));
            if (!line.isEmpty())
                lines += u'\n' + path + u": "_s + line;
        } catch (const std::exception &) {
            continue; // It is gone meanwhile, or may not be read.
        }
    }
    return lines.isEmpty() ? lines : u'\n' + lines;
}

/// What a project says to those who work on it; empty when it says nothing, or nothing that can be read.
QString Engine::projectNotes() const
{
    const QString file = u"AGENTS.md"_s;
    try {
        (void)editsOf({file}); // takes it in where it never was touched
        return QString::fromUtf8(workspace.recorded(file)).left(maxNotesChars);
    } catch (const std::exception &) {
        return {};
    }
}

QJsonArray Engine::availableSpecialists() const
{
    QJsonArray list;
    for (const QJsonValue &entry : agentNetwork) {
        const bool open = automaticRouting || !entry["parent"_L1].toString().isEmpty();
        const bool hasTasks = entry["tasks"_L1].isUndefined() || !entry["tasks"_L1].toArray().isEmpty();
        if (!entry["enabled"_L1].toBool() || !open || !hasTasks)
            continue;
        QJsonObject agent = entry.toObject();
        agent.remove("instructions"_L1);
        list.append(agent);
    }
    return list;
}

void Engine::grantFileAccess()
{
    if (!simulation)
        grantWriting();
    permissions.grants.append(taskGrant(u"read_file"_s, taskId, workspace.project(), PermissionLevel::Read));
}

void Engine::grantWriting()
{
    permissions.grants.append(taskGrant(u"write_file"_s, taskId, workspace.project(), PermissionLevel::Write));
}

void Engine::stage(const QString &next)
{
    // Whoever is told of a step may have ended the run in the middle of it; the rest of the step doesn't bring it back.
    if (busy() && phase != next)
        enter(next);
    else
        persist();
}

void Engine::enter(const QString &next)
{
    phase = next;
    publish(u"PhaseChanged"_s, next);
    persist();
}

void Engine::pause()
{
    require(busy(), u"No task to pause"_s);
    paused = true;
    publish(u"TaskPaused"_s, u"Current requests may finish; queued actions wait"_s);
    persist();
}

void Engine::resume()
{
    require(busy(), u"No task to resume"_s);
    paused = false;
    publish(u"TaskResumed"_s, u"Scheduling resumed"_s);
    runDeferred();
    step([this] {
        pump();
        scheduleNodes();
        persist();
    });
}

/// Continuations that came in while the run stood still, until one of them stops it again.
void Engine::runDeferred()
{
    while (busy() && !waiting() && !deferred.empty()) {
        const Step next = std::move(deferred.front());
        deferred.pop_front();
        step(next);
    }
}

bool Engine::waiting() const
{
    return paused || !decision.isEmpty();
}

void Engine::cancel()
{
    if (busy())
        endRun(Phase::cancelled, {});
}

void Engine::fail(const QString &reason)
{
    if (busy())
        endRun(Phase::failed, reason);
}

/// The store may be what failed; the end is announced all the same, and exactly once.
void Engine::endRun(const QString &endPhase, const QString &reason)
{
    // From here on the run is over: nothing that follows can end it a second time.
    phase = endPhase;
    error = reason;
    ++generation;
    provider->cancelAll();
    for (ILLMProvider *other : std::as_const(agentProviders))
        other->cancelAll();
    tools.cancelAll();

    attempt([&] { tidyRun(endPhase); });
    permissions.expireTask(taskId);
    attempt([&] { publish(u"PhaseChanged"_s, endPhase); });
    attempt([this] { persist(); });
    if (endPhase == Phase::failed)
        attempt([&] { publish(u"TaskFailed"_s, reason); });
    attempt([&] { Q_EMIT finished(endPhase); });
}

/// A node that is not done gets the end of the run for its status.
void Engine::tidyRun(const QString &endPhase)
{
    queue.clear();
    deferred.clear();
    active.clear();
    pendingPermissions.clear();
    decision = {};
    decisionContinuation = {};
    budget.reserved = 0;
    for (Node &node : graph.nodes) {
        if (node.status != NodeStatus::completed)
            node.status = endPhase;
    }

    QList<QJsonObject> cut;
    for (QJsonObject &run : runs) {
        if (isEndedRun(run["status"_L1].toString()))
            continue;
        run["status"_L1] = RunStatus::cancelled;
        cut.append(run);
    }
    store.atomic([&] {
        for (const QJsonObject &run : std::as_const(cut))
            store.put(u"agent_runs"_s, run["id"_L1].toString(), taskId, run);
    });
}

/// The good end of a run, after everything that it asks for has been checked.
void Engine::completeRun(const QString &message, const QJsonObject &data)
{
    if (!busy())
        return;
    permissions.expireTask(taskId);
    const QString before = phase;
    try {
        stage(Phase::completed);
    } catch (const std::exception &) {
        // An end that can't be stored is none: the step fails, and fail() must find a run to end.
        phase = before;
        throw;
    }
    attempt([&] { publish(u"TaskCompleted"_s, message, data); });
    attempt([this] { Q_EMIT finished(Phase::completed); });
}

void Engine::setProvider(ILLMProvider *next)
{
    require(!busy(), u"Stop the active task before changing provider"_s);
    provider = next;
}

void Engine::priority(const QString &nodeId, int value)
{
    for (Node &node : graph.nodes) {
        if (node.id == nodeId)
            node.priority = std::clamp(value, 0, 2);
    }
    persist();
}

/// Runs a step of the run; what it throws ends the run.
void Engine::step(const Step &work)
{
    try {
        work();
    } catch (const std::exception &failure) {
        fail(textOf(failure));
    }
}

/// Runs what must not keep the end of a run from being announced.
void Engine::attempt(const Step &work)
{
    try {
        work();
    } catch (const std::exception &failure) {
        // A task that is stored as completed has not failed, whatever became of the news.
        if (error.isEmpty() && phase != Phase::completed)
            error = textOf(failure);
    }
}

/// A step on a later turn of the event loop, unless the run has ended by then.
void Engine::later(int delayMs, Step work)
{
    QTimer::singleShot(delayMs, this, whileThisRun([this, work = std::move(work)] { step(work); }));
}

void Engine::publish(const QString &type, const QString &message, const QJsonObject &data)
{
    events.publish(taskId, type, message, data);
}

} // namespace vesk
