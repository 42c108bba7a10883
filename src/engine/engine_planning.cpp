// Nothing is built before it has been planned and reviewed.

#include "engine_p.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxRevisions = 3;

} // namespace

void Engine::planning()
{
    ++planRevisions;
    if (planRevisions > maxRevisions) {
        fail(u"Plan revision limit reached"_s);
        return;
    }
    stage(Phase::planning);
    enqueue(u"planner"_s, {{u"previous_plan"_s, plan}}, [this](const QJsonObject &answer) {
        plan = answer;
        plan["revision"_L1] = planRevisions;
        store.put(u"plans"_s, taskId + u':' + QString::number(planRevisions), taskId, plan);
        stage(Phase::planReview);
        reviewPlan();
    });
}

void Engine::reviewPlan()
{
    judges({u"requirements_judge"_s, u"architecture_judge"_s, u"risk_judge"_s}, {{u"plan"_s, plan}},
           [this](const QString &verdict, const QList<QJsonObject> &reviews) {
               if (verdict == "APPROVE"_L1) {
                   structuring();
                   return;
               }
               const QJsonArray summaries = reviewSummaries(reviews);
               plan["required_changes"_L1] = summaries;
               consult(u"plan"_s, {{u"plan"_s, plan}, {u"reviews"_s, summaries}}, [this] { planning(); });
           });
}

void Engine::structuring()
{
    ++structureRevisions;
    if (structureRevisions > maxRevisions) {
        fail(u"Structure revision limit reached"_s);
        return;
    }
    stage(Phase::structuring);
    const QJsonObject context{{u"plan"_s, plan}, {u"previous_structure"_s, structure}};
    enqueue(u"structure"_s, context, [this](const QJsonObject &answer) {
        structure = answer;
        structure["revision"_L1] = structureRevisions;
        store.put(u"structures"_s, taskId + u':' + QString::number(structureRevisions), taskId, structure);
        stage(Phase::structureReview);
        reviewStructure();
    });
}

void Engine::reviewStructure()
{
    judges({u"dependency_judge"_s, u"maintainability_judge"_s}, {{u"plan"_s, plan}, {u"structure"_s, structure}},
           [this](const QString &verdict, const QList<QJsonObject> &reviews) {
               if (verdict == "APPROVE"_L1) {
                   activatePlan();
                   return;
               }
               const QJsonArray summaries = reviewSummaries(reviews);
               structure["required_changes"_L1] = summaries;
               consult(u"structure"_s, {{u"plan"_s, plan}, {u"structure"_s, structure}, {u"reviews"_s, summaries}},
                       [this] { structuring(); });
           });
}

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
        enqueue(role, artifact, [=, this](QJsonObject review) {
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
