#include "wire_server.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 floodAheadBytes = 256 * 1024;

QByteArray headerValue(const QByteArray &head, const QByteArray &name)
{
    for (const QByteArray &line : head.split('\n')) {
        const qsizetype colon = line.indexOf(':');
        if (colon > 0 && line.first(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
            return line.sliced(colon + 1).trimmed();
    }
    return {};
}

} // namespace

QByteArray WireRequest::header(const QByteArray &name) const
{
    return headerValue(head, name);
}

QJsonObject WireRequest::json() const
{
    return QJsonDocument::fromJson(body).object();
}

QByteArray WireReply::head(int status, const QByteArray &headers)
{
    return "HTTP/1.1 " + QByteArray::number(status) + " Status\r\n" + headers + "\r\n";
}

QByteArray WireReply::chunk(const QByteArray &bytes)
{
    return QByteArray::number(bytes.size(), 16) + "\r\n" + bytes + "\r\n";
}

QByteArray WireReply::text(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

WireReply WireReply::document(int status, const QByteArray &body, const QByteArray &moreHeaders)
{
    const QByteArray headers
        = "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" + moreHeaders;
    return {{{head(status, headers) + body}}};
}

WireReply WireReply::events(const QList<QByteArray> &lines, End end)
{
    WireReply reply;
    reply.steps.append({head(200, "Content-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n")});
    for (const QByteArray &line : lines)
        reply.steps.append({chunk(line + "\n\n")});
    if (end == End::KeepAlive || end == End::Close)
        reply.steps.append({"0\r\n\r\n"});
    reply.end = end;
    return reply;
}

QJsonObject WireReply::completion(const QString &content, const QString &finishReason)
{
    const QJsonObject message{{u"role"_s, u"assistant"_s}, {u"content"_s, content}};
    return {{u"choices"_s, QJsonArray{QJsonObject{{u"message"_s, message}, {u"finish_reason"_s, finishReason}}}},
            {u"usage"_s, QJsonObject{{u"prompt_tokens"_s, 11}, {u"completion_tokens"_s, 7}}}};
}

WireServer::WireServer(Handler handler)
    : handler(std::move(handler))
    , server(std::make_unique<QTcpServer>())
{
    listen();
}

WireServer::WireServer(Handler handler, const QSslConfiguration &tls)
    : handler(std::move(handler))
    , secure(true)
{
    auto secured = std::make_unique<QSslServer>();
    secured->setSslConfiguration(tls);
    server = std::move(secured);
    listen();
}

WireServer::~WireServer() = default;

QSslConfiguration WireServer::selfSigned()
{
    const QTemporaryDir folder;
    const QString keyFile = folder.filePath(u"key.pem"_s);
    const QString certificateFile = folder.filePath(u"cert.pem"_s);
    const QString openssl = QStandardPaths::findExecutable(u"openssl"_s);
    QFile key(keyFile);
    if (openssl.isEmpty()
        || QProcess::execute(openssl,
                             {u"req"_s, u"-x509"_s, u"-newkey"_s, u"rsa:2048"_s, u"-nodes"_s, u"-days"_s, u"2"_s,
                              u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s, u"subjectAltName=IP:127.0.0.1"_s,
                              u"-keyout"_s, keyFile, u"-out"_s, certificateFile, u"-quiet"_s})
            != 0
        || !key.open(QIODevice::ReadOnly))
        return {};
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificate(QSslCertificate::fromPath(certificateFile).value(0));
    tls.setPrivateKey(QSslKey(&key, QSsl::Rsa));
    return tls;
}

void WireServer::listen()
{
    connect(server.get(), &QTcpServer::pendingConnectionAvailable, this, &WireServer::accept);
    server->listen(QHostAddress::LocalHost);
}

QString WireServer::url() const
{
    return u"%1://127.0.0.1:%2/v1"_s.arg(secure ? u"https"_s : u"http"_s).arg(server->serverPort());
}

void WireServer::accept()
{
    while (QTcpSocket *socket = server->nextPendingConnection()) {
        // An answer goes out as it was written, not when the client has acknowledged the one before.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { take(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        take(socket);
    }
}

/// Waits until head and body are whole.
void WireServer::take(QTcpSocket *socket)
{
    const QByteArray seen = socket->peek(socket->bytesAvailable());
    const qsizetype end = seen.indexOf("\r\n\r\n");
    if (end < 0)
        return;
    const QByteArray head = seen.first(end);
    const qsizetype length = headerValue(head, "Content-Length").toLongLong();
    if (seen.size() < end + 4 + length)
        return;
    socket->skip(end + 4);
    WireRequest request{head.first(head.indexOf("\r\n")), head, socket->read(length)};
    requests.append(request);
    perform(socket, handler(request), 0);
}

void WireServer::perform(QTcpSocket *socket, const WireReply &reply, qsizetype step)
{
    if (step == reply.steps.size()) {
        finish(socket, reply);
        return;
    }
    const auto go = [this, reply, step, guarded = QPointer(socket)] {
        if (!guarded)
            return;
        guarded->write(reply.steps[step].bytes);
        guarded->flush();
        perform(guarded, reply, step + 1);
    };
    if (reply.steps[step].afterMs > 0)
        QTimer::singleShot(reply.steps[step].afterMs, socket, go);
    else
        go();
}

void WireServer::finish(QTcpSocket *socket, const WireReply &reply)
{
    switch (reply.end) {
    case WireReply::End::KeepAlive:
    case WireReply::End::Silence:
        break;
    case WireReply::End::Close:
        socket->disconnectFromHost();
        break;
    case WireReply::End::Reset:
        socket->abort();
        break;
    case WireReply::End::Flood: {
        const QByteArray again = reply.steps.last().bytes;
        const auto pour = [socket, again] {
            while (socket->state() == QAbstractSocket::ConnectedState && socket->bytesToWrite() < floodAheadBytes)
                socket->write(again);
        };
        connect(socket, &QTcpSocket::bytesWritten, socket, pour);
        pour();
        break;
    }
    }
}
