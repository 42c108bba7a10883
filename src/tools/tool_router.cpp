// The one gate to files and programs.

#include "tool_router.h"

#include "event_bus.h"
#include "helpers.h"
#include "permissions.h"
#include "process_containment.h"
#include "workspace.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype outputLimitBytes = 1048576;
constexpr int defaultTimeoutMs = 30000;
constexpr int shortestTimeoutMs = 100;
constexpr int longestTimeoutMs = 120000;

// A tree is gone within milliseconds of the order, on a machine that its processes keep busy within seconds. A guard
// that has not done it after this time is taken away, so that the agent gets its answer: far longer than a guard looks
// at what it cannot kill (5 s), as the answer no longer says then that nothing is left. Its second goes on meanwhile.
constexpr int guardLimitMs = 30000;

// How long the destructor waits for all trees together.
constexpr int serversEndLimitMs = 3000;

PermissionLevel levelOf(const QString &tool)
{
    if (tool == "read_file"_L1)
        return PermissionLevel::Read;
    return tool == "write_file"_L1 ? PermissionLevel::Write : PermissionLevel::Execute;
}

int timeoutOf(const QJsonObject &arguments)
{
    const double wanted = arguments["timeout_ms"_L1].toDouble(defaultTimeoutMs);
    return int(std::clamp<double>(wanted, shortestTimeoutMs, longestTimeoutMs));
}

// A program gets its arguments as C strings. One with a zero inside would reach it shorter than what was granted.
bool reachesProgramWhole(const QJsonValue &value)
{
    return value.isString() && !value.toString().contains(QChar::Null);
}

bool isCommand(const QString &tool)
{
    return tool == "run_command"_L1 || tool == "run_in_copy"_L1;
}

void checkCommand(const QJsonObject &arguments)
{
    const QString program = arguments["program"_L1].toString();
    // Qt takes ":/..." for an absolute path, too: that of a resource.
    require(QDir::isAbsolutePath(program) && !program.startsWith(u':'),
            u"Terminal requires absolute executable path"_s);
    require(reachesProgramWhole(program) && QFileInfo::exists(program), u"Executable not found"_s);
    require(arguments["arguments"_L1].isArray(), u"arguments must be an array"_s);
    const QJsonArray list = arguments["arguments"_L1].toArray();
    require(std::ranges::all_of(list, [](const QJsonValue &value) { return reachesProgramWhole(value); }),
            u"Argument must be a string"_s);
}

void checkFile(const Workspace &workspace, const QString &tool, const QJsonObject &arguments)
{
    require(arguments["path"_L1].isString(), u"path must be a string"_s);
    (void)workspace.resolve(arguments["path"_L1].toString());
    require(tool != "write_file"_L1 || arguments["content"_L1].isString(), u"content must be a string"_s);
}

QJsonObject failure(const QString &text)
{
    return {{u"success"_s, false}, {u"error"_s, text}, {u"duration_ms"_s, 0}};
}

// What is beyond the limit is dropped as it comes: a program can write for two minutes.
void keep(QByteArray &buffer, const QByteArray &more)
{
    buffer.append(more.first(std::min(more.size(), outputLimitBytes - buffer.size())));
}

void endTree(QProcess *process, bool gently)
{
    if (gently)
        process->terminate(); // The guard passes it on, and kills what is left after half a second.
    else
        ProcessContainment::end(*process);
    QTimer::singleShot(guardLimitMs, process, &QProcess::kill);
}

// For what belongs to others, subscribers and callbacks: what they throw must not reach the event loop.
template <typename Work> void guarded(const char *what, Work &&work)
{
    try {
        work();
    } catch (const std::exception &error) {
        qWarning("%s: %s", what, error.what());
    }
}

} // namespace

struct ToolRouter::Call {
    QString task;
    QJsonObject record;
    std::function<void(QJsonObject)> callback;

    QString tool() const { return record["tool"_L1].toString(); }
    QJsonObject arguments() const { return record["arguments"_L1].toObject(); }
};

