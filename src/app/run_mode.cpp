// One task without a window: told on one stream, reported on the other.

#include "run_mode.h"

#include "agent_network.h"
#include "console.h"
#include "helpers.h"
#include "mcp_config.h"
#include "mcp_link.h"
#include "mcp_server.h"
#include "narrator.h"
#include "phases.h"
#include "project_lookup.h"
#include "project_record.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxOwnChoices = 20;
constexpr int maxSameChoices = 3;

/// Text in quotes, with what can't be seen, or makes other text look different, in numbers.
QString quoted(QString text)
{
    static const QRegularExpression special(u"([\\\\\"])"_s);
    return u'"' + visibleText(text.replace(special, u"\\\\1"_s)) + u'"';
}

/// A command so that nothing about it is left open: each argument in quotes of its own.
QString exactCommand(const QJsonObject &input)
{
    QStringList parts{quoted(input["program"_L1].toString())};
    const QStringList arguments = strings(input["arguments"_L1].toArray());
    for (const QString &argument : arguments)
        parts.append(quoted(argument));
    return parts.join(u' ');
}

QString questionText(const QJsonObject &decision)
{
    QStringList lines{visibleLines(decision["question"_L1].toString())};
    const QStringList choices = strings(decision["options"_L1].toArray());
    for (qsizetype i = 0; i < choices.size(); ++i)
        lines.append(u"  %1) %2"_s.arg(i + 1).arg(oneLine(choices[i])));
    return lines.join(u'\n');
}

} // namespace

RunMode::RunMode(const RunOptions &options, const QString &dataFolder,
                 const std::function<ILLMProvider &(const Store &)> &chooseModel)
    : options(options)
    , core(databaseIn(dataFolder), nullptr)
{
    core.engine.setProvider(&chooseModel(core.store));
    const QString fault = core.recover();
    require(fault.isEmpty(), fault);
    bindProject();
    core.engine.computerAccess = options.allowCommands;
    if (options.workflowDemo)
        core.engine.agentNetwork = withTemplate({});
    connect(&core.events, &EventBus::event, this, &RunMode::follow);
    connect(&core.engine, &Engine::changed, this, &RunMode::watchPhase);
    connect(&core.engine, &Engine::finished, this, &RunMode::finish);
    useMcp(core, mcp);
    connect(&mcp, &McpClient::statusMessage, this, [this](const QString &text) {
        if (!this->options.json)
            printErrorLine(visibleLines(text));
    });
}

/// A folder that has been a project before stays the same project, with its files and history.
void RunMode::bindProject()
{
    core.workspace.open(options.projectFolder, {});
    const QString root = core.workspace.root();
    QString project = projectAt(core.store, root);
    if (project.isEmpty()) {
        project = id();
        core.store.put(u"projects"_s, project, {}, projectRecord(project, QFileInfo(root).fileName(), root));
    }
    core.workspace.open(root, project);
    while (core.workspace.restoreNext()) { } // that a crash has interrupted
}

/// A large folder is taken in as it is touched; what it has is told to the planner all the same.
void RunMode::mapLargeFolder(const TakeIn &scan)
{
    QList<MappedFile> files;
    for (const TakeIn::File &file : scan.files()) {
        files.append({file.path, file.bytes});
        core.engine.projectTree.append(file.path);
    }
    core.engine.projectTreeMap = projectMap(files, maxMapChars);
}

int RunMode::exec()
{
    QTimer::singleShot(0, this, &RunMode::begin);
    return QCoreApplication::exec();
}

void RunMode::begin()
{
    if (decided)
        return;
    guarded([this] {
        if (options.takeIn || core.workspace.takesLazily())
            takeFolderIn();
        if (options.acceptEdits)
            takeEdits();
        const QList<HandEdit> edits = canAsk() ? core.workspace.handEdits() : QList<HandEdit>();
        if (!edits.isEmpty())
            askAboutEdits(edits, [this, edits](bool takesOwn) { settleEdits(edits, takesOwn); });
        else
            beginTask();
    });
}

void RunMode::beginTask()
{
    guarded([this] {
        if (options.allowCommands)
            prepareServers();
    });
    startWhenReady();
}

