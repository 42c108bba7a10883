// Checks of a connection: one short request, and what follows from its answer.

#include "model_connection.h"

#include "connection_advice.h"
#include "conversation.h"
#include "credential_store.h"
#include "endpoints.h"
#include "engine.h"
#include "helpers.h"
#include "preferences.h"
#include "server_connection.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int probeTokens = 2048;
constexpr int agentSilenceMs = 180000;
constexpr int qwenSilenceMs = 45000;

LLMRequest connectionProbe()
{
    return {id(),
            u"connection_probe"_s,
            u"Return JSON only: {\"summary\":\"ok\"}."_s,
            {{u"message"_s, u"Connection test"_s}},
            probeTokens};
}

/// Whether the agents could work with what has come back.
bool isInFormat(const LLMResult &result)
{
    try {
        return result.error.isEmpty() && parseObject(result.content)["summary"_L1].isString();
    } catch (const std::exception &) {
        return false;
    }
}

} // namespace

/// What to do about a failed check. Behind the sentence of our own stands what the server said, without secrets.
QString ModelConnection::adviceFor(const Target &target, const LLMResult &result)
{
    return serverAdvice({target.url, target.model, !target.key.isEmpty(), result.httpStatus, result.networkError,
                         result.foreign, result.error.section(u'\n', 1)});
}

void ModelConnection::connectProvider(const QString &provider, const QString &typedModel, const QString &typedKey)
{
    require(!engine.busy() && !conversation.isBusy() && !testing, u"Сначала остановите текущую работу"_s);
    Target target{{}, provider, endpoint(provider), typedModel.trimmed(), {}};
    require(!target.model.isEmpty(), u"Выберите модель"_s);
    target.key = cleanKey(typedKey);
    if (target.key.isEmpty())
        target.key = cleanKey(CredentialStore::read(connectionTarget(target.url)));
    require(!target.key.isEmpty(), u"Добавьте ключ этого провайдера"_s);

    setConnection(probeClient, store, target.url, target.model, target.key);
    probeClient.useResponses = provider == "OpenAI"_L1;
    begin(u"Проверяю выбранную модель…"_s);
    probeClient.request(connectionProbe(), [this, target](const LLMResult &result) { takeProvider(target, result); });
}

void ModelConnection::takeProvider(const Target &target, const LLMResult &result)
{
    endCheck();
    if (!isInFormat(result)) {
        say(u"Модель не подключена. "_s
            + (result.error.isEmpty() ? u"Модель не поддерживает формат ответов агентов."_s : result.error));
        return;
    }
    conclude([&] {
        saveSettings(false, target.url, target.model, target.key, maxParallelRequests);
        QJsonObject named = document;
        named["provider"_L1] = target.provider;
        storeSettings(named);
        say(u"Подключено: "_s + target.model);
    });
}

/// What follows from a check that has passed. A refusal, such as that of a run that has begun meanwhile, is told.
void ModelConnection::conclude(const std::function<void()> &work)
{
    QString failure;
    try {
        work();
    } catch (const std::exception &refusal) {
        failure = textOf(refusal);
        say(failure);
    }
    Q_EMIT concluded(failure);
}

void ModelConnection::connectQwen(const QString &typedKey)
{
    require(!engine.busy() && !conversation.isBusy(), u"Дождитесь завершения текущей работы."_s);
    const QString key = cleanKey(typedKey);
    require(!key.isEmpty(), u"Вставьте API-ключ Qwen."_s);
    begin(u"Подключаю Qwen 3.8…"_s);
    tryQwenEndpoint(key, 0, {endpoint(u"Alem Plus"_s)});
}

