#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QSslConfiguration;
class QTcpServer;
class QTcpSocket;

/// What a client asked.
struct WireRequest {
    QByteArray line; ///< "POST /v1/chat/completions HTTP/1.1"
    QByteArray head; ///< All header lines.
    QByteArray body;

    QByteArray header(const QByteArray &name) const;
    QJsonObject json() const;
};

/// What the server does on the wire: any bytes at any pace.
struct WireReply {
    struct Step {
        QByteArray bytes;
        int afterMs = 0; ///< Pause before them.
    };
    enum class End {
        KeepAlive, ///< The connection takes the next request.
        Close,
        Reset, ///< Cut without a goodbye.
        Silence, ///< Open, and nothing more comes.
        Flood, ///< The last step again and again until the client goes away.
    };

    QList<Step> steps;
    End end = End::KeepAlive;

    static WireReply document(int status, const QByteArray &body, const QByteArray &moreHeaders = {});
    static WireReply document(int status, const QJsonObject &body) { return document(status, text(body)); }
    /// A stream of these events, each in a chunk of its own.
    static WireReply events(const QList<QByteArray> &lines, End end = End::KeepAlive);
    static QByteArray head(int status, const QByteArray &headers);
    static QByteArray chunk(const QByteArray &bytes);
    static QByteArray text(const QJsonObject &object);

    /// The usual answer of a chat completions server.
    static QJsonObject completion(const QString &content, const QString &finishReason = QStringLiteral("stop"));
};

/// A small real HTTP server on loopback, in the event loop of whoever makes it.
class WireServer : public QObject {
    Q_OBJECT
public:
    using Handler = std::function<WireReply(const WireRequest &)>;

    explicit WireServer(Handler handler);
    /// With TLS.
    WireServer(Handler handler, const QSslConfiguration &tls);
    ~WireServer() override;

    /// For a server with a certificate that nobody trusts; null without openssl, which makes it.
    static QSslConfiguration selfSigned();

    QString url() const; ///< Base address with the path "/v1".
    QList<WireRequest> requests;

private:
    void listen();
    void accept();
    void take(QTcpSocket *socket);
    void perform(QTcpSocket *socket, const WireReply &reply, qsizetype step);
    void finish(QTcpSocket *socket, const WireReply &reply);

    Handler handler;
    std::unique_ptr<QTcpServer> server;
    bool secure = false;
};