// What the slots of one running program share.
struct ToolRouter::Run {
    Call call;
    std::shared_ptr<ProcessContainment> containment = std::make_shared<ProcessContainment>();
    QElapsedTimer clock;
    QByteArray out;
    QByteArray err;
    bool timedOut = false;
};

ToolRouter::ToolRouter(Workspace *workspace, EventBus *events, PermissionManager *permissions, QObject *parent)
    : QObject(parent)
    , workspace(workspace)
    , events(events)
    , permissions(permissions)
{
}

ToolRouter::~ToolRouter()
{
    cancelAll();
    const QDeadlineTimer deadline(serversEndLimitMs);
    const QList<QProcess *> ending = findChildren<QProcess *>(Qt::FindDirectChildrenOnly);
    for (QProcess *process : ending)
        process->waitForFinished(int(deadline.remainingTime()));
}

void ToolRouter::execute(const QString &taskId, const QString &agentId, const QStringList &allowedTools,
                         const QString &tool, const QJsonObject &arguments, std::function<void(QJsonObject)> callback)
{
    const Call call{taskId,
                    {{u"id"_s, id()},
                     {u"tool"_s, tool},
                     {u"agent_id"_s, agentId},
                     {u"arguments"_s, arguments},
                     {u"started_at"_s, now()}},
                    std::move(callback)};
    QJsonObject result;
    try {
        check(call, allowedTools);
        events->publish(taskId, u"ToolCalled"_s, tool, call.record);
        if (isCommand(tool))
            return startProgram(call);
        result = tool == "read_file"_L1 ? readFile(arguments) : writeFile(arguments, agentId);
    } catch (const std::exception &error) {
        result = failure(textOf(error));
    }
    finish(call, result);
}

QString ToolRouter::fingerprint(const QString &tool, const QJsonObject &arguments)
{
    return digest(tool.toUtf8() + jsonBytes(arguments));
}

void ToolRouter::cancelAll()
{
    for (QProcess *process : std::exchange(processes, {})) {
        process->disconnect();
        endTree(process, endsGently);
        ProcessContainment::deleteWhenEnded(process);
    }
}

void ToolRouter::endAll()
{
    for (QProcess *process : std::as_const(processes))
        endTree(process, endsGently);
}

void ToolRouter::check(const Call &call, const QStringList &allowedTools)
{
    static const QStringList known{u"read_file"_s, u"write_file"_s, u"run_command"_s, u"run_in_copy"_s};
    const QString tool = call.tool();
    const QJsonObject arguments = call.arguments();
    require(allowedTools.contains(tool), u"Agent does not have this tool capability"_s);
    require(known.contains(tool), u"Unknown tool"_s);
    if (isCommand(tool))
        checkCommand(arguments);
    else
        checkFile(*workspace, tool, arguments);
    const QString folder = arguments["folder"_L1].toString();
    require(tool != "run_in_copy"_L1 || (QDir::isAbsolutePath(folder) && QFileInfo(folder).isDir()),
            u"folder must be an existing absolute path"_s);
    require(
        permissions->allowed(tool, levelOf(tool), call.task, workspace->project(), fingerprint(tool, arguments), true),
        u"Permission required for this action"_s);
}

QJsonObject ToolRouter::readFile(const QJsonObject &arguments)
{
    const QByteArray content = workspace->read(arguments["path"_L1].toString());
    return {{u"success"_s, true}, {u"content"_s, QString::fromUtf8(content)}, {u"duration_ms"_s, 0}};
}

QJsonObject ToolRouter::writeFile(const QJsonObject &arguments, const QString &agentId)
{
    const QJsonObject revision
        = workspace->write(arguments["path"_L1].toString(), arguments["content"_L1].toString().toUtf8(), agentId,
                           arguments["expected_revision"_L1].toInt(-1));
    return {{u"success"_s, true}, {u"revision"_s, revision}, {u"duration_ms"_s, 0}};
}

