// The files of a project, each change of which is a revision that can be restored.

#include "workspace.h"

#include "confined_folder.h"
#include "helpers.h"
#include "path_rules.h"
#include "store.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QSet>
#include <QStringConverter>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

using Kind = ConfinedFolder::Kind;
using Result = ConfinedFolder::Result;

/// Of files that nothing special is known of; only other modes are kept in a snapshot.
constexpr unsigned usualMode = 0644;

constexpr auto tooLarge = "File exceeds 2 MiB limit"_L1;
constexpr auto noWorkspace = "Select a workspace first"_L1;

void requireSafe(Kind kind)
{
    require(kind != Kind::Link, u"Symlink paths are not allowed"_s);
    require(kind != Kind::Mount, u"Reparse paths are not allowed"_s);
    require(kind != Kind::Outside, u"Path escapes workspace"_s);
}

/// Throws what a result other than Done means to the caller of write().
void requireDone(Result result, const QString &path)
{
    switch (result) {
    case Result::Done:
        return;
    case Result::Link:
        return requireSafe(Kind::Link);
    case Result::Mount:
        return requireSafe(Kind::Mount);
    case Result::Missing:
        return refuse(u"Tracked file removed externally: "_s + path);
    case Result::Exists:
    case Result::Changed:
        return refuse(u"Existing/untracked or externally modified file: "_s + path);
    case Result::TooLarge:
        return refuse(tooLarge);
    case Result::Unreadable:
        return refuse(u"Cannot read "_s + path);
    case Result::Unwritable:
        return refuse(u"Cannot write "_s + path);
    case Result::ShortWrite:
        return refuse(u"Short write"_s);
    case Result::Failed:
        return refuse(u"Atomic file replacement failed"_s);
    }
}

qint64 wallClockNs()
{
    return QDateTime::currentMSecsSinceEpoch() * 1'000'000;
}

bool isDeleted(const QJsonObject &record)
{
    return record["deleted"_L1].toBool();
}

/// Whether a record is of a file that is to be there.
bool isKept(const QJsonObject &record)
{
    return !record.isEmpty() && !isDeleted(record);
}

/// The record of bytes that are no text; its "content" shows them as far as it can.
constexpr auto bytesKey = "content_base64"_L1;
constexpr auto contentKey = "content"_L1;

/// The bytes as text. Unlike QString::fromUtf8 it keeps a byte order mark, so that they can be had back from it.
QString decoded(const QByteArray &bytes)
{
    if (!bytes.startsWith("\xEF\xBB\xBF"))
        return QString::fromUtf8(bytes);
    return QStringDecoder(QStringConverter::Utf8, QStringConverter::Flag::ConvertInitialBom)(bytes);
}

} // namespace

QString HandEdit::text() const
{
    switch (kind) {
    case Kind::Changed:
        return u"изменён "_s + path;
    case Kind::Deleted:
        return u"удалён "_s + path;
    case Kind::Added:
        return u"добавлен "_s + path;
    case Kind::Unreadable:
        break;
    }
    return u"не читается "_s + path;
}

/// A vetted path as the file system takes it, and what it leads to.
struct Workspace::Place {
    QByteArray path;
    Kind kind;
};

Workspace::Workspace(Store &store, ConfinedFolder::Walk walk)
    : store(store)
    , walk(walk)
{
}

void Workspace::open(const QString &root, const QString &projectId)
{
    // Qt takes ":/..." for an absolute path, too: that of a resource.
    require(QDir::isAbsolutePath(root) && !root.startsWith(u':'), u"Workspace must be an absolute folder"_s);
    require(QDir().mkpath(root), u"Cannot create workspace"_s);

    const QString canonical = QFileInfo(root).canonicalFilePath();
    require(!canonical.isEmpty() && canonical != "/"_L1, u"Invalid workspace"_s);
    std::optional<ConfinedFolder> held = ConfinedFolder::hold(QFile::encodeName(canonical), walk);
    require(held.has_value(), u"Invalid workspace"_s);
    // Without a project it isn't known which files of a folder are its user's.
    if (!projectId.isEmpty())
        removeLeftovers(*held, projectId);

    folder = std::move(held);
    rootPath = canonical;
    this->projectId = projectId;
    skipped.clear();
    restoring.reset();
    hashed.clear();
}

