// Writing and removing: how a file gets its new content whole, and how a file that its user saved at the same moment
// is given back to him.

#include "confined_folder.h"

#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vesk {

namespace {

using Result = ConfinedFolder::Result;

constexpr int patienceMs = 100;
constexpr int givingBackAttempts = 100;
constexpr off_t rememberedBytes = 4 << 20;

/// The file system can't exchange, or not without overwriting.
bool lacksRenameFlags(int error)
{
    return error == EINVAL || error == ENOSYS || error == EPERM || error == ENOTSUP;
}

/// Why a new file can't have the name it is to get.
Result refusalOfName(int error)
{
    if (error == EEXIST)
        return Result::Exists;
    return error == ENAMETOOLONG ? Result::Unwritable : Result::Failed;
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

/// Gives the user's content that can't go back to its place a name that stays: temporary ones are cleared away.
void keepAside(int folder, const QByteArray &held, const QByteArray &target)
{
    const QByteArray unique = temporaryName().chopped(4).last(16);
    if (!renameAt(folder, held, target + ".vesk-kept-" + unique, RENAME_NOREPLACE))
        renameAt(folder, held, "vesk-kept-" + unique, RENAME_NOREPLACE);
}

/// The process in the name of a temporary file, 0 for another name.
pid_t writerOf(const char *name)
{
    int process = 0;
    int end = 0;
    const int found = std::sscanf(name, ".vesk-%d-%*16[0-9a-f].tmp%n", &process, &end);
    return found == 1 && end > 0 && name[end] == '\0' ? process : 0;
}

} // namespace

bool ConfinedFolder::isTemporary(const QByteArray &name)
{
    return writerOf(name.constData()) != 0;
}

namespace {

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
    void setMode(unsigned mode) { ::fchmod(file.get(), mode); }
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
    // Another owner can be given by root alone, and then a user's file stays his.
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
    if (name.isEmpty())
        return linkAs(target) ? Result::Done : refusalOfName(errno);
    if (renameAt(folder, name, target, RENAME_NOREPLACE)) {
        release();
        return Result::Done;
    }
    if (!lacksRenameFlags(errno))
        return refusalOfName(errno);
    // A second name doesn't overwrite either; the first goes with the object.
    if (::linkat(folder, name.constData(), folder, target.constData(), 0) == 0)
        return Result::Done;
    struct stat there;
    if (errno == EEXIST || ::fstatat(folder, target.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0)
        return Result::Exists;
    if (!renameAt(folder, name, target))
        return refusalOfName(errno);
    release();
    return Result::Done;
}

/// What a file was at some moment: which one, its size, and its bytes up to a limit that no file of ours passes.
struct Memory {
    dev_t device;
    ino_t node;
    off_t size;
    QByteArray bytes;

    Memory(const struct stat &status, const QByteArray &bytes)
        : device(status.st_dev)
        , node(status.st_ino)
        , size(status.st_size)
        , bytes(bytes)
    {
    }
};

/// What stands under a name, looked at closely: content and, where the file system tells, whether somebody has it open
/// for writing. Once it was found quiet, nobody can begin to write without our noticing, until letGo() or the end of
/// the object.
class Sight {
public:
    Sight(int folder, const QByteArray &name, bool leases);

