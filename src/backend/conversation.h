#pragma once

#include "mock_provider.h"
#include "openai_provider.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>

namespace vesk {

class Store;
class TaskJournal;

/// What the chat model makes of a line that no word list has decided.
struct RouterAnswer {
    bool isTask = false;
    QString summary; ///< The answer when it is none.
};
/// Throws what is wrong with the answer, or the error of the request.
RouterAnswer routerAnswer(const LLMResult &result);

/// Rows of a conversation as a model is given them, {"role", "content"} in their order, each cut to `chars`. For a run,
/// rows that only narrate one are left out.
QJsonArray turnsOf(const QList<QJsonObject> &rows, qsizetype chars, bool forRun);

/// Talk with the model outside of tasks: what was said in each conversation, and one request at a time.
class Conversation : public QObject {
    Q_OBJECT
public:
    /// Both outlive it.
    Conversation(const Store &store, TaskJournal &journal);

    /// A request is in flight.
    bool isBusy() const { return busy; }
    /// The line of this conversation that is being routed and not stored yet; empty when there is none.
    QString pendingText(const QString &conversation) const;
    /// Whom a request asks; to be set up before it.
    OpenAICompatibleProvider &model() { return chatClient; }

    /// Stores a line; an empty one is none. Throws what the store throws.
    void addChat(const QString &conversation, const QString &role, const QString &content, const QString &kind);
    /// The last `count` rows of a conversation, see turnsOf().
    QJsonArray history(const QString &conversation, int count, qsizetype chars, bool forRun) const;

    /// Asks whether a line is talk or work. The line is shown as pending until `done` gets the result.
    void route(const QString &text, const QString &conversation, const QJsonObject &input,
               std::function<void(const LLMResult &)> done);
    /// Asks for an answer, or why there is none, and stores it. `demo` asks the demonstration model.
    void ask(const QString &conversation, const QJsonObject &input, bool demo);
    /// Ends the request in flight. The line that was being routed is stored, so that nothing typed is lost.
    void stop();

Q_SIGNALS:
    void changed();
    /// An answer has been stored, or given up.
    void answered();
    /// The answer, or the news that there is none, could not be stored.
    void failed(const QString &text);

private:
    void takeAnswer(const QString &conversation, const LLMResult &result);
    void setBusy(bool now);

    const Store &store;
    TaskJournal &journal;
    MockProvider chatMock;
    OpenAICompatibleProvider chatClient;
    bool busy = false;
    QString pending;
    QString pendingConversation;
};

} // namespace vesk
