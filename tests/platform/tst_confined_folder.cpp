#include "confined_folder.h"
#include "files.h"
#include "sandbox.h"

#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace vesk;
using Result = ConfinedFolder::Result;

namespace {

using Deed = std::function<void(const QByteArray &path)>;

/// A file's bytes, what else it is, or "missing".
QByteArray bytesOrKind(const QByteArray &path)
{
    struct stat status;
    if (::lstat(path.constData(), &status) != 0)
        return "missing";
    if (S_ISREG(status.st_mode))
        return contentOf(QFile::decodeName(path));
    return S_ISDIR(status.st_mode) ? "folder" : S_ISLNK(status.st_mode) ? "link" : "other";
}

/// One row for each thing that may stand under a name, and how it got there.
void addDeeds()
{
    QTest::addColumn<Deed>("deed");
    QTest::newRow("saved in place") << Deed([](const QByteArray &path) { saveShort(path, "theirs", O_TRUNC); });
    QTest::newRow("saved in place, as long as before")
        << Deed([](const QByteArray &path) { saveShort(path, "OLD", O_TRUNC); });
    QTest::newRow("saved by renaming") << Deed([](const QByteArray &path) {
        saveShort(path + '~', "theirs");
        QCOMPARE(::rename((path + '~').constData(), path.constData()), 0);
    });
    // What is no file.
    using Make = int (*)(const char *path);
    for (const auto &[kind, make] :
         {std::pair<const char *, Make>("a folder", [](auto path) { return ::mkdir(path, 0777); }),
          {"a link", [](auto path) { return ::symlink("../x", path); }},
          {"a fifo", [](auto path) { return ::mkfifo(path, 0666); }}})
        QTest::newRow(kind) << Deed([make](const QByteArray &path) {
            ::unlink(path.constData());
            QCOMPARE(make(path.constData()), 0);
        });
}

} // namespace

class ConfinedFolderTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        folder = std::make_unique<QTemporaryDir>();
        confined = ConfinedFolder::hold(QFile::encodeName(folder->path()));
        QVERIFY(confined.has_value());
    }

    void whatStandsInTheWayOfANewFileStays_data() { addDeeds(); }

    void whatStandsInTheWayOfANewFileStays()
    {
        QFETCH(Deed, deed);
        QCOMPARE(confined->makeParent("d/e/a", spot), Result::Done);
        deed(path("d/e/a"));
        const QByteArray theirs = bytesOrKind(path("d/e/a"));

        QCOMPARE(confined->create(spot, "ours"), Result::Exists);

        QCOMPARE(bytesOrKind(path("d/e/a")), theirs);
        QCOMPARE(everything(u"d/e"_s), QStringList{u"a"_s});
    }

    void whatItsUserDidToAFileStays_data()
    {
        addDeeds();
        QTest::newRow("removed") << Deed([](const QByteArray &path) { ::unlink(path.constData()); });
        QTest::newRow("given a second name") << Deed([](const QByteArray &path) {
            QCOMPARE(::link(path.constData(), (path + "/../../second").replace("/a/..", "").constData()), 0);
        });
    }

    void whatItsUserDidToAFileStays()
    {
        QFETCH(Deed, deed);
        makeAndRead("d/a");
        deed(path("d/a"));
        const QByteArray theirs = bytesOrKind(path("d/a"));
        const Result expected = theirs == "missing" ? Result::Missing : Result::Changed;
        // What has several names or is no file isn't read either.
        ConfinedFolder::Content now;
        QCOMPARE(confined->read("d/a", 10, now) == Result::Done, theirs == "theirs" || theirs == "OLD");

        QCOMPARE(confined->replace(spot, "ours", old), expected);
        QCOMPARE(bytesOrKind(path("d/a")), theirs);
        QCOMPARE(confined->remove("d/a", old), expected);
        QCOMPARE(bytesOrKind(path("d/a")), theirs);
        QCOMPARE(everything(u"d"_s), theirs == "missing" ? QStringList() : QStringList{u"a"_s});
    }

    void aFileHeldOpenForWritingIsLeftAlone()
    {
        makeAndRead("a");
        Descriptor writer(::open(path("a").constData(), O_WRONLY));
        if (::fcntl(writer.get(), F_SETLEASE, F_WRLCK) != 0)
            QSKIP("no leases on this file system");
        ::fcntl(writer.get(), F_SETLEASE, F_UNLCK);
        QCOMPARE(confined->replace(spot, "ours", old), Result::Changed);
        QCOMPARE(confined->remove("a", old), Result::Changed);
        QCOMPARE(::write(writer.get(), "theirs", 6), 6);
        QCOMPARE(bytesOrKind(path("a")), "theirs");
        writer.reset();
        QCOMPARE(confined->read("a", 10, old), Result::Done);
        QCOMPARE(confined->replace(spot, "ours", old), Result::Done);
        QCOMPARE(everything(), QStringList{u"a"_s});
    }

    void aDiskThatFailsIsNamedInTheLog()
    {
        // Nothing lies at the first address of a process.
        const auto process = ConfinedFolder::hold("/proc/" + QByteArray::number(::getpid()));
        ConfinedFolder::Content content;
        QTest::ignoreMessage(QtWarningMsg, "Ошибка ввода-вывода диска: mem");
        QCOMPARE(process->read("mem", 10, content), Result::Unreadable);
    }

    void aReadOnlyFileIsNotReplaced()
    {
        const QString outcome = sandbox::inChild([&]() -> QString {
            // Nothing is read-only for root.
            if (::geteuid() == 0
                && (::chown(path({}).constData(), 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0))
                return u"no other user"_s;
            makeAndRead("a");
            ::chmod(path("a").constData(), 0444);
            if (confined->read("a", 10, old) != Result::Done
                || confined->replace(spot, "ours", old) != Result::Unwritable)
                return u"replaced"_s;
            ::chmod(path({}).constData(), 0555);
            spot.name = "b";
            return confined->create(spot, "ours") == Result::Unwritable ? u"refused"_s : u"made"_s;
        });
        QCOMPARE(outcome, u"refused"_s);
        QCOMPARE(bytesOrKind(path("a")), "old");
        QCOMPARE(everything(), QStringList{u"a"_s});
    }

    void aReplacedFileKeepsItsModeAndOwner()
    {
        const mode_t mask = ::umask(027);
        makeAndRead("new/a");
        ::umask(mask);
        struct stat status;
        QCOMPARE(::stat(path("new").constData(), &status), 0);
        QCOMPARE(status.st_mode & 07777, 0750U);
        QCOMPARE(old.mode & 07777, 0640U);

        const bool isRoot = ::geteuid() == 0; // who alone may give files away, and must before it sets the mode
        QCOMPARE(isRoot ? ::chown(path("new/a").constData(), 1234, 5678) : 0, 0);
        QCOMPARE(::chmod(path("new/a").constData(), 0707), 0);
        QCOMPARE(confined->read("new/a", 10, old), Result::Done);
        QCOMPARE(confined->replace(spot, "ours", old), Result::Done);
        QCOMPARE(::stat(path("new/a").constData(), &status), 0);
        QCOMPARE(status.st_mode & 07777, 0707U);
        QVERIFY(!isRoot || (status.st_uid == 1234 && status.st_gid == 5678));
    }

    void timesAreTrustedOnAnOverlay()
    {
        const QString outcome = sandbox::inChild([&]() -> QString {
            const QByteArray disk = path("disk");
            ::mkdir(disk.constData(), 0777);
            if (!sandbox::haveOwnMounts() || ::mount("tmpfs", disk.constData(), "tmpfs", 0, nullptr) != 0)
                return u"no mounts"_s;
            for (const char *name : {"/lower", "/upper", "/work", "/top"})
                ::mkdir((disk + name).constData(), 0777);
            const QByteArray layers
                = "lowerdir=" + disk + "/lower,upperdir=" + disk + "/upper,workdir=" + disk + "/work";
            if (::mount("overlay", (disk + "/top").constData(), "overlay", 0, layers.constData()) != 0)
                return u"no mounts"_s;
            saveShort(disk + "/top/a", "1", 0);
            const auto there = ConfinedFolder::hold(disk + "/top");
            const auto stamp = there->stamp("a");
            return stamp && there->read("a", 10, old) == Result::Done && old.stamp == stamp ? u"trusted"_s : u"not"_s;
        });
        if (outcome == "no mounts"_L1)
            QSKIP("no mounts of its own");
        QCOMPARE(outcome, u"trusted"_s);
    }

private:
    /// A file that the system has made and read.
    void makeAndRead(const QByteArray &name)
    {
        QCOMPARE(confined->makeParent(name, spot), Result::Done);
        QCOMPARE(confined->create(spot, "old"), Result::Done);
        QCOMPARE(confined->read(name, 10, old), Result::Done);
    }
    QByteArray path(const QByteArray &name) const { return QFile::encodeName(folder->path()) + '/' + name; }
    QStringList everything(const QString &name = {}) const { return everythingIn(folder->filePath(name)); }

    std::unique_ptr<QTemporaryDir> folder;
    std::optional<ConfinedFolder> confined;
    ConfinedFolder::Spot spot;
    ConfinedFolder::Content old;
};

SANDBOXED_TEST_MAIN(ConfinedFolderTest)
#include "tst_confined_folder.moc"
