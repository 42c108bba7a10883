// The connection to a model that the whole team works on, and those of single agents: made, changed and taken back.

#include "model_connection.h"

#include "connection_advice.h"
#include "conversation.h"
#include "credential_store.h"
#include "endpoints.h"
#include "engine.h"
#include "helpers.h"
#include "mock_provider.h"
#include "preferences.h"
#include "private_network.h"
#include "read_models.h"
#include "server_connection.h"
#include "store.h"

#include <QUrl>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto longestCheck = std::chrono::minutes(10);

} // namespace

QString serverAddress(const QString &typed)
{
    QString address = typed.trimmed();
    while (address.endsWith(u'/'))
        address.chop(1);
    if (address.isEmpty() || address.contains("://"_L1))
        return address;
    const QString secure = u"https://"_s + address;
    return isLoopback(QUrl(secure).host()) ? u"http://"_s + address : secure;
}

void requireApiAddress(const QString &url)
{
    const QUrl address(url);
    const bool isPlain = !address.host().isEmpty() && address.userInfo().isEmpty() && !address.hasQuery()
        && !address.hasFragment() && !url.contains(u'{') && !url.contains(u'}');
    const bool isReachable
        = address.scheme() == "https"_L1 || (address.scheme() == "http"_L1 && isLoopback(address.host()));
    require(address.isValid() && isPlain && isReachable,
            u"Укажите полный адрес API: HTTPS или HTTP для локальной модели. Замените шаблон WorkspaceId своим "
            "значением."_s);
}

ModelConnection::ModelConnection(Store &store, Engine &engine, MockProvider &mock, OpenAICompatibleProvider &client,
                                 Preferences &preferences, Conversation &conversation)
    : store(store)
    , engine(engine)
    , mock(mock)
    , client(client)
    , preferences(preferences)
    , conversation(conversation)
{
    QString key;
    document = storedConnection(store, key);
    setConnection(client, store, document["base_url"_L1].toString(), document["model"_L1].toString(), key);
    engine.maxParallel = maxParallelRequests;
    if (!isDemo())
        engine.setProvider(&client);

    connect(&modelCatalog, &ModelCatalog::finished, this, &ModelConnection::takeCatalog);
    connect(&serverFinder, &ServerFinder::changed, this, &ModelConnection::changed);
    connect(&serverFinder, &ServerFinder::finished, this, &ModelConnection::tellSearch);
    connect(&measure, &ConnectionMeasure::changed, this, &ModelConnection::changed);
    connect(&measure, &ConnectionMeasure::finished, this, &ModelConnection::takeMeasures);
    checkLimit.setSingleShot(true);
    connect(&checkLimit, &QTimer::timeout, this, &ModelConnection::giveUpCheck);
    facts = serverFacts(store, client.url, client.model);
}

bool ModelConnection::isDemo() const
{
    return document["mock"_L1].toBool(true);
}

void ModelConnection::configureClient(OpenAICompatibleProvider &target, const QString &projectRoot) const
{
    target.url = client.url;
    target.model = client.model;
    target.key = client.key;
    target.useResponses = client.useResponses;
    target.ownServer = client.ownServer;
    target.traits = client.traits;
    target.root = projectRoot;
}

void ModelConnection::configureAgentClient(OpenAICompatibleProvider &target, const QString &agent,
                                           const QJsonObject &entry, const QString &projectRoot) const
{
    setConnection(target, store, entry["url"_L1].toString(), entry["model"_L1].toString(),
                  CredentialStore::read(agentTarget(agent)));
    target.useResponses = entry["provider"_L1].toString() == "OpenAI"_L1;
    target.root = projectRoot;
}

void ModelConnection::say(const QString &line)
{
    apiStatus = line;
    Q_EMIT changed();
}

void ModelConnection::begin(const QString &line)
{
    testing = true;
    checkLimit.start(longestCheck);
    say(line);
}

void ModelConnection::endCheck()
{
    testing = false;
    checkLimit.stop();
}

