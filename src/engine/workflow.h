#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>

#include <functional>

namespace vesk {

/// Of the user's own.
constexpr qsizetype maxAgents = 24;
/// Of an agent whose record has none.
constexpr int defaultPriority = 50;

/// A group of the user's agents that runs in front of one stage. It lives until all members have results.
struct WorkflowGroup {
    QJsonArray members; ///< Agent records in network order.
    QJsonObject input; ///< The artifact that all members share.
    QHash<QString, QJsonObject> results; ///< Accepted answers by agent id.
    QHash<QString, QJsonObject> feedback; ///< The review that a member works from when it runs again.
    QHash<QString, int> attempts; ///< Rework rounds per reviewer.
    QSet<QString> running;
    QList<std::function<void(QJsonArray)>> waiters;
};

/// Throws at the first fault of a network: size, ids, unknown or foreign links, cycles.
void validateAgentWorkflow(const QJsonArray &agents);

/// Which agents run in front of `stage` by their own settings: chain mode, tasks, and whether the media of the request
/// is what they analyse.
QJsonArray chainMembers(const QJsonArray &network, const QString &stage, const QJsonArray &requestMedia);

/// Which agents the chief has given orders to; each becomes a specialist without links, with the order in its rules.
QJsonArray delegatedMembers(const QJsonArray &network, const QJsonObject &delegations);

/// The members that may start now: all links inside the group answered, by falling priority, equals in order.
QJsonArray readyMembers(const WorkflowGroup &group);

/// All ids reachable from `id` through "after" among the members, without `id` itself.
QSet<QString> upstreamOf(const WorkflowGroup &group, const QString &id);

} // namespace vesk
