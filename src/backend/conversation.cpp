// Talk with the model outside of tasks.

#include "conversation.h"

#include "chat_reply.h"
#include "helpers.h"
#include "prompt_notes.h"
#include "roles.h"
#include "store.h"
#include "task_journal.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int answerTokens = 2048;

} // namespace

RouterAnswer routerAnswer(const LLMResult &result)
{
    require(result.error.isEmpty(), withoutPromise(result.error));
    const QJsonObject answer = parseObject(result.content);
    const QString action = answer["action"_L1].toString();
    require(action == "TASK"_L1 || action == "CHAT"_L1, u"Модель не определила действие."_s);
    require(action == "TASK"_L1 || answer["summary"_L1].isString(), u"Пустой ответ."_s);
    return {action == "TASK"_L1, answer["summary"_L1].toString()};
}

QJsonArray turnsOf(const QList<QJsonObject> &rows, qsizetype chars, bool forRun)
{
    QJsonArray turns;
    for (const QJsonObject &row : rows) {
        const QString kind = row["kind"_L1].toString();
        if (forRun && (kind == "progress"_L1 || kind == "file"_L1))
            continue;
        turns.append(
            QJsonObject{{u"role"_s, row["role"_L1]}, {u"content"_s, row["content"_L1].toString().left(chars)}});
    }
    return turns;
}

Conversation::Conversation(const Store &store, TaskJournal &journal)
    : store(store)
    , journal(journal)
{
}

QString Conversation::pendingText(const QString &conversation) const
{
    return conversation == pendingConversation ? pending : QString();
}

void Conversation::addChat(const QString &conversation, const QString &role, const QString &content,
                           const QString &kind)
{
    journal.addMessage(conversation, role, content, kind);
    Q_EMIT changed();
}

QJsonArray Conversation::history(const QString &conversation, int count, qsizetype chars, bool forRun) const
{
    QList<QJsonObject> rows;
    const QList<Store::Row> stored = store.rowsAfter(u"messages"_s, conversation, 0, count);
    for (const Store::Row &row : stored)
        rows.append(row.body);
    return turnsOf(rows, chars, forRun);
}

void Conversation::route(const QString &text, const QString &conversation, const QJsonObject &input,
                         std::function<void(const LLMResult &)> done)
{
    const LLMRequest request{id(), u"chat_router"_s, PromptManager::get(u"chat_router"_s) + chatRouterSkillNote(),
                             input, answerTokens};
    // Not stored yet: if this is a task, the engine stores it under that.
    pending = text;
    pendingConversation = conversation;
    setBusy(true);
    chatClient.request(request, [this, done = std::move(done)](const LLMResult &result) {
        pending.clear();
        pendingConversation.clear();
        setBusy(false);
        done(result);
    });
}

void Conversation::ask(const QString &conversation, const QJsonObject &input, bool demo)
{
    const LLMRequest request{id(), u"chat"_s, PromptManager::get(u"chat"_s) + chatSkillNote(), input, answerTokens};
    setBusy(true);
    ILLMProvider &provider = demo ? static_cast<ILLMProvider &>(chatMock) : chatClient;
    provider.request(request, [this, conversation](const LLMResult &result) { takeAnswer(conversation, result); });
}

void Conversation::takeAnswer(const QString &conversation, const LLMResult &result)
{
    busy = false;
    try {
        require(result.error.isEmpty(), withoutPromise(result.error));
        const QString summary = parseObject(result.content)["summary"_L1].toString();
        require(!summary.isEmpty(), u"Модель не вернула текст ответа."_s);
        addChat(conversation, u"assistant"_s, summary, u"message"_s);
    } catch (const std::exception &failure) {
        try {
            addChat(conversation, u"assistant"_s,
                    u"Не удалось получить ответ. "_s + textOf(failure) + u"\nФайлы этим сообщением не изменялись."_s,
                    u"error"_s);
        } catch (const std::exception &second) {
            Q_EMIT failed(textOf(second));
        }
    }
    Q_EMIT changed();
    Q_EMIT answered();
}

void Conversation::stop()
{
    chatClient.cancelAll();
    chatMock.cancelAll();
    const QString asked = std::exchange(pending, {});
    const QString conversation = std::exchange(pendingConversation, {});
    setBusy(false);
    addChat(conversation, u"user"_s, asked, u"message"_s);
}

void Conversation::setBusy(bool now)
{
    busy = now;
    Q_EMIT changed();
}

} // namespace vesk