/// A server may send a byte a minute for ever.
void ModelConnection::giveUpCheck()
{
    stopCheck();
    say(u"Сервер не ответил за десять минут. Проверка прекращена."_s);
}

QJsonObject ModelConnection::entryOf(const QString &agent) const
{
    return preferences.value(u"agent_api"_s)[agent].toObject();
}

void ModelConnection::requireAgent(const QString &agent, const QString &otherwise) const
{
    const QVariantList agents = agentProfilesOf(preferences.document());
    require(std::ranges::any_of(
                agents, [&](const QVariant &known) { return known.toMap().value(u"id"_s).toString() == agent; }),
            otherwise);
}

void ModelConnection::storeSettings(const QJsonObject &next)
{
    store.put(u"settings"_s, u"provider"_s, {}, next);
    document = next;
}

void ModelConnection::saveSettings(bool useMock, const QString &typedUrl, const QString &typedModel, const QString &key,
                                   int)
{
    require(!engine.busy() && !conversation.isBusy(), u"Дождитесь завершения текущей работы перед сменой модели."_s);
    const QString url = typedUrl.trimmed();
    const QString model = typedModel.trimmed();
    if (!useMock) {
        requireApiAddress(url);
        require(!model.isEmpty(), u"Укажите идентификатор модели."_s);
    }
    require(!url.contains(u'@'), u"Логин и пароль нельзя указывать в адресе API."_s);
    cleanKey(key); // refuses what no request can carry
    require(key.isEmpty() || CredentialStore::save(connectionTarget(url), key),
            u"Windows не смог сохранить API-ключ."_s);

    storeSettings(
        {{u"mock"_s, useMock}, {u"base_url"_s, url}, {u"model"_s, model}, {u"parallel"_s, maxParallelRequests}});
    // What is still being learned is of the connection that was.
    stopMeasuring();
    setConnection(client, store, url, model, url.isEmpty() ? QString() : CredentialStore::read(connectionTarget(url)));
    facts = serverFacts(store, url, model);
    engine.maxParallel = maxParallelRequests;
    engine.setProvider(useMock ? static_cast<ILLMProvider *>(&mock) : &client);
    say(u"Настройки сохранены. Подключение можно проверить кнопкой ниже."_s);
}

void ModelConnection::useDemonstration()
{
    saveSettings(true, document["base_url"_L1].toString(), document["model"_L1].toString(), {}, maxParallelRequests);
    say(u"Включена демонстрация. Адрес и ключ сохранены."_s);
}

void ModelConnection::loadModels(const QString &provider, const QString &givenKey, const QString &agent)
{
    const QString base = endpoint(provider);
    QString key = cleanKey(givenKey);
    modelCatalog.beginFor(provider, agent);
    say(u"Загружаю модели по вашему ключу…"_s);
    if (key.isEmpty() && agent.isEmpty())
        key = CredentialStore::read(connectionTarget(base));
    else if (key.isEmpty() && entryOf(agent)["provider"_L1].toString() == provider)
        key = CredentialStore::read(agentTarget(agent));
    key = cleanKey(key);
    require(!key.isEmpty(), u"Добавьте ключ, чтобы получить доступные модели"_s);
    modelCatalog.ask(base, key);
}

void ModelConnection::takeCatalog(const ModelCatalog::Outcome &outcome)
{
    if (modelCatalog.ownerProvider() == ownServerName())
        takeServerCatalog(outcome);
    else if (outcome.reply.networkError != 0)
        say(u"Не удалось получить модели: HTTP "_s + QString::number(outcome.reply.status));
    else if (outcome.catalog.models.isEmpty())
        say(u"Для этого ключа не найдено подходящих моделей. Проверьте провайдера и доступ к моделям."_s);
    else
        say(u"Список моделей обновлён. Выберите модель для проверки."_s);
}

void ModelConnection::forgetProvider(const QString &provider)
{
    forgetKeyOf([&] { return endpoint(provider); });
}

void ModelConnection::forgetServer(const QString &typedUrl)
{
    forgetKeyOf([&] { return serverAddress(typedUrl); });
}

