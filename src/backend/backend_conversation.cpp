// A typed line goes one way: it takes its attachments along, is told apart, and becomes talk, work, an answer to the
// run, or a command to connect something.

#include "backend.h"

#include "budget.h"
#include "credential_store.h"
#include "endpoints.h"
#include "helpers.h"
#include "media_choice.h"
#include "message_kind.h"
#include "narrator.h"
#include "phases.h"
#include "read_models.h"

#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int routerTurns = 8;
constexpr qsizetype routerTurnChars = 3000;
constexpr int chatTurns = 12;
constexpr qsizetype chatTurnChars = 5000;
constexpr int searchedTurns = 10;

StartRequest taskOf(const QString &line)
{
    return {line, false, defaultTaskTokens, u""_s, u"[]"_s};
}

QString reportOf(const QJsonObject &state, const QString &none)
{
    return state["id"_L1].toString().isEmpty() ? none : Narrator::report(state);
}

} // namespace

void Backend::sendMessage(const QString &text)
{
    const QString typed = text.trimmed();
    if (typed.isEmpty() && attachments.isEmpty() && !attachments.isImporting())
        return;
    guard([&] { takeLine(typed); });
}

void Backend::takeLine(const QString &typed)
{
    require(!attachments.isImporting(), u"Дождитесь добавления вложений"_s);
    const QString line = lineWithAttachments(typed);
    require(!connection.isTesting(), u"Проверяю ключ…"_s);
    switch (kindOf(line,
                   {.attached = !attachments.isEmpty(),
                    .hasMedia = !mediaForRequest(line).isEmpty(),
                    .questionOpen = core.engine.phaseCode() == Phase::clarification,
                    .queueWaits = queue.isPaused() && !queue.isEmpty() && !core.engine.busy(),
                    .chatBusy = conversation.isBusy(),
                    .demo = connection.isDemo()})) {
    case LineKind::Connect:
        return connectByName(line);
    case LineKind::Talk:
        return answer(line);
    case LineKind::Answer:
        core.engine.clarify(line, attachments.isEmpty() ? QJsonArray() : mediaForRequest(line));
        return attachments.clear();
    case LineKind::ResumeQueue:
        queue.resume();
        return drainLater();
    case LineKind::Work:
        return submit(taskOf(line));
    case LineKind::Undecided:
        return routeByModel(line);
    }
}

/// The line with its attachments named, so that everything below sees one text. What it says they are for is noted
/// first: a note that can't be taken keeps the line from being sent.
QString Backend::lineWithAttachments(const QString &typed)
{
    if (attachments.isEmpty())
        return typed;
    const QString usage = assetUsage(typed);
    QStringList paths;
    for (const QJsonValue &attachment : attachments.items()) {
        paths.append(attachment["path"_L1].toString());
        if (!usage.isEmpty())
            attachments.pinAsset(paths.last(), usage);
    }
    return withAttachments(typed.isEmpty() ? u"Опиши прикреплённые файлы"_s : typed, paths);
}

void Backend::connectByName(const QString &text)
{
    const QString lower = text.toLower();
    discoverMcp();
    const QJsonArray servers = mcp.list();
    const auto named = std::ranges::find_if(servers, [&](const QJsonValue &server) {
        const QString name = server["name"_L1].toString().toLower();
        return (!name.isEmpty() && lower.contains(name))
            || ((lower.contains("roblox"_L1) || lower.contains(u"роблокс"_s)) && name.contains("roblox"_L1));
    });
    const bool only = servers.size() == 1 && lower.contains("mcp"_L1);
    const QString where = view.conversationId();
    say(where, u"user"_s, text, u"message"_s);
    if (named != servers.end())
        connectMcp((*named)["id"_L1].toString());
    else if (only)
        connectMcp(servers.first()["id"_L1].toString());
    else
        say(where, u"assistant"_s,
            u"Откройте настройки → Подключения: выберите доступный MCP-сервер. Для Roblox включите Enable Studio as "
            "MCP server в Assistant → Manage MCP Servers."_s,
            u"message"_s);
}

void Backend::newConversation()
{
    guard([&] {
        require(!core.engine.busy() && !conversation.isBusy(), u"Дождитесь завершения текущей работы."_s);
        view.beginAnew();
    });
}

void Backend::say(const QString &where, const QString &role, const QString &content, const QString &kind)
{
    conversation.addChat(where, role, content, kind);
}

void Backend::routeByModel(const QString &text)
{
    require(!conversation.isBusy(), u"Дождитесь ответа."_s);
    requireProject(u"Новый проект"_s);
    const QString where = view.conversationId();
    const QJsonObject input{
        {u"media"_s, mediaForRequest(text)},
        {u"message"_s, text},
        {u"role_skill_instructions"_s, preferences.skillOf(u"orchestrator"_s)},
        {u"history"_s, conversation.history(where, routerTurns, routerTurnChars, false)},
        {u"task_report"_s, reportOf(view.selected(), u"Задача ещё не запускалась."_s)},
    };
    connection.configureClient(conversation.model(), core.workspace.root());
    conversation.route(text, where, input,
                       [this, text, where](const LLMResult &result) { takeRoute(text, where, result); });
}

