// A folder held open, and how paths below it are walked and read.

#include "confined_folder.h"

#include <QList>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits.h>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vesk {

namespace {

constexpr quint64 withoutLinks = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
constexpr quint64 belowOnly = withoutLinks | RESOLVE_BENEATH | RESOLVE_NO_XDEV;

int openInKernel(int folder, const QByteArray &path, int flags, quint64 resolve)
{
    open_how how{};
    how.flags = quint64(flags | O_CLOEXEC);
    how.resolve = resolve;
    return int(::syscall(SYS_openat2, folder, path.constData(), &how, sizeof how));
}

/// The kernel before 5.6, and sandboxes that don't know the call.
bool lacksOpenat2(int error)
{
    return error == ENOSYS || error == EPERM;
}

/// The number of the mount that an open file is on, -1 where /proc is not there to tell.
long mountOf(int descriptor)
{
    char text[512];
    std::snprintf(text, sizeof text, "/proc/self/fdinfo/%d", descriptor);
    const Descriptor info(::open(text, O_RDONLY | O_CLOEXEC));
    const ssize_t size = info ? ::read(info.get(), text, sizeof text - 1) : 0;
    text[std::max<ssize_t>(size, 0)] = '\0';
    const char *line = std::strstr(text, "mnt_id:");
    return line ? std::strtol(line + 7, nullptr, 10) : -1;
}

constexpr long anyMount = -2;

/// Coarser than the times of any file system that is asked for them: some keep whole seconds.
constexpr qint64 settlingNs = 2'000'000'000;

qint64 nanoseconds(const timespec &time)
{
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

ConfinedFolder::Stamp stampOf(const struct stat &status)
{
    return {.device = status.st_dev,
            .node = status.st_ino,
            .size = status.st_size,
            .modifiedNs = nanoseconds(status.st_mtim),
            .changedNs = nanoseconds(status.st_ctim),
            .mode = status.st_mode & 0777U};
}

/// Opens one component. Fails as the kernel's own walk does, and in its order: ELOOP for a link, EXDEV for what is on
/// another mount than `home`, ENOTDIR for what should be a folder.
Descriptor openComponent(int folder, const QByteArray &name, int flags, long home)
{
    // With O_DIRECTORY a link would be told apart from a file no longer.
    Descriptor next(::openat(folder, name.constData(), (flags & ~O_DIRECTORY) | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!next || ::fstat(next.get(), &status) != 0)
        return {};

    int error = 0;
    if (S_ISLNK(status.st_mode))
        error = ELOOP;
    else if (home != anyMount && mountOf(next.get()) != home)
        error = EXDEV;
    else if ((flags & O_DIRECTORY) && !S_ISDIR(status.st_mode))
        error = ENOTDIR;
    if (error == 0)
        return next;
    errno = error;
    return {};
}

/// What openInKernel does, a component at a time.
Descriptor openByComponent(int folder, const QByteArray &path, int flags, bool mounts)
{
    const long home = mounts ? anyMount : mountOf(folder);
    const QList<QByteArray> names = path.split('/');
    Descriptor current;
    for (qsizetype i = 0; i < names.size(); ++i) {
        if (names[i] == "..") {
            errno = EXDEV;
            return {};
        }
        const int folderFlags = i + 1 == names.size() ? flags : O_PATH | O_DIRECTORY;
        current = openComponent(current ? current.get() : folder, names[i], folderFlags, home);
        if (!current)
            break;
    }
    return current;
}

/// Opens a folder by its absolute name, in which no component may be a link.
Descriptor openAbsolute(const QByteArray &path, int flags, ConfinedFolder::Walk walk)
{
    if (walk == ConfinedFolder::Walk::InKernel) {
        Descriptor folder(openInKernel(AT_FDCWD, path, flags, withoutLinks));
        if (folder || !lacksOpenat2(errno))
            return folder;
    }
    const Descriptor top(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return openByComponent(top.get(), path.sliced(1), flags, true);
}

bool isOneOf(int folder, std::initializer_list<quint32> known)
{
    struct statfs system;
    return ::fstatfs(folder, &system) == 0
        && std::find(known.begin(), known.end(), quint32(system.f_type)) != known.end();
}

/// A lease tells whether somebody has a file open for writing. Network file systems refuse it for reasons of their
/// own with the same error, so only those are asked which are known to tell the truth.
bool hasHonestLeases(int folder)
{
    return isOneOf(folder, {EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC, F2FS_SUPER_MAGIC, TMPFS_MAGIC});
}

/// Each write gives a file other times. On the disks of other machines, and on what programs make up (FUSE), a write
/// may be seen later than its times.
bool hasHonestTimes(int folder)
{
    constexpr quint32 zfs = 0x2fc12fc1;
    constexpr quint32 bcachefs = 0xca451a4e;
    return hasHonestLeases(folder) || isOneOf(folder, {OVERLAYFS_SUPER_MAGIC, zfs, bcachefs});
}

ConfinedFolder::Kind kindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return ConfinedFolder::Kind::File;
    return S_ISDIR(mode) ? ConfinedFolder::Kind::Folder : ConfinedFolder::Kind::Other;
}

/// Reads to the end, at most `limit` bytes; one more means that there are too many.
ConfinedFolder::Result readAll(int file, qint64 size, qint64 limit, QByteArray &bytes)
{
    bytes.resize(std::min(size, limit) + 1);
    qint64 done = 0;
    for (;;) {
        const ssize_t got = ::read(file, bytes.data() + done, size_t(bytes.size() - done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return ConfinedFolder::Result::Unreadable;
        if (got == 0)
            break;
        done += got;
        if (done > limit)
            return ConfinedFolder::Result::TooLarge;
        if (done == bytes.size())
            bytes.resize(limit + 1); // It grew since its size was taken.
    }
    bytes.truncate(done);
    return ConfinedFolder::Result::Done;
}

} // namespace

void Descriptor::reset()
{
    if (number < 0)
        return;
    const int error = errno;
    ::close(std::exchange(number, -1));
    errno = error;
}

std::optional<ConfinedFolder> ConfinedFolder::hold(const QByteArray &path, Walk walk)
{
    Descriptor folder = openAbsolute(path, O_PATH | O_DIRECTORY, walk);
    if (!folder)
        return {};
    return ConfinedFolder(std::move(folder), path, walk);
}

ConfinedFolder::ConfinedFolder(Descriptor folder, const QByteArray &path, Walk walk)
    : root(std::move(folder))
    , name(path)
    , walk(walk)
    , leases(hasHonestLeases(root.get()))
    , times(hasHonestTimes(root.get()))
{
}

bool ConfinedFolder::isInPlace() const
{
    const Descriptor there = openAbsolute(name, O_PATH | O_DIRECTORY, walk);
    struct stat held;
    struct stat found;
    return there && ::fstat(root.get(), &held) == 0 && ::fstat(there.get(), &found) == 0 && held.st_dev == found.st_dev
        && held.st_ino == found.st_ino;
}

ConfinedFolder::Result ConfinedFolder::refusal(int error)
{
    switch (error) {
    case ELOOP:
        return Result::Link;
    case EXDEV:
        return Result::Mount;
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
        return Result::Missing;
    default:
        return Result::Failed;
    }
}

/// The result of a system call that failed just now. Who looks for the reason in a file's name or rights would never
/// find that it is the disk.
ConfinedFolder::Result ConfinedFolder::failed(Result result, const QByteArray &path)
{
    if (errno == EIO)
        qWarning("Ошибка ввода-вывода диска: %s", path.constData());
    return result;
}

Descriptor ConfinedFolder::open(int folder, const QByteArray &path, int flags) const
{
    if (walk == Walk::InKernel) {
        Descriptor file(openInKernel(folder, path, flags, belowOnly));
        // The kernel takes no path longer than PATH_MAX and does not look at the links in it then.
        if (file || !(lacksOpenat2(errno) || errno == ENAMETOOLONG))
            return file;
    }
    return openByComponent(folder, path, flags, false);
}

ConfinedFolder::Kind ConfinedFolder::probe(const QByteArray &path) const
{
    const Descriptor there = open(root.get(), path, O_PATH);
    struct stat status;
    if (there)
        return ::fstat(there.get(), &status) == 0 ? kindOf(status.st_mode) : Kind::Unknown;

    switch (refusal(errno)) {
    case Result::Link:
        return Kind::Link;
    case Result::Mount:
        // The kernel has one error for both; walked by component, only a mount point fails.
        return openByComponent(root.get(), path, O_PATH, false) || errno != EXDEV ? Kind::Outside : Kind::Mount;
    case Result::Missing:
        return Kind::Missing;
    default:
        return Kind::Unknown;
    }
}

ConfinedFolder::Room ConfinedFolder::room(const QByteArray &path) const
{
    const long longest = ::fpathconf(root.get(), _PC_NAME_MAX);
    const QList<QByteArray> names = path.split('/');
    const auto isTooLong = [longest](const QByteArray &each) { return longest > 0 && each.size() > longest; };
    if (name.size() + 1 + path.size() >= PATH_MAX || std::any_of(names.begin(), names.end(), isTooLong))
        return Room::NameTooLong;

    Kind there = probe(path);
    if (there != Kind::Missing)
        return there == Kind::Folder || there == Kind::Other ? Room::Taken : Room::Free;
    for (qsizetype end = path.lastIndexOf('/'); end > 0 && there == Kind::Missing; end = path.lastIndexOf('/', end - 1))
        there = probe(path.first(end));
    return there == Kind::File || there == Kind::Other ? Room::BelowFile : Room::Free;
}

/// All names in a folder that is held by its path alone; none when it can't be listed.
QList<QByteArray> ConfinedFolder::namesIn(int folder)
{
    const int listed = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR *)> entries(listed < 0 ? nullptr : ::fdopendir(listed), ::closedir);
    if (listed >= 0 && !entries)
        ::close(listed);
    QList<QByteArray> names;
    while (const dirent *entry = entries ? ::readdir(entries.get()) : nullptr) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..")
            names.append(name);
    }
    return names;
}

ConfinedFolder::Listing ConfinedFolder::listing(const QByteArray &path) const
{
    Listing begun;
    const Descriptor folder = open(root.get(), path.isEmpty() ? QByteArray(".") : path, O_PATH | O_DIRECTORY);
    struct stat home{};
    if (!folder || ::fstat(root.get(), &home) != 0)
        return begun;
    const int listed = ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *stream = listed < 0 ? nullptr : ::fdopendir(listed);
    if (listed >= 0 && !stream)
        ::close(listed);
    if (stream)
        begun.stream = std::shared_ptr<void>(stream, [](void *open) { ::closedir(static_cast<DIR *>(open)); });
    begun.device = home.st_dev;
    return begun;
}

QList<ConfinedFolder::Entry> ConfinedFolder::Listing::next(qsizetype most)
{
    DIR *entries = static_cast<DIR *>(stream.get());
    QList<Entry> found;
    while (entries && found.size() < most) {
        const dirent *entry = ::readdir(entries);
        if (!entry)
            break;
        const QByteArray called(entry->d_name);
        struct stat state{};
        if (called == "." || called == ".."
            || ::fstatat(::dirfd(entries), called.constData(), &state, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0)
            continue;
        // A folder mounted from the same file system is told apart when it is opened.
        const Kind kind = S_ISLNK(state.st_mode) ? Kind::Link
            : state.st_dev != device             ? Kind::Mount
            : S_ISREG(state.st_mode)             ? Kind::File
            : S_ISDIR(state.st_mode)             ? Kind::Folder
                                                 : Kind::Other;
        found.append({called, kind, qint64(state.st_size)});
    }
    return found;
}

std::optional<ConfinedFolder::Stamp> ConfinedFolder::stamp(const QByteArray &path) const
{
    if (!times)
        return {};
    const Descriptor file = open(root.get(), path, O_PATH);
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1)
        return {};
    return stampOf(status);
}

bool ConfinedFolder::Stamp::isSettled(qint64 nowNs) const
{
    return std::max(modifiedNs, changedNs) < nowNs - settlingNs;
}

ConfinedFolder::Result ConfinedFolder::read(const QByteArray &path, qint64 limit, Content &content) const
{
    // What isn't a regular file was refused by probe(); not to block matters when it became one since.
    const Descriptor file = open(root.get(), path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!file)
        return failed(refusal(errno), path);

    struct stat status;
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1)
        return Result::Unreadable;
    if (status.st_size > limit)
        return Result::TooLarge;
    content.mode = status.st_mode & 0777;
    content.user = status.st_uid;
    content.group = status.st_gid;
    const Result result = readAll(file.get(), status.st_size, limit, content.bytes);
    struct stat after;
    if (times && ::fstat(file.get(), &after) == 0 && stampOf(after) == stampOf(status))
        content.stamp = stampOf(status);
    return result == Result::Unreadable ? failed(result, path) : result;
}

QByteArray ConfinedFolder::start(const QByteArray &path, qint64 most) const
{
    const Descriptor file = open(root.get(), path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat status;
    QByteArray bytes;
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1
        || readAll(file.get(), status.st_size, most, bytes) == Result::Unreadable)
        return {};
    bytes.truncate(most);
    return bytes;
}

ConfinedFolder::Result ConfinedFolder::makeParent(const QByteArray &path, Spot &spot) const
{
    // Made component by component, it could become longer than any program can name.
    if (name.size() + 1 + path.size() >= PATH_MAX)
        return Result::Failed;

    const qsizetype slash = path.lastIndexOf('/');
    const QByteArray folder = slash < 0 ? QByteArray(".") : path.first(slash);
    spot.name = path.sliced(slash + 1);
    spot.folder = open(root.get(), folder, O_PATH | O_DIRECTORY);
    if (spot.folder)
        return Result::Done;
    return errno == ENOENT ? makeFolders(folder, spot.folder) : refusal(errno);
}

ConfinedFolder::Result ConfinedFolder::makeFolders(const QByteArray &path, Descriptor &made) const
{
    made = open(root.get(), ".", O_PATH | O_DIRECTORY);
    const QList<QByteArray> names = path.split('/');
    for (const QByteArray &component : names) {
        Descriptor next = open(made.get(), component, O_PATH | O_DIRECTORY);
        if (!next && errno == ENOENT) {
            if (::mkdirat(made.get(), component.constData(), 0777) == 0)
                flushFolder(made.get());
            else if (errno != EEXIST)
                return Result::Failed;
            next = open(made.get(), component, O_PATH | O_DIRECTORY);
        }
        if (!next)
            return refusal(errno);
        made = std::move(next);
    }
    return Result::Done;
}

bool ConfinedFolder::flushFolder(int folder)
{
    // The held descriptor names the folder but doesn't open it. Who may not read a folder can't flush it, and some
    // file systems have nothing to flush.
    const Descriptor opened(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return !opened || ::fsync(opened.get()) == 0 || errno == EINVAL || errno == ENOTSUP;
}

} // namespace vesk