/// One that can't be settled ends the run: the task would be refused over it.
void RunMode::settleEdits(const QList<HandEdit> &edits, bool takesOwn)
{
    guarded([&] {
        for (const HandEdit &edit : edits) {
            (void)(takesOwn ? core.workspace.takeEdit(edit.path) : core.workspace.undoEdit(edit.path));
            if (!options.json)
                printErrorLine((takesOwn ? u"Взята ваша версия: "_s : u"Возвращена версия программы: "_s)
                               + visibleText(edit.text()));
        }
    });
    if (!decided)
        beginTask();
}

/// Calls up the MCP servers that the request names. Unlike in the window this run is the only one to use them, so it
/// waits until they are there or have failed.
void RunMode::prepareServers()
{
    mcp.scan(core.workspace.root());
    const QStringList wanted = serversToStart(mcp.list(), options.request);
    connect(&mcp, &McpClient::changed, this, &RunMode::startWhenReady, Qt::QueuedConnection);
    for (const QString &server : wanted)
        mcp.connectServer(server);
    askForServer();
}

/// A server that a file of the project describes: nothing on the command line allows those, as agents write such files.
void RunMode::askForServer()
{
    const QJsonObject request = mcp.requests().at(0).toObject();
    if (request.isEmpty())
        return startWhenReady();
    QJsonObject entry = request;
    entry.remove("id"_L1);
    const QString what = u"Сервер MCP из файла проекта требует разрешения:\n"_s
        + visibleLines(QString::fromUtf8(QJsonDocument(entry).toJson()).trimmed());
    const QString server = request["id"_L1].toString();
    if (canAsk()) {
        ask(what, [this, server](bool yes) {
            guarded([&] { decideOnServer(core, mcp, server, yes); });
            askForServer();
        });
        return;
    }
    printErrorLine(what + u"\nБез разрешения он не подключается. Разрешить можно в терминале или в окне."_s);
    mcp.decide(server, false);
    askForServer();
}

void RunMode::startWhenReady()
{
    const QJsonArray servers = mcp.list();
    const bool waits = std::ranges::any_of(
        servers, [](const QJsonValue &server) { return server["status"_L1].toString() == McpStatus::connecting; });
    if (decided || begun || asking || waits)
        return;
    begun = true;
    core.engine.mcpTools = mcp.availableTools();
    guarded([this] { core.engine.start(options.request, options.simulate, options.budget, options.buildCommand); });
}

/// Files that the project has already stay what they are; of a large folder each waits until it is touched.
void RunMode::takeFolderIn()
{
    constexpr qsizetype batch = 64;
    TakeIn scan(core.workspace);
    while (scan.lookOn()) { }
    if (scan.isLarge() && core.workspace.files().isEmpty())
        core.workspace.takeLazily();
    if (core.workspace.takesLazily())
        return mapLargeFolder(scan);
    QStringList paths;
    for (const TakeIn::File &file : scan.files()) {
        paths.append(file.path);
        if (paths.size() == batch)
            core.workspace.takeNew(std::exchange(paths, {}));
    }
    core.workspace.takeNew(paths);
    if (options.json)
        return;
    printErrorLine(u"Принято файлов: %1, КиБ: %2"_s.arg(scan.files().size()).arg(scan.bytes() / 1024));
    for (const auto &[reason, count] : scan.leftOut().asKeyValueRange())
        printErrorLine(u"Не принято, %1: %2"_s.arg(reason).arg(count));
}

/// A task over the user's edits would be refused.
void RunMode::takeEdits()
{
    const QList<HandEdit> edits = core.workspace.handEdits();
    for (const HandEdit &edit : edits) {
        (void)core.workspace.takeEdit(edit.path);
        if (!options.json)
            printErrorLine(u"Взята ваша версия: "_s + visibleText(edit.text()));
    }
}

