#include "confined_folder.h"
#include "files.h"
#include "sandbox.h"

#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>

#include <fcntl.h>
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
    QTest::newRow("a folder") << Deed([](const QByteArray &path) {
        ::unlink(path.constData());
        QCOMPARE(::mkdir(path.constData(), 0777), 0);
    });
    QTest::newRow("a link") << Deed([](const QByteArray &path) {
        ::unlink(path.constData());
        QCOMPARE(::symlink("../x", path.constData()), 0);
    });
    QTest::newRow("a fifo") << Deed([](const QByteArray &path) {
        ::unlink(path.constData());
        QCOMPARE(::mkfifo(path.constData(), 0666), 0);
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
        ConfinedFolder::Spot spot;
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
        ConfinedFolder::Spot spot;
        QCOMPARE(confined->makeParent("d/a", spot), Result::Done);
        QCOMPARE(confined->create(spot, "old"), Result::Done);
        ConfinedFolder::Content old;
        QCOMPARE(confined->read("d/a", 10, old), Result::Done);
        deed(path("d/a"));
        const QByteArray theirs = bytesOrKind(path("d/a"));
        const Result expected = theirs == "missing" ? Result::Missing : Result::Changed;

        QCOMPARE(confined->replace(spot, "ours", old), expected);
        QCOMPARE(bytesOrKind(path("d/a")), theirs);
        QCOMPARE(confined->remove("d/a", old), expected);
        QCOMPARE(bytesOrKind(path("d/a")), theirs);
        QCOMPARE(everything(u"d"_s), theirs == "missing" ? QStringList() : QStringList{u"a"_s});
    }

    void aFileHeldOpenForWritingIsLeftAlone()
    {
        ConfinedFolder::Spot spot;
        ConfinedFolder::Content old;
        QCOMPARE(confined->makeParent("a", spot), Result::Done);
        QCOMPARE(confined->create(spot, "old"), Result::Done);
        QCOMPARE(confined->read("a", 10, old), Result::Done);

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
            ConfinedFolder::Spot spot;
            ConfinedFolder::Content old;
            if (confined->makeParent("a", spot) != Result::Done || confined->create(spot, "old") != Result::Done
                || ::chmod(path("a").constData(), 0444) != 0 || confined->read("a", 10, old) != Result::Done)
                return u"not prepared"_s;
            if (confined->replace(spot, "ours", old) != Result::Unwritable)
                return u"replaced"_s;
            ::chmod(path({}).constData(), 0555);
            return confined->create({Descriptor(::dup(spot.folder.get())), "b"}, "ours") == Result::Unwritable
                ? u"refused"_s
                : u"made"_s;
        });
        QCOMPARE(outcome, u"refused"_s);
        QCOMPARE(bytesOrKind(path("a")), "old");
        QCOMPARE(everything(), QStringList{u"a"_s});
    }

    void aReplacedFileKeepsItsOwner()
    {
        if (::geteuid() != 0)
            QSKIP("only root writes as another user");
        ConfinedFolder::Spot spot;
        ConfinedFolder::Content old;
        QCOMPARE(confined->makeParent("a", spot), Result::Done);
        saveShort(path("a"), "old");
        QCOMPARE(::chown(path("a").constData(), 1234, 5678), 0);
        QCOMPARE(::chmod(path("a").constData(), 0640), 0);
        QCOMPARE(confined->read("a", 10, old), Result::Done);
        QCOMPARE(confined->replace(spot, "ours", old), Result::Done);

        struct stat status;
        QCOMPARE(::stat(path("a").constData(), &status), 0);
        QCOMPARE(status.st_uid, 1234U);
        QCOMPARE(status.st_gid, 5678U);
        QCOMPARE(status.st_mode & 07777, 0640U);
    }

    void aKilledWriterLeavesWholeFiles()
    {
        const QByteArray versions[] = {QByteArray(300000, 'a'), QByteArray(200000, 'b')};
        const auto isWhole = [&](const QByteArray &bytes) { return bytes == versions[0] || bytes == versions[1]; };
        int left = 0;
        for (int round = 0; round < 60; ++round) {
            sandbox::Worker worker([&](const std::function<void()> &ready) {
                ConfinedFolder::Spot spot;
                confined->makeParent("a", spot);
                confined->create(spot, versions[0]);
                ready();
                ConfinedFolder::Content old;
                for (int i = 0;; ++i) {
                    confined->read("a", 1 << 20, old);
                    confined->replace(spot, versions[i % 2], old);
                    confined->makeParent("new", spot);
                    confined->create(spot, versions[i % 2]);
                    confined->remove("new", {versions[i % 2]});
                    confined->makeParent("a", spot);
                }
            });
            ::usleep(useconds_t(round * 97 % 5000));
            worker.kill();
            QVERIFY(isWhole(bytesOrKind(path("a"))));
            QVERIFY(!QFile::exists(folder->filePath(u"new"_s)) || isWhole(bytesOrKind(path("new"))));
            QFile::remove(folder->filePath(u"new"_s));
            left += everything().size() > 1;
            confined->removeLeftovers({});
            QCOMPARE(everything(), QStringList{u"a"_s});
        }
        qInfo("temporary files were left and cleared %d times", left);
    }

private:
    QByteArray path(const QByteArray &name) const { return QFile::encodeName(folder->path()) + '/' + name; }
    QStringList everything(const QString &name = {}) const { return everythingIn(folder->filePath(name)); }

    std::unique_ptr<QTemporaryDir> folder;
    std::optional<ConfinedFolder> confined;
};

SANDBOXED_TEST_MAIN(ConfinedFolderTest)
#include "tst_confined_folder.moc"
