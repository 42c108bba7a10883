// Which MCP servers there are, how a session with one goes, and how its tools are called.

#include "mcp_client.h"

#include "helpers.h"
#include "mcp_config.h"
#include "mcp_server.h"
#include "programs.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int handshakeLimitMs = 30000;
constexpr int callLimitMs = 120000;
constexpr int destructionLimitMs = 1000;
// What a server gets to read that its requests are given up, before it is ended.
constexpr int cancelLingerMs = 100;
constexpr qsizetype maxErrorChars = 4000;

QJsonObject notification(const QString &method, const QJsonObject &params = {})
{
    QJsonObject message{{u"jsonrpc"_s, u"2.0"_s}, {u"method"_s, method}};
    if (!params.isEmpty())
        message["params"_L1] = params;
    return message;
}

/// Descriptions are read by models. By name and form of its arguments a tool is called, and a word in them that is also
/// the value of a header must stay what it is.
QJsonArray withoutSecrets(const QJsonArray &tools, const QStringList &secrets)
{
    QJsonArray clean;
    for (const QJsonValue &tool : tools) {
        QJsonObject shown = withoutValues(tool, secrets).toObject();
        for (const QString &key : {u"name"_s, u"inputSchema"_s}) {
            if (tool[key].isUndefined())
                continue;
            shown[key] = tool[key];
        }
        clean.append(shown);
    }
    return clean;
}

} // namespace

McpClient::McpClient(QObject *parent)
    : QObject(parent)
{
}

McpClient::~McpClient()
{
    // Those that were disconnected a moment ago are among them.
    const QList<QProcess *> running = findChildren<QProcess *>(Qt::FindDirectChildrenOnly);
    for (QProcess *process : running) {
        process->disconnect();
        ProcessContainment::end(*process);
    }
    // Callbacks hold the server that holds them.
    for (const ServerPtr &server : std::as_const(servers))
        server->pending.clear();
    const QDeadlineTimer deadline(destructionLimitMs);
    for (QProcess *process : running)
        process->waitForFinished(int(deadline.remainingTime()));
}

void McpClient::scan(const QString &folder)
{
    root = folder;
    for (const QString &path : mcpConfigurationFiles(root)) {
        const QJsonObject found = serversIn(mcpConfiguration(path));
        for (auto entry = found.begin(); entry != found.end(); ++entry)
            add(entry.key(), entry.value().toObject(), path);
    }
    const InstalledScript studio = studioServer();
    if (QFileInfo::exists(studio.path))
        add(u"Roblox Studio"_s,
            {{u"command"_s, studio.program}, {u"args"_s, QJsonArray::fromStringList(studio.arguments)}}, studio.path);
    Q_EMIT changed();
}

void McpClient::add(const QString &name, const QJsonObject &config, const QString &source)
{
    if (!config["command"_L1].isString() && !config["url"_L1].isString())
        return;
    const QString id = mcpServerId(source, name);
    if (servers.contains(id))
        return;
    auto server = std::make_shared<Server>();
    server->id = id;
    server->name = name;
    server->config = config;
    server->config["source"_L1] = source;
    server->status = McpStatus::available;
    server->ofProject = liesIn(root, source);
    servers.insert(id, server);
}

QJsonArray McpClient::list() const
{
    QJsonArray all;
    for (const ServerPtr &server : servers)
        all.append(QJsonObject{{u"id"_s, server->id},
                               {u"name"_s, server->name},
                               {u"status"_s, server->status},
                               {u"error"_s, server->error},
                               {u"source"_s, server->source()},
                               {u"tool_count"_s, server->tools.size()}});
    return all;
}

QJsonArray McpClient::availableTools() const
{
    QJsonArray all;
    for (const ServerPtr &server : servers) {
        if (server->status != McpStatus::connected)
            continue;
        for (const QJsonValue &described : std::as_const(server->tools)) {
            QJsonObject tool = described.toObject();
            tool["server_id"_L1] = server->id;
            tool["server_name"_L1] = server->name;
            all.append(tool);
        }
    }
    return all;
}