void Backend::takeRoute(const QString &text, const QString &where, const LLMResult &result)
{
    guard([&] {
        try {
            const RouterAnswer routed = routerAnswer(result);
            if (routed.isTask)
                return submit(taskOf(text));
            attachments.clear();
            say(where, u"user"_s, text, u"message"_s);
            say(where, u"assistant"_s, routed.summary, u"message"_s);
        } catch (const std::exception &failure) {
            // Nothing that the user wrote is lost on a failed call.
            say(where, u"user"_s, text, u"message"_s);
            say(where, u"assistant"_s, u"Не удалось получить ответ. "_s + textOf(failure), u"error"_s);
            throw;
        }
    });
    drainLater();
}

void Backend::discuss(const QString &text)
{
    guard([&] { answer(text); });
}

void Backend::answer(const QString &text)
{
    require(!conversation.isBusy(), u"Дождитесь предыдущего ответа."_s);
    require(!text.trimmed().isEmpty(), u"Введите сообщение."_s);
    requireProject(u"Мой проект"_s);
    const QString where = view.conversationId();
    say(where, u"user"_s, text, u"message"_s);
    try {
        askChat(text, where);
    } catch (const std::exception &failure) {
        say(where, u"assistant"_s, textOf(failure), u"error"_s);
    }
}

void Backend::askChat(const QString &text, const QString &where)
{
    const QJsonArray media = isSmallTalk(text) ? QJsonArray() : mediaForRequest(text);
    QJsonObject input{
        {u"media"_s, media},
        {u"memory"_s, core.store.list(u"memory_entries"_s, core.workspace.project())},
        {u"question"_s, text},
        {u"history"_s, conversation.history(where, chatTurns, chatTurnChars, false)},
        {u"task_report"_s, reportOf(view.selected(), u"Задача ещё не запускалась. Файлы не изменялись."_s)},
    };
    attachments.clear();
    connection.configureClient(conversation.model(), core.workspace.root());
    const bool sees = configureVisionChat(media, input);
    input["role_skill_instructions"_L1] = preferences.skillOf(u"orchestrator"_s);
    conversation.ask(where, input, connection.isDemo() && !sees);
}

/// Whether somebody will look at the pictures of this turn; throws when there are some and nobody can.
bool Backend::configureVisionChat(const QJsonArray &media, QJsonObject &input)
{
    if (!hasVisuals(media))
        return false;
    OpenAICompatibleProvider &model = conversation.model();
    const auto agent = visualAgent(preferences.document(), media,
                                   [](const QString &name) { return CredentialStore::read(agentTarget(name)); });
    if (!agent) {
        require(!connection.isDemo()
                    && (model.useResponses || model.traits.images || QUrl(model.url).host() == geminiHost()),
                u"Для чтения фото нужна модель с поддержкой изображений. Откройте Настройки → Агенты и skills → Анализ "
                "фото и задайте OpenAI или Gemini с ключом и визуальной моделью. Текущее подключение не передаёт "
                "изображения."_s);
        return true;
    }
    model.url = agent->url;
    model.model = agent->model;
    model.key = agent->key;
    model.useResponses = agent->useResponses;
    model.ownServer = !isPublished(QUrl(agent->url));
    model.traits = {};
    if (!agent->guidance.isEmpty())
        input["visual_agent_guidance"_L1] = agent->guidance;
    return true;
}

void Backend::attachFiles(const QVariantList &urls)
{
    guard([&] {
        require(!conversation.isBusy(), u"Дождитесь текущего ответа"_s);
        QStringList addresses;
        for (const QVariant &url : urls)
            addresses.append(url.toString());
        const QStringList files = attachments.vetted(addresses);
        if (files.isEmpty())
            return;
        requireProject(u"Мой проект"_s);
        attachments.attach(files, mediaCapabilities()["ffmpeg"_L1].toString());
    });
}

void Backend::removeAttachment(const QString &id)
{
    attachments.remove(id);
}

void Backend::pinAsset(const QString &path, const QString &usage)
{
    guard([&] { attachments.pinAsset(path, usage); });
}

QJsonArray Backend::mediaForRequest(const QString &request) const
{
    const QJsonArray media = projectMedia();
    if (media.isEmpty())
        return {};
    QStringList said;
    const QList<Store::Row> rows = core.store.rowsAfter(u"messages"_s, view.conversationId(), 0, searchedTurns);
    for (const Store::Row &row : rows) {
        if (row.body["role"_L1].toString() == "user"_L1)
            said.prepend(row.body["content"_L1].toString());
    }
    const QStringList inQuestion
        = mediaInQuestion(attachments.items(), said, view.selected()["spec"_L1]["media"_L1].toArray(), media);
    return requestMedia(request, media, inQuestion, core.workspace.root());
}

} // namespace vesk
