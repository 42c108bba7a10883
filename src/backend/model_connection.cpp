// The connection to a model that the whole team works on.

#include "model_connection.h"

#include "credential_store.h"
#include "endpoints.h"
#include "engine.h"
#include "openai_provider.h"
#include "store.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int parallelRequests = 8;

} // namespace

ModelConnection::ModelConnection(const Store &store, Engine &engine, OpenAICompatibleProvider &client)
    : document(store.get(u"settings"_s, u"provider"_s))
    , client(client)
{
    if (document.isEmpty())
        document = {
            {u"mock"_s, true}, {u"base_url"_s, u""_s}, {u"model"_s, u"qwen3-8"_s}, {u"parallel"_s, parallelRequests}};

    client.url = document.value("base_url"_L1).toString();
    client.model = document.value("model"_L1).toString();
    // Without an address there is no connection, and a keyring that is asleep is not woken for it.
    if (!client.url.isEmpty())
        client.key = CredentialStore::read(connectionTarget(client.url));
    const QUrl address(client.url);
    client.useResponses = address.host() == openAiHost();
    client.ownServer = !isPublished(address);
    // A model on this machine needs no key; a remote one does.
    if (client.key.isEmpty() && address.scheme() == "https"_L1)
        document["mock"_L1] = true;
    engine.maxParallel = parallelRequests;
    document["parallel"_L1] = parallelRequests;
    if (!document.value("mock"_L1).toBool(true))
        engine.setProvider(&client);
}

bool ModelConnection::isDemo() const
{
    return document["mock"_L1].toBool();
}

void ModelConnection::configureClient(OpenAICompatibleProvider &target, const QString &projectRoot) const
{
    target.url = client.url;
    target.model = client.model;
    target.key = client.key;
    target.useResponses = client.useResponses;
    target.ownServer = client.ownServer;
    target.root = projectRoot;
}

} // namespace vesk
