#pragma once

#include "llm_provider.h"
#include "mock_provider.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QTimer>

#include <deque>
#include <functional>

/// The one edge that tests replace: a model whose answers are written down beforehand, per role. A role without a
/// script answers as the mock model does. Answers come on the next turn of the event loop, or when released.
class ScriptedProvider : public vesk::ILLMProvider {
    Q_OBJECT
public:
    using Responder = std::function<vesk::LLMResult(const vesk::LLMRequest &)>;
    using ILLMProvider::ILLMProvider;

    QList<vesk::LLMRequest> requests; ///< Everything that was asked, in order.
    bool holding = false; ///< While true, answers wait for release().
    bool deaf = false; ///< Answers what waits even after cancelAll().
    int cancellations = 0;
    QString displayName = QStringLiteral("Scripted");

    /// The next answers of a role, in order; the last one is repeated.
    void answer(const QString &role, const QJsonObject &object) { answer(role, result(object)); }
    void answer(const QString &role, const vesk::LLMResult &result)
    {
        respond(role, [result](const vesk::LLMRequest &) { return result; });
    }
    void respond(const QString &role, Responder responder) { scripts[role].push_back(std::move(responder)); }
    /// Drops the script of a role.
    void forget(const QString &role) { scripts.remove(role); }

    static vesk::LLMResult result(const QJsonObject &object);
    static vesk::LLMResult text(const QString &content);

    static QJsonObject approval();
    static QJsonObject verdict(const QString &verdict, const QString &issue);
    static QJsonObject file(const QString &path, const QString &content);
    static QJsonObject node(const QString &id, const QString &kind, const QJsonObject &input,
                            const QStringList &dependencies = {});
    static QJsonObject plan(const QJsonArray &nodes);
    static QJsonObject taskSpec(const QJsonArray &questions = {});
    /// The chief's answer to a request that needs no work.
    static QJsonObject answerOnly(const QString &summary = QStringLiteral("Ответ"));
    /// The object with further keys, or other values for its own.
    static QJsonObject with(QJsonObject object, const QJsonObject &more);

    /// Delivers the oldest held answer, or that of the given role; false when there is none.
    bool release(const QString &role = {});
    /// Delivers all that is held; what is asked from now on is answered at once.
    void releaseAll();
    qsizetype held() const { return qsizetype(waiting.size()); }
    /// How often a role was asked.
    qsizetype count(const QString &role) const;
    /// The input of the nth request of a role, from 0.
    QJsonObject input(const QString &role, qsizetype n = 0) const;
    /// What the stage handed over with that request.
    QJsonObject artifact(const QString &role, qsizetype n = 0) const
    {
        return input(role, n)[QStringLiteral("artifact")].toObject();
    }
    /// The roles of all requests, in order.
    QStringList asked() const;

    void request(const vesk::LLMRequest &request, std::function<void(vesk::LLMResult)> callback) override;
    void cancelAll() override;
    QString name() const override { return displayName; }

private:
    struct Waiting {
        vesk::LLMRequest request;
        std::function<void(vesk::LLMResult)> callback;
    };
    vesk::LLMResult next(const vesk::LLMRequest &request);

    QHash<QString, std::deque<Responder>> scripts;
    std::deque<Waiting> waiting;
    int generation = 0;
};
