// Which server the user has connected, what is known of it, and how a provider is pointed at one.

#include "server_connection.h"

#include "credential_store.h"
#include "endpoints.h"
#include "helpers.h"
#include "store.h"

#include <QLocale>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

QString factsId(const QString &url, const QString &model)
{
    return digest((url + u'\n' + model).toUtf8());
}

/// What makes the window larger, by the port on which each server usually listens.
QString windowRemedy(const QString &url)
{
    switch (QUrl(url).port()) {
    case 11434:
        return u"Задайте переменную окружения OLLAMA_CONTEXT_LENGTH=32768 и перезапустите Ollama."_s;
    case 8080:
        return u"Запустите llama-server с параметром -c 32768."_s;
    case 1234:
        return u"Загрузите модель в LM Studio заново, с Context Length 32768."_s;
    case 8000:
        return u"Запустите vLLM с параметром --max-model-len 32768."_s;
    default:
        return u"Увеличьте контекст на сервере до 32768 токенов: у Ollama это OLLAMA_CONTEXT_LENGTH, у llama.cpp -c, у "
               "LM Studio Context Length, у vLLM --max-model-len."_s;
    }
}

} // namespace

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

void setConnection(OpenAICompatibleProvider &target, const Store &store, const QString &url, const QString &model,
                   const QString &key)
{
    const QUrl address(url);
    target.url = url;
    target.model = model;
    target.key = key.trimmed(); // Older versions kept one as it was pasted.
    target.useResponses = address.host() == openAiHost();
    target.ownServer = !isPublished(address);
    target.traits = target.ownServer ? traitsOf(serverFacts(store, url, model)) : ServerTraits();
}

QJsonObject serverFacts(const Store &store, const QString &url, const QString &model)
{
    return store.get(u"model_profiles"_s, factsId(url, model));
}

void storeServerFacts(Store &store, const QString &url, const QString &model, QJsonObject facts)
{
    facts["url"_L1] = url;
    facts["model"_L1] = model;
    facts["time"_L1] = now();
    store.put(u"model_profiles"_s, factsId(url, model), {}, facts);
}

ServerTraits traitsOf(const QJsonObject &facts)
{
    const QString json = facts["json"_L1].toString();
    return {json == "json_schema"_L1  ? JsonMode::Schema
                : json == "prompt"_L1 ? JsonMode::Prompt
                                      : JsonMode::Object,
            facts["streaming"_L1].toBool(true), facts["images"_L1].toBool()};
}

QString windowAdvice(const QJsonObject &facts, const QString &url)
{
    const int window = facts["window"_L1].toInt();
    if (window == 0 || window >= leastWindow)
        return {};
    const QLocale russian(QLocale::Russian);
    const QString size = russian.toString(window);
    const QString least = russian.toString(leastWindow);
    return (facts["window_cut"_L1].toBool() ? u"Длинный запрос сервер молча обрезает: модель видит около "_s + size
                    + u" токенов, для плана нужно "_s + least
                                            : u"Окно модели — "_s + size + u" токенов, для плана нужно "_s + least)
        + u". "_s + windowRemedy(url);
}

} // namespace vesk
