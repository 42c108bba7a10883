#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QStringList>

namespace vesk {

/// Changes of the user's own agents, each a pure function from the list before to the list after. What they refuse they
/// throw. From a list that validateAgentWorkflow() accepts they lead to one that it accepts.
///
/// An agent is {"id", "name", "parent", "mode", "kind", "priority", "rules", "enabled"}, with "after" once it is
/// linked, "tasks" and "media_analysis" once they are chosen, and "skill_url", "instructions" and "status" with a
/// skill.

/// What an agent may be asked to do, in the order in which the choices are shown.
const QStringList &agentTaskTypes();

/// A new id of an agent of the user's.
QString newAgentId();

/// The agent of this id, or an empty object.
QJsonObject agentIn(const QJsonArray &agents, const QString &id);

/// The ids that are linked with `id`, in any direction and over any number of links; `id` itself is always one.
QSet<QString> component(const QJsonArray &agents, const QString &id);

/// The beginning of a text, at most `limit` UTF-16 characters; none is cut in two.
QString shortened(const QString &text, qsizetype limit);

/// A specialist at a stage, or at none. The priority is brought between 0 and 100.
QJsonArray withAgent(QJsonArray agents, const QString &id, const QString &name, const QString &parent, int priority,
                     const QString &rules);
/// An analyst of "photo" or "video" in front of the chief agent.
QJsonArray withMediaAgent(QJsonArray agents, const QString &id, const QString &type);
QJsonArray withSettings(QJsonArray agents, const QString &id, const QString &rules, int priority, const QString &kind);
/// Nothing changes for an unknown id.
QJsonArray withEnabled(QJsonArray agents, const QString &id, bool enabled);
QJsonArray withTasks(QJsonArray agents, const QString &id, QStringList tasks);
/// `to` waits for `from`; both chains become one, at one stage.
QJsonArray withLink(QJsonArray agents, const QString &from, const QString &to);
/// Nothing changes for unknown ids.
QJsonArray withoutLink(QJsonArray agents, const QString &from, const QString &to);
/// The whole chain of the agent moves to a stage, or to none.
QJsonArray withStage(QJsonArray agents, const QString &id, const QString &parent);
/// Without the agent and all links to it.
QJsonArray withoutAgent(const QJsonArray &agents, const QString &id);
/// Five more agents as a chain in front of the developer.
QJsonArray withTemplate(QJsonArray agents);
/// The keys of the skill as in the record; an empty record takes it away. Nothing changes for an unknown id.
QJsonArray withSkill(QJsonArray agents, const QString &id, const QJsonObject &record);

} // namespace vesk
