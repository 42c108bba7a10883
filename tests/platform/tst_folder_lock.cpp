#include "folder_lock.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace vesk;
using Outcome = FolderLock::Outcome;

class FolderLockTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void oneObjectHoldsItAtATime()
    {
        auto first = std::make_unique<FolderLock>(folder.path());
        QCOMPARE(first->outcome(), Outcome::Held);
        QCOMPARE(FolderLock(folder.path() + u"/."_s).outcome(), Outcome::Busy);
        first.reset();
        QCOMPARE(FolderLock(folder.path()).outcome(), Outcome::Held);
    }

    void aFolderThatIsNotThereCannotBeLocked()
    {
        QCOMPARE(FolderLock(folder.filePath(u"missing"_s)).outcome(), Outcome::Unavailable);
        QCOMPARE(FolderLock({}).outcome(), Outcome::Unavailable);
    }

private:
    QTemporaryDir folder;
};

QTEST_APPLESS_MAIN(FolderLockTest)
#include "tst_folder_lock.moc"
