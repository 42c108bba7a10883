// A typed line is a question, work, an answer to the run, or a command to connect something. What is plain is decided
// by word lists, what is not by a model, and without a model by a simple test.

#include "backend.h"

#include "helpers.h"
#include "message_kind.h"
#include "narrator.h"
#include "prompt_notes.h"
#include "roles.h"

#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int answerTokens = 2048;
constexpr int taskBudget = 1000000;
constexpr qsizetype maxSkillChars = 16000;
constexpr qsizetype routerTurns = 8;
constexpr qsizetype routerTurnChars = 3000;
constexpr qsizetype chatTurns = 12;
constexpr qsizetype chatTurnChars = 5000;

} // namespace

QString Backend::conversationId() const
{
    if (selectedTask != "new"_L1) {
        const QString task = selectedId();
        if (!task.isEmpty())
            return task;
    }
    return u"chat:"_s + core.workspace.project();
}

void Backend::addChat(const QString &conversation, const QString &role, const QString &content, const QString &kind)
{
    core.journal.addMessage(conversation, role, content, kind);
    notifyUi();
}

void Backend::newConversation()
{
    guard([&] {
        require(!core.engine.busy() && !chatBusy, u"Дождитесь завершения текущей работы."_s);
        selectedTask = u"new"_s;
    });
}

void Backend::sendMessage(const QString &text)
{
    attempt([&] { routeLine(text); });
}

void Backend::routeLine(const QString &typed)
{
    QString text = typed.trimmed();
    if (refuseLine(text))
        return;
    text = withAttachments(text);
    if (apiTesting) {
        message = u"Проверяю ключ…"_s;
        notifyUi();
        return;
    }
    const QString lower = text.toLower();
    if (lower.startsWith(u"подключи"_s)) {
        connectByName(text);
        return;
    }

    const QString body = bodyOf(text);
    const bool action = asksForAction(body);
    if (!action && answersQuestion(text, body)) {
        discuss(text);
    } else if (core.engine.phaseCode() == "CLARIFICATION"_L1) {
        clarify(text);
    } else if (queuePaused && !core.engine.busy() && !queue.isEmpty() && lower.startsWith(u"продолж"_s)) {
        resumeQueue();
    } else if (!chatBusy && (action || beginsLikeWork(lower))) {
        startTask(text);
    } else if (!std::as_const(settings)["mock"_L1].toBool()) {
        routeByModel(text);
    } else if (beginsLikeTalk(lower)) {
        discuss(text);
    } else {
        startTask(text);
    }
}

/// What ends a line before it is looked at.
bool Backend::refuseLine(const QString &text)
{
    if (!importProcesses.isEmpty()) {
        message = u"Дождитесь добавления вложений"_s;
        notifyUi();
        return true;
    }
    return attachments.isEmpty() && text.isEmpty();
}

/// The line with its attachments named, so that everything below sees one text. What it says they are for is noted.
QString Backend::withAttachments(const QString &text)
{
    if (attachments.isEmpty())
        return text;
    const QString usage = assetUsage(text);
    const QJsonArray pinned = usage.isEmpty() ? QJsonArray() : attachments;
    for (const QJsonValue &attachment : pinned)
        pinAsset(attachment["path"_L1].toString(), usage);
    QString named = text.isEmpty() ? u"Опиши прикреплённые файлы"_s : text;
    named += u"\n\nВложения:"_s;
    for (const QJsonValue &attachment : std::as_const(attachments))
        named += u'\n' + attachment["path"_L1].toString();
    return named;
}

void Backend::connectByName(const QString &text)
{
    message.clear(); // an earlier failure is none of this line
    const QString lower = text.toLower();
    discoverMcp();
    const QJsonArray servers = mcp.list();
    const auto named = std::ranges::find_if(servers, [&](const QJsonValue &server) {
        const QString name = server["name"_L1].toString().toLower();
        return (!name.isEmpty() && lower.contains(name))
            || ((lower.contains("roblox"_L1) || lower.contains(u"роблокс"_s)) && name.contains("roblox"_L1));
    });
    const bool only = servers.size() == 1 && lower.contains("mcp"_L1);
    addChat(conversationId(), u"user"_s, text, u"message"_s);
    if (named != servers.end())
        connectMcp((*named)["id"_L1].toString());
    else if (only)
        connectMcp(servers.first()["id"_L1].toString());
    else
        addChat(
            conversationId(), u"assistant"_s,
            u"Откройте настройки → Подключения: выберите доступный MCP-сервер. Для Roblox включите Enable Studio as "
            "MCP server в Assistant → Manage MCP Servers."_s,
            u"message"_s);
}

bool Backend::answersQuestion(const QString &text, const QString &body)
{
    return !attachments.isEmpty() || (core.engine.phaseCode() != "CLARIFICATION"_L1 && !mediaForRequest(text).isEmpty())
        || asksAQuestion(body);
}

void Backend::startTask(const QString &request)
{
    start(request, false, taskBudget, u""_s, u"[]"_s);
}

QString Backend::chiefSkill() const
{
    return preferences["role_skills"_L1]["orchestrator"_L1]["instructions"_L1].toString().left(maxSkillChars);
}

