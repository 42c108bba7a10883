#include "confined_folder.h"
#include "files.h"
#include "sandbox.h"

#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <functional>
#include <thread>

using namespace Qt::StringLiterals;
using namespace vesk;
using Result = ConfinedFolder::Result;

namespace {

constexpr int versions = 4000;
constexpr int rounds = 50;

void saveInPlace(const QByteArray &path, const QByteArray &bytes)
{
    saveShort(path, bytes, O_TRUNC);
}

void saveByRenaming(const QByteArray &path, const QByteArray &bytes)
{
    saveInPlace(path + '~', bytes);
    ::rename((path + '~').constData(), path.constData());
}

int versionIn(const QByteArray &bytes)
{
    return bytes.split(' ').first().toInt();
}

} // namespace

/// A user who saves a file without pause while the system replaces it.
///
/// The user's version n is the text "n". The system writes "n +" where n is the newest version in what it replaced. So
/// a version is lost when the file, some time after it was saved, holds an older one.
class SavedMeanwhileTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        folder = std::make_unique<QTemporaryDir>(sandbox::memoryTemplate());
        file = QFile::encodeName(folder->filePath(u"a"_s));
        confined = ConfinedFolder::hold(QFile::encodeName(folder->path()));
        QVERIFY(confined.has_value());
    }

    void noVersionIsLost_data()
    {
        QTest::addColumn<bool>("inPlace");
        QTest::addColumn<int>("burst");
        QTest::newRow("by renaming") << false << 1;
        QTest::newRow("by renaming, in bursts") << false << 7;
        QTest::newRow("in place") << true << 1;
        QTest::newRow("in place, in bursts") << true << 7;
    }

    void noVersionIsLost()
    {
        QFETCH(bool, inPlace);
        QFETCH(int, burst);
        Count count;
        // On a busy machine the two may take turns in a whole round without meeting.
        for (int round = 0; round < rounds && (count.replaced == 0 || count.refused == 0); ++round) {
            count = run(inPlace ? saveInPlace : saveByRenaming, [this] { return replaceConfined(); }, burst);
            QCOMPARE(count.lost, 0);
        }
        qInfo("%d saved, %d replaced, %d refused", count.saved, count.replaced, count.refused);
        QVERIFY(count.replaced > 0);
        QVERIFY(count.refused > 0);
        QCOMPARE(QDir(folder->path()).count(), 3U);
    }

private:
    struct Count {
        int saved = 0;
        int lost = 0;
        int replaced = 0;
        int refused = 0;
    };
    using Save = std::function<void(const QByteArray &file, const QByteArray &bytes)>;
    using Replace = std::function<bool()>;

    /// The user saves `burst` versions in a row, then looks whether the last of them is there.
    Count run(const Save &save, const Replace &replace, int burst) const
    {
        Count count;
        saveByRenaming(file, "0");
        std::atomic<bool> isDone = false;
        std::thread user([&] {
            while (count.saved < versions && count.lost == 0) {
                for (int i = 0; i < burst; ++i)
                    save(file, QByteArray::number(++count.saved));
                // For some microseconds of an exchange that is taken back the other version shows.
                int looks = 0;
                while (versionIn(shortContentOf(file)) != count.saved && ++looks < 200)
                    ::usleep(1000);
                count.lost += looks == 200;
            }
            isDone = true;
        });
        while (!isDone)
            ++(replace() ? count.replaced : count.refused);
        user.join();
        return count;
    }

    bool replaceConfined()
    {
        ConfinedFolder::Spot spot;
        ConfinedFolder::Content old;
        if (confined->read("a", 64, old) != Result::Done || old.bytes.isEmpty())
            return false;
        return confined->makeParent("a", spot) == Result::Done
            && confined->replace(spot, old.bytes.split(' ').first() + " +", old) == Result::Done;
    }

    std::unique_ptr<QTemporaryDir> folder;
    std::optional<ConfinedFolder> confined;
    QByteArray file;
};

QTEST_APPLESS_MAIN(SavedMeanwhileTest)
#include "tst_saved_meanwhile.moc"
