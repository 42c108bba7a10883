// What of a folder becomes a project's, and how a project's files leave it.

#include "error_of.h"
#include "export_files.h"
#include "files.h"
#include "sandbox.h"
#include "store.h"
#include "take_in.h"
#include "workspace.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <ctime>

#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace vesk;

class TakeInTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        top = std::make_unique<QTemporaryDir>(sandbox::memoryTemplate());
        store = std::make_unique<Store>(top->filePath(u"store.sqlite"_s));
        workspace = std::make_unique<Workspace>(*store);
        workspace->open(top->filePath(u"project"_s), u"p"_s);
    }
    void cleanup()
    {
        workspace.reset();
        store.reset();
        top.reset();
    }

    void patternsAreThoseOfGit_data()
    {
        QTest::addColumn<QString>("rules");
        QTest::addColumn<QString>("left");
        QTest::addColumn<QString>("taken");
        QTest::newRow("name") << u"*.log\n# c\n\n\\#x"_s << u"a.log d/e/a.log #x"_s << u"a.logs log # c"_s;
        QTest::newRow("folder") << u"tmp/"_s << u"tmp/ d/tmp/"_s << u"tmp d/tmp"_s;
        QTest::newRow("anchored") << u"/a\nd/*.txt"_s << u"a d/x.txt"_s << u"d/a e/d/x.txt d/e/x.txt"_s;
        QTest::newRow("deep") << u"**/x\na/**/z\nq/**"_s << u"x d/e/x a/z a/b/c/z q/w/e"_s << u"xx a/zz q"_s;
        QTest::newRow("back") << u"*.c\n!keep.c"_s << u"a.c d/a.c"_s << u"keep.c d/keep.c"_s;
        QTest::newRow("signs") << u"[a-c]?[!x].t\nw\\*"_s << u"a1y.t cZz.t w*"_s << u"d1y.t a1x.t w1 a/y.t"_s;
    }

    void patternsAreThoseOfGit()
    {
        QFETCH(QString, rules);
        QFETCH(QString, left);
        QFETCH(QString, taken);
        IgnoreRules ignored;
        ignored.add({}, rules);
        for (const bool isLeft : {true, false}) {
            const QStringList paths = (isLeft ? left : taken).split(u' ');
            for (const QString &path : paths) {
                const bool isFolder = path.endsWith(u'/');
                const QString plain = isFolder ? path.chopped(1) : path;
                QVERIFY2(ignored.leavesOut(plain, isFolder) == isLeft, qPrintable(path));
            }
        }
        IgnoreRules below;
        below.add(u"d"_s, rules);
        QVERIFY(!below.leavesOut(u"a.log"_s, false));
    }

    void secretsBuildsLinksAndLargeFilesStayOut()
    {
        for (const QString &name : {u"src/a.c"_s, u".gitignore"_s, u"sub/.veskignore"_s, u"sub/b"_s, u".env.example"_s,
                                    u".env"_s, u"x.pem"_s, u"id_rsa"_s, u"node_modules/m/index.js"_s, u"build/o"_s,
                                    u".git/config"_s, u"a.log"_s, u"sub/c.txt"_s, u"nul"_s})
            save(file(name), "1\n");
        save(file(u".gitignore"_s), "*.log\n");
        save(file(u"sub/.veskignore"_s), "c.*\n");
        save(file(u"big.bin"_s), QByteArray(1024 * 1024 + 1, '\0'));
        const QByteArray cut = QByteArray(8 * 1024 - 1, 'x') + "я"; // at the end of what is looked at
        save(file(u"big.txt"_s), cut + QByteArray(1024 * 1024, 'x'));
        save(file(u"huge.txt"_s), QByteArray(2 * 1024 * 1024 + 1, 'x'));
        QVERIFY(QFile::link(u"/etc"_s, file(u"link"_s)));

        QVERIFY(QDir().mkdir(file(u"many"_s)));
        for (int i = 0; i < 200; ++i)
            save(file(u"many/%1.log"_s.arg(i)), "1");

        TakeIn scan(*workspace);
        int pieces = 1;
        while (scan.lookOn())
            ++pieces;
        QVERIFY(pieces > 10); // a large folder is looked at in several
        QStringList paths;
        for (const TakeIn::File &each : scan.files())
            paths << each.path;
        paths.sort();
        QCOMPARE(paths.join(u' '), u".env.example .gitignore big.txt src/a.c sub/.veskignore sub/b"_s);
        QStringList reasons;
        for (const auto &[reason, count] : scan.leftOut().asKeyValueRange())
            reasons << reason + u' ' + QString::number(count);
        QCOMPARE(
            reasons.join(u", "_s),
            u".gitignore и .veskignore 202, больше 2 МиБ 1, ключи и пароли 3, не текст, больше 1 МиБ 1, "
            "недопустимые имена 1, сборка и зависимости 2, система версий 1, ссылки и другие файловые системы 1"_s);

        workspace->takeNew(paths + QStringList{u"gone"_s});
        workspace->takeNew(paths); // once more changes nothing
        QCOMPARE(workspace->files().size(), paths.size());
        QVERIFY(!workspace->latest(u"src/a.c"_s).contains("content"_L1));
        save(file(u"src/a.c"_s), "2\n");
        QCOMPARE(workspace->externalChanges(), QStringList{u"изменён src/a.c"_s});
        workspace->undoEdit(u"src/a.c"_s);
        QCOMPARE(contentOf(file(u"src/a.c"_s)), "1\n");
    }

    void aCopyLeavesWholeOrNotAtAll()
    {
        workspace->write(u"d/a.txt"_s, QByteArray(5000, 'a'), u"me"_s, 0);
        workspace->write(u"ё.sh"_s, "1", u"me"_s, 0);
        workspace->write(u"пусто"_s, "", u"me"_s, 0);
        QVERIFY(QFile::link(workspace->root(), top->filePath(u"way"_s)));
        save(file(u"secret"_s), "theirs");
        QFile::setPermissions(file(u"ё.sh"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        const QJsonArray records = workspace->checkpoint(u"t"_s, {})["files"_L1].toArray();
        workspace->write(u"d/a.txt"_s, "later", u"me"_s, 1);

        const QString folder = top->filePath(u"copy"_s);
        exportTo(records, folder);
        QCOMPARE(everythingIn(folder), (QStringList{u"d"_s, u"пусто"_s, u"ё.sh"_s}));
        QCOMPARE(contentOf(folder + u"/d/a.txt"_s), QByteArray(5000, 'a'));
        QVERIFY(QFileInfo(folder + u"/ё.sh"_s).isExecutable());
        for (const QString &bad : {folder, file(u"inside"_s), top->filePath(u"way/new/inside"_s), u"copy"_s})
            QVERIFY(!errorOf([&] { exportTo(records, bad); }).isEmpty());
        QVERIFY(!QFile::exists(file(u"inside"_s)));
        {
            FileExport broken(workspace->root(), top->filePath(u"half"_s));
            broken.add(u"a"_s, "1", 0644);
        }
        QCOMPARE(everythingIn(top->path()).filter(u"half"_s), QStringList());

        const QString python = QStandardPaths::findExecutable(u"python3"_s);
        if (python.isEmpty())
            QSKIP("python3 is not installed");
        exportTo(records, top->filePath(u"copy.zip"_s));
        QProcess reader;
        reader.start(python,
                     {u"-c"_s,
                      u"import sys,zipfile\nz=zipfile.ZipFile(sys.argv[1])\nassert z.testzip() is None\n"
                      "print([(i.filename,len(z.read(i)),oct(i.external_attr>>16)) for i in z.infolist()])"_s,
                      top->filePath(u"copy.zip"_s)});
        QVERIFY(reader.waitForFinished());
        QCOMPARE(QString::fromUtf8(reader.readAll()).trimmed(),
                 u"[('d/a.txt', 5000, '0o100644'), ('ё.sh', 1, '0o100700'), ('пусто', 0, '0o100644')]"_s);
    }

    void aKilledTakeInGoesOnAndTakesEachFileOnce()
    {
        QStringList paths;
        for (int i = 0; i < 600; ++i) {
            paths << u"f%1"_s.arg(i);
            save(file(paths.last()), QByteArray(2000, 'x') + QByteArray::number(i));
        }
        const QString root = workspace->root();
        int cut = 0;
        for (int round = 0; round < 200 && workspace->files().size() < paths.size(); ++round) {
            workspace.reset();
            store.reset();
            const pid_t child = ::fork();
            if (child == 0) {
                Store own(top->filePath(u"store.sqlite"_s));
                Workspace there(own);
                there.open(root, u"p"_s);
                for (qsizetype from = 0; from < paths.size(); from += 16)
                    there.takeNew(paths.mid(from, 16));
                ::_exit(0);
            }
            ::usleep(useconds_t(3000 + round * 1000)); // by and by long enough for some of them
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
            store = std::make_unique<Store>(top->filePath(u"store.sqlite"_s));
            workspace = std::make_unique<Workspace>(*store);
            workspace->open(root, u"p"_s);
            const qsizetype taken = workspace->files().size();
            cut += taken > 0 && taken < paths.size() ? 1 : 0;
            QCOMPARE(workspace->externalChanges(), QStringList());
        }
        QCOMPARE(workspace->files().size(), paths.size());
        QVERIFY(cut > 0); // some kill has come in the middle
        for (const QString &path : std::as_const(paths)) {
            QCOMPARE(workspace->revisions(path).size(), 1);
            QCOMPARE(workspace->recorded(path), contentOf(file(path)));
        }
    }

    void aFullDiskLeavesNothingHalfTakenOrHalfCopied()
    {
        const QString outcome = sandbox::inChild([&] {
            const QString disk = top->filePath(u"disk"_s);
            QDir().mkpath(disk);
            if (!sandbox::haveOwnMounts()
                || ::mount("tmpfs", QFile::encodeName(disk).constData(), "tmpfs", 0, "size=1m") != 0)
                return u"no mounts"_s;
            QStringList paths;
            for (int i = 0; i < 40; ++i) {
                paths << u"f%1"_s.arg(i);
                save(file(paths.last()), QByteArray(50000, char('a' + i % 26)));
            }
            Store small(disk + u"/s"_s);
            Workspace inside(small);
            inside.open(file({}), u"q"_s);
            QStringList told{errorOf([&] { inside.takeNew(paths); }).isEmpty() ? u"all"_s : u"refused"_s,
                             QString::number(inside.files().size())};
            for (const QString &name : {u"/copy"_s, u"/copy.zip"_s}) {
                told << errorOf([&] {
                            FileExport copy(inside.root(), disk + name);
                            for (quint32 i = 0; i < 60; ++i) {
                                QByteArray noise;
                                for (quint32 byte = 0; byte < 50000; ++byte)
                                    noise += char((byte * 2654435761U + i * 40503U) >> 11);
                                copy.add(QString::number(i), noise, 0644);
                            }
                            copy.finish();
                        }).section(u':', 0, 0);
            }
            told << everythingIn(disk).filter(u"copy"_s);
            ::mount("tmpfs", QFile::encodeName(disk).constData(), "tmpfs", MS_REMOUNT, "size=16m");
            inside.takeNew(paths);
            return told.join(u' ') + u' ' + QString::number(inside.files().size());
        });
        if (outcome == "no mounts"_L1)
            QSKIP("no mounts of one's own here");
        QCOMPARE(outcome, u"refused 0 Не удалось записать файл Не удалось записать файл 40"_s);
    }

    void tenThousandFilesTakeSeconds()
    {
        const QByteArray text = QByteArray(100, 'x') + '\n';
        for (int i = 0; i < 10000; ++i)
            save(file(u"d%1/f%2.txt"_s.arg(i % 100).arg(i)), QByteArray::number(i) + text.repeated(100));
        const auto spentMs = [start = std::clock()] { return (std::clock() - start) * 1000 / CLOCKS_PER_SEC; };
        TakeIn scan(*workspace);
        while (scan.lookOn()) { }
        const auto looked = spentMs();
        QCOMPARE(scan.files().size(), 10000);
        for (qsizetype from = 0; from < scan.files().size(); from += 16) {
            QStringList batch;
            for (qsizetype i = from; i < std::min<qsizetype>(from + 16, 10000); ++i)
                batch << scan.files()[i].path;
            workspace->takeNew(batch);
        }
        qInfo("of the processor's time: looked at in %ld ms, taken in after %ld ms", looked, spentMs());
        QVERIFY(spentMs() < 10000);
        QCOMPARE(workspace->files().size(), 10000);
        auto before = spentMs();
        QCOMPARE(workspace->handEdits().size(), 0);
        qInfo("first look for edits: %ld ms", spentMs() - before);
        before = spentMs();
        QCOMPARE(workspace->handEdits().size(), 0);
        qInfo("second look: %ld ms", spentMs() - before);
        before = spentMs();
        (void)workspace->checkpoint(u"t"_s, {});
        qInfo("checkpoint: %ld ms", spentMs() - before);
    }

private:
    void exportTo(const QJsonArray &records, const QString &target) const
    {
        FileExport copy(workspace->root(), target);
        for (const QJsonValue &record : records)
            copy.add(record["path"_L1].toString(), *workspace->bytesOf(record.toObject()),
                     record["mode"_L1].toInt(0644));
        copy.finish();
    }
    QString file(const QString &name) const { return top->filePath(u"project/"_s + name); }

    std::unique_ptr<QTemporaryDir> top;
    std::unique_ptr<Store> store;
    std::unique_ptr<Workspace> workspace;
};

QTEST_GUILESS_MAIN(TakeInTest)
#include "tst_take_in.moc"
