#pragma once

#include "private_network.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class QNetworkReply;
class QProcess;

namespace vesk {

/// Connects to servers of the Model Context Protocol: programs spoken to over their standard input and output, one JSON
/// message a line, and HTTP endpoints that answer in JSON or as an event stream. Which there are is read from the files
/// of other tools (mcp_config.h, docs/mcp.md).
///
/// A program runs in a guard: nothing of it outlives the connection or this process. What a server sends is bounded in
/// every direction, and the values of its headers and keys are cut out of all that it says. An entry from a file in the
/// project is not used before the user has allowed exactly it: agents write these files.
///
/// Never throws. Main thread only.
class McpClient : public QObject {
    Q_OBJECT
public:
    struct Server;
    using ServerPtr = std::shared_ptr<Server>;
    /// The "result" of a request and why it has failed; an empty text is success.
    using Callback = std::function<void(QJsonObject, QString)>;

    explicit McpClient(QObject *parent = nullptr);
    /// Ends all programs and waits for them, 1 s at most.
    ~McpClient() override;

    // Discovery

    /// Looks for servers on this machine and in the project at `root`, which may be empty. Those found earlier stay.
    void scan(const QString &root);
    /// Enters one server, unless its entry has neither a "command" nor a "url", or it is known already.
    void add(const QString &name, const QJsonObject &config, const QString &source);
    /// One record for each server: "id", "name", "status", "error", "source", "tool_count".
    QJsonArray list() const;
    /// The tools of all connected servers as they describe them, with "server_id" and "server_name".
    QJsonArray availableTools() const;
    /// What the last failure looked like: where a program was sought, or the end of its standard error.
    QString details(const QString &id) const;

    // Servers of the project

    /// Digests of entries that the user has allowed, now or earlier.
    QSet<QString> allowed;
    /// What waits for the user's word: an entry as shownEntry() has it, with "id", "name" and "source".
    QJsonArray requests() const;
    /// The digest that a yes to this server is bound to; empty when it does not wait.
    QString waitingDigest(const QString &id) const;
    /// The user's word on a server that waits: yes connects it.
    void decide(const QString &id, bool allow);

    // Sessions

    void connectServer(const QString &id);
    void disconnectServer(const QString &id);
    /// Tells the servers which requests are given up, and ends all connections.
    void cancelAll();
    /// The callback always runs, exactly once, with the server's result, "success" and, when the call itself has
    /// failed, "error".
    void call(const QString &serverId, const QString &tool, const QJsonObject &arguments,
              const std::function<void(QJsonObject)> &callback);

    QString nameOf(const QString &id) const;
    ServerPtr server(const QString &id) const { return servers.value(id); }
    /// Sends a request. The callback runs once: with the answer, after `timeoutMs`, or when the connection ends.
    void rpc(const ServerPtr &server, const QString &method, const QJsonObject &params, const Callback &callback,
             int timeoutMs);

Q_SIGNALS:
    /// A server's status, error or tools have changed, there is a new server, or one waits for the user's word.
    void changed();
    /// One line for the user.
    void statusMessage(QString text);

private:
    struct Exchange;

    // mcp_client.cpp
    void send(const ServerPtr &server, const QJsonObject &message);
    static void receive(const ServerPtr &server, const QJsonObject &message);
    void initialize(const ServerPtr &server);
    void takeTools(const ServerPtr &server, const QJsonObject &result, const QString &error);
    bool needsConsent(const Server &server) const;
    void close(const ServerPtr &server, int lingerMs);

    // mcp_process.cpp
    void startProgram(const ServerPtr &server);
    void withSearchPath(const std::function<void()> &next);
    void launch(const ServerPtr &server, const QString &program, const QStringList &arguments);
    void notFound(const ServerPtr &server, const QString &program);
    void readLines(const ServerPtr &server);
    void ended(const ServerPtr &server);
    static void writeLine(const ServerPtr &server, const QJsonObject &message);
    void release(const ServerPtr &server, int lingerMs);

    // mcp_http.cpp
    void post(const ServerPtr &server, const QJsonObject &message);
    void abortReplies(const QString &server, std::optional<qint64> request = {});
    void readReply(QNetworkReply *reply, const std::shared_ptr<Exchange> &exchange);
    void readEvents(QNetworkReply *reply, const std::shared_ptr<Exchange> &exchange);
    void finishReply(QNetworkReply *reply, const std::shared_ptr<Exchange> &exchange);

    QMap<QString, ServerPtr> servers; ///< By id.
    PrivateNetwork network;
    qint64 nextId = 1; ///< Of requests, over all servers.
    QString root; ///< Of the project.
    QString loginPath;
    bool knowsLoginPath = false;
    QList<std::function<void()>> waitForPath;
};

} // namespace vesk