/// Walks through the addresses, so that one key can be tried at several.
void ModelConnection::tryQwenEndpoint(const QString &key, qsizetype index, const QStringList &urls)
{
    if (index >= urls.size()) {
        endCheck();
        say(u"Не удалось подключиться. Проверьте ключ и доступ к Qwen 3.8 в аккаунте."_s);
        return;
    }
    setConnection(probeClient, store, urls[index], u"qwen3-8"_s, key);
    probeClient.useResponses = false;
    probeClient.timeoutMs = qwenSilenceMs;
    const LLMRequest request{
        id(), u"chat"_s, u"Return JSON only: {\"summary\":\"ok\"}."_s, {{u"message"_s, u"Connection check"_s}}, 256};
    probeClient.request(request, [this, key, index, urls](const LLMResult &result) {
        if (!isInFormat(result))
            return tryQwenEndpoint(key, index + 1, urls);
        endCheck();
        conclude([&] {
            saveSettings(false, urls[index], u"qwen3-8"_s, key, maxParallelRequests);
            require(!isDemo() && client.url == urls[index], u"Не удалось сохранить подключение."_s);
            say(u"Qwen 3.8 подключён · Alem Plus"_s);
        });
    });
}

void ModelConnection::testConnection()
{
    require(!testing, u"Проверка уже выполняется."_s);
    require(!isDemo(), u"Добавьте подключение в настройках API."_s);
    configureClient(probeClient, client.root);
    begin(u"Отправляю короткий тестовый запрос…"_s);
    const LLMRequest request{id(),
                             u"chat"_s,
                             u"Return JSON only: {\"summary\":\"Соединение установлено\"}. Do not include reasoning."_s,
                             {{u"message"_s, u"Проверка соединения"_s}},
                             64};
    probeClient.request(request, [this](const LLMResult &result) { takeTest(result); });
}

void ModelConnection::takeTest(const LLMResult &result)
{
    endCheck();
    const bool measures = std::exchange(measuresAfterTest, false);
    const Target target{{}, {}, probeClient.url, probeClient.model, probeClient.key};
    if (!isInFormat(result)) {
        serverLine = probeClient.ownServer ? adviceFor(target, result) : QString();
        say(u"Не удалось подключиться. "_s
            + (result.error.isEmpty() ? u"Ответ не соответствует JSON-формату."_s : result.error));
        return;
    }
    if (measures && probeClient.ownServer)
        measure.start(target.url, target.model, target.key);
    serverLine.clear();
    say(u"Подключено: "_s + probeClient.model + u". Модель ответила корректно."_s);
}

void ModelConnection::measureConnection()
{
    require(!isMeasuring(), u"Проверка уже выполняется."_s);
    testConnection();
    measuresAfterTest = true;
}

void ModelConnection::takeMeasures()
{
    const QJsonObject learned = measure.facts();
    conclude([&] {
        storeServerFacts(store, measure.url(), measure.model(), learned);
        if (measure.url() != client.url || measure.model() != client.model)
            return Q_EMIT changed();
        facts = learned;
        client.traits = traitsOf(learned);
        const QString warning = windowWarning();
        say(u"Проверено: "_s + client.model + u". "_s + (warning.isEmpty() ? u"Итоги проверки ниже."_s : warning));
    });
}

QVariantList ModelConnection::measures() const
{
    if (isDemo() || !client.ownServer)
        return {};
    return measureRows(isMeasuring() ? measure.facts() : facts, client.url, isMeasuring());
}

QString ModelConnection::windowWarning() const
{
    return isDemo() || !client.ownServer ? QString() : windowAdvice(facts, client.url);
}

void ModelConnection::setAgentApi(const QString &agent, const QString &provider, const QString &model,
                                  const QString &key)
{
    requireAgent(agent, u"Агент не найден"_s);
    if (provider.isEmpty())
        return shareModelAgain(agent);
    Target target{agent, provider, endpoint(provider), model.trimmed(), cleanKey(key)};
    require(!target.model.isEmpty(), u"Введите ID модели"_s);
    if (target.key.isEmpty() && entryOf(agent)["provider"_L1].toString() == provider)
        target.key = CredentialStore::read(agentTarget(agent));
    require(!target.key.isEmpty(), u"Введите ключ для этого агента"_s);
    checkAgent(target);
}

