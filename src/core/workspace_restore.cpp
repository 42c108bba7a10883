// Going back to a snapshot so that it can be seen before, undone after, and survives a crash in the middle.

#include "helpers.h"
#include "store.h"
#include "workspace.h"

#include <QHash>

#include <exception>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

const QString &author()
{
    static const QString name = u"rollback"_s;
    return name;
}

bool isGone(const QJsonObject &record)
{
    return record.isEmpty() || record["deleted"_L1].toBool();
}

/// Turns "then and now" into "now and afterwards".
QList<FileChange> reversed(const QList<FileChange> &changes)
{
    QList<FileChange> plan;
    for (const FileChange &change : changes)
        plan.append({change.path, change.after, change.before});
    return plan;
}

} // namespace

QList<FileChange> Workspace::restorePlan(const QString &checkpointId) const
{
    return reversed(changesSince(ownSnapshot(checkpointId)));
}

QString Workspace::restoreKey() const
{
    return u"restore:"_s + projectId;
}

bool Workspace::isRestoring() const
{
    return !projectId.isEmpty() && !store.get(u"settings"_s, restoreKey())["target"_L1].toString().isEmpty();
}

QJsonObject Workspace::beginRestore(const QString &checkpointId)
{
    require(!isRestoring(), u"Restoring is under way"_s);
    const QList<FileChange> plan = restorePlan(checkpointId);
    QHash<QString, unsigned> modes;
    for (const FileChange &change : plan) {
        (void)bytesOf(change.after);
        require(!difference(change.path, change.before), u"Rollback conflict: external changes"_s);
        modes[change.path] = requireUnchanged(change.before, u"Rollback conflict: external changes"_s);
    }
    QJsonArray records;
    const QJsonArray all = files();
    for (const QJsonValue &value : all) {
        QJsonObject record = value.toObject();
        const auto mode = modes.constFind(value["path"_L1].toString());
        if (mode != modes.cend() && !isGone(record))
            record["mode"_L1] = int(*mode);
        records.append(record);
    }
    QJsonObject snapshot = snapshotOf(u""_s, records, {});
    const QString origin = std::as_const(snapshot)["id"_L1].toString();
    snapshot["reason"_L1] = u"restore"_s;
    store.atomicDurable([&] {
        store.put(u"checkpoints"_s, origin, projectId, snapshot);
        noteRestore(checkpointId, origin);
    });
    skipped.clear();
    restoring = plan;
    return snapshot;
}

/// What a restart goes on with; an empty target is the end.
void Workspace::noteRestore(const QString &target, const QString &origin)
{
    QJsonObject note;
    if (!target.isEmpty())
        note = {{u"target"_s, target}, {u"origin"_s, origin}};
    store.put(u"settings"_s, restoreKey(), {}, note);
}

bool Workspace::restoreNext()
{
    const QJsonObject note = store.get(u"settings"_s, restoreKey());
    const QString target = note["target"_L1].toString();
    if (target.isEmpty())
        return false;
    if (!restoring)
        restoring = restorePlan(target);
    if (restoring->isEmpty()) {
        restoring.reset();
        store.atomicDurable([this] { noteRestore({}, {}); });
        return false;
    }
    const FileChange next = restoring->constLast();
    try {
        (void)bring(next.path, next.after);
    } catch (const std::exception &) {
        if (!difference(next.path, latest(next.path))) {
            turnRestore(target, note["origin"_L1].toString());
            throw;
        }
        skipped.append(next.path);
    }
    restoring->removeLast();
    return true;
}

/// Back to how it was; where it is that already which fails, it is tried again from its beginning.
void Workspace::turnRestore(const QString &target, const QString &origin)
{
    restoring.reset();
    if (target != origin)
        store.atomicDurable([&] { noteRestore(origin, origin); });
}

/// Makes a file what an entry says. One that is that already, since a crash came between it and its record, is
/// recorded.
QJsonObject Workspace::bring(const QString &relativePath, const QJsonObject &entry)
{
    const std::optional<QByteArray> wanted = bytesOf(entry);
    const QJsonObject record = latest(relativePath);
    if (const auto edit = difference(relativePath, record)) {
        const bool isThere = edit->kind == HandEdit::Kind::Changed || edit->kind == HandEdit::Kind::Added;
        const bool isDone = wanted ? isThere && read(relativePath) == *wanted : edit->kind == HandEdit::Kind::Deleted;
        require(isDone, u"Rollback conflict: external changes"_s);
        return keep(relativePath, wanted.value_or(QByteArray()), author(), !wanted);
    }
    if (!wanted)
        return isGone(record) ? record : remove(record);
    const QJsonValue mode = entry["mode"_L1];
    return writeAs(relativePath, *wanted, author(), record["revision"_L1].toInt(),
                   mode.isDouble() ? std::optional(unsigned(mode.toInt())) : std::nullopt);
}

QJsonObject Workspace::restoreRevision(const QString &relativePath, int number)
{
    const QJsonObject entry = revision(relativePath, number);
    require(!entry.isEmpty(), u"Cannot restore "_s + relativePath);
    require(!difference(relativePath, latest(relativePath)), u"Rollback conflict: external changes"_s);
    return bring(relativePath, entry);
}

} // namespace vesk
