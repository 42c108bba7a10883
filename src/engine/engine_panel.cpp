// Several judges look at one thing: each alone, then, unless all are content, with each other's notes in sight.

#include "engine_p.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

/// Each judge works alone first; unless all approve without a note, they see each other's notes and judge once more.
void Engine::judges(const QStringList &roles, const QJsonObject &artifact, Verdict callback)
{
    judgeRound(roles, artifact, 1, [=, this](const QString &verdict, const QList<QJsonObject> &reviews) {
        if (verdict == "APPROVE"_L1 && std::ranges::all_of(reviews, isCleanReview)) {
            callback(verdict, reviews);
            return;
        }
        const QJsonArray peers = reviewSummaries(reviews);
        QJsonObject second = artifact;
        second["peer_reviews"_L1] = peers;
        publish(u"DiscussionStarted"_s, u"Агенты обмениваются замечаниями"_s,
                {{u"roles"_s, QJsonArray::fromStringList(roles)}, {u"peer_reviews"_s, peers}});
        judgeRound(roles, second, 2, [this, callback](const QString &lastVerdict, const QList<QJsonObject> &last) {
            publish(u"DiscussionCompleted"_s, u"Обсуждение завершено"_s, {{u"verdict"_s, lastVerdict}});
            if (busy())
                callback(lastVerdict, last);
        });
    });
}

void Engine::judgeRound(QStringList roles, QJsonObject artifact, int round, Verdict callback)
{
    auto results = std::make_shared<QList<QJsonObject>>();
    const qsizetype expected = roles.size();
    artifact["discussion_round"_L1] = round;
    artifact["review_stage"_L1] = phase;
    for (const QString &role : std::as_const(roles)) {
        askJudge(role, artifact, false, [=, this](QJsonObject review) {
            const QString reviewId = id();
            review["reviewer"_L1] = role;
            review["artifact"_L1] = artifact;
            review["id"_L1] = reviewId;
            review["version"_L1] = round;
            results->append(review);
            store.put(u"reviews"_s, reviewId, taskId, review);
            if (results->size() == expected)
                callback(vote(*results, int(expected)), *results);
        });
    }
}

} // namespace vesk