/// Only folders of tracked files can hold any: a new file has no name until it is whole.
void Workspace::removeLeftovers(const ConfinedFolder &held, const QString &project) const
{
    // An older version took files with names that only temporary files may have now.
    QHash<QString, QSet<QByteArray>> namesIn{{QString(), {}}};
    const QJsonArray tracked = store.list(u"files"_s, project);
    for (const QJsonValue &record : tracked) {
        const QString path = slashed(record["path"_L1].toString());
        const qsizetype slash = path.lastIndexOf(u'/');
        namesIn[path.first(std::max<qsizetype>(slash, 0))].insert(QFile::encodeName(path.sliced(slash + 1)));
    }
    for (const auto &[path, names] : std::as_const(namesIn).asKeyValueRange())
        held.removeLeftovers(QFile::encodeName(path), names);
}

/// Every component is judged by its name and by what stands on disk before the next one is, so of several faults in a
/// path the first is told. The disk is asked once, for the part before the first bad name.
Workspace::Place Workspace::vet(const QString &relativePath) const
{
    require(!rootPath.isEmpty(), noWorkspace);
    require(folder->isInPlace(), u"Workspace root changed or was redirected"_s);

    const JudgedPath path = judged(relativePath);
    const QByteArray encoded = QFile::encodeName(path.good);
    const Kind kind = encoded.isEmpty() ? Kind::Missing : folder->probe(encoded);
    requireSafe(kind);
    require(path.fault.isEmpty(), path.fault);
    require(path.newFault.isEmpty() || !latest(relativePath).isEmpty(), path.newFault);
    return {encoded, kind};
}

QString Workspace::resolve(const QString &relativePath) const
{
    vet(relativePath);
    return rootPath + u'/' + slashed(relativePath);
}

ConfinedFolder::Room Workspace::room(const QString &relativePath) const
{
    return folder->room(vet(relativePath).path);
}

QByteArray Workspace::read(const QString &relativePath) const
{
    return load(vet(relativePath), relativePath).bytes;
}

ConfinedFolder::Content Workspace::load(const Place &place, const QString &relativePath) const
{
    ConfinedFolder::Content content;
    Result result = Result::Unreadable;
    if (place.kind == Kind::File)
        result = folder->read(place.path, maxFileBytes, content);
    const bool hasOwnText
        = result == Result::Done || result == Result::TooLarge || result == Result::Link || result == Result::Mount;
    requireDone(hasOwnText ? result : Result::Unreadable, relativePath);
    return content;
}

QJsonObject Workspace::write(const QString &relativePath, const QByteArray &bytes, const QString &author,
                             int expectedRevision)
{
    return writeAs(relativePath, bytes, author, expectedRevision, {});
}

/// With a mode for a file that is to be made; one that is there keeps its own.
QJsonObject Workspace::writeAs(const QString &relativePath, const QByteArray &bytes, const QString &author,
                               int expectedRevision, std::optional<unsigned> mode)
{
    require(bytes.size() <= maxFileBytes, tooLarge);
    const Place target = vet(relativePath);
    require(target.kind != Kind::Unknown, u"Cannot write "_s + relativePath);
    const QJsonObject record = latest(relativePath);
    const int current = record["revision"_L1].toInt();
    require(expectedRevision < 0 || expectedRevision == current, u"Stale revision: "_s + relativePath);

    std::optional<ConfinedFolder::Content> old;
    if (target.kind == Kind::Missing) {
        require(record.isEmpty() || isDeleted(record), u"Tracked file removed externally: "_s + relativePath);
    } else {
        old = load(target, relativePath);
        require(!record.isEmpty() && record["hash"_L1].toString() == digest(old->bytes),
                u"Existing/untracked or externally modified file: "_s + relativePath);
    }
    put(target, relativePath, bytes, old, mode);
    return keep(relativePath, bytes, author);
}

QJsonObject Workspace::newRevision(const QString &relativePath, const QByteArray &bytes, const QString &author) const
{
    QJsonObject revision{
        {u"id"_s, id()},
        {u"file_id"_s, key(relativePath)},
        {u"project_id"_s, projectId},
        {u"path"_s, relativePath},
        {u"revision"_s, latest(relativePath)["revision"_L1].toInt() + 1},
        {u"hash"_s, digest(bytes)},
        {u"timestamp"_s, now()},
        {u"author_agent"_s, author},
        {u"status"_s, u"REVIEWING"_s},
        {contentKey, decoded(bytes)},
    };
    if (std::as_const(revision)[contentKey].toString().toUtf8() != bytes)
        revision[bytesKey] = QString::fromLatin1(bytes.toBase64());
    return revision;
}

