#pragma once

#include "engine.h"
#include "event_bus.h"
#include "mock_provider.h"
#include "permissions.h"
#include "run_options.h"
#include "store.h"
#include "tool_router.h"
#include "workspace.h"

#include <QObject>

namespace vesk {

/// How "vesk --run" ends.
enum class RunExit {
    Completed = 0,
    NotCompleted = 1,
    StartError = 2,
    PermissionNeeded = 3,
    AnswerNeeded = 4,
    Interrupted = 130,
};

/// One task without an interface: progress on standard error, the report on standard output. The task is one like any
/// other in the data folder.
class RunMode : public QObject {
    Q_OBJECT
public:
    /// Opens the database in the data folder and binds the project folder. Throws std::runtime_error.
    RunMode(const RunOptions &options, const QString &dataFolder);

    /// Runs the task in the event loop of the application; the exit code of the process.
    int exec();

private:
    void bindProject();
    void begin();
    void follow(const QJsonObject &event);
    void watchPhase();
    void answerQuestion();
    void showPlan();
    void askPermission(const QJsonObject &request);
    void readConsent(const QString &approval);
    void stop(RunExit code);
    void finish(const QString &status);
    void guarded(const std::function<void()> &work);

    RunOptions options;
    Store store;
    EventBus events;
    Workspace workspace;
    PermissionManager permissions;
    ToolRouter tools;
    MockProvider mock;
    Engine engine;
    RunExit exitCode = RunExit::NotCompleted;
    bool decided = false; ///< The exit code is settled before the task's own end.
    bool turnPending = false;
};

} // namespace vesk