void ModelConnection::shareModelAgain(const QString &agent)
{
    require(!engine.busy(), u"Остановите задачу перед удалением используемого ключа агента"_s);
    require(CredentialStore::remove(agentTarget(agent)), u"Не удалось удалить ключ агента"_s);
    if (OpenAICompatibleProvider *own = agentClients.value(agent)) {
        own->cancelAll();
        own->key.clear();
    }
    saveEntry(agent, {});
    say(u"Агент использует общую модель"_s);
}

/// An empty entry takes the agent's away.
void ModelConnection::saveEntry(const QString &agent, const QJsonObject &entry)
{
    QJsonObject next = preferences.document();
    QJsonObject connections = next["agent_api"_L1].toObject();
    if (entry.isEmpty())
        connections.remove(agent);
    else
        connections[agent] = entry;
    next["agent_api"_L1] = connections;
    preferences.savePreferences(next);
}

void ModelConnection::checkAgent(const Target &target)
{
    require(!testing, u"Дождитесь проверки подключения"_s);
    require(!engine.busy() && !conversation.isBusy(), u"Остановите работу перед сменой API агента"_s);
    endAgentProbe();
    agentProbe = new OpenAICompatibleProvider(this);
    agentProbe->timeoutMs = agentSilenceMs;
    setConnection(*agentProbe, store, target.url, target.model, target.key);
    agentProbe->useResponses = target.provider == "OpenAI"_L1;
    begin(u"Проверяю API агента…"_s);
    agentProbe->request(connectionProbe(), [this, target](const LLMResult &result) { takeAgent(target, result); });
}

void ModelConnection::takeAgent(const Target &target, const LLMResult &result)
{
    endCheck();
    endAgentProbe();
    conclude([&] {
        const bool own = target.provider == ownServerName();
        require(!own || isInFormat(result), u"API агента не подключён: "_s + adviceFor(target, result));
        require(result.error.isEmpty(), u"API агента не подключён: "_s + result.error);
        require(parseObject(result.content)["summary"_L1].isString(), u"Модель не вернула корректный ответ"_s);
        requireAgent(target.agent, u"Агент удалён во время проверки"_s);
        // Without a key of its own there must be none of another address either.
        require(target.key.isEmpty() ? CredentialStore::remove(agentTarget(target.agent))
                                     : CredentialStore::save(agentTarget(target.agent), target.key),
                u"Не удалось сохранить ключ в Windows"_s);
        saveEntry(target.agent, {{u"provider"_s, target.provider}, {u"url"_s, target.url}, {u"model"_s, target.model}});
        say(u"API агента подключён: "_s + target.model);
    });
}

void ModelConnection::connectServer(const QString &typedUrl, const QString &typedModel, const QString &typedKey,
                                    const QString &agent)
{
    Target target{agent, ownServerName(), serverAddress(typedUrl), typedModel.trimmed(), cleanKey(typedKey)};
    requireApiAddress(target.url);
    require(!target.model.isEmpty(), u"Укажите идентификатор модели."_s);
    if (target.key.isEmpty())
        target.key = cleanKey(keyFor(target.url, agent));
    if (!agent.isEmpty()) {
        requireAgent(agent, u"Агент не найден"_s);
        return checkAgent(target);
    }
    require(!engine.busy() && !conversation.isBusy() && !testing, u"Сначала остановите текущую работу"_s);
    setConnection(probeClient, store, target.url, target.model, target.key);
    begin(u"Проверяю сервер "_s + target.url + u"…"_s);
    probeClient.request(connectionProbe(), [this, target](const LLMResult &result) { takeServer(target, result); });
}

void ModelConnection::takeServer(const Target &target, const LLMResult &result)
{
    endCheck();
    if (!isInFormat(result)) {
        serverLine = adviceFor(target, result);
        say(u"Сервер не подключён. "_s + serverLine);
        return;
    }
    serverLine.clear();
    conclude([&] {
        saveSettings(false, target.url, target.model, target.key, maxParallelRequests);
        say(u"Подключено: "_s + target.model);
    });
}

} // namespace vesk