/// Records what stands on the disk by now as the next revision.
QJsonObject Workspace::keep(const QString &relativePath, const QByteArray &bytes, const QString &author, bool deleted)
{
    QJsonObject revision = newRevision(relativePath, bytes, author);
    if (deleted) {
        revision[u"deleted"_s] = true;
        revision[u"status"_s] = removedByUser;
    }
    // The file is on the disk already. Without its record there, too, a power cut would leave files ahead of their
    // records, which then count as changed from outside.
    store.atomicDurable([&] {
        store.put(u"file_revisions"_s, revision["id"_L1].toString(), projectId, revision);
        store.put(u"files"_s, key(relativePath), projectId, revision);
    });
    return revision;
}

ConfinedFolder::Listing Workspace::listing(const QString &path) const
{
    require(!rootPath.isEmpty(), noWorkspace);
    require(folder->isInPlace(), u"Workspace root changed or was redirected"_s);
    return folder->listing(QFile::encodeName(path));
}

QByteArray Workspace::start(const QString &relativePath, qint64 most) const
{
    return folder->start(vet(relativePath).path, most);
}

void Workspace::takeNew(const QStringList &paths)
{
    store.atomic([&] {
        for (const QString &path : paths) {
            if (!latest(path).isEmpty())
                continue;
            QByteArray bytes;
            try {
                const Place place = vet(path);
                const qint64 readNs = wallClockNs();
                const ConfinedFolder::Content content = load(place, path);
                bytes = content.bytes;
                (void)remember(place, path, content, readNs);
            } catch (const std::exception &) {
                continue;
            }
            QJsonObject revision = newRevision(path, bytes, userAuthor);
            const QString revisionId = std::as_const(revision)["id"_L1].toString();
            store.put(u"file_revisions"_s, revisionId, projectId, revision);
            revision.remove(contentKey);
            revision.remove(bytesKey);
            revision["bytes"_L1] = bytes.size();
            store.put(u"files"_s, key(path), projectId, revision);
        }
    });
}

std::optional<unsigned> Workspace::mode(const QString &relativePath) const
{
    const JudgedPath path = judged(relativePath);
    const auto stamp = folder && path.fault.isEmpty() ? folder->stamp(QFile::encodeName(path.good)) : std::nullopt;
    return stamp ? std::optional(stamp->mode) : std::nullopt;
}

bool Workspace::takesLazily() const
{
    return !projectId.isEmpty() && store.get(u"settings"_s, u"take-in:"_s + projectId)["lazy"_L1].toBool();
}

void Workspace::takeLazily()
{
    store.put(u"settings"_s, u"take-in:"_s + projectId, {}, {{u"lazy"_s, true}, {u"pending"_s, false}});
}

/// Brings the bytes to their name. `old` is what stands there and was checked; none for a file that is to be new.
void Workspace::put(const Place &place, const QString &relativePath, const QByteArray &bytes,
                    const std::optional<ConfinedFolder::Content> &old, std::optional<unsigned> mode)
{
    ConfinedFolder::Spot spot;
    const Result made = folder->makeParent(place.path, spot);
    const bool isRedirected = made == Result::Link || made == Result::Mount;
    require(made == Result::Done || isRedirected, u"Cannot create parent directory"_s);
    requireDone(made, relativePath);

    vet(relativePath);
    requireDone(old ? folder->replace(spot, bytes, *old) : folder->create(spot, bytes, mode), relativePath);
}

QJsonObject Workspace::latest(const QString &relativePath) const
{
    return store.get(u"files"_s, key(relativePath));
}

QByteArray Workspace::recorded(const QString &relativePath) const
{
    const QJsonObject record = latest(relativePath);
    return record.isEmpty() ? QByteArray() : contentOf(record);
}

QJsonArray Workspace::revisions(const QString &relativePath) const
{
    return store.fileRevisions(key(relativePath));
}

QJsonObject Workspace::revision(const QString &relativePath, int number) const
{
    return store.fileRevision(key(relativePath), number);
}

std::optional<QByteArray> Workspace::bytesOf(const QJsonObject &record) const
{
    if (!isKept(record))
        return std::nullopt;
    const QByteArray bytes = contentOf(record);
    require(digest(bytes) == record["hash"_L1].toString(), u"Cannot restore "_s + record["path"_L1].toString());
    return bytes;
}