/// The last rows of a conversation as {"role", "content"}, oldest first. For a run, rows that only narrate are left out
/// of those taken.
QJsonArray Backend::historyOf(const QString &conversation, qsizetype count, qsizetype chars, bool forRun) const
{
    QJsonArray history;
    const QList<Store::Row> rows = core.store.rowsAfter(u"messages"_s, conversation, 0, int(count));
    for (const Store::Row &row : rows) {
        const QString kind = row.body["kind"_L1].toString();
        if (forRun && (kind == "progress"_L1 || kind == "file"_L1))
            continue;
        history.append(QJsonObject{{u"role"_s, row.body["role"_L1]},
                                   {u"content"_s, row.body["content"_L1].toString().left(chars)}});
    }
    return history;
}

void Backend::routeByModel(const QString &text)
{
    guard([&] {
        require(!chatBusy, u"Дождитесь ответа."_s);
        requireProject(u"Новый проект"_s);
        const QString conversation = conversationId();
        const QJsonObject state = selected();
        const QJsonObject input{
            {u"media"_s, mediaForRequest(text)},
            {u"message"_s, text},
            {u"role_skill_instructions"_s, chiefSkill()},
            {u"history"_s, historyOf(conversation, routerTurns, routerTurnChars, false)},
            {u"task_report"_s,
             state["id"_L1].toString().isEmpty() ? u"Задача ещё не запускалась."_s : Narrator::report(state)},
        };
        const LLMRequest request{id(), u"chat_router"_s, PromptManager::get(u"chat_router"_s) + chatRouterSkillNote(),
                                 input, answerTokens};
        configureClient(chatClient);
        // Not stored yet: if this is a task, the engine stores it under that.
        chatBusy = true;
        pendingChatText = text;
        pendingChatConversation = conversation;
        notifyUi();
        chatClient.request(
            request, [this, text, conversation](const LLMResult &result) { takeRoute(text, conversation, result); });
    });
}

void Backend::takeRoute(const QString &text, const QString &conversation, const LLMResult &result)
{
    chatBusy = false;
    pendingChatText.clear();
    pendingChatConversation.clear();
    notifyUi();
    guard([&] { followRoute(text, conversation, result); });
    // Nothing that the user wrote is lost on a failed call.
    if (!message.isEmpty()) {
        attempt([&] {
            addChat(conversation, u"user"_s, text, u"message"_s);
            addChat(conversation, u"assistant"_s, u"Не удалось получить ответ. "_s + message, u"error"_s);
        });
    }
    drainLater();
}

void Backend::followRoute(const QString &text, const QString &conversation, const LLMResult &result)
{
    require(result.error.isEmpty(), result.error);
    const QJsonObject answer = parseObject(result.content);
    const QString action = answer["action"_L1].toString();
    require(action == "TASK"_L1 || action == "CHAT"_L1, u"Модель не определила действие."_s);
    if (action == "TASK"_L1) {
        startTask(text);
        return;
    }
    require(answer["summary"_L1].isString(), u"Пустой ответ."_s);
    attachments = {};
    addChat(conversation, u"user"_s, text, u"message"_s);
    addChat(conversation, u"assistant"_s, answer["summary"_L1].toString(), u"message"_s);
}

void Backend::discuss(const QString &text)
{
    guard([&] {
        require(!chatBusy, u"Дождитесь предыдущего ответа."_s);
        require(!text.trimmed().isEmpty(), u"Введите сообщение."_s);
        requireProject(u"Мой проект"_s);
        const QString conversation = conversationId();
        addChat(conversation, u"user"_s, text, u"message"_s);
        try {
            askChat(text, conversation);
        } catch (const std::exception &failure) {
            chatBusy = false;
            addChat(conversation, u"assistant"_s, textOf(failure), u"error"_s);
        }
    });
}

void Backend::askChat(const QString &text, const QString &conversation)
{
    const QJsonObject state = selected();
    const QJsonArray media = isSmallTalk(text) ? QJsonArray() : mediaForRequest(text);
    QJsonObject input{
        {u"media"_s, media},
        {u"memory"_s, core.store.list(u"memory_entries"_s, core.workspace.project())},
        {u"question"_s, text},
        {u"history"_s, historyOf(conversation, chatTurns, chatTurnChars, false)},
        {u"task_report"_s,
         state["id"_L1].toString().isEmpty() ? u"Задача ещё не запускалась. Файлы не изменялись."_s
                                             : Narrator::report(state)},
    };
    attachments = {};
    notifyUi();
    configureClient(chatClient);
    const bool sees = configureVisionChat(media, input);
    ILLMProvider *provider = &chatClient;
    if (std::as_const(settings)["mock"_L1].toBool() && !sees)
        provider = &chatMock;
    chatBusy = true;
    notifyUi();
    input["role_skill_instructions"_L1] = chiefSkill();
    provider->request({id(), u"chat"_s, PromptManager::get(u"chat"_s) + chatSkillNote(), input, answerTokens},
                      [this, conversation](const LLMResult &result) { takeChatAnswer(conversation, result); });
}

void Backend::takeChatAnswer(const QString &conversation, const LLMResult &result)
{
    chatBusy = false;
    try {
        require(result.error.isEmpty(), result.error);
        const QString summary = parseObject(result.content)["summary"_L1].toString();
        require(!summary.isEmpty(), u"Модель не вернула текст ответа."_s);
        addChat(conversation, u"assistant"_s, summary, u"message"_s);
    } catch (const std::exception &failure) {
        attempt([&] {
            addChat(conversation, u"assistant"_s,
                    u"Не удалось получить ответ. "_s + textOf(failure) + u"\nФайлы этим сообщением не изменялись."_s,
                    u"error"_s);
        });
    }
    notifyUi();
    drainLater();
}

void Backend::drainLater()
{
    QTimer::singleShot(0, this, &Backend::drainQueue);
}

} // namespace vesk
