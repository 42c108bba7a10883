#include "folder_lock.h"
#include "sandbox.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace vesk;
using Outcome = FolderLock::Outcome;

class FolderLockTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void oneObjectHoldsItAtATime();
    void anotherProcessHoldsItUntilItIsKilled();
    void aFolderThatIsNotThereCannotBeLocked();
    void nothingIsLeftInTheFolder();

private:
    QTemporaryDir folder;
};

void FolderLockTest::oneObjectHoldsItAtATime()
{
    auto first = std::make_unique<FolderLock>(folder.path());
    QCOMPARE(first->outcome(), Outcome::Held);
    QCOMPARE(FolderLock(folder.path() + u"/."_s).outcome(), Outcome::Busy);
    first.reset();
    QCOMPARE(FolderLock(folder.path()).outcome(), Outcome::Held);
}

void FolderLockTest::anotherProcessHoldsItUntilItIsKilled()
{
    sandbox::Worker worker([&](const std::function<void()> &ready) {
        const FolderLock lock(folder.path());
        ready();
        ::pause();
    });
    QCOMPARE(FolderLock(folder.path()).outcome(), Outcome::Busy);
    worker.kill();
    QCOMPARE(FolderLock(folder.path()).outcome(), Outcome::Held);
}

void FolderLockTest::aFolderThatIsNotThereCannotBeLocked()
{
    QCOMPARE(FolderLock(folder.filePath(u"missing"_s)).outcome(), Outcome::Unavailable);
    QCOMPARE(FolderLock({}).outcome(), Outcome::Unavailable);
}

void FolderLockTest::nothingIsLeftInTheFolder()
{
    const FolderLock lock(folder.path());
    QVERIFY(QDir(folder.path()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot));
}

QTEST_APPLESS_MAIN(FolderLockTest)
#include "tst_folder_lock.moc"