bool Workspace::stale(const QString &relativePath, int revision) const
{
    return latest(relativePath)["revision"_L1].toInt() != revision;
}

QJsonArray Workspace::files() const
{
    // The store takes an empty owner for all of them.
    return projectId.isEmpty() ? QJsonArray() : store.list(u"files"_s, projectId);
}

/// A file as it is recorded, if that is known without reading it; the folder has to be in its place.
std::optional<Workspace::Seen> Workspace::seenUnchanged(const QJsonObject &record) const
{
    const auto seen = isDeleted(record) ? std::nullopt : lookedAt(record["path"_L1].toString());
    return seen && seen->hash == record["hash"_L1].toString() ? seen : std::nullopt;
}

/// The same as look() of a file that was seen before and is as it was then; the folder has to be in its place.
std::optional<Workspace::Seen> Workspace::lookedAt(const QString &relativePath) const
{
    const auto known = hashed.constFind(relativePath);
    if (known == hashed.cend() || folder->stamp(known->path) != known->stamp)
        return {};
    return Seen{known->hash, known->stamp.mode};
}

/// Throws as load() does.
Workspace::Seen Workspace::look(const Place &place, const QString &relativePath) const
{
    if (const auto seen = lookedAt(relativePath))
        return *seen;
    const qint64 readNs = wallClockNs();
    const ConfinedFolder::Content content = load(place, relativePath);
    return {remember(place, relativePath, content, readNs), content.mode};
}

/// Gives the hash. A file that was written to just before it was read could be once more without getting other times.
QString Workspace::remember(const Place &place, const QString &relativePath, const ConfinedFolder::Content &content,
                            qint64 readNs) const
{
    const QString hash = digest(content.bytes);
    if (content.stamp && content.stamp->isSettled(readNs))
        hashed.insert(relativePath, {place.path, *content.stamp, hash});
    else
        hashed.remove(relativePath);
    return hash;
}

/// Gives the mode of the file, the usual one where it is gone as it should be.
unsigned Workspace::requireUnchanged(const QJsonObject &record, const QString &message) const
{
    if (isDeleted(record))
        return usualMode;
    const QString path = record["path"_L1].toString();
    const Seen seen = look(vet(path), path);
    require(seen.hash == record["hash"_L1].toString(), message);
    return seen.mode;
}

/// How what stands there differs from a record; what isn't to be there may also be no plain file, and Unreadable then.
std::optional<HandEdit> Workspace::difference(const QString &relativePath, const QJsonObject &record) const
{
    try {
        const Place place = vet(relativePath);
        const bool isThere = place.kind != Kind::Missing;
        if (!isKept(record)) {
            const auto kind = place.kind == Kind::File ? HandEdit::Kind::Added : HandEdit::Kind::Unreadable;
            return isThere ? std::optional(HandEdit{relativePath, kind}) : std::nullopt;
        }
        if (!isThere)
            return HandEdit{relativePath, HandEdit::Kind::Deleted};
        if (look(place, relativePath).hash == record["hash"_L1].toString())
            return std::nullopt;
        return HandEdit{relativePath, HandEdit::Kind::Changed};
    } catch (const std::exception &) {
        return HandEdit{relativePath, HandEdit::Kind::Unreadable};
    }
}

std::optional<HandEdit> Workspace::handEdit(const QString &relativePath) const
{
    return handEdit(relativePath, latest(relativePath));
}

std::optional<HandEdit> Workspace::handEdit(const QString &relativePath, const QJsonObject &record) const
{
    const auto edit = difference(relativePath, record);
    return edit && (isKept(record) || edit->kind == HandEdit::Kind::Added) ? edit : std::nullopt;
}

QList<HandEdit> Workspace::handEdits() const
{
    const QJsonArray records = files();
    return handEditsAmong(records, 0, records.size());
}

QList<HandEdit> Workspace::handEditsAmong(const QJsonArray &records, qsizetype from, qsizetype end) const
{
    QList<HandEdit> edits;
    const bool isInPlace = folder && folder->isInPlace(); // asked once for all that are as they were seen last
    for (qsizetype i = from; i < end; ++i) {
        const QJsonObject record = records[i].toObject();
        const QString path = record["path"_L1].toString();
        if ((isInPlace && seenUnchanged(record)) || !handEdit(path, record))
            continue;
        // The record may be older than a write of ours.
        if (const auto edit = handEdit(path))
            edits.append(*edit);
    }
    return edits;
}