QString McpClient::details(const QString &id) const
{
    const ServerPtr known = server(id);
    return known ? known->details : QString();
}

QString McpClient::nameOf(const QString &id) const
{
    const ServerPtr known = server(id);
    return known ? known->name : QString();
}

// Servers of the project

/// Also of a project that was open when it was found, and of files of the user's own that lie in this project.
bool McpClient::needsConsent(const Server &server) const
{
    return (server.ofProject || liesIn(root, server.source()))
        && !allowed.contains(entryDigest(server.config, server.name, root));
}

QJsonArray McpClient::requests() const
{
    QJsonArray waiting;
    for (const ServerPtr &server : servers) {
        if (!server->asks)
            continue;
        QJsonObject shown = shownEntry(server->config, root);
        shown["id"_L1] = server->id;
        shown["name"_L1] = server->name;
        shown["source"_L1] = server->source();
        waiting.append(shown);
    }
    return waiting;
}

QString McpClient::waitingDigest(const QString &id) const
{
    const ServerPtr known = server(id);
    return known && known->asks ? entryDigest(known->config, known->name, root) : QString();
}

void McpClient::decide(const QString &id, bool allow)
{
    const QString digest = waitingDigest(id);
    if (digest.isEmpty())
        return;
    server(id)->asks = false;
    if (allow) {
        allowed.insert(digest);
        connectServer(id);
    } else {
        Q_EMIT changed();
    }
}

// Sessions

void McpClient::connectServer(const QString &id)
{
    const ServerPtr known = server(id);
    if (!known || known->status == McpStatus::connected || known->status == McpStatus::connecting)
        return;
    if (needsConsent(*known)) {
        if (!std::exchange(known->asks, true))
            Q_EMIT statusMessage(known->name
                                 + u": сервер описан в файле проекта. Проверьте и разрешите его: "
                                   "Настройки → MCP."_s);
        Q_EMIT changed();
        return;
    }
    const int connection = ++known->connection;
    known->status = McpStatus::connecting;
    known->error.clear();
    known->details.clear();
    known->asks = false;
    // A handshake begins a session; one that a failed handshake left behind may be gone for the server.
    known->sessionId.clear();
    Q_EMIT changed();
    if (known->connection != connection)
        return;
    if (!known->isHttp())
        return startProgram(known);
    known->secrets = secretsOf(known->config["headers"_L1].toObject());
    initialize(known);
}

void McpClient::disconnectServer(const QString &id)
{
    if (const ServerPtr known = server(id))
        close(known, 0);
}

void McpClient::close(const ServerPtr &server, int lingerMs)
{
    ++server->connection;
    const auto given = std::exchange(server->pending, {});
    for (const Callback &callback : given)
        callback({}, u"Подключение закрыто пользователем"_s);
    release(server, lingerMs);
    abortReplies(server->id);
    server->buffer.clear();
    server->sessionId.clear();
    server->status = McpStatus::disconnected;
    server->tools = {};
    Q_EMIT changed();
}

void McpClient::cancelAll()
{
    const QList<ServerPtr> all = servers.values();
    for (const ServerPtr &server : all) {
        const QList<qint64> given = server->pending.keys();
        for (const qint64 id : given)
            send(server,
                 notification(u"notifications/cancelled"_s,
                              {{u"requestId"_s, id}, {u"reason"_s, u"User stopped task"_s}}));
        close(server, given.isEmpty() ? 0 : cancelLingerMs);
    }
}

