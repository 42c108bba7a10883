#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

namespace vesk {

/// What waits for what: each id with the ids that it waits for directly. Of nodes in a plan, of agents in a chain.
using Links = QHash<QString, QStringList>;

/// All ids that `id` waits for, directly or not, without those that have no entry. Of links without a cycle.
QSet<QString> upstreamOf(const Links &links, const QString &id);

/// Walks from each of `ids` in turn along all links and shows each to `check` before following it; the check throws at
/// what it does not like, a link to an id without an entry among it. Throws `cycleFault` at the first cycle.
/// Recursion is as deep as the longest chain.
void requireSoundLinks(const Links &links, const QStringList &ids, const QString &cycleFault,
                       const std::function<void(const QString &from, const QString &to)> &check);

} // namespace vesk
