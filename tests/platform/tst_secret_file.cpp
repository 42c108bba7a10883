#include "secret_file.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vesk;

class SecretFileTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void aSecretComesBackExactly_data();
    void aSecretComesBackExactly();
    void eachTargetHasItsOwnLine();
    void whatIsReplacedIsGone();
    void aRemovedSecretIsGoneAndTheOthersStay();
    void readingAndRemovingLeaveAnEmptyFolderEmpty();
    void theFolderIsMade();
    void theFileIsItsOwnersAloneWhateverTheMask_data();
    void theFileIsItsOwnersAloneWhateverTheMask();
    void aFileThatOthersMayOpenIsRefused_data();
    void aFileThatOthersMayOpenIsRefused();
    void somebodyElsesFileIsRefused();
    void whatIsNoPlainFileIsRefused_data();
    void whatIsNoPlainFileIsRefused();
    void aFileWithSeveralNamesIsRefused();
    void aHugeFileIsRefused();
    void aBrokenRecordIsNoSecretAndCanBeReplaced();
    void linesOfAnotherFormAreKept_data();
    void linesOfAnotherFormAreKept();
    void whatAKilledWriterLeftIsReplaced();
    void aFolderThatTakesNoFileIsToldAndTheOldFileStays();
    void aBusyFileIsWaitedForAndThenToldOf();

private:
    QString path() const { return folder->filePath("credentials"); }
    SecretFile file() const { return SecretFile(folder->path()); }
    QByteArray content() const;
    void write(const QByteArray &bytes, mode_t mode = 0600) const;
    /// Neither reads nor writes, says why, and the file is as it was.
    void verifyRefused(const QString &reason) const;

    std::unique_ptr<QTemporaryDir> folder;
};

void SecretFileTest::init()
{
    folder = std::make_unique<QTemporaryDir>();
    QVERIFY(folder->isValid());
}

QByteArray SecretFileTest::content() const
{
    QFile opened(path());
    return opened.open(QFile::ReadOnly) ? opened.readAll() : QByteArray();
}

void SecretFileTest::write(const QByteArray &bytes, mode_t mode) const
{
    QFile opened(path());
    QVERIFY(opened.open(QFile::WriteOnly));
    opened.write(bytes);
    opened.close();
    QCOMPARE(::chmod(path().toLocal8Bit().constData(), mode), 0);
}

void SecretFileTest::verifyRefused(const QString &reason) const
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

void SecretFileTest::aSecretComesBackExactly_data()
{
    QTest::addColumn<QString>("secret");
    QTest::newRow("plain") << "sk-abc_DEF-123";
    QTest::newRow("empty") << "";
    QTest::newRow("not Latin") << "пароль-Ё-🔑";
    QTest::newRow("several lines") << "one\ntwo\r\n\n three ";
    QTest::newRow("long") << QString(100000, 'x');
}

void SecretFileTest::aSecretComesBackExactly()
{
    QFETCH(QString, secret);

    QCOMPARE(file().save("VESK:1", SecretBytes(secret)).outcome, SecretOutcome::Done);

    const SecretAnswer answer = file().read("VESK:1");
    QCOMPARE(answer.outcome, SecretOutcome::Done);
    QCOMPARE(answer.secret.text(), secret);
}

void SecretFileTest::eachTargetHasItsOwnLine()
{
    for (const char *target : {"VESK:1", "VESK:12", "VESK:agent:x y\nz", "VESK:agent:Ёж"})
        QCOMPARE(file().save(target, SecretBytes(QString(target))).outcome, SecretOutcome::Done);

    QCOMPARE(content().count('\n'), 4);
    QVERIFY(content().startsWith("VESK:1 VkVTSzox\n"));
    for (const char *target : {"VESK:1", "VESK:12", "VESK:agent:x y\nz", "VESK:agent:Ёж"})
        QCOMPARE(file().read(target).secret.text(), target);
    QCOMPARE(file().read("VESK:").outcome, SecretOutcome::Missing);
}

