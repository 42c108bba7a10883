// MCP servers that are programs: found, started in a guard, spoken to a line at a time, and ended with all they
// started.

#include "mcp_client.h"

#include "helpers.h"
#include "login_path.h"
#include "mcp_config.h"
#include "mcp_server.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype shownErrorChars = 4096;
// More than is shown, so that no part of a key stands at the cut.
constexpr qsizetype keptErrorBytes = 4 * shownErrorChars;

// A turn of the event loop takes no more than this of a server that writes without end.
constexpr qint64 pieceBytes = 65536;

} // namespace

void McpClient::startProgram(const ServerPtr &server)
{
    const QProcessEnvironment system = QProcessEnvironment::systemEnvironment();
    const QString program = expanded(server->config["command"_L1].toString(), root, system);
    QStringList arguments;
    const QJsonArray given = server->config["args"_L1].toArray();
    for (const QJsonValue &argument : given) {
        if (argument.isString())
            arguments.append(expanded(argument.toString(), root, system));
    }
    if (program.contains("${"_L1) || arguments.join(u' ').contains("${"_L1)) {
        server->status = McpStatus::failed;
        server->error = u"Заполните переменные MCP в исходной конфигурации"_s;
        Q_EMIT changed();
        return;
    }
    release(server, 0);
    withSearchPath([this, server, program, arguments, connection = server->connection] {
        if (server->connection == connection)
            launch(server, program, arguments);
    });
}

/// Runs `next` once it is known where the user's shell finds programs, which is asked once.
void McpClient::withSearchPath(const std::function<void()> &next)
{
    if (knowsLoginPath)
        return next();
    waitForPath.append(next);
    if (waitForPath.size() > 1)
        return;
    askLoginPath(this, [this](const QString &path) {
        loginPath = path;
        knowsLoginPath = true;
        for (const auto &waiting : std::exchange(waitForPath, {}))
            waiting();
    });
}

void McpClient::launch(const ServerPtr &server, const QString &program, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QStringList folders = searchFolders(loginPath, environment.value(u"PATH"_s));
    environment.insert(u"PATH"_s, folders.join(QDir::listSeparator()));
    const QJsonObject own = server->config["env"_L1].toObject();
    QProcessEnvironment added;
    for (auto entry = own.begin(); entry != own.end(); ++entry)
        added.insert(entry.key(), expanded(entry.value().toString(), root, QProcessEnvironment::systemEnvironment()));
    server->secrets = secretsOf({}, added, environment);
    environment.insert(added);

    const QString path = program.contains(u'/') ? QDir(root).absoluteFilePath(program)
                                                : QStandardPaths::findExecutable(program, folders);
    if (!QFileInfo(path).isFile() || !QFileInfo(path).isExecutable())
        return notFound(server, program);

    auto *process = new QProcess(this);
    server->process = process;
    server->containment = std::make_shared<ProcessContainment>();
    const QString problem = server->containment->prepare(*process, path, arguments);
    if (!problem.isEmpty()) {
        server->details = problem;
        return ended(server);
    }
    server->buffer.clear();
    server->lastErrors.clear();
    process->setProcessEnvironment(environment);
    if (!root.isEmpty())
        process->setWorkingDirectory(root);
    connect(process, &QProcess::started, this, [this, server] { initialize(server); });
    connect(process, &QProcess::readyReadStandardOutput, this, [this, server] { readLines(server); });
    connect(process, &QProcess::readyReadStandardError, this, [server] {
        server->lastErrors = (server->lastErrors + server->process->readAllStandardError()).right(keptErrorBytes);
    });
    connect(process, &QProcess::errorOccurred, this, [this, server] { ended(server); });
    connect(process, &QProcess::finished, this, [this, server] { ended(server); });
    process->start(QIODevice::ReadWrite);
}

/// The user is told at once: a program that can't be found has no other words.
void McpClient::notFound(const ServerPtr &server, const QString &program)
{
    server->details = u"Программа «%1» не найдена."_s.arg(program);
    if (!program.contains(u'/'))
        server->details += u" Где искали: "_s + searchFolders(loginPath, qEnvironmentVariable("PATH")).join(u", "_s);
    ended(server);
    Q_EMIT statusMessage(server->name + u": "_s + server->details);
}

void McpClient::readLines(const ServerPtr &server)
{
    QProcess *process = server->process;
    process->setReadChannel(QProcess::StandardOutput);
    while (server->process == process && process->bytesAvailable() > 0) {
        server->buffer.feed(process->read(pieceBytes));
        while (const std::optional<QByteArray> line = server->buffer.next()) {
            receive(server, mcpMessage(*line));
            if (server->process != process)
                return; // Disconnected by whom the answer was for.
        }
        if (server->buffer.isTooLong()) {
            server->error = u"Слишком большой ответ MCP"_s;
            disconnect(process, &QProcess::readyReadStandardOutput, this, nullptr);
            ProcessContainment::end(*process);
            return;
        }
    }
}

/// A program has ended, or can't be spoken to any more.
void McpClient::ended(const ServerPtr &server)
{
    QProcess *process = server->process;
    ++server->connection;
    server->status = McpStatus::disconnected;
    server->tools = {};
    if (process) {
        ProcessContainment::end(*process);
        if (process->state() == QProcess::NotRunning)
            server->lastErrors = (server->lastErrors + process->readAllStandardError()).right(keptErrorBytes);
        if (!server->lastErrors.isEmpty())
            server->details = server->clean(QString::fromUtf8(server->lastErrors).trimmed()).right(shownErrorChars);
    }
    const auto given = std::exchange(server->pending, {});
    // One that never ran has no handshake to fail.
    if (!server->containment || !server->containment->failedToStart()) {
        for (const Callback &callback : given)
            callback({}, u"MCP-сервер отключился"_s);
    }
    Q_EMIT changed();
}

/// A server that does not read what it is sent gets no more than one message's limit ahead.
void McpClient::writeLine(const ServerPtr &server, const QJsonObject &message)
{
    const QByteArray line = jsonBytes(message) + '\n';
    QProcess *process = server->process;
    if (process->bytesToWrite() + line.size() <= maxMcpMessageBytes) {
        process->write(line);
        return;
    }
    if (message.contains("id"_L1))
        receive(server,
                {{u"id"_s, message["id"_L1]},
                 {u"error"_s, QJsonObject{{u"message"_s, u"MCP-сервер не принимает данные: запрос не отправлен"_s}}}});
}

void McpClient::release(const ServerPtr &server, int lingerMs)
{
    QProcess *process = server->process;
    server->process.clear();
    if (!process)
        return;
    process->disconnect(this);
    process->disconnect(process);
    if (lingerMs > 0 && process->state() == QProcess::Running) {
        process->closeWriteChannel();
        QTimer::singleShot(lingerMs, process, [process] { ProcessContainment::end(*process); });
    } else {
        ProcessContainment::end(*process);
    }
    ProcessContainment::deleteWhenEnded(process);
}

} // namespace vesk
