#include "run_mode.h"

#include "console.h"
#include "helpers.h"
#include "narration.h"
#include "narrator.h"
#include "process_signals.h"
#include "recovery.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <array>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// A command so that nothing about it is left open: each argument in quotes of its own.
QString exactCommand(const QJsonObject &input)
{
    QStringList parts{input["program"_L1].toString()};
    parts += strings(input["arguments"_L1].toArray());
    for (QString &part : parts)
        part = u'"' + part.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s) + u'"';
    return parts.join(u' ');
}

QString questionText(const QJsonObject &decision)
{
    QStringList lines{decision["question"_L1].toString()};
    const QStringList choices = strings(decision["options"_L1].toArray());
    for (qsizetype i = 0; i < choices.size(); ++i)
        lines.append(u"  %1) %2"_s.arg(i + 1).arg(choices[i]));
    return lines.join(u'\n');
}

} // namespace

RunMode::RunMode(const RunOptions &options, const QString &dataFolder)
    : options(options)
    , store(dataFolder + u"/vesk.sqlite"_s)
    , workspace(store)
    , tools(&workspace, &events, &permissions)
    , engine(store, workspace, events, permissions, tools, &mock)
{
    recoverInterruptedTasks(store);
    bindProject();
    mock.delayMs = options.mockDelayMs;
    engine.computerAccess = options.allowCommands;
    connect(&events, &EventBus::event, this, &RunMode::follow);
    connect(&engine, &Engine::changed, this, &RunMode::watchPhase);
    connect(&engine, &Engine::finished, this, &RunMode::finish);
}

/// A folder that has been a project before stays the same project, with its files and history.
void RunMode::bindProject()
{
    workspace.open(options.projectFolder, {});
    const QString root = workspace.root();
    const QJsonArray projects = store.list(u"projects"_s, {});
    const auto known = std::ranges::find_if(
        projects, [&](const QJsonValue &project) { return project["root"_L1].toString() == root; });
    const QString project = known != projects.end() ? (*known)["id"_L1].toString() : id();
    if (known == projects.end()) {
        store.put(
            u"projects"_s, project, {},
            {{u"id"_s, project}, {u"name"_s, QFileInfo(root).fileName()}, {u"root"_s, root}, {u"created_at"_s, now()}});
    }
    workspace.open(root, project);
}

int RunMode::exec()
{
    ProcessSignals requests;
    connect(&requests, &ProcessSignals::endRequested, this, [this] { stop(RunExit::Interrupted); });
    QTimer::singleShot(0, this, &RunMode::begin);
    return QCoreApplication::exec();
}

void RunMode::begin()
{
    try {
        engine.start(options.request, options.simulate, options.budget, options.buildCommand);
    } catch (const std::exception &fault) {
        printErrorLine(textOf(fault));
        QCoreApplication::exit(int(RunExit::StartError));
    }
}

/// Every event is stored before anything follows from it.
void RunMode::follow(const QJsonObject &event)
{
    store.put(u"events"_s, event["id"_L1].toString(), event["task_id"_L1].toString(), event);
    const QString type = event["type"_L1].toString();
    if (options.json) {
        printLine(json(event));
    } else {
        const QJsonObject state = narrationNeedsState(event) ? engine.snapshot() : QJsonObject();
        QString line = narration(event, state);
        if (line.isEmpty() && type == "PhaseChanged"_L1)
            line = Narrator::phase(event["message"_L1].toString()) + u'.';
        if (!line.isEmpty())
            printErrorLine(line);
    }
    if (type == "PermissionRequested"_L1) {
        const QJsonObject request = event["data"_L1].toObject();
        QTimer::singleShot(0, this, [this, request] { guarded([&] { askPermission(request); }); });
    }
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
            const QString phase = engine.phaseCode();
            if (phase == "CLARIFICATION"_L1)
                answerQuestion();
            else if (phase == "PREVIEW"_L1)
                showPlan();
        });
    });
}

