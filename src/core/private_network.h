#pragma once

#include <QNetworkAccessManager>
#include <QString>

namespace vesk {

/// Whether a host is this machine.
bool isLoopback(const QString &host);

/// Sends requests that carry keys, which are for the server of the address alone: none goes on to where that server
/// points, and none takes or leaves cookies. What goes to this machine passes no proxy, whatever the environment names:
/// that is a rule of Qt.
class PrivateNetwork : public QNetworkAccessManager {
    Q_OBJECT
protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request, QIODevice *body) override;
};

} // namespace vesk