QStringList Workspace::externalChanges() const
{
    QStringList changes;
    const QList<HandEdit> edits = handEdits();
    for (const HandEdit &edit : edits)
        changes.append(edit.text());
    return changes;
}

QJsonObject Workspace::takeEdit(const QString &relativePath)
{
    const Place place = vet(relativePath);
    const QJsonObject record = latest(relativePath);
    const bool isKnown = isKept(record);
    if (place.kind == Kind::Missing)
        return isKnown ? keep(relativePath, {}, userAuthor, true) : record;
    const QByteArray bytes = load(place, relativePath).bytes;
    const bool isSame = isKnown && digest(bytes) == record["hash"_L1].toString();
    return isSame ? record : keep(relativePath, bytes, userAuthor);
}

QJsonObject Workspace::undoEdit(const QString &relativePath)
{
    const QJsonObject before = latest(relativePath);
    const std::optional<QByteArray> bytes = bytesOf(before);
    const QJsonObject taken = takeEdit(relativePath);
    if (taken == before)
        return before;
    return bytes ? write(relativePath, *bytes, u"rollback"_s, taken["revision"_L1].toInt()) : remove(taken);
}

QJsonObject Workspace::checkpointOf(const QString &taskId) const
{
    const QJsonArray all = store.checkpointOutlines(projectId);
    QString task = taskId;
    for (qsizetype i = all.size() - 1; i >= 0 && task.isEmpty(); --i)
        task = all[i]["task_id"_L1].toString();
    for (const QJsonValue &outline : all) {
        if (!task.isEmpty() && outline["task_id"_L1].toString() == task)
            return store.get(u"checkpoints"_s, outline["id"_L1].toString());
    }
    return {};
}

QList<FileChange> Workspace::changesSince(const QJsonObject &snapshot) const
{
    return changesBetween(snapshot["files"_L1].toArray(), files());
}

QStringList Workspace::filesOf(const QString &taskId) const
{
    const QJsonArray all = store.checkpointOutlines(projectId);
    QString first;
    QString next;
    for (const QJsonValue &outline : all) {
        const QString task = outline["task_id"_L1].toString();
        if (first.isEmpty() && task == taskId && !task.isEmpty())
            first = outline["id"_L1].toString();
        else if (!first.isEmpty() && next.isEmpty() && task != taskId && !task.isEmpty())
            next = outline["id"_L1].toString();
    }
    if (first.isEmpty())
        return {};
    const auto filesAt
        = [this](const QString &snapshot) { return store.get(u"checkpoints"_s, snapshot)["files"_L1].toArray(); };
    QStringList paths;
    const QList<FileChange> changes = changesBetween(filesAt(first), next.isEmpty() ? files() : filesAt(next));
    for (const FileChange &change : changes) {
        const int from = change.before["revision"_L1].toInt();
        const int to = change.after["revision"_L1].toInt();
        const QJsonArray numbered = revisions(change.path);
        const bool isTheirs = std::ranges::any_of(numbered, [&](const QJsonValue &revision) {
            const int number = revision["revision"_L1].toInt();
            return number > from && number <= to && revision["author_agent"_L1].toString() != userAuthor;
        });
        if (isTheirs)
            paths.append(change.path);
    }
    return paths;
}

QList<FileChange> Workspace::changesBetween(const QJsonArray &entries, const QJsonArray &records)
{
    QMap<QString, FileChange> states;
    for (const QJsonValue &entry : entries)
        states[entry["path"_L1].toString()].before = entry.toObject();
    for (const QJsonValue &record : records)
        states[record["path"_L1].toString()].after = record.toObject();

    QList<FileChange> changes;
    const auto stateOf = [](const QJsonObject &record) {
        return record.isEmpty() || isDeleted(record) ? QString() : record["hash"_L1].toString();
    };
    for (const auto &[path, state] : std::as_const(states).asKeyValueRange()) {
        if (stateOf(state.before) != stateOf(state.after))
            changes.append({path, state.before, state.after});
    }
    return changes;
}