    bool isNothing() const { return status.st_nlink == 0; }
    /// It's a regular file with one name that holds these bytes, and nobody is writing to it.
    bool holds(const QByteArray &bytes) const;
    /// It's the file remembered, and when nobody is writing to it any more it is as it was. Who has it open and writes
    /// nothing for a while doesn't count.
    bool settlesAs(const Memory &memory) const;
    Memory remember() const;
    void letGo() const;

private:
    bool isQuiet() const;
    bool contains(off_t size, const QByteArray &bytes) const;
    QByteArray start(qint64 limit) const;

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

/// A lease is refused while somebody has the file open for writing. Who opens it later has to wait for us to let go,
/// and the lease shows that.
bool Sight::isQuiet() const
{
    if (!leases || !file || ::fcntl(file.get(), F_GETLEASE) == F_RDLCK)
        return true;
    // The kernel tells us of a waiting writer by a signal, too; the usual one would end the process.
    ::fcntl(file.get(), F_SETSIG, SIGURG);
    return ::fcntl(file.get(), F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN;
}

void Sight::letGo() const
{
    if (leases && file)
        ::fcntl(file.get(), F_SETLEASE, F_UNLCK);
}

QByteArray Sight::start(qint64 limit) const
{
    QByteArray bytes(limit, Qt::Uninitialized);
    qint64 done = 0;
    while (done < limit) {
        const ssize_t got = ::pread(file.get(), bytes.data() + done, size_t(limit - done), done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += got;
    }
    bytes.truncate(done);
    return bytes;
}

bool Sight::contains(off_t size, const QByteArray &bytes) const
{
    struct stat latest;
    return ::fstat(file.get(), &latest) == 0 && latest.st_size == size && start(bytes.size()) == bytes;
}

bool Sight::holds(const QByteArray &bytes) const
{
    return file && status.st_nlink == 1 && isQuiet() && contains(bytes.size(), bytes) && isQuiet();
}

Memory Sight::remember() const
{
    if (!file)
        return {status, {}};
    // Who is writing now may go on; who isn't can't begin until we let go.
    isQuiet();
    struct stat latest = status;
    ::fstat(file.get(), &latest);
    return {latest, start(std::min<off_t>(latest.st_size, rememberedBytes))};
}

bool Sight::settlesAs(const Memory &memory) const
{
    if (status.st_dev != memory.device || status.st_ino != memory.node)
        return false;
    const auto isAsItWas = [&] { return !file || contains(memory.size, memory.bytes); };
    for (int waitedMs = 0; waitedMs < patienceMs; ++waitedMs) {
        if (isQuiet()) {
            if (!isAsItWas())
                return false;
            // Who came to write meanwhile waits for our lease; he may go on.
            if (isQuiet())
                return true;
        }
        letGo();
        ::usleep(1000);
    }
    return isAsItWas();
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
    void discard();
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
    discard();
    return Result::Done;
}

/// Removes what the exchange left in our hands. To be called while its sight is there, so that nobody begins to write
/// to it before it's gone.
void Exchange::discard()
{
    ::unlinkat(folder, ours.path().constData(), 0);
    ours.release();
}

/// The best without an exchange: a last look just before.
Result Exchange::overwrite(const QByteArray &old)
{
    Sight there(folder, target, leases);
    if (!there.holds(old))
        return there.isNothing() ? Result::Missing : Result::Changed;
    if (!renameAt(folder, ours.path(), target))
        return Result::Failed;
    ours.release();
    return Result::Done;
}

/// The name must end with what was saved last. An exchange brings out what stood there until then. Unless that is what
/// we had put there, untouched, somebody saved meanwhile: another file, or into the one that he found. It goes back,
/// and what comes out then is looked at in the same way. There's no going by times: they can be the same for
/// milliseconds.
void Exchange::giveBack(std::unique_ptr<Sight> theirs)
{
    Memory put(ours.status(), bytes);
    for (int i = 0; i < givingBackAttempts; ++i) {
        Memory next = theirs->remember();
        if (!swap()) {
            // Nothing stands there any more, or nothing can be done: what we hold must not go with us.
            if (errno != ENOENT || renameAt(folder, ours.path(), target, RENAME_NOREPLACE) || errno != EEXIST)
                break;
            continue;
        }
        theirs->letGo();
        theirs = look();
        if (theirs->settlesAs(put))
            return discard();
        put = std::move(next);
    }
    keepAside(folder, ours.path(), target);
    ours.release();
}

/// The best without renaming aside: a last look just before.
Result lookAndRemove(int folder, const QByteArray &name, const QByteArray &old, bool leases)
{
    Sight there(folder, name, leases);
    if (!there.holds(old))
        return there.isNothing() ? Result::Missing : Result::Changed;
    return ::unlinkat(folder, name.constData(), 0) == 0 ? Result::Done : Result::Failed;
}

/// Takes the file out of the way first, then looks whether it was the right one.
Result takeAndRemove(int folder, const QByteArray &name, const QByteArray &old, bool leases)
{
    const QByteArray aside = temporaryName();
    if (!renameAt(folder, name, aside, RENAME_NOREPLACE)) {
        if (errno == ENOENT)
            return Result::Missing;
        return lacksRenameFlags(errno) ? lookAndRemove(folder, name, old, leases) : Result::Failed;
    }
    Sight taken(folder, aside, leases);
    const bool isOld = taken.holds(old);
    const bool isBack = !isOld && renameAt(folder, aside, name, RENAME_NOREPLACE);
    // If the place of a changed one is taken again, that was saved later, and this one is what it replaced.
    if (isOld || (!isBack && errno == EEXIST))
        ::unlinkat(folder, aside.constData(), 0);
    else if (!isBack)
        keepAside(folder, aside, name);
    return isOld ? Result::Done : Result::Changed;
}

} // namespace

ConfinedFolder::Result ConfinedFolder::create(const Spot &spot, const QByteArray &bytes,
                                              std::optional<unsigned> mode) const
{
    Temporary ours(spot.folder.get());
    if (const Result filled = ours.fill(bytes, mode.value_or(0666)); filled != Result::Done)
        return failed(filled, spot.name);
    if (mode)
        ours.setMode(*mode);
    if (!ours.flush())
        return failed(Result::Failed, spot.name);
    const Result published = ours.publish(spot.name);
    if (published != Result::Done)
        return published;
    return flushFolder(spot.folder.get()) ? Result::Done : Result::Failed;
}

ConfinedFolder::Result ConfinedFolder::replace(const Spot &spot, const QByteArray &bytes, const Content &old) const
{
    // A replacement needs no right to the file, but who made it read-only meant that.
    if (::faccessat(spot.folder.get(), spot.name.constData(), W_OK, 0) != 0 && errno != ENOENT && errno != ELOOP)
        return Result::Unwritable;

    Temporary ours(spot.folder.get());
    if (const Result filled = ours.fill(bytes, old.mode); filled != Result::Done)
        return failed(filled, spot.name);
    ours.takeAfter(old);
    if (!ours.flush() || !ours.settle())
        return failed(Result::Failed, spot.name);
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

    const Result removed = takeAndRemove(folder.get(), file, old.bytes, leases);
    if (removed != Result::Done)
        return removed;
    return flushFolder(folder.get()) ? Result::Done : Result::Failed;
}

void ConfinedFolder::removeLeftovers(const QByteArray &path, const QSet<QByteArray> &kept) const
{
    const Descriptor folder = open(root.get(), path.isEmpty() ? QByteArray(".") : path, O_PATH | O_DIRECTORY);
    if (!folder)
        return;
    const QList<QByteArray> names = namesIn(folder.get());
    for (const QByteArray &each : names) {
        const pid_t process = writerOf(each.constData());
        const bool isOver = process == ::getpid() || (process > 0 && ::kill(process, 0) != 0 && errno == ESRCH);
        if (isOver && !kept.contains(each))
            ::unlinkat(folder.get(), each.constData(), 0);
    }
}

} // namespace vesk
