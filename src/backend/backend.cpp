#include "backend.h"

#include "credential_store.h"
#include "endpoints.h"
#include "helpers.h"
#include "narrator.h"
#include "read_models.h"
#include "recovery.h"

#include <QTimer>
#include <QUrl>

#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto refreshInterval = std::chrono::milliseconds(33);
constexpr int parallelRequests = 8;
constexpr int shownEvents = 200;

QJsonObject wholeRecord(const QJsonObject &record)
{
    return record;
}

} // namespace

Backend::Backend(const QString &dataFolder, QObject *parent)
    : QObject(parent)
    , core(dataFolder + u"/vesk.sqlite"_s, &mock)
    , messageRows(u"messages"_s, wholeRecord)
    , eventRows(u"events"_s, shownEvent, shownEvents)
{
    connectRun();
    recoverInterruptedTasks(core.store);
    restoreConnection();
    connect(&background, &BackgroundRenderer::changed, this, &Backend::backgroundChanged);
    restorePreferences();
    connectTools();

    const QJsonArray all = core.store.list(u"projects"_s, {});
    if (!all.isEmpty())
        selectProject(all.last()["id"_L1].toString());
}

void Backend::connectRun()
{
    for (OpenAICompatibleProvider *provider : {&client, &chatClient})
        connect(provider, &OpenAICompatibleProvider::responseProgress, this, &Backend::showProgress);
    connect(&core.engine, &Engine::changed, this, &Backend::notifyUi);
    connect(&core.events, &EventBus::event, this, &Backend::follow);
    connect(&core.engine, &Engine::finished, this, &Backend::finishRun);
}

void Backend::restoreConnection()
{
    settings = core.store.get(u"settings"_s, u"provider"_s);
    if (settings.isEmpty())
        settings = {
            {u"mock"_s, true}, {u"base_url"_s, u""_s}, {u"model"_s, u"qwen3-8"_s}, {u"parallel"_s, parallelRequests}};

    client.url = std::as_const(settings)["base_url"_L1].toString();
    client.model = std::as_const(settings)["model"_L1].toString();
    // Without an address there is no connection, and a keyring that is asleep is not woken for it.
    if (!client.url.isEmpty())
        client.key = CredentialStore::read(connectionTarget(client.url));
    const QUrl address(client.url);
    client.useResponses = address.host() == openAiHost();
    // A model on this machine needs no key; a remote one does.
    if (client.key.isEmpty() && address.scheme() == "https"_L1)
        settings["mock"_L1] = true;
    core.engine.maxParallel = parallelRequests;
    settings["parallel"_L1] = parallelRequests;
    if (!std::as_const(settings)["mock"_L1].toBool(true))
        core.engine.setProvider(&client);
}

void Backend::restorePreferences()
{
    preferences = core.store.get(u"settings"_s, u"workspace-ui"_s);
    for (const QString &key : {u"computer_access"_s, u"glass"_s, u"animations"_s}) {
        if (!preferences.contains(key))
            preferences[key] = true;
    }
}

void Backend::connectTools()
{
    connect(&mcp, &McpClient::changed, this, [this] {
        connectors = mcp.availableTools();
        Q_EMIT connectorsChanged();
    });
    connect(&mcp, &McpClient::statusMessage, this, [this](const QString &text) {
        attempt([&] { addChat(conversationId(), u"assistant"_s, text, u"connection"_s); });
    });
    core.engine.mcpCall = [this](const QString &server, const QString &tool, const QJsonObject &arguments,
                                 const Engine::Answer &done) { mcp.call(server, tool, arguments, done); };
}

void Backend::guard(const std::function<void()> &body)
{
    message.clear();
    try {
        body();
    } catch (const std::exception &failure) {
        message = textOf(failure);
    }
    notifyUi();
}

/// Runs what no operation asked for, or what others have to follow: its failure becomes `message`, its success changes
/// nothing.
void Backend::attempt(const std::function<void()> &body)
{
    try {
        body();
    } catch (const std::exception &failure) {
        showFailure(failure);
    }
}

/// Const, since reading fails, too. The same failure at every refresh asks for no further refresh.
void Backend::showFailure(const std::exception &failure) const
{
    const QString text = textOf(failure);
    if (message == text)
        return;
    auto *self = const_cast<Backend *>(this);
    self->message = text;
    self->notifyUi();
}

void Backend::notifyUi()
{
    if (uiPending)
        return;
    uiPending = true;
    QTimer::singleShot(refreshInterval, this, [this] {
        uiPending = false;
        Q_EMIT changed();
        Q_EMIT chatChanged();
    });
}

void Backend::showProgress(const QString &role, int characters)
{
    const QString who = Narrator::role(role);
    streamNote = characters < 1 ? who + u" · ожидаю сервер"_s
                                : who + u" · получено "_s + QString::number(characters) + u" знаков"_s;
    Q_EMIT streamChanged();
}

} // namespace vesk
