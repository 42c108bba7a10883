#include "workflow.h"

#include "helpers.h"

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxAgents = 24;
constexpr int defaultPriority = 50;

/// Depth-first walk over the links of a network; at most 24 deep.
class LinkWalk {
public:
    explicit LinkWalk(const QHash<QString, QJsonObject> &agents)
        : agents(agents)
    {
    }

    void visit(const QString &id)
    {
        const State state = states.value(id, State::Unseen);
        require(state != State::InProgress, u"Связь создаёт цикл: агент не может ждать сам себя"_s);
        if (state == State::Done)
            return;

        states.insert(id, State::InProgress);
        const QJsonObject agent = agents.value(id);
        for (const QString &link : strings(agent["after"_L1].toArray())) {
            requireSoundLink(agent, link);
            visit(link);
        }
        states.insert(id, State::Done);
    }

private:
    enum class State { Unseen, InProgress, Done };

    void requireSoundLink(const QJsonObject &agent, const QString &link) const
    {
        require(agents.contains(link), u"Связанный агент не найден"_s);
        const QJsonObject other = agents.value(link);
        require(other["parent"_L1].toString() == agent["parent"_L1].toString(),
                u"Связанные агенты должны работать перед одним этапом"_s);
        require(agent["mode"_L1].toString() == "workflow"_L1 && other["mode"_L1].toString() == "workflow"_L1,
                u"Связи между агентами требуют режима цепочки"_s);
    }

    const QHash<QString, QJsonObject> &agents;
    QHash<QString, State> states;
};

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
    for (const QJsonValue &agent : agents) {
        const QString id = agent["id"_L1].toString();
        require(!id.isEmpty() && !byId.contains(id), u"Повторный ID агента"_s);
        byId.insert(id, agent.toObject());
    }

    LinkWalk walk(byId);
    for (const QJsonValue &agent : agents)
        walk.visit(agent["id"_L1].toString());
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
    QHash<QString, QStringList> links;
    for (const QJsonValue &member : group.members)
        links.insert(member["id"_L1].toString(), strings(member["after"_L1].toArray()));

    QSet<QString> found;
    QStringList open{id};
    while (!open.isEmpty()) {
        for (const QString &link : links.value(open.takeLast())) {
            if (!links.contains(link) || link == id || found.contains(link))
                continue;
            found.insert(link);
            open.append(link);
        }
    }
    return found;
}

} // namespace vesk