QJsonObject Workspace::checkpoint(const QString &taskId, const QJsonArray &graph)
{
    require(!rootPath.isEmpty(), noWorkspace);
    QJsonArray records;
    const QJsonArray all = files();
    const bool isInPlace = folder->isInPlace();
    for (const QJsonValue &value : all) {
        QJsonObject record = value.toObject();
        const auto seen = isInPlace ? seenUnchanged(record) : std::nullopt;
        const unsigned mode = seen ? seen->mode : requireUnchanged(record, u"Checkpoint conflict: external changes"_s);
        if (mode != usualMode)
            record["mode"_L1] = int(mode);
        records.append(record);
    }

    const QJsonObject snapshot = snapshotOf(taskId, records, graph);
    store.put(u"checkpoints"_s, snapshot["id"_L1].toString(), projectId, snapshot);
    return snapshot;
}

QJsonObject Workspace::snapshotOf(const QString &taskId, const QJsonArray &records, const QJsonArray &graph) const
{
    return {
        {u"id"_s, id()},
        {u"project_id"_s, projectId},
        {u"task_id"_s, taskId},
        {u"time"_s, now()},
        {u"files"_s, records},
        {u"graph"_s, graph},
        {u"kind"_s, u"controlled_workspace_snapshot"_s},
    };
}

/// A snapshot of this project.
QJsonObject Workspace::ownSnapshot(const QString &checkpointId) const
{
    const QJsonObject snapshot = store.get(u"checkpoints"_s, checkpointId);
    require(!snapshot.isEmpty() && snapshot["project_id"_L1].toString() == projectId,
            u"Checkpoint belongs to another project"_s);
    return snapshot;
}

void Workspace::rollback(const QString &checkpointId)
{
    require(!rootPath.isEmpty(), noWorkspace);
    const QJsonObject snapshot = ownSnapshot(checkpointId);
    const QJsonArray records = files();
    for (const QJsonValue &record : records)
        (void)requireUnchanged(record.toObject(), u"Rollback conflict: external changes"_s);

    QSet<QString> restored;
    const QJsonArray entries = snapshot["files"_L1].toArray();
    for (const QJsonValue &value : entries) {
        const QJsonObject entry = value.toObject();
        // What was deleted when the snapshot was taken is to be deleted again, not to come back.
        if (isDeleted(entry))
            continue;
        const QString path = entry["path"_L1].toString();
        write(path, contentOf(entry), u"rollback"_s, latest(path)["revision"_L1].toInt());
        restored.insert(path);
    }
    for (const QJsonValue &record : records) {
        if (!isDeleted(record.toObject()) && !restored.contains(record["path"_L1].toString()))
            remove(record.toObject());
    }
}

/// The content of a record. One of an older version holds text only; a file of other bytes which is still the same
/// stays as it is.
QByteArray Workspace::contentOf(const QJsonObject &entry) const
{
    if (!entry.contains(contentKey) && !entry["id"_L1].toString().isEmpty()) {
        const QJsonObject revision = store.get(u"file_revisions"_s, entry["id"_L1].toString());
        return revision.contains(contentKey) ? contentOf(revision) : QByteArray();
    }
    if (entry.contains(bytesKey))
        return QByteArray::fromBase64(entry[bytesKey].toString().toLatin1());
    const QByteArray text = entry["content"_L1].toString().toUtf8();
    const QString path = entry["path"_L1].toString();
    const QString hash = entry["hash"_L1].toString();
    const QJsonObject current = latest(path);
    const bool isSame = !isDeleted(current) && current["hash"_L1].toString() == hash;
    return isSame && digest(text) != hash ? read(path) : text;
}

QJsonObject Workspace::remove(const QJsonObject &record)
{
    const QString path = record["path"_L1].toString();
    const Place place = vet(path);
    ConfinedFolder::Content content;
    Result result = Result::Missing;
    if (place.kind == Kind::File)
        result = folder->read(place.path, maxFileBytes, content);
    if (result == Result::Done) {
        // Restoring the others took its time; what was saved meanwhile isn't ours to remove.
        require(digest(content.bytes) == record["hash"_L1].toString(), u"Rollback conflict: external changes"_s);
        result = folder->remove(place.path, content);
    }
    require(result != Result::Changed, u"Rollback conflict: external changes"_s);
    if (result == Result::Link || result == Result::Mount)
        requireDone(result, path);
    require(result == Result::Done, u"Cannot remove controlled file"_s);

    QJsonObject removed = record;
    removed[u"deleted"_s] = true;
    removed[u"status"_s] = u"ROLLED_BACK"_s;
    store.atomicDurable([&] { store.put(u"files"_s, key(path), projectId, removed); });
    return removed;
}

} // namespace vesk