/// Every event is stored before anything follows from it.
void RunMode::follow(const QJsonObject &event)
{
    showEvent(event, core.journal.record(event));
    if (event["type"_L1].toString() == "PermissionRequested"_L1) {
        const QJsonObject request = event["data"_L1].toObject();
        // On a turn of its own: the engine is in the middle of a step.
        QTimer::singleShot(0, this, [this, request] { takePermissionRequest(request); });
    }
}

/// Nodes with one command are one question, and its answer is for all of them.
void RunMode::takePermissionRequest(const QJsonObject &request)
{
    // A command that other nodes wait for as well is asked for again with each of them that has been let run.
    const QJsonArray pending = core.engine.snapshot()["pending"_L1].toArray();
    if (std::ranges::none_of(pending, [&](const QJsonValue &waiting) { return waiting["id"_L1] == request["id"_L1]; }))
        return;
    const auto known = agreed.find(request["id"_L1].toString());
    if (known != agreed.end() && *known > 0) {
        --*known;
        guarded([&] { core.engine.approve(request["id"_L1].toString(), true); });
        return;
    }
    permissionRequests.append(request);
    askPermission();
}

void RunMode::showEvent(const QJsonObject &event, const QString &line)
{
    if (options.json)
        printLine(json(event));
    else if (!line.isEmpty())
        printErrorLine(visibleLines(line));
    else if (event["type"_L1].toString() == "PhaseChanged"_L1)
        printErrorLine(Narrator::phase(event["message"_L1].toString()) + u'.');
}

void RunMode::watchPhase()
{
    if (turnPending || decided)
        return;
    turnPending = true;
    // On a turn of its own: the engine is in the middle of a step when it says that something has changed.
    QTimer::singleShot(0, this, [this] {
        turnPending = false;
        guarded([this] {
            const QString phase = core.engine.phaseCode();
            if (phase == Phase::clarification)
                answerQuestion();
            else if (phase == Phase::preview)
                showPlan();
        });
    });
}

void RunMode::answerQuestion()
{
    const QJsonObject decision = core.engine.snapshot()["decision"_L1].toObject();
    const QStringList choices = strings(decision["options"_L1].toArray());
    if (options.acceptEdits && decision["kind"_L1].toString() == "hand_edit"_L1 && ++editAnswers <= maxOwnChoices)
        return core.engine.clarify(choices.first());
    if (decision["kind"_L1].toString() == "hand_edit"_L1 && options.answers.isEmpty() && canAsk()) {
        // One question at a time; this one comes up again behind a command's.
        QList<HandEdit> edits = core.workspace.handEdits();
        edits.removeIf([asked = strings(decision["paths"_L1].toArray())](const HandEdit &edit) {
            return !asked.contains(edit.path);
        });
        if (!asking)
            askAboutEdits(edits, [this, choices](bool takesOwn) {
                guarded([&] { core.engine.clarify(choices.value(takesOwn ? 0 : 1)); });
            });
        return;
    }
    const QString answer = options.answers.isEmpty() ? ownChoice(decision["question"_L1].toString(), choices)
                                                     : options.answers.takeFirst();
    if (answer.isEmpty()) {
        printErrorLine(u"Нужен ответ на вопрос (--answer):\n"_s + questionText(decision));
        stop(RunExit::AnswerNeeded);
        return;
    }
    if (!options.json)
        printErrorLine(u"Ответ: "_s + oneLine(answer));
    core.engine.clarify(answer);
}

/// The first option; empty when there is none, or when a run asks on and on.
QString RunMode::ownChoice(const QString &question, const QStringList &offered)
{
    if (offered.isEmpty() || ++choices > maxOwnChoices || ++chosen[question.simplified()] > maxSameChoices)
        return {};
    return offered.first();
}

void RunMode::showPlan()
{
    if (!options.json) {
        const QJsonArray nodes = core.engine.snapshot()["plan"_L1]["nodes"_L1].toArray();
        QStringList lines{u"План"_s, {}};
        for (qsizetype i = 0; i < nodes.size(); ++i) {
            const QJsonValue node = nodes.at(i);
            const QString path = node["input"_L1]["path"_L1].toString();
            lines.append(u"%1. %2"_s.arg(i + 1).arg(oneLine(node["title"_L1].toString()))
                         + (path.isEmpty() ? QString() : u" — "_s + visibleText(path)));
        }
        printLine(lines.join(u'\n'));
    }
    stop(RunExit::Completed);
}