void SecretFileTest::whatIsReplacedIsGone()
{
    file().save("a", SecretBytes(QString("first")));
    file().save("b", SecretBytes(QString("other")));

    QCOMPARE(file().save("a", SecretBytes(QString("second"))).outcome, SecretOutcome::Done);

    QCOMPARE(content(), "b b3RoZXI=\na c2Vjb25k\n");
}

void SecretFileTest::aRemovedSecretIsGoneAndTheOthersStay()
{
    file().save("a", SecretBytes(QString("first")));
    file().save("b", SecretBytes(QString("other")));

    QCOMPARE(file().remove("a").outcome, SecretOutcome::Done);

    QCOMPARE(content(), "b b3RoZXI=\n");
    QCOMPARE(file().remove("a").outcome, SecretOutcome::Missing);
}

void SecretFileTest::readingAndRemovingLeaveAnEmptyFolderEmpty()
{
    QCOMPARE(file().read("a").outcome, SecretOutcome::Missing);
    QCOMPARE(file().remove("a").outcome, SecretOutcome::Missing);

    QVERIFY(QDir(folder->path()).isEmpty());
}

void SecretFileTest::theFolderIsMade()
{
    const SecretFile deeper(folder->filePath("one/two"));
    QCOMPARE(deeper.read("a").outcome, SecretOutcome::Missing);

    QCOMPARE(deeper.save("a", SecretBytes(QString("key"))).outcome, SecretOutcome::Done);

    QCOMPARE(deeper.read("a").secret.text(), "key");
}

void SecretFileTest::theFileIsItsOwnersAloneWhateverTheMask_data()
{
    QTest::addColumn<int>("mask");
    QTest::newRow("no mask") << 0;
    QTest::newRow("usual") << 022;
    QTest::newRow("even the owner's writing") << 0277;
}

void SecretFileTest::theFileIsItsOwnersAloneWhateverTheMask()
{
    QFETCH(int, mask);
    const mode_t old = ::umask(mode_t(mask));
    const SecretOutcome outcome = file().save("a", SecretBytes(QString("key"))).outcome;
    ::umask(old);

    QCOMPARE(outcome, SecretOutcome::Done);
    struct stat status;
    QCOMPARE(::stat(path().toLocal8Bit().constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, 0600U);
}

void SecretFileTest::aFileThatOthersMayOpenIsRefused_data()
{
    QTest::addColumn<int>("mode");
    for (const int mode : {0604, 0640, 0644, 0602, 0620, 0610, 0666})
        QTest::addRow("%o", unsigned(mode)) << mode;
}

void SecretFileTest::aFileThatOthersMayOpenIsRefused()
{
    QFETCH(int, mode);
    write("a Zmlyc3Q=\n", mode_t(mode));

    verifyRefused("0600");

    QCOMPARE(content(), "a Zmlyc3Q=\n");
    QCOMPARE(::chmod(path().toLocal8Bit().constData(), 0600), 0);
    QCOMPARE(file().read("a").secret.text(), "first");
}

void SecretFileTest::somebodyElsesFileIsRefused()
{
    if (::geteuid() != 0)
        QSKIP("Only root can give a file away.");
    write("a Zmlyc3Q=\n");
    constexpr uid_t nobody = 65534;
    QCOMPARE(::chown(path().toLocal8Bit().constData(), nobody, nobody), 0);

    verifyRefused("другому пользователю");

    QCOMPARE(content(), "a Zmlyc3Q=\n");
}

void SecretFileTest::whatIsNoPlainFileIsRefused_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("reason");
    QTest::newRow("link") << "link" << "ссылка";
    QTest::newRow("dangling link") << "dangling" << "ссылка";
    QTest::newRow("FIFO") << "fifo" << "не обычный файл";
    QTest::newRow("folder") << "folder" << "не обычный файл";
}

