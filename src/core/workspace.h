#pragma once

#include "confined_folder.h"

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QLatin1StringView>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace vesk {

class Store;

/// What became of a file outside of this program since it was last recorded.
struct HandEdit {
    enum class Kind {
        Changed,
        Deleted,
        Added, ///< It is there though the records know of none, or of one that was removed.
        Unreadable, ///< No plain file any more, above the limit, or behind a link: neither side can be taken.
    };
    QString path;
    Kind kind = Kind::Changed;

    /// For the user: "изменён a.html".
    QString text() const;
};

/// How a file differs between two states of the project: its records then and now, empty or "deleted" where it was not.
struct FileChange {
    QString path;
    QJsonObject before;
    QJsonObject after;
};

/// Author of the revisions that a user's own edits become.
inline constexpr QLatin1StringView userAuthor("user");
/// Status of the record of a file that the user has deleted.
inline constexpr QLatin1StringView removedByUser("DELETED");

/// The only road to a project's files: one folder bound to one project (docs/workspace.md).
///
/// Every path is relative and vetted component by component; every write is a numbered revision in the store; a file
/// that was changed behind the system's back is noticed by its hash and never overwritten. Every failure throws
/// std::runtime_error with the text named. Lives as long as the backend; main thread only.
class Workspace {
public:
    /// Of each file that is read or written.
    static constexpr qint64 maxFileBytes = 2097152;

    explicit Workspace(Store &store, ConfinedFolder::Walk walk = ConfinedFolder::Walk::InKernel);

    /// The canonical absolute path of the folder; empty until open() succeeded.
    QString root() const { return rootPath; }
    QString project() const { return projectId; }

    /// Binds the object to a folder, which is made when missing. Throws "Workspace must be an absolute folder",
    /// "Cannot create workspace", "Invalid workspace", or what the store says; the former binding stays then. What
    /// killed processes have left in the folders of the project's files is cleared away; without a project nothing is.
    void open(const QString &root, const QString &projectId);

    /// The absolute path of a file that may not exist yet. Throws "Select a workspace first", "Workspace root changed
    /// or was redirected", "Invalid relative path", "Unsafe path component", "Invalid filename", "Reserved device
    /// filename", "Git metadata is protected", "Symlink paths are not allowed", "Reparse paths are not allowed" or
    /// "Path escapes workspace". For showing: who opens the path by its name loses the protection.
    QString resolve(const QString &relativePath) const;

    /// Whether a file can have this path. Throws as resolve() does.
    ConfinedFolder::Room room(const QString &relativePath) const;

    /// The bytes of a regular file with one name. Throws as resolve() does, "Cannot read <path>", "File exceeds 2 MiB
    /// limit".
    QByteArray read(const QString &relativePath) const;

    /// Makes or replaces a file, whole and flushed to disk, and returns its new revision document. A negative
    /// `expectedRevision` switches the comparison with the current revision off. Throws as read() does, "Stale
    /// revision: <path>", "Existing/untracked or externally modified file: <path>", "Tracked file removed externally:
    /// <path>", "Cannot create parent directory", "Cannot write <path>", "Short write" or "Atomic file replacement
    /// failed".
    QJsonObject write(const QString &relativePath, const QByteArray &bytes, const QString &author,
                      int expectedRevision);

    /// The bytes of the newest revision as it is recorded, whatever stands on disk; empty without one.
    QByteArray recorded(const QString &relativePath) const;

    /// All revisions of a file, the oldest first, and the one of a number, empty without one.
    QJsonArray revisions(const QString &relativePath) const;
    QJsonObject revision(const QString &relativePath, int number) const;

    /// The bytes that a revision, or an entry of a snapshot, stands for; nothing for that of a file that is gone.
    /// Throws "Cannot restore <path>" when the record doesn't hold them.
    std::optional<QByteArray> bytesOf(const QJsonObject &record) const;

    /// The "files" record of that path, or an empty object if it has none. A deleted file keeps its record.
    QJsonObject latest(const QString &relativePath) const;

    /// Whether the current revision, 0 when there is no record, is another one.
    bool stale(const QString &relativePath, int revision) const;

    /// All "files" records of the project.
    QJsonArray files() const;

    /// The tracked files that are not as they were left, in the order of files().
    QList<HandEdit> handEdits() const;
    /// Those among some of the files() there were a moment ago, from one index to before another.
    QList<HandEdit> handEditsAmong(const QJsonArray &records, qsizetype from, qsizetype end) const;
    /// The same of one path, which also may have no record; nothing when it is as it was left, or not there. What
    /// stands in the place of a file that is not recorded, or as removed, is an edit if it is a plain file.
    std::optional<HandEdit> handEdit(const QString &relativePath) const;
    /// Each as text().
    QStringList externalChanges() const;

    /// Makes what stands on disk the newest revision, by `userAuthor`; the disk is not written to. A file that is gone
    /// becomes a revision with "deleted": true, the status `removedByUser` and no content. Returns the newest revision,
    /// the old one if there was no edit. Throws as read() does.
    QJsonObject takeEdit(const QString &relativePath);

    /// Brings the recorded state back over the user's edit, which takeEdit() keeps first: a revision by "rollback", or
    /// no file where none is recorded. Returns the record. Throws as takeEdit() and write() do, and "Cannot restore
    /// <path>", and nothing has changed, when the record doesn't hold the bytes.
    QJsonObject undoEdit(const QString &relativePath);

    /// The snapshot that a task has begun with, the last task for an empty id; empty when there is none.
    QJsonObject checkpointOf(const QString &taskId) const;

    /// The files whose recorded content is another one than in a snapshot, by path.
    QList<FileChange> changesSince(const QJsonObject &snapshot) const;

    /// The files that a task has written, until the next one began: those that only their user has edited are not
    /// among them, nor what has become again what it was.
    QStringList filesOf(const QString &taskId) const;

    /// What stands in a folder of the project, "" for the top.
    ConfinedFolder::Listing listing(const QString &folder) const;

    /// The first bytes of a file, nothing of one that can't be read. Throws as resolve() does.
    QByteArray start(const QString &relativePath, qint64 most) const;

    /// Makes files that have no record yet revisions 1 by the user, in one transaction; those that have one, or can't
    /// be read, are passed over. Their "files" records hold no content, which is that of the revision.
    void takeNew(const QStringList &paths);

    /// The mode of a plain file as it is on disk now, where that is known without opening it.
    std::optional<unsigned> mode(const QString &relativePath) const;

    /// Whether files of the user's own get their revision 1 when a task first touches them, instead of all at once.
    bool takesLazily() const;
    /// Settles that for the project.
    void takeLazily();

    /// Stores and returns a snapshot of the tracked files, contents included. Throws "Checkpoint conflict: external
    /// changes" and as read() does.
    QJsonObject checkpoint(const QString &taskId, const QJsonArray &graph);

    /// Brings the tracked files to what a snapshot holds: restored ones become new revisions by "rollback", those that
    /// the snapshot lacks or holds as deleted disappear. Nothing is touched if one was changed externally ("Rollback
    /// conflict: external changes"); a later failure leaves in place what was restored so far. Throws "Checkpoint
    /// belongs to another project", "Cannot remove controlled file" and as read() and write() do.
    void rollback(const QString &checkpointId);

    // Going back and forth (workspace_restore.cpp). Unlike rollback() it can be seen before, undone after and finished
    // after a crash, and leaves alone what is the same.

    /// What going back to a snapshot would change, by path: `before` is how a file is recorded now. Throws "Checkpoint
    /// belongs to another project".
    QList<FileChange> restorePlan(const QString &checkpointId) const;

    /// Begins to go back: takes a snapshot of now, by which it can be undone, and notes on disk what is under way.
    /// Returns the snapshot. Nothing has changed when it throws, as restorePlan() does or "Rollback conflict: external
    /// changes" when a file of the plan was edited.
    QJsonObject beginRestore(const QString &checkpointId);

    /// Restores the next file; false when there was none left, and the restoring is over. A file that its user has
    /// edited since the beginning stays, and is in `restoreSkipped()`. What else fails turns the restoring round,
    /// towards the snapshot of its beginning, and is thrown; going on then brings the files back to how they were.
    bool restoreNext();

    /// Whether restoring is under way, also since before a crash.
    bool isRestoring() const;
    QStringList restoreSkipped() const { return skipped; }

    /// The same for one file and one of its revisions, in one step; "deleted" revisions remove it. Returns its record.
    QJsonObject restoreRevision(const QString &relativePath, int number);

private:
    struct Place;

    static QList<FileChange> changesBetween(const QJsonArray &entries, const QJsonArray &records);
    Place vet(const QString &relativePath) const;
    ConfinedFolder::Content load(const Place &place, const QString &relativePath) const;
    void put(const Place &place, const QString &relativePath, const QByteArray &bytes,
             const std::optional<ConfinedFolder::Content> &old, std::optional<unsigned> mode);
    QJsonObject writeAs(const QString &relativePath, const QByteArray &bytes, const QString &author,
                        int expectedRevision, std::optional<unsigned> mode);
    QJsonObject bring(const QString &relativePath, const QJsonObject &entry);
    QJsonObject newRevision(const QString &relativePath, const QByteArray &bytes, const QString &author) const;
    QString restoreKey() const;
    void noteRestore(const QString &target, const QString &origin);
    void turnRestore(const QString &target, const QString &origin);
    QJsonObject keep(const QString &relativePath, const QByteArray &bytes, const QString &author, bool deleted = false);
    QJsonObject remove(const QJsonObject &record);
    void removeLeftovers(const ConfinedFolder &held, const QString &project) const;
    QJsonObject snapshotOf(const QString &taskId, const QJsonArray &records, const QJsonArray &graph) const;
    QJsonObject ownSnapshot(const QString &checkpointId) const;
    std::optional<HandEdit> handEdit(const QString &relativePath, const QJsonObject &record) const;
    std::optional<HandEdit> difference(const QString &relativePath, const QJsonObject &record) const;

    /// What stands on disk, by its hash.
    struct Seen {
        QString hash;
        unsigned mode = 0;
    };
    Seen look(const Place &place, const QString &relativePath) const;
    std::optional<Seen> lookedAt(const QString &relativePath) const;
    std::optional<Seen> seenUnchanged(const QJsonObject &record) const;
    QString remember(const Place &place, const QString &relativePath, const ConfinedFolder::Content &content,
                     qint64 readNs) const;
    unsigned requireUnchanged(const QJsonObject &record, const QString &message) const;
    QByteArray contentOf(const QJsonObject &entry) const;
    QString key(const QString &relativePath) const { return projectId + u':' + relativePath; }

    Store &store;
    ConfinedFolder::Walk walk;
    QString rootPath;
    QString projectId;
    std::optional<ConfinedFolder> folder;

    /// A file that was read once isn't read again for its hash while its stamp says that nothing has happened to it.
    /// Only who looks for edits goes by that: what is written over is always read. One for each tracked file at most.
    struct Hashed {
        QByteArray path; ///< As the file system takes it.
        ConfinedFolder::Stamp stamp;
        QString hash;
    };
    mutable QHash<QString, Hashed> hashed;
    std::optional<QList<FileChange>> restoring; ///< What is left of a restoring under way, the next file last.
    QStringList skipped; ///< Files that restoring has left to their user.
};

} // namespace vesk