/// One question at a time: an answer must not go to another command than the one in view.
void RunMode::askPermission()
{
    if (decided || asking || permissionRequests.isEmpty() || !core.engine.busy())
        return;
    const QJsonObject &request = permissionRequests.first();
    const QString what = u"Команда требует разрешения:\n  "_s + exactCommand(request["arguments"_L1].toObject())
        + u"\nПапка:\n  "_s + visibleText(request["cwd"_L1].toString());
    if (!canAsk()) {
        printErrorLine(what + u"\nРазрешить команды без вопроса: --allow-commands"_s);
        stop(RunExit::PermissionNeeded);
        return;
    }
    ask(what, [this](bool yes) { takeCommandConsent(yes); });
}

void RunMode::takeCommandConsent(bool yes)
{
    const QString approval = permissionRequests.first()["id"_L1].toString();
    agreed[approval] += int(permissionRequests.removeIf(
                            [&](const QJsonObject &other) { return other["id"_L1].toString() == approval; }))
        - 1;
    guarded([&] { core.engine.approve(approval, yes); });
    askPermission();
}

/// Ends the task in order; the process then ends with this code, whatever the task's own end.
void RunMode::stop(RunExit code)
{
    if (decided)
        return;
    decided = true;
    exitCode = code;
    if (core.engine.busy())
        core.engine.cancel();
    else
        QCoreApplication::exit(int(code));
}

RunExit RunMode::endOf(const QString &status, const QJsonObject &state) const
{
    if (status != Phase::completed)
        return RunExit::NotCompleted;
    const bool isProved = state["evidence"_L1]["gaps"_L1].toArray().isEmpty()
        && state["spec"_L1]["verification_limitation"_L1].toString().isEmpty();
    return options.strict && !isProved ? RunExit::Unproved : RunExit::Completed;
}

void RunMode::finish(const QString &status)
{
    const QJsonObject state = core.engine.snapshot();
    if (!decided)
        exitCode = endOf(status, state);
    decided = true;

    try {
        core.journal.close(state);
    } catch (const std::exception &fault) {
        // The run may have ended over the same fault; its end is told all the same.
        printErrorLine(u"Записи задачи сохранены не полностью: "_s + textOf(fault));
        if (exitCode == RunExit::Completed)
            exitCode = RunExit::NotCompleted;
    }
    const QString report = Narrator::report(state);
    if (options.json) {
        printResult(status, state, report, exitCode);
    } else if (!(options.simulate && exitCode == RunExit::Completed)) {
        printLine(visibleLines(report));
    }
    if (printingFailed()) {
        printErrorLine(u"Не удалось вывести результат: стандартный вывод закрыт или переполнен."_s);
        if (exitCode == RunExit::Completed)
            exitCode = RunExit::NotCompleted;
    }
    QCoreApplication::exit(int(exitCode));
}

/// The last line for programs: also of a run that was refused at its start, without a state.
void RunMode::printResult(const QString &status, const QJsonObject &state, const QString &report, RunExit code)
{
    printLine(json({{u"id"_s, id()},
                    {u"task_id"_s, state["id"_L1].toString()},
                    {u"type"_s, u"Result"_s},
                    {u"message"_s, status},
                    {u"time"_s, now()},
                    {u"data"_s, state},
                    {u"report"_s, report},
                    {u"evidence"_s, state["evidence"_L1].toObject()},
                    {u"exit_code"_s, int(code)}}));
}

/// A fault of a step taken from outside ends the run with its reason.
void RunMode::guarded(const std::function<void()> &work)
{
    try {
        work();
    } catch (const std::exception &fault) {
        if (core.engine.busy())
            return core.engine.fail(textOf(fault));
        printErrorLine(textOf(fault));
        if (options.json && !decided)
            printResult(u"FAILED"_s, {}, textOf(fault), RunExit::NotCompleted);
        stop(RunExit::NotCompleted);
    }
}

} // namespace vesk
