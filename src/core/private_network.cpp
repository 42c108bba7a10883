// Requests that nobody but their server gets to see.

#include "private_network.h"

#include <QNetworkRequest>

using namespace Qt::StringLiterals;

namespace vesk {

bool isLoopback(const QString &host)
{
    return host == "127.0.0.1"_L1 || host == "localhost"_L1 || host == "::1"_L1;
}

QNetworkReply *PrivateNetwork::createRequest(Operation operation, const QNetworkRequest &request, QIODevice *body)
{
    QNetworkRequest own = request;
    own.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    own.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    own.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    return QNetworkAccessManager::createRequest(operation, own, body);
}

} // namespace vesk