void ToolRouter::startProgram(Call call)
{
    const QJsonObject arguments = call.arguments();
    const auto run = std::make_shared<Run>();
    run->call = std::move(call);
    auto owned = std::make_unique<QProcess>(this);
    QProcess *process = owned.get();
    const QString problem = run->containment->prepare(*process, arguments["program"_L1].toString(),
                                                      strings(arguments["arguments"_L1].toArray()));
    require(problem.isEmpty(), problem);
    process->setProcessEnvironment(environment);
    process->setWorkingDirectory(run->call.tool() == "run_in_copy"_L1 ? arguments["folder"_L1].toString()
                                                                      : workspace->root());
    // Until the process is gone: cancelAll() cuts the connections, which hold it, too, before that.
    process->setProperty("run", QVariant::fromValue(run));
    processes.insert(run->call.record["id"_L1].toString(), owned.release());

    run->clock.start();
    connectRun(process, run);
    auto *limit = new QTimer(process);
    limit->setSingleShot(true);
    limit->setTimerType(Qt::PreciseTimer); // A coarse one may come seconds early.
    connect(limit, &QTimer::timeout, process, [this, process, run] {
        run->timedOut = true;
        endTree(process, endsGently);
    });
    process->start(QIODevice::ReadWrite);
    // A program that asks something gets no answer at once, instead of waiting for one until its time is up.
    process->closeWriteChannel();
    limit->start(timeoutOf(arguments));
}

void ToolRouter::connectRun(QProcess *process, const std::shared_ptr<Run> &run)
{
    connect(process, &QProcess::readyReadStandardOutput, this,
            [process, run] { keep(run->out, process->readAllStandardOutput()); });
    connect(process, &QProcess::readyReadStandardError, this,
            [process, run] { keep(run->err, process->readAllStandardError()); });
    connect(process, &QProcess::finished, this, [this, process, run](int exitCode, QProcess::ExitStatus status) {
        endRun(process, *run, exitCode, status == QProcess::NormalExit);
    });
    // Queued, since this can come out of start() and callbacks of programs run later.
    connect(
        process, &QProcess::errorOccurred, this,
        [this, process, run](QProcess::ProcessError error) {
            if (error != QProcess::FailedToStart)
                return;
            run->err = process->errorString().toUtf8();
            endRun(process, *run, -1, false);
        },
        Qt::QueuedConnection);
}

void ToolRouter::endRun(QProcess *process, Run &run, int exitCode, bool normalExit)
{
    if (!processes.remove(run.call.record["id"_L1].toString()))
        return; // It has ended already, or it was cancelled while the news was on its way.
    keep(run.out, process->readAllStandardOutput());
    keep(run.err, process->readAllStandardError());
    // The callback may delete this router; the process is in the middle of a signal and must not go with it.
    process->setParent(nullptr);
    process->deleteLater();
    if (run.containment->failedToStart()) {
        exitCode = -1;
        normalExit = false;
    }
    finish(run.call,
           {{u"success"_s, exitCode == 0 && normalExit && !run.timedOut},
            {u"exit_code"_s, exitCode},
            {u"stdout"_s, QString::fromUtf8(run.out)},
            {u"stderr"_s, QString::fromUtf8(run.err)},
            {u"duration_ms"_s, run.clock.elapsed()},
            {u"timed_out"_s, run.timedOut}});
}

// Touches no member after the first call to others, who may delete this router.
void ToolRouter::finish(const Call &call, const QJsonObject &result)
{
    QJsonObject record = call.record;
    for (auto key = result.begin(); key != result.end(); ++key)
        record.insert(key.key(), key.value());
    const QString message = result["success"_L1].toBool() ? u"Tool completed"_s : u"Tool failed"_s;
    try {
        events->publish(call.task, u"ToolFinished"_s, message, record);
    } catch (const std::exception &error) {
        record.insert(u"unrecorded"_s, textOf(error)); // for the caller to end over
    }
    guarded("A tool's callback", [&] {
        if (call.callback)
            call.callback(record);
    });
}

} // namespace vesk
