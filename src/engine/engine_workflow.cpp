// The user's own agents in front of a stage: a small graph of its own, in parallel where the links allow, with
// reviewers that can send work back.

#include "engine_p.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxAutomaticReworks = 2;

QString memberIdOf(const QJsonValue &member)
{
    return member["id"_L1].toString();
}

} // namespace

void Engine::runWorkflow(const QString &key, QJsonObject input, std::function<void(QJsonArray)> callback)
{
    if (workflowResults.contains(key)) {
        callback(workflowResults.value(key));
        return;
    }
    if (workflowGroups.contains(key)) {
        workflowGroups.value(key)->waiters.append(std::move(callback));
        return;
    }

    const QJsonArray members = automaticRouting ? delegatedMembers(agentNetwork, delegations)
                                                : chainMembers(agentNetwork, key, requestMedia);
    if (members.isEmpty()) {
        callback({});
        return;
    }
    auto group = std::make_shared<WorkflowGroup>();
    group->members = members;
    group->input = std::move(input);
    group->input["project_plan"_L1] = plan;
    group->input["project_structure"_L1] = structure;
    group->waiters = {std::move(callback)};
    workflowGroups.insert(key, group);
    pumpWorkflow(key);
}

void Engine::pumpWorkflow(const QString &key)
{
    const std::shared_ptr<WorkflowGroup> group = workflowGroups.value(key);
    if (!busy() || !group)
        return;
    if (group->results.size() == group->members.size()) {
        finishWorkflow(key);
        return;
    }
    const QJsonArray ready = readyMembers(*group);
    if (ready.isEmpty() && group->running.isEmpty()) {
        fail(u"Цепочка агентов не может продолжиться: проверьте связи"_s);
        return;
    }
    for (const QJsonValue &member : ready)
        startMember(key, member.toObject());
}

void Engine::startMember(const QString &key, const QJsonObject &member)
{
    const std::shared_ptr<WorkflowGroup> group = workflowGroups.value(key);
    if (!busy() || !group)
        return;
    const QString memberId = memberIdOf(member);
    group->running.insert(memberId);

    QJsonArray upstream;
    QJsonArray disabled;
    for (const QString &link : strings(member["after"_L1].toArray())) {
        if (group->results.contains(link))
            upstream.append(QJsonObject{{u"agent_id"_s, link}, {u"result"_s, group->results.value(link)}});
        else
            disabled.append(link);
    }
    QJsonObject payload = group->input;
    payload["workflow_agent"_L1] = member;
    payload["upstream_deliverables"_L1] = upstream;
    payload["disabled_dependencies"_L1] = disabled;
    payload["workflow_stage"_L1] = key;
    if (group->feedback.contains(memberId))
        payload["feedback"_L1] = group->feedback.value(memberId);

    const bool reviews = member["kind"_L1].toString() == "review"_L1;
    enqueueDirect(reviews ? u"workflow_reviewer"_s : u"specialist"_s, payload,
                  [this, key, member](const QJsonObject &answer) { takeDeliverable(key, member, answer); });
}

void Engine::takeDeliverable(const QString &key, const QJsonObject &member, const QJsonObject &answer)
{
    const std::shared_ptr<WorkflowGroup> group = workflowGroups.value(key);
    if (!busy() || !group)
        return;
    const QString memberId = memberIdOf(member);
    group->running.remove(memberId);
    if (member["kind"_L1].toString() == "review"_L1 && answer["verdict"_L1].toString() != "APPROVE"_L1) {
        reworkChain(key, memberId, answer);
        return;
    }
    group->results.insert(memberId, answer);
    publish(u"WorkflowStepCompleted"_s, member["name"_L1].toString(), {{u"agent_id"_s, memberId}, {u"stage"_s, key}});
    pumpWorkflow(key);
}

void Engine::finishWorkflow(const QString &key)
{
    const std::shared_ptr<WorkflowGroup> group = workflowGroups.take(key);
    QJsonArray deliverables;
    QJsonArray analyses = std::as_const(spec)["media_analysis"_L1].toArray();
    const qsizetype before = analyses.size();
    for (const QJsonValue &member : std::as_const(group->members)) {
        const QJsonObject result = group->results.value(memberIdOf(member));
        deliverables.append(
            QJsonObject{{u"agent_id"_s, member["id"_L1]}, {u"agent"_s, member["name"_L1]}, {u"result"_s, result}});
        if (!member["media_analysis"_L1].toString().isEmpty())
            analyses.append(QJsonObject{{u"agent"_s, member["name"_L1]}, {u"result"_s, result}});
    }
    if (analyses.size() > before)
        spec["media_analysis"_L1] = analyses;
    workflowResults.insert(key, deliverables);
    for (const auto &waiter : std::as_const(group->waiters))
        waiter(deliverables);
}

void Engine::reworkChain(const QString &key, const QString &reviewer, const QJsonObject &review)
{
    const std::shared_ptr<WorkflowGroup> group = workflowGroups.value(key);
    if (++group->attempts[reviewer] <= maxAutomaticReworks) {
        publish(u"AutomaticCorrection"_s, u"Команда исправляет замечания к проекту"_s);
        rerunUpstream(key, reviewer, review);
        return;
    }
    askDecision(u"Проверка цепочки снова нашла замечания. Результаты сохранены. Продолжить исправление?"_s,
                {u"Продолжить исправление"_s, u"Остановить задачу"_s}, [=, this] {
                    if (spec["clarification"_L1].toString().contains(u"Остановить"_s, Qt::CaseInsensitive)) {
                        cancel();
                        return;
                    }
                    group->attempts[reviewer] = 0;
                    rerunUpstream(key, reviewer, review);
                });
}

/// The reviewer and all that it looked at run again, with the review to work from.
void Engine::rerunUpstream(const QString &key, const QString &reviewer, const QJsonObject &review)
{
    const std::shared_ptr<WorkflowGroup> group = workflowGroups.value(key);
    QSet<QString> again = upstreamOf(*group, reviewer);
    again.insert(reviewer);
    for (const QString &member : std::as_const(again)) {
        group->feedback.insert(member, review);
        group->results.remove(member);
    }
    pumpWorkflow(key);
}

} // namespace vesk
