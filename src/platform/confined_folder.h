#pragma once

#include "descriptor.h"

#include <QByteArray>
#include <QList>
#include <QSet>

#include <memory>
#include <optional>

namespace vesk {

/// A folder held open, through which alone everything below it is reached.
///
/// A path that was checked and is then opened by its name may lead elsewhere by then: a folder on the way was swapped
/// for a link. So nothing here goes by an absolute name. The kernel walks a relative path in one step from the held
/// folder and refuses links and mount points on the way (`openat2`); where it can't, each component is opened on its
/// own and looked at before the next (`Walk::ByComponent`, which tests choose, too).
///
/// A disk that fails (EIO) has no result of its own; it is said in the log.
///
/// Paths are relative, of components parted by single slashes, none of them empty, "." or ".."; the caller sees to
/// that. Nothing blocks on a FIFO.
///
/// A file gets its new content whole: the content is written and flushed to disk under no name, or beside the target
/// as `.vesk-<process>-<16 hexadecimal digits>.tmp`, and takes the name in one step. A file of that pattern is left
/// only by a process that was killed within the few microseconds between two such steps; `removeLeftovers` clears it.
/// What its user saved meanwhile and could not be given back to its name stays beside it as
/// `<name>.vesk-kept-<digits>`.
class ConfinedFolder {
public:
    enum class Walk { InKernel, ByComponent };

    /// What a path leads to. For Link and Mount the first such component on the way decides.
    enum class Kind {
        Missing, ///< Nothing, or something that isn't a folder stands on the way.
        File,
        Folder,
        Other, ///< FIFO, socket, device.
        Link, ///< A symbolic link on the way or at the end.
        Mount, ///< A mount point on the way or at the end.
        Outside, ///< Moved out of the held folder while it was walked.
        Unknown, ///< The kernel refuses to tell.
    };

    enum class Result {
        Done,
        Link,
        Mount,
        Missing,
        Exists, ///< A file that was to be new is there.
        Changed, ///< The file isn't what it was when it was read; it stays as it is.
        TooLarge,
        Unreadable, ///< No regular file, one of several names (hard link), or refused by the system.
        Unwritable, ///< No temporary file can be made, or the file to be replaced is read-only.
        ShortWrite,
        Failed,
    };

    /// Whether a file can have a path, as far as names and what is there tell.
    enum class Room {
        Free, ///< It has it already, or nothing is known against it.
        Taken, ///< By a folder, FIFO, socket or device.
        BelowFile, ///< What should be a folder on the way is none.
        NameTooLong, ///< For this file system.
    };

    /// What changes with every write to a file, as far as the clock of the system is fine enough to tell.
    struct Stamp {
        quint64 device = 0;
        quint64 node = 0;
        qint64 size = 0;
        qint64 modifiedNs = 0; ///< Since 1970, as the other times.
        qint64 changedNs = 0;
        unsigned mode = 0;

        bool operator==(const Stamp &) const = default;
        /// Whether the file was left alone for so long before this moment that the next write gives another stamp.
        bool isSettled(qint64 nowNs) const;
    };

    /// A file's bytes and what its replacement takes over.
    struct Content {
        QByteArray bytes;
        unsigned mode = 0;
        unsigned user = 0;
        unsigned group = 0;
        std::optional<Stamp> stamp
            = {}; ///< Of these very bytes; nothing when it changed meanwhile, or as with stamp().
    };

    /// A name in a held folder.
    struct Spot {
        Descriptor folder;
        QByteArray name;
    };

    /// What stands in a folder.
    struct Entry {
        QByteArray name;
        Kind kind = Kind::Missing;
        qint64 bytes = 0;
    };

    /// Holds the folder at `path`, which is absolute and has no link in it. Nothing when it can't be opened.
    static std::optional<ConfinedFolder> hold(const QByteArray &path, Walk walk = Walk::InKernel);

    /// Whether a name is of the pattern of temporary files, which are cleared away once their process is gone.
    static bool isTemporary(const QByteArray &name);

    /// Whether its name, walked anew without following links, still leads to this very folder.
    bool isInPlace() const;

    Kind probe(const QByteArray &path) const;

    Room room(const QByteArray &path) const;

    /// What stands in a folder, in no order, read piece by piece.
    class Listing {
    public:
        /// The next entries, not more than so many; none at the end, or when the folder can't be listed.
        QList<Entry> next(qsizetype most);

    private:
        friend class ConfinedFolder;
        std::shared_ptr<void> stream;
        quint64 device = 0; ///< That of the held folder.
    };
    /// An empty path is the held folder itself.
    Listing listing(const QByteArray &path) const;

    /// The stamp of a regular file with one name. Nothing for anything else, and on file systems whose times can't be
    /// relied on, such as those of other machines.
    std::optional<Stamp> stamp(const QByteArray &path) const;

    /// Reads a regular file with one name and at most `limit` bytes.
    Result read(const QByteArray &path, qint64 limit, Content &content) const;

    /// The first bytes of such a file, at most `most`; nothing when it can't be read.
    QByteArray start(const QByteArray &path, qint64 most) const;

    /// The folder of a path, made and flushed to disk with those above it where missing. Failed if one can't be made.
    Result makeParent(const QByteArray &path, Spot &spot) const;

    /// Makes a new file of this mode, or of what the process's mask leaves of 0666. Exists, and nothing changed, if the
    /// name was taken in the meantime.
    Result create(const Spot &spot, const QByteArray &bytes, std::optional<unsigned> mode = {}) const;

    /// Replaces a file that held `old`, with its mode and, if the system allows it, its owner. Changed, and the file as
    /// its user left it, if it no longer held that at the moment of the exchange or was being written to.
    Result replace(const Spot &spot, const QByteArray &bytes, const Content &old) const;

    /// Removes a file that held `old`; Changed as above.
    Result remove(const QByteArray &path, const Content &old) const;

    /// Removes from one folder (not from those below it) what processes no longer alive left of their writing.
    /// An empty path is the held folder itself. Files with the names of `kept` stay.
    void removeLeftovers(const QByteArray &folder, const QSet<QByteArray> &kept) const;

private:
    ConfinedFolder(Descriptor folder, const QByteArray &path, Walk walk);
    Descriptor open(int folder, const QByteArray &path, int flags) const;
    Result makeFolders(const QByteArray &path, Descriptor &made) const;
    static Result refusal(int error);
    static Result failed(Result result, const QByteArray &path);
    static bool flushFolder(int folder);
    static QList<QByteArray> namesIn(int folder);

    Descriptor root;
    QByteArray name;
    Walk walk;
    bool leases; ///< Whether the file system is a local one that tells truly of leases.
    bool times; ///< The same of times.
};

} // namespace vesk
