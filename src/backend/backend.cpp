// The facade: its services wired together, what it tells the interface, and what the end of a step or a run means.

#include "backend.h"

#include "helpers.h"
#include "mcp_link.h"
#include "narrator.h"
#include "phases.h"
#include "project_record.h"
#include "read_models.h"

#include <QTimer>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto refreshInterval = std::chrono::milliseconds(33);
constexpr int shownEvents = 200;

QJsonObject wholeRecord(const QJsonObject &record)
{
    return record;
}

} // namespace

Backend::Backend(const QString &dataFolder, QObject *parent)
    : QObject(parent)
    , core(databaseIn(dataFolder), &mock)
    , preferences(core.store)
    , view(core.store, core.workspace, core.engine)
    , queue(core.store)
    , conversation(core.store, core.journal)
    , connection(core.store, core.engine, mock, client, preferences, conversation)
    , team(core.store, preferences)
    , attachments(core.store, core.workspace)
    , editWatch(core.workspace)
    , settling(core.workspace)
    , treeWatch(core.workspace)
    , compared(core.workspace)
    , taking(core.store, core.workspace)
    , exporting(core.workspace)
    , committing(core.workspace, core.events)
    , messageRows(u"messages"_s, wholeRecord)
    , eventRows(u"events"_s, shownEvent, shownEvents)
{
    connectRun();
    connectServices();
    const QString fault = core.recover();

    const QJsonArray all = core.store.list(u"projects"_s, {});
    if (!all.isEmpty())
        selectProject(all.last()["id"_L1].toString());
    if (!fault.isEmpty())
        show(fault);
}

void Backend::connectRun()
{
    for (OpenAICompatibleProvider *provider : {&client, &conversation.model()})
        connect(provider, &OpenAICompatibleProvider::responseProgress, this, &Backend::showProgress);
    connect(&core.engine, &Engine::changed, this, &Backend::notifyUi);
    connect(&core.events, &EventBus::event, this, &Backend::follow);
    connect(&core.engine, &Engine::finished, this, &Backend::finishRun);
    useMcp(core, mcp);
    QTimer::singleShot(0, this, &Backend::discoverMcp);
}

void Backend::connectServices()
{
    connect(&background, &BackgroundRenderer::changed, this, &Backend::backgroundChanged);
    connect(&mcp, &McpClient::changed, this, &Backend::connectorsChanged);
    connect(&mcp, &McpClient::statusMessage, this, [this](const QString &text) {
        attempt([&] { say(view.conversationId(), u"assistant"_s, text, u"connection"_s); });
    });
    connect(&preferences, &Preferences::changed, this, &Backend::preferencesChanged);
    connect(&conversation, &Conversation::changed, this, &Backend::notifyUi);
    connect(&conversation, &Conversation::answered, this, &Backend::drainLater);
    connect(&conversation, &Conversation::failed, this, &Backend::show);
    connect(&connection, &ModelConnection::changed, this, &Backend::notifyUi);
    connect(&connection, &ModelConnection::concluded, this, &Backend::show);
    connect(&restoreTimer, &QTimer::timeout, this, &Backend::restoreOn);
    connect(&taking, &TakingIn::changed, this, &Backend::notifyUi);
    connect(&taking, &TakingIn::failed, this, &Backend::show);
    connect(&committing, &Committing::changed, this, &Backend::notifyUi);
    connect(&committing, &Committing::ended, this, &Backend::lookForEdits);
    connect(&exporting, &Exporting::changed, this, &Backend::notifyUi);
    connect(&exporting, &Exporting::concluded, this, &Backend::show);
    connect(&shownPicture, &PictureView::changed, this, &Backend::notifyUi);
    connect(&treeWatch, &TreeWatch::changed, this, [this] {
        core.engine.projectTree = treeWatch.files();
        core.engine.projectTreeMap = treeWatch.map();
    });
    connect(&editWatch, &EditWatch::changed, this, &Backend::notifyUi);
    connect(&editWatch, &EditWatch::failed, this, &Backend::show);
    connect(&settling, &EditSettling::ended, this, &Backend::takeSettled);
    connect(&team, &AgentTeam::changed, this, &Backend::notifyUi);
    connect(&team, &AgentTeam::concluded, this, &Backend::show);
    connect(&attachments, &Attachments::changed, this, &Backend::notifyUi);
    connect(&attachments, &Attachments::failed, this, &Backend::show);
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

void Backend::show(const QString &text)
{
    message = text;
    notifyUi();
}

/// Const, since reading fails, too. The same failure at every refresh asks for no further refresh.
void Backend::showFailure(const std::exception &failure) const
{
    const QString text = textOf(failure);
    if (message != text)
        const_cast<Backend *>(this)->show(text);
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

/// Who answers, by a name that the user knows.
QString Backend::speaker(const QString &role) const
{
    if (role == "chat"_L1 || role == "chat_router"_L1)
        return u"Чат"_s;
    const QString label = Narrator::role(role);
    if (label != role)
        return label;
    const QJsonArray agents = preferences.value(u"custom_agents"_s).toArray();
    const auto own
        = std::ranges::find_if(agents, [&](const QJsonValue &agent) { return agent["id"_L1].toString() == role; });
    return own == agents.end() ? u"Агент"_s : (*own)["name"_L1].toString();
}

void Backend::showProgress(const QString &role, int characters)
{
    const QString who = speaker(role);
    streamNote = characters < 1 ? who + u" · ожидаю сервер"_s
                                : who + u" · получено "_s + QString::number(characters) + u" знаков"_s;
    Q_EMIT streamChanged();
}

void Backend::clearProgress()
{
    streamNote.clear();
    Q_EMIT streamChanged();
}

/// A failure of the store goes to whoever published the event: a run that can't be recorded ends.
void Backend::follow(const QJsonObject &event)
{
    core.journal.record(event);
    notifyUi();
}

void Backend::finishRun(const QString &status)
{
    // The run may have ended over a failing store; its end is taken notice of all the same.
    attempt([this] { core.journal.close(core.engine.snapshot()); });
    // After a failed or stopped run the user decides whether the waiting requests still make sense.
    attempt([&] { status == Phase::completed ? queue.saveQueue() : queue.pause(); });
    lookForEdits();
    treeWatch.look();
    notifyUi();
    drainLater();
}

} // namespace vesk
