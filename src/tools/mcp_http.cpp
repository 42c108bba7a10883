// MCP servers behind HTTP: each message is a request of its own, answered in JSON or by an event stream.

#include "mcp_client.h"

#include "helpers.h"
#include "low_delay.h"
#include "mcp_server.h"

#include <QHttp1Configuration>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int transferLimitMs = 120000;
constexpr int notificationLimitMs = 2000;
constexpr int parallelRequests = 8;
constexpr qint64 readAheadBytes = 1048576;
constexpr qsizetype onePieceBytes = 8192;
constexpr const char *requestProperty = "mcpRequest";

bool maySendTo(const QUrl &url)
{
    return url.isValid() && (url.scheme() == "https"_L1 || (url.scheme() == "http"_L1 && isLoopback(url.host())));
}

QJsonObject failed(const QJsonValue &id, const QString &text)
{
    return {{u"id"_s, id}, {u"error"_s, QJsonObject{{u"message"_s, text}}}};
}

bool isStream(const QNetworkReply &reply)
{
    return reply.header(QNetworkRequest::ContentTypeHeader).toString().contains("text/event-stream"_L1);
}

} // namespace

/// One message and what has come back of it.
struct McpClient::Exchange {
    ServerPtr server;
    QJsonObject message;
    int connection = 0;
    McpLines body;
    bool handled = false;
    bool tooLong = false;
};

void McpClient::post(const ServerPtr &server, const QJsonObject &message)
{
    const QUrl url(server->config["url"_L1].toString());
    const QByteArray body = jsonBytes(message);
    const bool fits = body.size() <= maxMcpMessageBytes;
    if (!maySendTo(url) || !fits)
        return receive(server,
                       failed(message["id"_L1],
                              fits ? u"MCP требует HTTPS или локальный HTTP"_s : u"Слишком большой запрос MCP"_s));

    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    request.setRawHeader("Accept", "application/json, text/event-stream");
    request.setRawHeader("MCP-Protocol-Version", mcpProtocol.toLatin1());
    const bool cancels = message["method"_L1].toString() == "notifications/cancelled"_L1;
    request.setTransferTimeout(cancels ? notificationLimitMs : transferLimitMs);
    QHttp1Configuration connections;
    connections.setNumberOfConnectionsPerHost(parallelRequests);
    request.setHttp1Configuration(connections);
    if (!server->sessionId.isEmpty())
        request.setRawHeader("Mcp-Session-Id", server->sessionId.toUtf8());
    const QJsonObject headers = server->config["headers"_L1].toObject();
    for (auto header = headers.begin(); header != headers.end(); ++header)
        request.setRawHeader(header.key().toUtf8(), header.value().toString().toUtf8());

    const auto exchange = std::make_shared<Exchange>();
    exchange->server = server;
    exchange->message = message;
    exchange->connection = server->connection;
    QNetworkReply *reply = network.post(request, body);
    reply->setReadBufferSize(readAheadBytes);
    // What says that requests are given up goes out after they are, and ends by itself.
    if (!cancels)
        reply->setObjectName(server->id);
    reply->setProperty(requestProperty, message["id"_L1].toInteger(-1));
    // A short one over HTTP/1 goes out in one piece, which waits for nothing.
    if (body.size() > onePieceBytes || url.scheme() == "https"_L1)
        sendWithoutDelay(reply);
    connect(reply, &QNetworkReply::readyRead, this, [this, reply, exchange] { readReply(reply, exchange); });
    connect(reply, &QNetworkReply::finished, this, [this, reply, exchange] { finishReply(reply, exchange); });
}

/// All of them, or that to one request: a stream that is kept alive would hold one of the few connections for ever.
void McpClient::abortReplies(const QString &server, std::optional<qint64> request)
{
    const QList<QNetworkReply *> replies = network.findChildren<QNetworkReply *>(server);
    for (QNetworkReply *reply : replies)
        if (!request || reply->property(requestProperty) == *request)
            reply->abort();
}

void McpClient::readReply(QNetworkReply *reply, const std::shared_ptr<Exchange> &exchange)
{
    if (exchange->tooLong || exchange->handled)
        return;
    exchange->body.feed(reply->readAll());
    if (reply->hasRawHeader("Mcp-Session-Id") && exchange->connection == exchange->server->connection)
        exchange->server->sessionId = QString::fromUtf8(reply->rawHeader("Mcp-Session-Id"));
    if (isStream(*reply))
        readEvents(reply, exchange);
    exchange->tooLong
        = isStream(*reply) ? exchange->body.isTooLong() : exchange->body.rest().size() > maxMcpMessageBytes;
    // A notification has no answer that a stream could bring.
    const bool isIdle = isStream(*reply) && !exchange->message.contains("id"_L1);
    if (exchange->tooLong || isIdle)
        reply->abort();
}

void McpClient::readEvents(QNetworkReply *reply, const std::shared_ptr<Exchange> &exchange)
{
    while (const std::optional<QByteArray> line = exchange->body.next()) {
        const QJsonObject event = mcpEvent(*line);
        if (!exchange->message.contains("id"_L1) || !answers(event, exchange->message["id"_L1]))
            continue;
        exchange->handled = true;
        exchange->body.clear();
        QTimer::singleShot(0, reply, &QNetworkReply::abort);
        return receive(exchange->server, event);
    }
}

void McpClient::finishReply(QNetworkReply *reply, const std::shared_ptr<Exchange> &exchange)
{
    if (reply->isOpen() && reply->bytesAvailable() > 0)
        readReply(reply, exchange);
    reply->disconnect(this);
    reply->deleteLater();
    const QJsonValue id = exchange->message["id"_L1];
    if (exchange->handled || id.isUndefined())
        return;
    const QJsonObject answer = exchange->tooLong ? QJsonObject() : mcpMessage(exchange->body.rest());
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    receive(exchange->server,
            answer.contains("id"_L1) ? answer : failed(id, u"MCP не вернул ответ: HTTP "_s + QString::number(status)));
}

} // namespace vesk
