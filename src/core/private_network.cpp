// Requests that nobody but their server gets to see.

#include "private_network.h"

#include <QList>
#include <QNetworkProxy>
#include <QNetworkRequest>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// Asked for each request when it goes out: those of one network may go to several servers at a time.
class OwnMachineDirect : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        return isLoopback(query.peerHostName()) ? QList{QNetworkProxy(QNetworkProxy::NoProxy)} : proxyForQuery(query);
    }
};

} // namespace

bool isLoopback(const QString &host)
{
    return host == "127.0.0.1"_L1 || host == "localhost"_L1 || host == "::1"_L1;
}

PrivateNetwork::PrivateNetwork()
{
    setProxyFactory(new OwnMachineDirect);
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
