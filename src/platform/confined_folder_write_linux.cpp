// Writing and removing: how a file gets its new content whole, and how a file that its user saved at the same moment
// is given back to him.

#include "confined_folder.h"

#include <QRandomGenerator>

#include <cerrno>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vesk {

namespace {

using Result = ConfinedFolder::Result;

constexpr int patienceMs = 100;
constexpr int givingBackAttempts = 10000;

/// The file system can't exchange, or not without overwriting.
bool lacksRenameFlags(int error)
{
    return error == EINVAL || error == ENOSYS || error == EPERM || error == ENOTSUP;
}

bool renameAt(int folder, const QByteArray &from, const QByteArray &to, unsigned flags = 0)
{
    return ::renameat2(folder, from.constData(), folder, to.constData(), flags) == 0;
}

QByteArray temporaryName()
{
    char name[64];
    const quint64 random = QRandomGenerator::global()->generate64();
    std::snprintf(name, sizeof name, ".vesk-%d-%016llx.tmp", int(::getpid()), static_cast<unsigned long long>(random));
    return name;
}

/// The process in the name of a temporary file, 0 for another name.
pid_t writerOf(const char *name)
{
    int process = 0;
    int end = 0;
    const int found = std::sscanf(name, ".vesk-%d-%*16[0-9a-f].tmp%n", &process, &end);
    return found == 1 && end > 0 && name[end] == '\0' ? process : 0;
}

/// A new file on its way to its name. Until it has one it vanishes with the object, on most file systems with the
/// process.
class Temporary {
public:
    explicit Temporary(int folder)
        : folder(folder)
    {
    }
    ~Temporary()
    {
        if (!name.isEmpty())
            ::unlinkat(folder, name.constData(), 0);
    }
    Temporary(const Temporary &) = delete;
    Temporary &operator=(const Temporary &) = delete;

    Result fill(const QByteArray &bytes, unsigned mode);
    void takeAfter(const ConfinedFolder::Content &old);
    bool flush() { return ::fsync(file.get()) == 0; }
    /// Gives it its temporary name, if it has none yet, and closes it.
    bool settle();
    /// Gives it a name that nothing has.
    Result publish(const QByteArray &target);
    /// Forgets the name: nothing stands there, or what stands there must stay.
    void release() { name.clear(); }

    const QByteArray &path() const { return name; }
    const struct stat &status() const { return state; }

private:
    bool open(unsigned mode);
    bool linkAs(const QByteArray &target);

    int folder;
    Descriptor file;
    QByteArray name;
    struct stat state = {};
};

bool Temporary::open(unsigned mode)
{
    // A file without a name leaves nothing if the process is killed; it gets its name through /proc.
    static const bool hasProc = ::access("/proc/self/fd", F_OK) == 0;
    if (hasProc)
        file = Descriptor(::openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode));
    if (file)
        return true;

    const QByteArray chosen = temporaryName();
    file = Descriptor(::openat(folder, chosen.constData(), O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, mode));
    if (file)
        name = chosen;
    return bool(file);
}

