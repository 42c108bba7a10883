#pragma once

#include "core.h"
#include "mcp_client.h"
#include "run_options.h"
#include "take_in.h"

#include <QHash>
#include <QList>
#include <QObject>

#include <functional>

class QSocketNotifier;

namespace vesk {

/// How "vesk --run" ends.
enum class RunExit {
    Completed = 0,
    NotCompleted = 1,
    PermissionNeeded = 3,
    AnswerNeeded = 4,
    Unproved = 5, ///< With "--strict": completed, and something of it stands unproved.
    Interrupted = 130,
};

/// One task without an interface: progress on standard error, the report on standard output. The task is one like any
/// other in the data folder.
class RunMode : public QObject {
    Q_OBJECT
public:
    /// Opens the database in the data folder and binds the project folder. Throws std::runtime_error. `chooseModel`
    /// gives the model that answers, which is not owned; it may look into the database.
    RunMode(const RunOptions &options, const QString &dataFolder,
            const std::function<ILLMProvider &(const Store &)> &chooseModel);

    /// Runs the task in the event loop of the application; the exit code of the process.
    int exec();

    /// Ends the task in order, or keeps it from beginning.
    void interrupt() { stop(RunExit::Interrupted); }

private:
    void bindProject();
    void begin();
    void beginTask();
    void settleEdits(const QList<HandEdit> &edits, bool takesOwn);
    void prepareServers();
    void askForServer();
    void startWhenReady();
    void takeEdits();
    void takeFolderIn();
    void mapLargeFolder(const TakeIn &scan);
    void follow(const QJsonObject &event);
    void watchPhase();
    void answerQuestion();
    QString ownChoice(const QString &question, const QStringList &options);
    void showPlan();
    void showEvent(const QJsonObject &event, const QString &line);
    void askPermission();
    void takeCommandConsent(bool yes);
    void stop(RunExit code);
    void takePermissionRequest(const QJsonObject &request);
    RunExit endOf(const QString &status, const QJsonObject &state) const;
    void finish(const QString &status);
    static void printResult(const QString &status, const QJsonObject &state, const QString &report, RunExit code);
    void guarded(const std::function<void()> &work);

    // run_questions.cpp
    /// What to do about a line; nothing when it is no answer.
    using ReadAnswer = std::function<std::function<void()>(const QString &)>;
    void askLine(const QString &question, RunExit atEnd, const ReadAnswer &read);
    void takeLine(QSocketNotifier *input, RunExit atEnd, const ReadAnswer &read);
    void ask(const QString &what, const std::function<void(bool)> &then);
    void askAboutEdits(const QList<HandEdit> &edits, const std::function<void(bool)> &then);

    RunOptions options;
    Core core;
    McpClient mcp;
    QList<QJsonObject> permissionRequests; ///< The first is being asked for, or next.
    bool asking = false; ///< Somebody is to type an answer.
    QHash<QString, int> agreed; ///< By approval: nodes with a command that was allowed, which will ask for themselves.
    QHash<QString, int> chosen; ///< By question: how often its first option was taken.
    int choices = 0; ///< That were made without an answer on the command line.
    int editAnswers = 0; ///< Given for "--accept-edits".
    RunExit exitCode = RunExit::NotCompleted;
    bool begun = false; ///< The task has been started.
    bool decided = false; ///< The exit code is settled before the task's own end.
    bool turnPending = false;
};

} // namespace vesk
