#pragma once

#include <QNetworkAccessManager>
#include <QString>

namespace vesk {

/// Whether a host is this machine.
bool isLoopback(const QString &host);

/// Sends requests that carry keys, which are for the server of the address alone: none goes on to where that server
/// points, none takes or leaves cookies, and what goes to this machine stays on it, whatever proxy the environment
/// names.
class PrivateNetwork : public QNetworkAccessManager {
public:
    PrivateNetwork();

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request, QIODevice *body) override;
};

} // namespace vesk
