// Chains of the user's agents: which are sound, who belongs to one, who may start.

#include "workflow.h"

#include "helpers.h"
#include "links.h"

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

void requireSoundLink(const QJsonObject &agent, const QJsonObject &other)
{
    require(!other.isEmpty(), u"Связанный агент не найден"_s);
    require(other["parent"_L1].toString() == agent["parent"_L1].toString(),
            u"Связанные агенты должны работать перед одним этапом"_s);
    require(agent["mode"_L1].toString() == "workflow"_L1 && other["mode"_L1].toString() == "workflow"_L1,
            u"Связи между агентами требуют режима цепочки"_s);
}

Links linksOf(const QJsonArray &agents)
{
    Links links;
    for (const QJsonValue &agent : agents)
        links.insert(agent["id"_L1].toString(), strings(agent["after"_L1].toArray()));
    return links;
}

bool mediaConcerns(const QString &analysis, const QJsonArray &requestMedia)
{
    return std::ranges::any_of(requestMedia, [&](const QJsonValue &item) {
        const QString kind = item["kind"_L1].toString();
        return (kind == "image"_L1 && (analysis == "photo"_L1 || analysis == "both"_L1))
            || (kind == "video"_L1 && (analysis == "video"_L1 || analysis == "both"_L1));
    });
}

/// A pure photo or video analyst has nothing to do without such media.
bool hasWork(const QJsonObject &agent, const QJsonArray &requestMedia)
{
    const QStringList tasks = strings(agent["tasks"_L1].toArray());
    if (agent.contains("tasks"_L1) && tasks.isEmpty())
        return false;
    const QString analysis = agent["media_analysis"_L1].toString();
    const bool other = std::ranges::any_of(
        tasks, [](const QString &task) { return task != "photo"_L1 && task != "video"_L1 && task != "ocr"_L1; });
    return analysis.isEmpty() || other || mediaConcerns(analysis, requestMedia);
}

int priorityOf(const QJsonValue &agent)
{
    return agent["priority"_L1].toInt(defaultPriority);
}

} // namespace

void validateAgentWorkflow(const QJsonArray &agents)
{
    require(agents.size() <= maxAgents, u"Можно добавить до 24 агентов"_s);

    QHash<QString, QJsonObject> byId;
    QStringList ids;
    for (const QJsonValue &agent : agents) {
        const QString id = agent["id"_L1].toString();
        require(!id.isEmpty() && !byId.contains(id), u"Повторный ID агента"_s);
        byId.insert(id, agent.toObject());
        ids.append(id);
    }

    requireSoundLinks(
        linksOf(agents), ids, u"Связь создаёт цикл: агент не может ждать сам себя"_s,
        [&](const QString &from, const QString &to) { requireSoundLink(byId.value(from), byId.value(to)); });
}

QJsonArray chainMembers(const QJsonArray &network, const QString &stage, const QJsonArray &requestMedia)
{
    QJsonArray members;
    for (const QJsonValue &entry : network) {
        const QJsonObject agent = entry.toObject();
        if (agent["enabled"_L1].toBool() && agent["mode"_L1].toString() == "workflow"_L1
            && agent["parent"_L1].toString() == stage && hasWork(agent, requestMedia))
            members.append(agent);
    }
    return members;
}

QJsonArray delegatedMembers(const QJsonArray &network, const QJsonObject &delegations)
{
    QJsonArray members;
    for (const QJsonValue &entry : network) {
        QJsonObject agent = entry.toObject();
        const QString id = agent["id"_L1].toString();
        if (!agent["enabled"_L1].toBool() || !delegations.contains(id))
            continue;
        agent["after"_L1] = QJsonArray();
        agent["kind"_L1] = u"specialist"_s;
        agent["rules"_L1]
            = QString(agent["rules"_L1].toString() + u"\nТекущее поручение главного: "_s + delegations[id].toString());
        members.append(agent);
    }
    return members;
}

QJsonArray readyMembers(const WorkflowGroup &group)
{
    QSet<QString> ids;
    for (const QJsonValue &member : group.members)
        ids.insert(member["id"_L1].toString());

    std::vector<QJsonValue> ready;
    for (const QJsonValue &member : group.members) {
        const QString id = member["id"_L1].toString();
        if (group.running.contains(id) || group.results.contains(id))
            continue;
        const QStringList after = strings(member["after"_L1].toArray());
        if (std::ranges::all_of(
                after, [&](const QString &link) { return !ids.contains(link) || group.results.contains(link); }))
            ready.push_back(member);
    }
    std::ranges::stable_sort(ready,
                             [](const QJsonValue &a, const QJsonValue &b) { return priorityOf(a) > priorityOf(b); });

    QJsonArray sorted;
    for (const QJsonValue &member : ready)
        sorted.append(member);
    return sorted;
}

QSet<QString> upstreamOf(const WorkflowGroup &group, const QString &id)
{
    return upstreamOf(linksOf(group.members), id);
}

} // namespace vesk
