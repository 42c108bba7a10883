// The doors to the user's own agents and to skills: each operation of the interface goes to AgentTeam, and its refusal
// into `message`.

#include "backend.h"

using namespace Qt::StringLiterals;

namespace vesk {

/// A refused skill leaves the agent.
QString Backend::addAgent(const QString &name, const QString &parent, const QString &skillUrl, int priority,
                          const QString &rules)
{
    QString added;
    guard([&] {
        added = team.addAgent(name, parent, priority, rules);
        if (!skillUrl.isEmpty())
            team.loadAgentSkill(added, skillUrl);
    });
    return added;
}

QString Backend::addMediaAgent(const QString &type)
{
    QString added;
    guard([&] { added = team.addMediaAgent(type); });
    return added;
}

void Backend::configureAgent(const QString &agent, const QString &rules, int priority, const QString &kind)
{
    guard([&] { team.configureAgent(agent, rules, priority, kind); });
}

void Backend::setAgentEnabled(const QString &agent, bool enabled)
{
    guard([&] { team.setAgentEnabled(agent, enabled); });
}

void Backend::setAgentTasks(const QString &agent, const QStringList &tasks)
{
    guard([&] { team.setAgentTasks(agent, tasks); });
}

void Backend::setAgentSkill(const QString &agent, const QString &skillUrl)
{
    guard([&] { team.loadAgentSkill(agent, skillUrl); });
}

void Backend::connectAgents(const QString &from, const QString &to)
{
    guard([&] { team.connectAgents(from, to); });
}

void Backend::unlinkAgents(const QString &from, const QString &to)
{
    guard([&] { team.unlinkAgents(from, to); });
}

void Backend::linkAgent(const QString &agent, const QString &parent)
{
    guard([&] { team.linkAgent(agent, parent); });
}

void Backend::removeAgent(const QString &agent)
{
    guard([&] { team.removeAgent(agent); });
}

void Backend::addWorkflowTemplate()
{
    guard([this] { team.addWorkflowTemplate(); });
}

void Backend::saveNetwork(const QString &name)
{
    guard([&] { team.saveNetwork(name); });
}

void Backend::loadNetwork(const QString &name)
{
    guard([&] { team.loadNetwork(name); });
}

void Backend::undoNetwork()
{
    guard([this] { team.undoNetwork(); });
}

} // namespace vesk
