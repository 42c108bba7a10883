#pragma once

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QProcess;

namespace vesk {

class EventBus;
class PermissionManager;
class Workspace;

/// The one gate through which agents touch the machine. A call is checked against the agent's tools, the shape of its
/// arguments and the grants, performed, and answered with one JSON record:
///
///     {"id": "<uuid>", "tool": "run_command", "agent_id": "coder", "arguments": {...}, "started_at": "<time>",
///      "success": true, "exit_code": 0, "stdout": "", "stderr": "", "duration_ms": 12, "timed_out": false}
///
/// read_file answers "success", "content" and "duration_ms"; write_file "success", "revision" and "duration_ms"; a
/// call that was refused or went wrong "success", "error" and "duration_ms". Nothing is ever thrown to the caller.
///
/// Main thread only. What it is given must outlive it.
class ToolRouter : public QObject {
    Q_OBJECT
public:
    ToolRouter(Workspace *workspace, EventBus *events, PermissionManager *permissions, QObject *parent = nullptr);

    /// Ends the running programs, without callbacks, and waits until they are gone.
    ~ToolRouter() override;

    /// Performs one action and runs the callback exactly once: before this returns, or later if a program was started.
    /// Publishes "ToolCalled" once all checks have passed and "ToolFinished" right before the callback.
    ///
    /// Tools and their arguments:
    ///  - read_file: "path", relative to the workspace;
    ///  - write_file: "path", "content", "expected_revision" (-1, also when absent: whatever the revision is);
    ///  - run_command: "program" (absolute path), "arguments" (strings, no shell), "timeout_ms" (100 to 120000, absent:
    ///    30000). The program runs in the workspace's root and finds its input empty. Of its output the first 1 MiB of
    ///    each channel is kept. A program that can't be started answers exit code -1, with the reason in "stderr";
    ///  - run_in_copy: the same in another "folder" (absolute path), which is not the project's.
    ///
    /// What a callback holds is let go when the program and all it has started are gone, also after cancelAll().
    /// The callback may call this object again, and may delete it. A standard exception out of it is logged and goes no
    /// further: behind it there is only the event loop.
    void execute(const QString &taskId, const QString &agentId, const QStringList &allowedTools, const QString &tool,
                 const QJsonObject &arguments, std::function<void(QJsonObject)> callback);

    /// What a grant is bound to: the same for two calls exactly if they do the same.
    static QString fingerprint(const QString &tool, const QJsonObject &arguments);

    /// Kills all running programs. Their callbacks don't run, and no "ToolFinished" is published.
    void cancelAll();

    /// Ends all running programs as their time limits do, but not "timed_out": their callbacks run.
    void endAll();

    /// Programs that hold locks are asked to end, and killed half a second later.
    bool endsGently = false;
    /// What programs find in their environment; what this process finds in its own as long as this is empty.
    QProcessEnvironment environment{QProcessEnvironment::InheritFromParent};

private:
    struct Call;
    struct Run;

    void check(const Call &call, const QStringList &allowedTools);
    QJsonObject readFile(const QJsonObject &arguments);
    QJsonObject writeFile(const QJsonObject &arguments, const QString &agentId);
    void startProgram(Call call);
    void connectRun(QProcess *process, const std::shared_ptr<Run> &run);
    void endRun(QProcess *process, Run &run, int exitCode, bool normalExit);
    void finish(const Call &call, const QJsonObject &result);

    Workspace *workspace;
    EventBus *events;
    PermissionManager *permissions;
    QHash<QString, QProcess *> processes; ///< By action id, those that run now.
};

} // namespace vesk
