#include "secret_file.h"

#include "files.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vesk;

class SecretFileTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        folder = std::make_unique<QTemporaryDir>();
        QVERIFY(folder->isValid());
    }

    void eachTargetHasItsOwnLine()
    {
        QCOMPARE(file().read("a").outcome, SecretOutcome::Missing);
        QCOMPARE(file().remove("a").outcome, SecretOutcome::Missing);
        QVERIFY(QDir(folder->path()).isEmpty());
        for (const char *target : {"VESK:1", "VESK:12", "VESK:agent:x y\nz", "VESK:agent:Ёж"})
            QCOMPARE(file().save(target, SecretBytes(QString(target))).outcome, SecretOutcome::Done);
        QCOMPARE(content().count('\n'), 4);
        for (const char *target : {"VESK:1", "VESK:12", "VESK:agent:x y\nz", "VESK:agent:Ёж"})
            QCOMPARE(file().read(target).secret.text(), target);
        QCOMPARE(file().read("VESK:").outcome, SecretOutcome::Missing);

        file().remove("VESK:12");
        file().save("VESK:1", SecretBytes(QString("several\nlines")));
        QCOMPARE(file().read("VESK:1").secret.text(), "several\nlines");
        QCOMPARE(content().count('\n'), 3);
    }

    void theFileIsItsOwnersAloneWhateverTheMask()
    {
        for (const mode_t mask : {0, 022, 0277}) {
            const mode_t old = ::umask(mask);
            const SecretOutcome outcome = file().save("a", SecretBytes(QString("key"))).outcome;
            ::umask(old);
            QCOMPARE(outcome, SecretOutcome::Done);
            struct stat status;
            QCOMPARE(::stat(path().toLocal8Bit().constData(), &status), 0);
            QCOMPARE(status.st_mode & 07777, 0600U);
            QVERIFY(QFile::remove(path()));
        }
    }

    void aFileThatOthersMayOpenIsRefused()
    {
        for (const mode_t mode : {0604, 0640, 0602, 0620, 0610, 0666}) {
            write("a Zmlyc3Q=\n", mode);
            verifyRefused("0600");
            QCOMPARE(content(), "a Zmlyc3Q=\n");
            QCOMPARE(::chmod(path().toLocal8Bit().constData(), 0600), 0);
            QCOMPARE(file().read("a").secret.text(), "first");
        }
    }

    void whatIsNoPlainFileOfOnesOwnIsRefused_data()
    {
        using Make = std::function<bool(const QByteArray &path, const QByteArray &target)>;
        QTest::addColumn<Make>("make");
        QTest::addColumn<QString>("reason");
        QTest::newRow("link") << Make([](auto path, auto target) {
            return ::rename(path, target) == 0 && ::symlink(target, path) == 0;
        }) << "ссылка";
        QTest::newRow("dangling link") << Make([](auto path, auto target) {
            return ::unlink(path) == 0 && ::symlink(target, path) == 0;
        }) << "ссылка";
        QTest::newRow("FIFO") << Make([](auto path, auto) { return ::unlink(path) == 0 && ::mkfifo(path, 0600) == 0; })
                              << "не обычный файл";
        QTest::newRow("folder") << Make([](auto path, auto) { return ::unlink(path) == 0 && ::mkdir(path, 0700) == 0; })
                                << "не обычный файл";
        QTest::newRow("several names") << Make([](auto path, auto target) { return ::link(path, target) == 0; })
                                       << "несколько имён";
        QTest::newRow("huge") << Make([](auto path, auto) { return ::truncate(path, off_t(1) << 33) == 0; })
                              << "слишком велик";
        if (::geteuid() == 0) // who alone can give a file away
            QTest::newRow("somebody else's")
                << Make([](auto path, auto) { return ::chown(path, 65534, 65534) == 0; }) << "другому пользователю";
    }

    void whatIsNoPlainFileOfOnesOwnIsRefused()
    {
        QFETCH(std::function<bool(const QByteArray &, const QByteArray &)>, make);
        QFETCH(QString, reason);
        const QByteArray target = folder->filePath("target").toLocal8Bit();
        write("a Zmlyc3Q=\n");
        QVERIFY(make(path().toLocal8Bit(), target));
        const QByteArray existed = contentOf(folder->filePath("target"));
        verifyRefused(reason);
        QCOMPARE(QFileInfo(path()).isSymLink(), reason == "ссылка");
        QCOMPARE(contentOf(folder->filePath("target")), existed);
    }

    void aBrokenRecordIsNoSecretAndCanBeReplaced()
    {
        write("a Zmly*c3Q=\nb b3RoZXI=\n");
        const SecretAnswer broken = file().read("a");
        QCOMPARE(broken.outcome, SecretOutcome::Failed);
        QVERIFY(broken.reason.contains("повреждена"));
        QCOMPARE(broken.secret.text(), QString());

        QCOMPARE(file().save("a", SecretBytes(QString("new"))).outcome, SecretOutcome::Done);

        QCOMPARE(content(), "b b3RoZXI=\na bmV3\n");
    }

    void linesOfAnotherFormAreKept()
    {
        for (const QByteArray &before :
             {QByteArray("# by hand\n\n\na\n{\"a\": \"b\"}\n"), QByteArray("\0\xff\xfe \x80\n", 6)}) {
            write(before + "no newline");
            QCOMPARE(file().read("a").outcome, SecretOutcome::Missing);
            QCOMPARE(file().save("a", SecretBytes(QString("new"))).outcome, SecretOutcome::Done);
            QCOMPARE(content(), before + "no newline\na bmV3\n");
        }
    }

    void whatAKilledWriterLeftIsReplaced()
    {
        write("a Zmlyc3Q=\n");
        QVERIFY(QFile::rename(path(), path() + ".tmp"));
        QCOMPARE(file().save("b", SecretBytes(QString("other"))).outcome, SecretOutcome::Done);
        QCOMPARE(content(), "b b3RoZXI=\n");
        QVERIFY(!QFile::exists(path() + ".tmp"));
    }

    void aFolderThatTakesNoFileIsToldAndTheOldFileStays()
    {
        write("a Zmlyc3Q=\n");
        // Nothing can take the temporary name from a folder that isn't empty, not even for root.
        QVERIFY(QDir(folder->path()).mkpath("credentials.tmp/taken"));

        const SecretAnswer answer = file().save("a", SecretBytes(QString("new")));

        QCOMPARE(answer.outcome, SecretOutcome::Failed);
        QVERIFY2(answer.reason.contains("не записывается"), qPrintable(answer.reason));
        QCOMPARE(content(), "a Zmlyc3Q=\n");
    }

    void aBusyFileIsWaitedForAndThenToldOf()
    {
        write("a Zmlyc3Q=\n");
        QFile lock(folder->filePath("credentials.lock"));
        QVERIFY(lock.open(QFile::ReadWrite));
        QCOMPARE(::flock(lock.handle(), LOCK_EX), 0);
        QElapsedTimer timer;
        timer.start();

        const SecretAnswer answer = file().save("a", SecretBytes(QString("new")));

        QCOMPARE(answer.outcome, SecretOutcome::Failed);
        QVERIFY2(answer.reason.contains("занят"), qPrintable(answer.reason));
        QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(file().read("a").secret.text(), "first");
        QCOMPARE(::flock(lock.handle(), LOCK_UN), 0);
        QCOMPARE(file().save("a", SecretBytes(QString("new"))).outcome, SecretOutcome::Done);
    }

private:
    QString path() const { return folder->filePath("credentials"); }
    SecretFile file() const { return SecretFile(folder->path()); }

    QByteArray content() const { return contentOf(path()); }

    void write(const QByteArray &bytes, mode_t mode = 0600) const
    {
        ::save(path(), bytes);
        QCOMPARE(::chmod(path().toLocal8Bit().constData(), mode), 0);
    }

    /// Neither reads nor writes, says why, and the file is as it was.
    void verifyRefused(const QString &reason) const
    {
        const SecretAnswer read = file().read("a");
        const SecretAnswer saved = file().save("a", SecretBytes(QString("new")));
        const SecretAnswer removed = file().remove("a");

        for (const SecretAnswer *answer : {&read, &saved, &removed}) {
            QCOMPARE(answer->outcome, SecretOutcome::Failed);
            QVERIFY2(answer->reason.contains(reason), qPrintable(answer->reason));
        }
        QCOMPARE(read.secret.text(), QString());
        QVERIFY(!QFile::exists(path() + ".tmp"));
    }

    std::unique_ptr<QTemporaryDir> folder;
};

QTEST_GUILESS_MAIN(SecretFileTest)
#include "tst_secret_file.moc"