void RunMode::answerQuestion()
{
    const QJsonObject decision = engine.snapshot()["decision"_L1].toObject();
    const QStringList choices = strings(decision["options"_L1].toArray());
    QString answer;
    if (!options.answers.isEmpty()) {
        answer = options.answers.takeFirst();
    } else if (!choices.isEmpty()) {
        answer = choices.first();
    } else {
        printErrorLine(u"Нужен ответ на вопрос (--answer):\n"_s + questionText(decision));
        stop(RunExit::AnswerNeeded);
        return;
    }
    if (!options.json)
        printErrorLine(u"Ответ: "_s + answer);
    engine.clarify(answer);
}

void RunMode::showPlan()
{
    if (!options.json) {
        const QJsonArray nodes = engine.snapshot()["plan"_L1]["nodes"_L1].toArray();
        QStringList lines{u"План"_s, {}};
        for (qsizetype i = 0; i < nodes.size(); ++i) {
            const QJsonValue node = nodes.at(i);
            const QString path = node["input"_L1]["path"_L1].toString();
            lines.append(u"%1. %2"_s.arg(i + 1).arg(node["title"_L1].toString())
                         + (path.isEmpty() ? QString() : u" — "_s + path));
        }
        printLine(lines.join(u'\n'));
    }
    stop(RunExit::Completed);
}

void RunMode::askPermission(const QJsonObject &request)
{
    if (decided || !engine.busy())
        return;
    printErrorLine(u"Команда требует разрешения:\n  "_s + exactCommand(request["arguments"_L1].toObject())
                   + u"\nПапка:\n  "_s + request["cwd"_L1].toString());
    if (!canAsk()) {
        printErrorLine(u"Разрешить команды без вопроса: --allow-commands"_s);
        stop(RunExit::PermissionNeeded);
        return;
    }
    printErrorLine(u"Выполнить? (да/нет)"_s);
    readConsent(request["id"_L1].toString());
}

void RunMode::readConsent(const QString &approval)
{
    auto *input = new QSocketNotifier(fileno(stdin), QSocketNotifier::Read, this);
    connect(input, &QSocketNotifier::activated, this, [this, input, approval] {
        std::array<char, 256> line{};
        const bool ended = !std::fgets(line.data(), int(line.size()), stdin);
        const QString answer = QString::fromUtf8(line.data()).trimmed().toLower();
        const bool yes = answer == u"да"_s;
        if (!yes && !ended && answer != u"нет"_s) {
            printErrorLine(u"Введите «да» или «нет»."_s);
            return;
        }
        input->setEnabled(false);
        input->deleteLater();
        guarded([&] { engine.approve(approval, yes); });
    });
}

/// Ends the task in order; the process then ends with this code, whatever the task's own end.
void RunMode::stop(RunExit code)
{
    if (decided)
        return;
    decided = true;
    exitCode = code;
    if (engine.busy())
        engine.cancel();
    else
        QCoreApplication::exit(int(code));
}

void RunMode::finish(const QString &status)
{
    if (!decided)
        exitCode = status == "COMPLETED"_L1 ? RunExit::Completed : RunExit::NotCompleted;
    decided = true;

    const QJsonObject state = engine.snapshot();
    if (options.json) {
        printLine(json({{u"id"_s, id()},
                        {u"task_id"_s, state["id"_L1]},
                        {u"type"_s, u"Result"_s},
                        {u"message"_s, status},
                        {u"time"_s, now()},
                        {u"data"_s, state}}));
    } else if (!(options.simulate && exitCode == RunExit::Completed)) {
        printLine(Narrator::report(state));
    }
    QCoreApplication::exit(int(exitCode));
}

void RunMode::guarded(const std::function<void()> &work)
{
    try {
        work();
    } catch (const std::exception &fault) {
        printErrorLine(textOf(fault));
        stop(RunExit::NotCompleted);
    }
}

} // namespace vesk
