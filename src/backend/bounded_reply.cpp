// A reply within limits of bytes and time.

#include "bounded_reply.h"

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>
#include <memory>
#include <utility>

namespace vesk {

void collect(QNetworkReply *reply, qsizetype maxBytes, std::chrono::milliseconds longest,
             std::function<void(const ServerReply &)> done)
{
    auto result = std::make_shared<ServerReply>();
    const auto take = [reply, result, maxBytes] {
        result->body += reply->isOpen() ? reply->read(maxBytes + 1 - result->body.size()) : QByteArray();
        if (result->body.size() > maxBytes && !result->endless) {
            result->endless = true;
            // On a turn of its own: this may be running inside the reply's last signal.
            QTimer::singleShot(0, reply, &QNetworkReply::abort);
        }
    };
    // What isn't read stays in the socket, and the server has to wait.
    reply->setReadBufferSize(std::min<qsizetype>(256 * 1024, maxBytes + 1));
    QTimer::singleShot(longest, reply, &QNetworkReply::abort);
    QObject::connect(reply, &QNetworkReply::readyRead, reply, take);
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, result, take, done = std::move(done)] {
        take();
        result->status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        result->networkError = int(reply->error());
        reply->deleteLater();
        done(*result);
    });
}

} // namespace vesk
