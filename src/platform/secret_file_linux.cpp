// Keys in a file for its owner alone.

#include "secret_file.h"

#include "descriptor.h"
#include "secret_lines.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QScopeGuard>

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto fileName = "credentials";
constexpr auto unfinishedName = "credentials.tmp";
constexpr auto lockName = "credentials.lock";
constexpr qint64 limitBytes = 1 << 20;
constexpr std::chrono::seconds lockLimit(3);
constexpr int lockPauseUs = 10000;

/// Ends the operation: what stood in its way.
struct FileRefusal {
    QString reason;
};

/// The data folder held open, with the file in it.
class HeldFolder {
public:
    explicit HeldFolder(const QString &path);

    bool exists() const { return bool(folder); }
    /// Nothing when there is no file.
    SecretBytes read() const;
    void replace(const SecretBytes &bytes) const;
    /// The right to replace the file, held as long as the descriptor is open.
    Descriptor lock() const;

private:
    void check(const struct stat &status) const;
    void write(const Descriptor &target, QByteArrayView bytes) const;
    /// Ends the operation; `what` is followed by the system's own reason.
    [[noreturn]] void fail(const QString &what) const;

    QString file; ///< Its full path, for messages.
    Descriptor folder;
};

HeldFolder::HeldFolder(const QString &path)
    : file(path + u'/' + QLatin1StringView(fileName))
    , folder(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (!folder && errno != ENOENT)
        fail(u"папка не открывается"_s);
}

void HeldFolder::fail(const QString &what) const
{
    throw FileRefusal{u"файл ключей %1: %2: %3"_s.arg(file, what, QString::fromLocal8Bit(std::strerror(errno)))};
}

void HeldFolder::check(const struct stat &status) const
{
    const auto demand = [this](bool ok, const QString &reason) {
        if (!ok)
            throw FileRefusal{u"файл ключей %1 не используется: %2"_s.arg(file, reason)};
    };
    demand(S_ISREG(status.st_mode), u"это не обычный файл"_s);
    // None at all is the number of a file that was replaced just now.
    demand(status.st_nlink <= 1, u"у него несколько имён (жёсткие ссылки)"_s);
    demand(status.st_uid == ::geteuid(), u"он принадлежит другому пользователю"_s);
    demand((status.st_mode & 077) == 0, u"он открыт не только владельцу, нужны права 0600"_s);
    demand(status.st_size <= limitBytes, u"он слишком велик"_s);
}

SecretBytes HeldFolder::read() const
{
    const Descriptor source(
        ::openat(folder.get(), fileName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!source && errno == ENOENT)
        return {};
    struct stat status;
    if (!source || ::fstat(source.get(), &status) != 0)
        fail(errno == ELOOP ? u"это ссылка"_s : u"не открывается"_s);
    check(status);

    SecretBytes bytes(status.st_size);
    for (qint64 done = 0; done < status.st_size;) {
        const ssize_t got = ::read(source.get(), bytes.data() + done, size_t(status.st_size - done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            fail(u"не читается"_s);
        done += got;
    }
    return bytes;
}

Descriptor HeldFolder::lock() const
{
    Descriptor turn(::openat(folder.get(), lockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (!turn)
        fail(u"не открывается credentials.lock"_s);
    // By the clock: on a busy machine a pause takes several times as long as it was to take.
    const QDeadlineTimer deadline(lockLimit);
    while (::flock(turn.get(), LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.hasExpired())
            fail(u"занят другим процессом"_s);
        ::usleep(lockPauseUs);
    }
    return turn;
}

void HeldFolder::write(const Descriptor &target, QByteArrayView bytes) const
{
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t put = ::write(target.get(), bytes.data() + done, size_t(bytes.size() - done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            fail(u"не записывается"_s);
        done += put;
    }
}

void HeldFolder::replace(const SecretBytes &bytes) const
{
    // The lock is ours: what has this name was left by a process that was killed while writing.
    ::unlinkat(folder.get(), unfinishedName, 0);
    const Descriptor fresh(
        ::openat(folder.get(), unfinishedName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fresh)
        fail(u"не записывается"_s);
    const auto removeTemporary = qScopeGuard([this] { ::unlinkat(folder.get(), unfinishedName, 0); });
    struct stat status;
    if (::fchmod(fresh.get(), 0600) != 0 || ::fstat(fresh.get(), &status) != 0)
        fail(u"не получает прав доступа"_s);
    // Some file systems know no modes: there everybody could read it.
    check(status);
    write(fresh, bytes.view());
    if (::fsync(fresh.get()) != 0 || ::renameat(folder.get(), unfinishedName, folder.get(), fileName) != 0)
        fail(u"не записывается"_s);
    ::fsync(folder.get());
}

void saveIn(const HeldFolder &folder, const QString &target, const SecretBytes &secret)
{
    const Descriptor turn = folder.lock();
    folder.replace(withSecret(folder.read().view(), target, secret));
}

SecretAnswer removeFrom(const HeldFolder &folder, const QString &target)
{
    // Looked at before the lock: most folders have no such file, and they are to stay without.
    if (!folder.exists() || !hasSecret(folder.read().view(), target))
        return {SecretOutcome::Missing, {}, {}};
    const Descriptor turn = folder.lock();
    folder.replace(withoutSecret(folder.read().view(), target));
    return {SecretOutcome::Done, {}, {}};
}

} // namespace

SecretFile::SecretFile(const QString &folder)
    : folder(folder)
{
}

QString SecretFile::path() const
{
    return folder + u'/' + QLatin1StringView(fileName);
}

SecretAnswer SecretFile::read(const QString &target) const
{
    try {
        const HeldFolder held(folder);
        return held.exists() ? secretOf(held.read().view(), target) : SecretAnswer{SecretOutcome::Missing, {}, {}};
    } catch (const FileRefusal &refusal) {
        return {SecretOutcome::Failed, {}, refusal.reason};
    }
}

SecretAnswer SecretFile::save(const QString &target, const SecretBytes &secret) const
{
    try {
        if (!QDir().mkpath(folder))
            throw FileRefusal{u"не удалось создать папку %1"_s.arg(folder)};
        saveIn(HeldFolder(folder), target, secret);
        return {SecretOutcome::Done, {}, {}};
    } catch (const FileRefusal &refusal) {
        return {SecretOutcome::Failed, {}, refusal.reason};
    }
}

SecretAnswer SecretFile::remove(const QString &target) const
{
    try {
        return removeFrom(HeldFolder(folder), target);
    } catch (const FileRefusal &refusal) {
        return {SecretOutcome::Failed, {}, refusal.reason};
    }
}

} // namespace vesk
