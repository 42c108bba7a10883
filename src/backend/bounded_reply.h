#pragma once

#include <QByteArray>

#include <chrono>
#include <functional>

class QNetworkReply;

namespace vesk {

/// What became of a request to a server that nobody knows yet.
struct ServerReply {
    int status = 0; ///< HTTP status, 0 when there was none.
    int networkError = 0; ///< QNetworkReply::NetworkError.
    QByteArray body; ///< As far as it was taken.
    bool endless = false; ///< Given up because it went beyond the limit of bytes.

    bool isAccepted() const { return status >= 200 && status <= 299 && networkError == 0; }
};

/// Collects a reply within a limit of bytes and of time in all: a server may send without end, or a byte a minute. The
/// reply deletes itself. `done` runs once, also after an abort.
void collect(QNetworkReply *reply, qsizetype maxBytes, std::chrono::milliseconds longest,
             std::function<void(const ServerReply &)> done);

} // namespace vesk
