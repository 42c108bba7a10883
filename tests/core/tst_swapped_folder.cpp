#include "files.h"
#include "helpers.h"
#include "sandbox.h"
#include "store.h"
#include "workspace.h"

#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int operations = 100000;

} // namespace

/// Somebody swaps a folder of the project for a link to one outside, without pause, while the project's files are read
/// and written: `project/d` is the folder and `project/l` the link, then the other way round.
class SwappedFolderTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        top = std::make_unique<QTemporaryDir>(sandbox::memoryTemplate());
        QVERIFY(QDir(top->path()).mkpath(u"project/d"_s));
        QVERIFY(QDir(top->path()).mkpath(u"outside"_s));
        for (const char *name : {"read", "written"})
            saveShort(path(u"outside/"_s + QString::fromLatin1(name)), "secret");
        for (int i = 0; i < operations / 25; ++i)
            saveShort(path(u"outside/new%1"_s.arg(i)), "1");
        QCOMPARE(::symlink("../outside", path(u"project/l"_s).constData()), 0);
        saveShort(path(u"project/d/read"_s), "inside");
        store = std::make_unique<Store>(top->filePath(u"store.sqlite"_s));
    }

    void cleanup()
    {
        isOver = true;
        if (swapper.joinable())
            swapper.join();
        isOver = false;
        store.reset();
        top.reset();
    }

    void nothingOutsideIsReadOrTouched_data()
    {
        QTest::addColumn<ConfinedFolder::Walk>("walk");
        QTest::newRow("the kernel walks") << ConfinedFolder::Walk::InKernel;
        QTest::newRow("component by component") << ConfinedFolder::Walk::ByComponent;
    }

    void nothingOutsideIsReadOrTouched()
    {
        QFETCH(ConfinedFolder::Walk, walk);
        Workspace workspace(*store, walk);
        workspace.open(top->filePath(u"project"_s), u"p"_s);
        int revision = workspace.write(u"d/written"_s, "0", u"me"_s, 0)["revision"_L1].toInt();
        const QStringList before = outside();
        swapper = std::thread([this, folder = path(u"project/d"_s), link = path(u"project/l"_s)] {
            while (!isOver)
                ::renameat2(AT_FDCWD, folder.constData(), AT_FDCWD, link.constData(), RENAME_EXCHANGE);
        });

        const auto confined = ConfinedFolder::hold(path(u"project"_s), walk);
        QVERIFY(confined.has_value());
        int refused = 0;
        int made = 0;
        int removed = 0;
        for (int i = 0; i < operations; ++i) {
            try {
                if (i % 25 == 0)
                    revision = workspace.write(u"d/written"_s, QByteArray::number(i), u"me"_s, revision)["revision"_L1]
                                   .toInt();
                else if (i % 25 == 1)
                    made += workspace.write(u"d/new%1"_s.arg(made), "1", u"me"_s, 0)["revision"_L1].toInt();
                else if (i % 25 == 2)
                    removed += confined->remove("d/new" + QByteArray::number(made - 1), {"1"})
                        == ConfinedFolder::Result::Done;
                else
                    QCOMPARE(workspace.read(u"d/read"_s), "inside");
            } catch (const std::runtime_error &error) {
                QCOMPARE(textOf(error), u"Symlink paths are not allowed"_s);
                ++refused;
            }
        }
        isOver = true;
        swapper.join();

        qInfo("%d refused, %d revisions, %d new files, %d removed", refused, revision, made, removed);
        QCOMPARE(outside(), before);
        QVERIFY(refused > operations / 100);
        QVERIFY(refused < operations - operations / 100);
        QVERIFY(revision > 1 && made > 0 && removed > 0);
        const bool isBack = shortContentOf(path(u"project/d/read"_s)) == "inside";
        const QDir folder(top->filePath(isBack ? u"project/d"_s : u"project/l"_s));
        QCOMPARE(folder.entryList(QDir::Files | QDir::Hidden).size(), made - removed + 2);
    }

private:
    QByteArray path(const QString &name) const { return QFile::encodeName(top->filePath(name)); }

    /// Each file outside with its content and the time of its last change.
    QStringList outside() const
    {
        QStringList found;
        const QFileInfoList files
            = QDir(top->filePath(u"outside"_s)).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System);
        for (const QFileInfo &file : files) {
            struct stat status = {};
            ::stat(QFile::encodeName(file.filePath()).constData(), &status);
            found += u"%1 %2 %3.%4"_s
                         .arg(file.fileName(), QString::fromUtf8(shortContentOf(QFile::encodeName(file.filePath()))))
                         .arg(status.st_ctim.tv_sec)
                         .arg(status.st_ctim.tv_nsec);
        }
        return found;
    }

    std::unique_ptr<QTemporaryDir> top;
    std::unique_ptr<Store> store;
    std::atomic<bool> isOver = false;
    std::thread swapper;
};

QTEST_GUILESS_MAIN(SwappedFolderTest)
#include "tst_swapped_folder.moc"
