#pragma once

#include "error_of.h"
#include "scripted_provider.h"

#include "core.h"
#include "helpers.h"

#include <QTemporaryDir>

/// A whole core on a temporary folder: real database, real files, real processes, and a scripted model.
class EngineFixture {
public:
    explicit EngineFixture(const QString &dataFolder = {})
        : databasePath((dataFolder.isEmpty() ? folder.path() : dataFolder) + QStringLiteral("/vesk.sqlite"))
    {
        vesk::registerPrompts();
        workspace.open(folder.filePath(QStringLiteral("project")), QStringLiteral("project"));
        QObject::connect(&events, &vesk::EventBus::event, &events,
                         [this](const QJsonObject &event) { log.append(event); });
        QObject::connect(&engine, &vesk::Engine::finished, &engine,
                         [this](const QString &status) { endings.append(status); });
    }

    /// Starts a task with a comfortable budget.
    void start(const QString &request = QStringLiteral("Сделай файл"), bool simulation = false,
               const QJsonObject &buildCommand = {})
    {
        engine.start(request, simulation, 100000000, buildCommand);
    }
    /// Runs the event loop until the task ends or the time is up; true when it ended.
    bool runToEnd(int timeoutMs = 20000)
    {
        return runUntil([this] { return !engine.busy(); }, timeoutMs);
    }
    bool runUntil(const std::function<bool()> &condition, int timeoutMs = 20000);
    /// Runs until the model holds so many answers back.
    bool runToHeld(qsizetype count)
    {
        return runUntil([this, count] { return model.held() == count; });
    }
    /// Runs what is due now, so that a run that could go on has done so.
    static void settle();
    /// Runs the event loop until the phase is reached.
    bool runToPhase(const QString &phase, int timeoutMs = 20000)
    {
        return runUntil([&] { return state(QStringLiteral("phase")).toString() == phase; }, timeoutMs);
    }

    /// The chief asks nothing, or one question first; the plan is one text file; everybody approves.
    void scriptOneFile(bool asks = false);
    /// Starts the scripted task and lets one answer after the other out until the phase is reached; the answers to
    /// what was asked in it are held. "PREVIEW" makes it a simulation.
    bool reach(const QString &phase);

    QJsonValue state(const QString &key) const { return engine.snapshot()[key]; }
    QString phase() const { return state(QStringLiteral("phase")).toString(); }
    QString error() const { return state(QStringLiteral("error")).toString(); }
    QString task() const { return state(QStringLiteral("id")).toString(); }
    QJsonObject node(const QString &id) const;
    /// The agent, or the role, that was given this request.
    QString agentOf(const vesk::LLMRequest &request) const;
    QStringList phases() const { return messages(QStringLiteral("PhaseChanged")); }
    /// Starts a task, unless one is under way, and carries it to its end: "COMPLETED", or why it failed.
    QString ending()
    {
        if (!engine.busy())
            start();
        return outcome();
    }
    QString outcome()
    {
        runToEnd();
        return phase() == QLatin1StringView("FAILED") ? error() : phase();
    }
    /// The messages of all events of a type, in order.
    QStringList messages(const QString &type) const;
    QList<QJsonObject> eventsOf(const QString &type) const;
    QString projectFile(const QString &path) const { return folder.filePath(QStringLiteral("project/") + path); }
    QByteArray fileContent(const QString &path) const;

    /// The records of the current task in a table, as another program reads them.
    QJsonArray stored(const QString &table) const;
    /// The task's state document in the database.
    QJsonObject storedTask() const;
    /// From now on a write to the database fails with "SQLite: disk gone" when the condition on the new row is met,
    /// in one table or in all.
    void breakStore(const QString &condition, const QString &table = {});
    /// The first `count` writes pass, all that follow fail.
    void breakStoreAfter(int count);
    void mendStore();

    QTemporaryDir folder;
    const QString databasePath;
    ScriptedProvider model;
    vesk::Core core{databasePath, &model};
    vesk::Store &store = core.store;
    vesk::EventBus &events = core.events;
    vesk::Workspace &workspace = core.workspace;
    vesk::PermissionManager &permissions = core.permissions;
    vesk::ToolRouter &tools = core.tools;
    vesk::Engine &engine = core.engine;
    QList<QJsonObject> log;
    QStringList endings;

private:
    void sql(const QStringList &statements) const;
};