void ModelConnection::forgetKeyOf(const std::function<QString()> &address)
{
    require(!engine.busy() && !conversation.isBusy(), u"Остановите текущую работу"_s);
    const QString base = address();
    require(CredentialStore::remove(connectionTarget(base)), u"Не удалось удалить ключ"_s);
    modelCatalog.abort();
    probeClient.cancelAll();
    stopMeasuring();
    endCheck();
    probeClient.key.clear();
    if (base == client.url) {
        client.key.clear();
        conversation.model().key.clear();
        document["mock"_L1] = true;
        engine.setProvider(&mock);
        storeSettings(document);
    }
    say(u"Ключ удалён"_s);
}

void ModelConnection::findServers()
{
    serverFinder.search();
    serverLine = u"Ищу серверы моделей на этом компьютере…"_s;
    Q_EMIT changed();
}

void ModelConnection::tellSearch()
{
    const qsizetype count = serverFinder.found().size();
    serverLine = count == 0
        ? u"На этом компьютере сервер моделей не отвечает. Запустите Ollama, LM Studio, llama.cpp или vLLM и повторите "
          "поиск."_s
        : u"Найдено серверов: "_s + QString::number(count) + u". Выберите сервер и модель."_s;
    Q_EMIT changed();
}

void ModelConnection::loadServerModels(const QString &typedUrl, const QString &givenKey, const QString &agent)
{
    const QString url = serverAddress(typedUrl);
    requireApiAddress(url);
    QString key = cleanKey(givenKey);
    modelCatalog.beginFor(ownServerName(), agent);
    say(u"Загружаю список моделей сервера…"_s);
    if (key.isEmpty())
        key = keyFor(url, agent);
    modelCatalog.ask(url, key);
}

void ModelConnection::takeServerCatalog(const ModelCatalog::Outcome &outcome)
{
    const Catalog &catalog = outcome.catalog;
    const ServerReply &reply = outcome.reply;
    if (reply.endless)
        say(u"Список моделей сервера слишком велик. Введите имя модели."_s);
    else if (!catalog.isList)
        say(u"Список моделей не получен. "_s
            + serverAdvice({outcome.base, {}, outcome.hadKey, reply.status, reply.networkError, reply.isAccepted()}));
    else if (catalog.models.isEmpty())
        say(u"На сервере нет ни одной модели. Загрузите модель и обновите список."_s);
    else if (catalog.isCut)
        say(u"Список моделей обновлён. Показаны первые "_s + QString::number(catalog.models.size())
            + u", имя остальных можно ввести."_s);
    else
        say(u"Список моделей обновлён. Выберите модель для проверки."_s);
}

bool ModelConnection::stopCheck()
{
    const bool wasBusy = testing || modelCatalog.isLoading() || serverFinder.isSearching() || isMeasuring();
    if (serverFinder.isSearching())
        serverLine = u"Поиск остановлен."_s;
    serverFinder.stop();
    modelCatalog.abort();
    probeClient.cancelAll();
    endAgentProbe();
    stopMeasuring();
    endCheck();
    if (wasBusy)
        say(u"Проверка остановлена."_s);
    return wasBusy;
}

void ModelConnection::stopAll()
{
    stopCheck();
    say(u"Остановлено"_s);
}

void ModelConnection::stopMeasuring()
{
    measuresAfterTest = false;
    measure.stop();
}

void ModelConnection::endAgentProbe()
{
    if (!agentProbe)
        return;
    agentProbe->cancelAll();
    agentProbe->deleteLater();
    agentProbe = nullptr;
}

/// The key stored for exactly this address: no key goes anywhere that it was not given for.
QString ModelConnection::keyFor(const QString &url, const QString &agent) const
{
    const QJsonObject entry = entryOf(agent);
    QString key;
    if (entry["provider"_L1].toString() == ownServerName() && entry["url"_L1].toString() == url)
        key = CredentialStore::read(agentTarget(agent));
    return key.isEmpty() ? CredentialStore::read(connectionTarget(url)) : key;
}

} // namespace vesk