void McpClient::call(const QString &serverId, const QString &tool, const QJsonObject &arguments,
                     const std::function<void(QJsonObject)> &callback)
{
    const auto failed = [&](const QString &text) { callback({{u"success"_s, false}, {u"error"_s, text}}); };
    const ServerPtr known = server(serverId);
    if (!known || known->status != McpStatus::connected)
        return failed(u"MCP-сервер не подключён"_s);
    const bool offered = std::any_of(known->tools.cbegin(), known->tools.cend(), [&](const QJsonValue &described) {
        return described["name"_L1].isString() && described["name"_L1].toString() == tool;
    });
    if (!offered)
        return failed(u"Инструмент MCP не найден"_s);
    rpc(
        known, u"tools/call"_s, {{u"name"_s, tool}, {u"arguments"_s, arguments}},
        [callback, known](QJsonObject result, const QString &error) {
            result = withoutValues(result, known->secrets).toObject();
            result["success"_L1] = error.isEmpty() && !result.value("isError"_L1).toBool();
            if (error.isEmpty())
                result.remove("error"_L1);
            else
                result["error"_L1] = error;
            callback(result);
        },
        callLimitMs);
}

void McpClient::rpc(const ServerPtr &server, const QString &method, const QJsonObject &params, const Callback &callback,
                    int timeoutMs)
{
    const qint64 id = nextId++;
    server->pending.insert(id, callback);
    QTimer::singleShot(timeoutMs, this, [this, server, id] {
        const Callback late = server->pending.take(id);
        if (!late)
            return;
        abortReplies(server->id, id);
        late({}, u"MCP не ответил вовремя"_s);
    });
    send(server, {{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, id}, {u"method"_s, method}, {u"params"_s, params}});
}

void McpClient::send(const ServerPtr &server, const QJsonObject &message)
{
    if (server->process)
        writeLine(server, message);
    else
        post(server, message);
}

void McpClient::receive(const ServerPtr &server, const QJsonObject &message)
{
    // Late answers end here, and what the server asks of us.
    const Callback callback = message.contains("id"_L1) ? server->pending.take(answeredId(message)) : Callback();
    if (callback)
        callback(message["result"_L1].toObject(), server->clean(mcpFailure(message)).left(maxErrorChars));
}

void McpClient::initialize(const ServerPtr &server)
{
    const QJsonObject params{{u"protocolVersion"_s, mcpProtocol},
                             {u"capabilities"_s, QJsonObject()},
                             {u"clientInfo"_s, QJsonObject{{u"name"_s, u"VESK"_s}, {u"version"_s, u"1.1"_s}}}};
    rpc(
        server, u"initialize"_s, params,
        [this, server](const QJsonObject &, const QString &error) {
            if (!error.isEmpty()) {
                server->status = McpStatus::failed;
                server->error = error;
                Q_EMIT changed();
                Q_EMIT statusMessage(server->name + u": "_s + error);
                return;
            }
            send(server, notification(u"notifications/initialized"_s));
            rpc(
                server, u"tools/list"_s, {},
                [this, server](const QJsonObject &result, const QString &failure) {
                    takeTools(server, result, failure);
                },
                handshakeLimitMs);
        },
        handshakeLimitMs);
}

void McpClient::takeTools(const ServerPtr &server, const QJsonObject &result, const QString &error)
{
    McpTools tools;
    server->error = error;
    if (error.isEmpty() && !result["tools"_L1].isArray())
        server->error = u"Некорректный список инструментов"_s;
    server->status = server->error.isEmpty() ? McpStatus::connected : McpStatus::failed;
    if (server->error.isEmpty()) {
        tools = boundedTools(withoutSecrets(result["tools"_L1].toArray(), server->secrets));
        server->tools = tools.taken;
    }
    Q_EMIT changed();
    Q_EMIT statusMessage(server->name + u": "_s + server->status + u" · инструментов: "_s
                         + QString::number(server->tools.size()));
    if (tools.leftOut > 0)
        Q_EMIT statusMessage(
            server->name
            + u": не взято инструментов: %1. Предел — %2, по 64 КиБ каждый."_s.arg(tools.leftOut).arg(maxMcpTools));
}

} // namespace vesk
