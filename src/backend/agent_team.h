#pragma once

#include "bounded_reply.h"
#include "private_network.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QUrl;

namespace vesk {

class Preferences;
class Store;

/// The user's own agents and the skills of all agents, as the preferences keep them: checks every edit, so that no
/// network is stored that a run would refuse, loads skills, and takes the last change of the network back. A run has
/// its own copy of all this, so that edits count from the next task on.
///
/// Operations throw what refuses them, before anything has changed.
class AgentTeam : public QObject {
    Q_OBJECT
public:
    AgentTeam(Store &store, Preferences &preferences);

    /// The id of the new agent.
    QString addAgent(const QString &name, const QString &parent, int priority, const QString &rules);
    QString addMediaAgent(const QString &type);
    void configureAgent(const QString &id, const QString &rules, int priority, const QString &kind);
    /// Of a built-in role as of an agent of the user's; an unknown one changes nothing.
    void setAgentEnabled(const QString &id, bool enabled);
    void setAgentTasks(const QString &agent, const QStringList &tasks);
    /// Two agents, or an agent and the stage that its chain works for.
    void connectAgents(const QString &from, const QString &to);
    void unlinkAgents(const QString &from, const QString &to);
    void linkAgent(const QString &id, const QString &parent);
    /// Also forgets its own connection to a model, with the key.
    void removeAgent(const QString &id);
    void addWorkflowTemplate();

    /// Where nodes stand in the picture, {agent: {"x", "y"}}; empty for their usual places.
    void setPositions(const QJsonObject &positions);
    void saveNetwork(const QString &name);
    void loadNetwork(const QString &name);

    /// Takes the last change back, once; a later change of something else (a skill, a model) stays.
    void undoNetwork();
    /// What undoNetwork() would take back, "Агент «Дизайн» удалён"; empty when there is nothing.
    const QString &undoText() const { return lastChange.report; }

    /// Begins to load a skill, or takes it away when the link is empty. What becomes of it says concluded(); until then
    /// and after a failure the agent has the skill that it had.
    void loadAgentSkill(const QString &agent, const QString &link);
    /// The agents whose skill is on its way.
    QStringList loadingSkills() const;
    /// What was loaded for an agent, to be read before it steers anything: {"skill_url", "status", "text", "bytes",
    /// "given" (the characters that an agent gets of it), and from its last load "address", "loaded_at", "changes" (see
    /// skillChanges(); empty after the first load)}. In "text" what can't be seen is made visible. Empty without a
    /// skill.
    QVariantMap skill(const QString &agent) const;

Q_SIGNALS:
    /// Something beside the preferences: a load began or ended, the last change was taken back.
    void changed();
    /// A load is over; empty when all is well.
    void concluded(const QString &failure);

private:
    struct OwnModel {
        QJsonObject entry;
        QString key;
    };
    /// What a change has replaced. The key of a removed agent is kept in memory only, until the next change.
    struct Change {
        QString report;
        QMap<QString, QJsonValue> before; ///< By key of the preferences; undefined for one that wasn't there.
        QHash<QString, OwnModel> ownModels;
    };

    QJsonArray agents() const;
    QJsonObject skillRecord(const QString &agent) const;
    void apply(const QString &report, const QMap<QString, QJsonValue> &values,
               const QHash<QString, OwnModel> &removed = {});
    void applyAgents(const QString &report, const QJsonArray &next);
    static void forget(const OwnModel &own, const QString &agent);
    static void remember(const OwnModel &own, const QString &agent);
    OwnModel ownModelOf(const QString &agent) const;
    quint64 beginLoad(const QString &agent);
    void takeSkill(const QString &agent, const QString &link, const QUrl &address, const ServerReply &answer);
    void saveSkill(const QString &agent, const QJsonObject &record, const QJsonObject &load);

    Store &store;
    Preferences &preferences;
    PrivateNetwork skillNetwork;
    QHash<QString, quint64> skillGeneration; ///< A load of an older one comes too late.
    QHash<QString, QPointer<QNetworkReply>> loads;
    Change lastChange;
};

} // namespace vesk
