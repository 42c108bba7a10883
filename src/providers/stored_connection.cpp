// Which server the user has connected, and how a provider is pointed at one.

#include "stored_connection.h"

#include "credential_store.h"
#include "endpoints.h"
#include "openai_provider.h"
#include "store.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

QJsonObject storedConnection(const Store &store, QString &key)
{
    QJsonObject document = store.get(u"settings"_s, u"provider"_s);
    if (document.isEmpty())
        document = {{u"mock"_s, true}, {u"base_url"_s, u""_s}, {u"model"_s, u"qwen3-8"_s}};
    document["parallel"_L1] = 8;

    const QString url = document["base_url"_L1].toString();
    // Without an address there is no connection, and a keyring that is asleep is not woken for it.
    key = url.isEmpty() ? QString() : CredentialStore::read(connectionTarget(url));
    // A model on this machine needs no key; a remote one does.
    if (key.isEmpty() && QUrl(url).scheme() == "https"_L1)
        document["mock"_L1] = true;
    return document;
}

void setConnection(OpenAICompatibleProvider &target, const QString &url, const QString &model, const QString &key)
{
    const QUrl address(url);
    target.url = url;
    target.model = model;
    target.key = key;
    target.useResponses = address.host() == openAiHost();
    target.ownServer = !isPublished(address);
}

} // namespace vesk
