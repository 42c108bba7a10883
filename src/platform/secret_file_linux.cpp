#include "secret_file.h"

#include "descriptor.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QScopeGuard>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto fileName = "credentials";
constexpr auto temporaryName = "credentials.tmp";
constexpr auto lockName = "credentials.lock";
constexpr qint64 limitBytes = 1 << 20;
constexpr std::chrono::seconds lockLimit(3);
constexpr int lockPauseUs = 10000;

/// Ends the operation: what stood in its way.
struct Refusal {
    QString reason;
};

/// How a target's line begins.
QByteArray beginning(const QString &target)
{
    return target.toUtf8().toPercentEncoding(":") + ' ';
}

/// The same bytes, not a copy of them.
QByteArray asArray(QByteArrayView bytes)
{
    return QByteArray::fromRawData(bytes.data(), bytes.size());
}

/// The place of a line in the file's bytes, the line's end with it.
struct Line {
    qsizetype first = 0;
    qsizetype end = 0;
};

std::optional<Line> findLine(QByteArrayView bytes, const QByteArray &beginning)
{
    for (Line line; line.first < bytes.size(); line.first = line.end) {
        const qsizetype newline = bytes.indexOf('\n', line.first);
        line.end = newline < 0 ? bytes.size() : newline + 1;
        if (bytes.sliced(line.first, line.end - line.first).startsWith(beginning))
            return line;
    }
    return {};
}

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
    throw Refusal{u"файл ключей %1: %2: %3"_s.arg(file, what, QString::fromLocal8Bit(std::strerror(errno)))};
}

void HeldFolder::check(const struct stat &status) const
{
    const auto demand = [this](bool ok, const QString &reason) {
        if (!ok)
            throw Refusal{u"файл ключей %1 не используется: %2"_s.arg(file, reason)};
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
    ::unlinkat(folder.get(), temporaryName, 0);
    const Descriptor fresh(
        ::openat(folder.get(), temporaryName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fresh)
        fail(u"не записывается"_s);
    const auto removeTemporary = qScopeGuard([this] { ::unlinkat(folder.get(), temporaryName, 0); });
    struct stat status;
    if (::fchmod(fresh.get(), 0600) != 0 || ::fstat(fresh.get(), &status) != 0)
        fail(u"не получает прав доступа"_s);
    // Some file systems know no modes: there everybody could read it.
    check(status);
    write(fresh, bytes.view());
    if (::fsync(fresh.get()) != 0 || ::renameat(folder.get(), temporaryName, folder.get(), fileName) != 0)
        fail(u"не записывается"_s);
    ::fsync(folder.get());
}

SecretAnswer readFrom(const HeldFolder &folder, const QString &target)
{
    if (!folder.exists())
        return {SecretOutcome::Missing, {}, {}};
    const SecretBytes bytes = folder.read();
    const QByteArray start = beginning(target);
    const std::optional<Line> line = findLine(bytes.view(), start);
    if (!line)
        return {SecretOutcome::Missing, {}, {}};

    const QByteArrayView rest = bytes.view().sliced(line->first, line->end - line->first).sliced(start.size());
    QByteArray::FromBase64Result decoded
        = QByteArray::fromBase64Encoding(asArray(rest.trimmed()), QByteArray::AbortOnBase64DecodingErrors);
    SecretBytes secret = SecretBytes::taken(std::move(decoded.decoded));
    if (decoded.decodingStatus != QByteArray::Base64DecodingStatus::Ok)
        throw Refusal{u"запись в файле ключей повреждена"_s};
    return {SecretOutcome::Done, std::move(secret), {}};
}

/// The file's bytes without any line of this target.
SecretBytes without(const SecretBytes &bytes, const QByteArray &start)
{
    SecretBytes kept;
    QByteArrayView rest = bytes.view();
    while (const std::optional<Line> line = findLine(rest, start)) {
        kept.append(rest.first(line->first));
        rest = rest.sliced(line->end);
    }
    kept.append(rest);
    return kept;
}

void saveIn(const HeldFolder &folder, const QString &target, const SecretBytes &secret)
{
    const Descriptor turn = folder.lock();
    const QByteArray start = beginning(target);
    SecretBytes bytes = without(folder.read(), start);
    if (!bytes.view().isEmpty() && !bytes.view().endsWith('\n'))
        bytes.append("\n");
    bytes.append(start);
    // Not a copy of the secret: it would be left in memory.
    bytes.append(SecretBytes::taken(asArray(secret.view()).toBase64()).view());
    bytes.append("\n");
    folder.replace(bytes);
}

SecretAnswer removeFrom(const HeldFolder &folder, const QString &target)
{
    const QByteArray start = beginning(target);
    // Looked at before the lock: most folders have no such file, and they are to stay without.
    if (!folder.exists() || !findLine(folder.read().view(), start))
        return {SecretOutcome::Missing, {}, {}};
    const Descriptor turn = folder.lock();
    folder.replace(without(folder.read(), start));
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
        return readFrom(HeldFolder(folder), target);
    } catch (const Refusal &refusal) {
        return {SecretOutcome::Failed, {}, refusal.reason};
    }
}

SecretAnswer SecretFile::save(const QString &target, const SecretBytes &secret) const
{
    try {
        if (!QDir().mkpath(folder))
            throw Refusal{u"не удалось создать папку %1"_s.arg(folder)};
        saveIn(HeldFolder(folder), target, secret);
        return {SecretOutcome::Done, {}, {}};
    } catch (const Refusal &refusal) {
        return {SecretOutcome::Failed, {}, refusal.reason};
    }
}

SecretAnswer SecretFile::remove(const QString &target) const
{
    try {
        return removeFrom(HeldFolder(folder), target);
    } catch (const Refusal &refusal) {
        return {SecretOutcome::Failed, {}, refusal.reason};
    }
}

} // namespace vesk