Result Temporary::fill(const QByteArray &bytes, unsigned mode)
{
    if (!open(mode))
        return Result::Unwritable;
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(file.get(), bytes.constData() + done, size_t(bytes.size() - done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return Result::ShortWrite;
        done += put;
    }
    return Result::Done;
}

void Temporary::takeAfter(const ConfinedFolder::Content &old)
{
    // Another owner is possible for root alone: the file of the user who started us with his rights stays his.
    if (old.user != ::geteuid() || old.group != ::getegid())
        (void)!::fchown(file.get(), old.user, old.group);
    ::fchmod(file.get(), old.mode);
}

bool Temporary::linkAs(const QByteArray &target)
{
    char source[64];
    std::snprintf(source, sizeof source, "/proc/self/fd/%d", file.get());
    return ::linkat(AT_FDCWD, source, folder, target.constData(), AT_SYMLINK_FOLLOW) == 0;
}

bool Temporary::settle()
{
    if (name.isEmpty()) {
        const QByteArray chosen = temporaryName();
        if (!linkAs(chosen))
            return false;
        name = chosen;
    }
    const bool known = ::fstat(file.get(), &state) == 0;
    file.reset(); // As long as it's open for writing, nobody could be told from us.
    return known;
}

Result Temporary::publish(const QByteArray &target)
{
    if (name.isEmpty()) {
        if (linkAs(target))
            return Result::Done;
        return errno == EEXIST ? Result::Exists : Result::Failed;
    }
    if (renameAt(folder, name, target, RENAME_NOREPLACE)) {
        release();
        return Result::Done;
    }
    if (errno == EEXIST)
        return Result::Exists;
    if (!lacksRenameFlags(errno))
        return Result::Failed;
    // A second name doesn't overwrite either; the first goes with the object.
    if (::linkat(folder, name.constData(), folder, target.constData(), 0) == 0)
        return Result::Done;
    if (errno == EEXIST)
        return Result::Exists;

    struct stat there;
    if (::fstatat(folder, target.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0)
        return Result::Exists;
    if (!renameAt(folder, name, target))
        return Result::Failed;
    release();
    return Result::Done;
}

/// What stands under a name, looked at closely: content and, where the file system tells, whether somebody has it open
/// for writing. As long as the object lives, nobody can begin to write without our noticing.
class Sight {
public:
    Sight(int folder, const QByteArray &name, bool leases);

    /// It's a regular file with one name that holds these bytes, and nobody is writing to it.
    bool holds(const QByteArray &bytes);
    /// The same, but who has it open for writing and writes nothing for a while doesn't count.
    bool holdsForNow(const QByteArray &bytes);
    bool isSameFile(const struct stat &other) const;
    /// Same file, and nobody wrote to it since.
    bool isUntouchedSince(const Sight &other) const;

private:
    bool isQuiet() const;
    bool contains(const QByteArray &bytes) const;

    Descriptor file;
    struct stat status = {};
    bool leases;
};

Sight::Sight(int folder, const QByteArray &name, bool leases)
    : leases(leases)
{
    if (::fstatat(folder, name.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        status = {};
        return;
    }
    if (S_ISREG(status.st_mode))
        file
            = Descriptor(::openat(folder, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

bool Sight::isQuiet() const
{
    if (!leases)
        return true;
    // A lease is refused while somebody has the file open for writing. Who wants to open it later has to wait for us
    // to let go, which the kernel tells by a signal; the usual one would end the process.
    if (::fcntl(file.get(), F_GETLEASE) == F_RDLCK)
        return true;
    ::fcntl(file.get(), F_SETSIG, SIGURG);
    return ::fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN;
}

bool Sight::contains(const QByteArray &bytes) const
{
    QByteArray found(bytes.size() + 1, Qt::Uninitialized);
    qsizetype done = 0;
    while (done <= bytes.size()) {
        const ssize_t got = ::pread(file.get(), found.data() + done, size_t(found.size() - done), done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += got;
    }
    return QByteArrayView(found).first(done) == bytes;
}

bool Sight::holds(const QByteArray &bytes)
{
    return file && status.st_nlink == 1 && isQuiet() && contains(bytes) && isQuiet();
}

bool Sight::holdsForNow(const QByteArray &bytes)
{
    for (int waitedMs = 0; file && contains(bytes); ++waitedMs) {
        if (holds(bytes) || waitedMs == patienceMs)
            return true;
        ::usleep(1000);
    }
    return false;
}

bool Sight::isSameFile(const struct stat &other) const
{
    return status.st_dev == other.st_dev && status.st_ino == other.st_ino;
}

bool Sight::isUntouchedSince(const Sight &other) const
{
    return isSameFile(other.status) && status.st_size == other.status.st_size
        && status.st_mtim.tv_sec == other.status.st_mtim.tv_sec
        && status.st_mtim.tv_nsec == other.status.st_mtim.tv_nsec;
}

/// Puts a settled temporary file in the place of one that is to hold `old`.
class Exchange {
public:
    Exchange(const ConfinedFolder::Spot &spot, Temporary &ours, const QByteArray &bytes, bool leases)
        : folder(spot.folder.get())
        , target(spot.name)
        , ours(ours)
        , bytes(bytes)
        , leases(leases)
    {
    }

    Result run(const QByteArray &old);

private:
    Result overwrite(const QByteArray &old);
    void giveBack(std::unique_ptr<Sight> theirs);
    bool swap() { return renameAt(folder, ours.path(), target, RENAME_EXCHANGE); }
    std::unique_ptr<Sight> look() { return std::make_unique<Sight>(folder, ours.path(), leases); }

    int folder;
    const QByteArray &target;
    Temporary &ours; ///< Its name is the other place of the exchange, whatever stands there.
    const QByteArray &bytes;
    bool leases;
};

Result Exchange::run(const QByteArray &old)
{
    if (!swap()) {
        if (errno == ENOENT)
            return Result::Missing;
        return lacksRenameFlags(errno) ? overwrite(old) : Result::Failed;
    }
    std::unique_ptr<Sight> cameOut = look();
    if (!cameOut->holds(old)) {
        giveBack(std::move(cameOut));
        return Result::Changed;
    }
    // Removed while the sight still holds its lease: nobody is writing to what goes.
    ::unlinkat(folder, ours.path().constData(), 0);
    ours.release();
    return Result::Done;
}

/// The best without an exchange: a last look just before.
Result Exchange::overwrite(const QByteArray &old)
{
    if (!Sight(folder, target, leases).holds(old))
        return Result::Changed;
    if (!renameAt(folder, ours.path(), target))
        return Result::Failed;
    ours.release();
    return Result::Done;
}

/// The name must end with what was saved last. An exchange brings out what stood there until then: as long as that
/// isn't what we had put there, untouched, somebody saved meanwhile, and that is newer than what went in.
void Exchange::giveBack(std::unique_ptr<Sight> theirs)
{
    std::unique_ptr<Sight> put; // None yet: our own file.
    for (int i = 0; i < givingBackAttempts; ++i) {
        if (!swap()) {
            // Nothing stands there any more, or nothing can be done: what we hold must not go with us.
            if (errno != ENOENT || renameAt(folder, ours.path(), target, RENAME_NOREPLACE) || errno != EEXIST)
                break;
            continue;
        }
        std::unique_ptr<Sight> cameOut = look();
        const bool isWhatWePut
            = put ? cameOut->isUntouchedSince(*put) : cameOut->isSameFile(ours.status()) && cameOut->holdsForNow(bytes);
        if (isWhatWePut)
            return;
        put = std::move(theirs);
        theirs = std::move(cameOut);
    }
    ours.release();
}

} // namespace

ConfinedFolder::Result ConfinedFolder::create(const Spot &spot, const QByteArray &bytes) const
{
    Temporary ours(spot.folder.get());
    if (const Result filled = ours.fill(bytes, 0666); filled != Result::Done)
        return filled;
    if (!ours.flush())
        return Result::Failed;
    const Result published = ours.publish(spot.name);
    if (published != Result::Done)
        return published;
    return flushFolder(spot.folder.get()) ? Result::Done : Result::Failed;
}

ConfinedFolder::Result ConfinedFolder::replace(const Spot &spot, const QByteArray &bytes, const Content &old) const
{
    // A replacement needs no right to the file, but who made it read-only meant that.
    if (::faccessat(spot.folder.get(), spot.name.constData(), W_OK, 0) != 0)
        return errno == ENOENT ? Result::Missing : Result::Unwritable;

    Temporary ours(spot.folder.get());
    if (const Result filled = ours.fill(bytes, old.mode); filled != Result::Done)
        return filled;
    ours.takeAfter(old);
    if (!ours.flush() || !ours.settle())
        return Result::Failed;
    const Result exchanged = Exchange(spot, ours, bytes, leases).run(old.bytes);
    if (exchanged != Result::Done)
        return exchanged;
    return flushFolder(spot.folder.get()) ? Result::Done : Result::Failed;
}

ConfinedFolder::Result ConfinedFolder::remove(const QByteArray &path, const Content &old) const
{
    const qsizetype slash = path.lastIndexOf('/');
    const QByteArray file = path.sliced(slash + 1);
    const Descriptor folder = open(root.get(), slash < 0 ? QByteArray(".") : path.first(slash), O_PATH | O_DIRECTORY);
    if (!folder)
        return refusal(errno);

    const QByteArray aside = temporaryName();
    if (!renameAt(folder.get(), file, aside, RENAME_NOREPLACE)) {
        if (!lacksRenameFlags(errno))
            return refusal(errno);
        if (!Sight(folder.get(), file, leases).holds(old.bytes))
            return Result::Changed;
        if (::unlinkat(folder.get(), file.constData(), 0) != 0)
            return Result::Failed;
    } else {
        Sight taken(folder.get(), aside, leases);
        if (!taken.holds(old.bytes)) {
            // If its place is taken already, that was saved later, and this one is what it replaced.
            if (!renameAt(folder.get(), aside, file, RENAME_NOREPLACE) && errno == EEXIST)
                ::unlinkat(folder.get(), aside.constData(), 0);
            return Result::Changed;
        }
        ::unlinkat(folder.get(), aside.constData(), 0);
    }
    return flushFolder(folder.get()) ? Result::Done : Result::Failed;
}

void ConfinedFolder::removeLeftovers(const QByteArray &path) const
{
    Descriptor folder = open(root.get(), path.isEmpty() ? QByteArray(".") : path, O_PATH | O_DIRECTORY);
    if (!folder)
        return;
    const int listed = ::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR *)> entries(listed < 0 ? nullptr : ::fdopendir(listed), ::closedir);
    if (!entries)
        return;
    while (const dirent *entry = ::readdir(entries.get())) {
        const pid_t process = writerOf(entry->d_name);
        const bool isOver = process == ::getpid() || (process > 0 && ::kill(process, 0) != 0 && errno == ESRCH);
        if (isOver)
            ::unlinkat(folder.get(), entry->d_name, 0);
    }
}

} // namespace vesk