void SecretFileTest::whatIsNoPlainFileIsRefused()
{
    QFETCH(QString, kind);
    QFETCH(QString, reason);
    const QByteArray target = folder->filePath("target").toLocal8Bit();
    write("a Zmlyc3Q=\n");
    if (kind == "link")
        QVERIFY(QFile::rename(path(), target));
    else
        QVERIFY(QFile::remove(path()));
    if (kind == "fifo")
        QCOMPARE(::mkfifo(path().toLocal8Bit().constData(), 0600), 0);
    else if (kind == "folder")
        QVERIFY(QDir().mkdir(path()));
    else
        QCOMPARE(::symlink(target.constData(), path().toLocal8Bit().constData()), 0);

    verifyRefused(reason);

    QCOMPARE(QFile::exists(target), kind == "link");
    QCOMPARE(QFileInfo(path()).isSymLink(), reason == "ссылка");
}

void SecretFileTest::aFileWithSeveralNamesIsRefused()
{
    write("a Zmlyc3Q=\n");
    QCOMPARE(::link(path().toLocal8Bit().constData(), folder->filePath("second").toLocal8Bit().constData()), 0);

    verifyRefused("несколько имён");
}

void SecretFileTest::aHugeFileIsRefused()
{
    write("a Zmlyc3Q=\n");
    QVERIFY(QFile::resize(path(), qint64(1) << 33));

    verifyRefused("слишком велик");
}

void SecretFileTest::aBrokenRecordIsNoSecretAndCanBeReplaced()
{
    write("a Zmly*c3Q=\nb b3RoZXI=\n");
    const SecretAnswer broken = file().read("a");
    QCOMPARE(broken.outcome, SecretOutcome::Failed);
    QVERIFY(broken.reason.contains("повреждена"));
    QCOMPARE(broken.secret.text(), QString());

    QCOMPARE(file().save("a", SecretBytes(QString("new"))).outcome, SecretOutcome::Done);

    QCOMPARE(content(), "b b3RoZXI=\na bmV3\n");
}

void SecretFileTest::linesOfAnotherFormAreKept_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::newRow("comment") << QByteArray("# by hand\n");
    QTest::newRow("empty lines") << QByteArray("\n\n");
    QTest::newRow("binary") << QByteArray("\0\xff\xfe \x80\n", 6);
    QTest::newRow("target alone") << QByteArray("a\n");
    QTest::newRow("JSON") << QByteArray("{\"a\": \"b\"}\n");
}

void SecretFileTest::linesOfAnotherFormAreKept()
{
    QFETCH(QByteArray, before);
    write(before + "no newline");
    QCOMPARE(file().read("a").outcome, SecretOutcome::Missing);

    QCOMPARE(file().save("a", SecretBytes(QString("new"))).outcome, SecretOutcome::Done);

    QCOMPARE(content(), before + "no newline\na bmV3\n");
}

void SecretFileTest::whatAKilledWriterLeftIsReplaced()
{
    write("a Zmlyc3Q=\n");
    QVERIFY(QFile::rename(path(), path() + ".tmp"));

    QCOMPARE(file().save("b", SecretBytes(QString("other"))).outcome, SecretOutcome::Done);

    QCOMPARE(content(), "b b3RoZXI=\n");
    QVERIFY(!QFile::exists(path() + ".tmp"));
}

void SecretFileTest::aFolderThatTakesNoFileIsToldAndTheOldFileStays()
{
    write("a Zmlyc3Q=\n");
    // Nothing can take the temporary name from a folder that isn't empty, not even for root.
    QVERIFY(QDir(folder->path()).mkpath("credentials.tmp/taken"));

    const SecretAnswer answer = file().save("a", SecretBytes(QString("new")));

    QCOMPARE(answer.outcome, SecretOutcome::Failed);
    QVERIFY2(answer.reason.contains("не записывается"), qPrintable(answer.reason));
    QCOMPARE(content(), "a Zmlyc3Q=\n");
}

void SecretFileTest::aBusyFileIsWaitedForAndThenToldOf()
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

QTEST_GUILESS_MAIN(SecretFileTest)
#include "tst_secret_file.moc"
