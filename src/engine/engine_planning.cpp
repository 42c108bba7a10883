// Nothing is built before it has been planned and reviewed.

#include "engine_p.h"

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

} // namespace vesk
