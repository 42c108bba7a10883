#pragma once

#include "confined_folder.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace vesk {

class Store;

/// The only road to a project's files: one folder bound to one project (docs/workspace.md).
///
/// Every path is relative and vetted component by component; every write is a numbered revision in the store; a file
/// that was changed behind the system's back is noticed by its hash and never overwritten. Every failure throws
/// std::runtime_error with the text named. Lives as long as the backend; main thread only.
class Workspace {
public:
    explicit Workspace(Store &store, ConfinedFolder::Walk walk = ConfinedFolder::Walk::InKernel);

    /// The canonical absolute path of the folder; empty until open() succeeded.
    QString root() const { return rootPath; }
    QString project() const { return projectId; }

    /// Binds the object to a folder, which is made when missing. Throws "Workspace must be an absolute folder",
    /// "Cannot create workspace", "Invalid workspace"; the former binding stays then.
    void open(const QString &root, const QString &projectId);

    /// The absolute path of a file that may not exist yet. Throws "Select a workspace first", "Workspace root changed
    /// or was redirected", "Invalid relative path", "Unsafe path component", "Invalid filename", "Reserved device
    /// filename", "Git metadata is protected", "Symlink paths are not allowed", "Reparse paths are not allowed" or
    /// "Path escapes workspace". For showing: who opens the path by its name loses the protection.
    QString resolve(const QString &relativePath) const;

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

    /// The "files" record of that path, or an empty object if it has none. A deleted file keeps its record.
    QJsonObject latest(const QString &relativePath) const;

    /// Whether the current revision, 0 when there is no record, is another one.
    bool stale(const QString &relativePath, int revision) const;

    /// All "files" records of the project.
    QJsonArray files() const;

    /// The tracked files that are not as they were left, each as a word and the path, in Russian: "изменён a.html".
    QStringList externalChanges() const;

    /// Stores and returns a snapshot of the tracked files, contents included. Throws "Checkpoint conflict: external
    /// changes" and as read() does.
    QJsonObject checkpoint(const QString &taskId, const QJsonArray &graph);

    /// Brings the tracked files to what a snapshot holds: restored ones become new revisions by "rollback", those that
    /// the snapshot lacks or holds as deleted disappear. Nothing is touched if one was changed externally ("Rollback
    /// conflict: external changes"); a later failure leaves in place what was restored so far. Throws "Checkpoint
    /// belongs to another project", "Cannot remove controlled file" and as read() and write() do.
    void rollback(const QString &checkpointId);

private:
    struct Place;

    Place vet(const QString &relativePath) const;
    ConfinedFolder::Content load(const Place &place, const QString &relativePath) const;
    void put(const Place &place, const QString &relativePath, const QByteArray &bytes,
             const std::optional<ConfinedFolder::Content> &old) const;
    void remove(const QJsonObject &record) const;
    void removeLeftovers() const;
    QString externalChange(const QJsonObject &record) const;
    void requireUnchanged(const QJsonObject &record, const QString &message) const;
    QByteArray contentOf(const QJsonObject &entry) const;
    QString key(const QString &relativePath) const { return projectId + u':' + relativePath; }

    Store &store;
    ConfinedFolder::Walk walk;
    QString rootPath;
    QString projectId;
    std::optional<ConfinedFolder> folder;
};

} // namespace vesk
