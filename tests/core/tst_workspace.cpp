#include "edit_look.h"
#include "error_of.h"
#include "files.h"
#include "json_text.h"
#include "sandbox.h"
#include "store.h"
#include "workspace.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDirIterator>
#include <QSet>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <memory>
#include <tuple>

#include <csignal>
#include <cstdio>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace vesk;

class WorkspaceTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        cleanup();
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

    void openRefusesWhatIsNoFolder()
    {
        save(top->filePath(u"file"_s), "x");
        QFile::link(u"nowhere"_s, top->filePath(u"dangling"_s));
        const QString before = workspace->root();
        const auto refusal
            = [&](const QString &folder) { return errorOf([&] { workspace->open(folder, u"other"_s); }); };
        QCOMPARE(refusal(u"some/folder"_s), u"Workspace must be an absolute folder"_s);
        QCOMPARE(refusal(top->filePath(u"file"_s)), u"Cannot create workspace"_s);
        QCOMPARE(refusal(top->filePath(u"dangling"_s)), u"Cannot create workspace"_s);
        QCOMPARE(refusal(u"/"_s), u"Invalid workspace"_s);
        QCOMPARE(workspace->root(), before);
        QCOMPARE(workspace->project(), u"p"_s);
    }

    void nothingIsReachedBeforeOpen()
    {
        Workspace fresh(*store);
        const QString error = u"Select a workspace first"_s;
        verifyRefused(fresh, u"a"_s, error);
        QCOMPARE(errorOf([&] { fresh.checkpoint(u"t"_s, {}); }), error);
        QCOMPARE(errorOf([&] { fresh.rollback(u"unknown"_s); }), error);
    }

    void aRootThatIsNoLongerThereEndsEverything()
    {
        for (const QString &instead : {u"nothing"_s, u"a link"_s, u"a folder"_s}) {
            init();
            workspace->write(u"a"_s, "1", u"me"_s, 0);
            QVERIFY(QDir(top->path()).rename(u"project"_s, u"elsewhere"_s));
            if (instead == u"a link"_s)
                QVERIFY(QFile::link(u"elsewhere"_s, top->filePath(u"project"_s)));
            if (instead == u"a folder"_s)
                QVERIFY(QDir(top->path()).mkdir(u"project"_s));
            verifyRefused(*workspace, u"a"_s, u"Workspace root changed or was redirected"_s);
            QCOMPARE(contentOf(top->filePath(u"elsewhere/a"_s)), "1");
        }
    }

    void resolveRefusesHostilePaths_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("error");
        const auto row = [](const QString &path, const char *error) {
            const QByteArray name = path.left(40).toUtf8().toPercentEncoding("/. :\\");
            QTest::newRow(name.isEmpty() ? "empty" : name.constData()) << path << QString::fromLatin1(error);
        };
        for (const QString &path : {u""_s, u"/x"_s, u"\\x"_s, u"//server/x"_s, u"C:/x"_s, u"a/b:stream"_s, u"a\0b"_s})
            row(path, "Invalid relative path");
        for (const QString &path : {u".."_s, u"."_s, u"../x"_s, u"a/../b"_s, u"./a"_s, u"a/."_s, u"a//b"_s, u"a/"_s,
                                    u"a\\..\\..\\b"_s, u"a."_s, u"a "_s, u"con."_s, u".git."_s, u".git "_s})
            row(path, "Unsafe path component");
        for (const QString &path :
             {u"a<b"_s, u"a\"b"_s, u"a|b"_s, u"a?"_s, u"*"_s, u"a\nb"_s, u"half"_s + QChar(0xd83d), u"a\u202eb"_s,
              u"a\u200b"_s, u"a\u2028b"_s, u"a\u0085b"_s, u"d/.vesk-1-0123456789abcdef.tmp"_s})
            row(path, "Invalid filename");
        for (const QString &path : {u"con"_s, u"docs/LPT1.md"_s, u"Prn"_s, u"nul.tar.gz"_s, u"com9"_s, u"NUL/x"_s})
            row(path, "Reserved device filename");
        for (const QString &path : {u".git"_s, u".GIT/config"_s, u"sub/.Git/hooks/x"_s, u"a\\.gIt\\x"_s})
            row(path, "Git metadata is protected");
        // The disk is asked up to the first bad name, so the fault further left is the one that is told.
        for (const QString &path :
             {u"link"_s, u"link/x"_s, u"link/deep/missing"_s, u"dangling/x"_s, u"loop"_s, u"inside/x"_s,
              u"folder/up/x"_s, u"link/con"_s, u"link/../x"_s, u"outside.txt"_s, u"proc"_s,
              u"link/"_s + u"я"_s.repeated(255), u"link"_s + u"/я"_s.repeated(2500)}) // NAME_MAX, PATH_MAX
            row(path, "Symlink paths are not allowed");
        row(u"con/link"_s, "Reserved device filename");
    }

    void resolveRefusesHostilePaths()
    {
        QFETCH(QString, path);
        QFETCH(QString, error);
        const QString root = workspace->root();
        QVERIFY(QDir(root).mkpath(u"folder"_s));
        QVERIFY(QDir(root).mkpath(u"../outside/deep"_s));
        save(top->filePath(u"outside/x"_s), "secret");
        for (const auto &[target, name] : {std::pair("../outside", "link"),
                                           {"nowhere", "dangling"},
                                           {"loop", "loop"},
                                           {"folder", "inside"},
                                           {"..", "folder/up"},
                                           {"../outside/x", "outside.txt"},
                                           {"/proc/self/cwd", "proc"}})
            QVERIFY(QFile::link(QString::fromLatin1(target), root + u'/' + QString::fromLatin1(name)));

        for (const auto walk : {ConfinedFolder::Walk::InKernel, ConfinedFolder::Walk::ByComponent}) {
            Workspace either(*store, walk);
            either.open(root, u"p"_s);
            verifyRefused(either, path, error);
        }
        QCOMPARE(everythingIn(top->filePath(u"outside"_s)), (QStringList{u"deep"_s, u"x"_s}));
        QCOMPARE(contentOf(top->filePath(u"outside/x"_s)), "secret");
        QCOMPARE(workspace->files(), QJsonArray());
    }

    void resolveGivesThePathAsWritten()
    {
        for (const QString &same : {u"a/b"_s, u".gitignore"_s, u"console.txt"_s, u"com10"_s, u"..a"_s, u" a"_s,
                                    u"документ ё/файл.txt"_s, u"🙂.md"_s, u"a.git"_s, u"~/x"_s, u"$HOME;&'`"_s})
            QCOMPARE(workspace->resolve(same), workspace->root() + u'/' + same);
        QCOMPARE(workspace->resolve(u"a\\b\\c"_s), workspace->root() + u"/a/b/c"_s);
    }

    void whatIsNoPlainFileIsRefused()
    {
        workspace->write(u"it"_s, "1", u"me"_s, 0);
        QVERIFY(QFile::remove(path(u"it"_s)));
        QCOMPARE(::mkfifo(QFile::encodeName(path(u"it"_s)).constData(), 0666), 0);
        QCOMPARE(errorOf([&] { workspace->read(u"it"_s); }), u"Cannot read it"_s);
        QCOMPARE(errorOf([&] { workspace->write(u"it"_s, "2", u"me"_s, 1); }), u"Cannot read it"_s);
    }

    void aRevisionHasItsFixedForm()
    {
        const QByteArray bytes = "\xEF\xBB\xBFтекст\n";
        const QJsonObject revision = workspace->write(u"src\\main.cpp"_s, bytes, u"agent"_s, 0);
        QJsonObject expected = object(uR"({'file_id':'p:src\\main.cpp','project_id':'p','path':'src\\main.cpp',
            'revision':1,'author_agent':'agent','status':'REVIEWING','content':'\uFEFFтекст\n'})"_s);
        expected[u"hash"_s] = digest(bytes);
        for (const QString &own : {u"id"_s, u"timestamp"_s})
            expected[own] = revision[own];
        QCOMPARE(revision, expected);
        QCOMPARE(contentOf(path(u"src/main.cpp"_s)), bytes);
        QCOMPARE(workspace->read(u"src/main.cpp"_s), bytes);
        QCOMPARE(store->get(u"file_revisions"_s, revision[u"id"_s].toString()), revision);
        QCOMPARE(workspace->files(), QJsonArray{revision});
    }

    void revisionsAreCountedAndCompared()
    {
        const auto revision = [&](const QByteArray &bytes, int expected) {
            return workspace->write(u"a"_s, bytes, u"me"_s, expected)["revision"_L1].toInt();
        };
        QVERIFY(!workspace->stale(u"a"_s, 0));
        QCOMPARE(revision("1", 0), 1);
        QCOMPARE(errorOf([&] { revision("2", 0); }), u"Stale revision: a"_s);
        QCOMPARE(errorOf([&] { revision("2", 2); }), u"Stale revision: a"_s);
        QCOMPARE(contentOf(path(u"a"_s)), "1");
        QCOMPARE(revision("2", 1), 2);
        QCOMPARE(revision("", -1), 3);
        QCOMPARE(revision("4", 3), 4);
        QVERIFY(workspace->stale(u"a"_s, 3));
        QVERIFY(!workspace->stale(u"a"_s, 4));
        QCOMPARE(errorOf([&] { workspace->write(u"new"_s, "1", u"me"_s, 1); }), u"Stale revision: new"_s);
        QCOMPARE(everythingIn(workspace->root()), QStringList{u"a"_s});
    }

    void theSystemOverwritesOnlyWhatItWroteItself()
    {
        save(path(u"untracked"_s), "theirs");
        QCOMPARE(errorOf([&] { workspace->write(u"untracked"_s, "x", u"me"_s, 0); }),
                 u"Existing/untracked or externally modified file: untracked"_s);
        QCOMPARE(contentOf(path(u"untracked"_s)), "theirs");
        workspace->write(u"a"_s, "1", u"me"_s, 0);
        save(path(u"a"_s), "edited");
        QCOMPARE(errorOf([&] { workspace->write(u"a"_s, "2", u"me"_s, 1); }),
                 u"Existing/untracked or externally modified file: a"_s);
        QCOMPARE(contentOf(path(u"a"_s)), "edited");
        save(path(u"a"_s), "1");
        QCOMPARE(workspace->write(u"a"_s, "2", u"me"_s, 1)["revision"_L1].toInt(), 2);
    }

    void aRemovedFileIsNotWrittenAgain()
    {
        workspace->write(u"d/a"_s, "1", u"me"_s, 0);
        QVERIFY(QDir(path(u"d"_s)).removeRecursively());
        QCOMPARE(errorOf([&] { workspace->write(u"d/a"_s, "2", u"me"_s, 1); }),
                 u"Tracked file removed externally: d/a"_s);
        QCOMPARE(errorOf([&] { workspace->read(u"d/a"_s); }), u"Cannot read d/a"_s);
        QVERIFY(everythingIn(workspace->root()).isEmpty());
    }

    void exactlyTwoMebibytesPass()
    {
        const QByteArray full(2097152, 'x');
        const QString error = u"File exceeds 2 MiB limit"_s;
        QCOMPARE(errorOf([&] { workspace->write(u"../a"_s, full + 'x', u"me"_s, 0); }), error);
        workspace->write(u"a"_s, full, u"me"_s, 0);
        QCOMPARE(workspace->read(u"a"_s), full);
        workspace->write(u"a"_s, "1", u"me"_s, 1);

        save(path(u"a"_s), full + 'x');
        QCOMPARE(errorOf([&] { workspace->read(u"a"_s); }), error);
        QCOMPARE(errorOf([&] { workspace->write(u"a"_s, "2", u"me"_s, 2); }), error);
        QCOMPARE(errorOf([&] { workspace->checkpoint(u"t"_s, {}); }), error);
        QCOMPARE(QFileInfo(path(u"a"_s)).size(), 2097153);
    }

    void aFileOnTheWayIsNoFolder()
    {
        workspace->write(u"a"_s, "1", u"me"_s, 0);
        QCOMPARE(errorOf([&] { workspace->write(u"a/b"_s, "1", u"me"_s, 0); }), u"Cannot create parent directory"_s);
        QCOMPARE(errorOf([&] { workspace->read(u"a/b"_s); }), u"Cannot read a/b"_s);
        QCOMPARE(errorOf([&] { workspace->write(QString(256, u'n'), "1", u"me"_s, 0); }),
                 u"Cannot write "_s + QString(256, u'n'));
        QCOMPARE(everythingIn(workspace->root()), QStringList{u"a"_s});
    }

    void externalChangesAreNamed()
    {
        for (const QString &name : {u"same"_s, u"changed"_s, u"gone"_s, u"link"_s})
            workspace->write(name, "1", u"me"_s, 0);
        QCOMPARE(workspace->externalChanges(), QStringList());
        const QString root = workspace->root();
        save(root + u"/changed"_s, "2");
        QFile::remove(root + u"/gone"_s);
        QFile::remove(root + u"/link"_s);
        QFile::link(root + u"/same"_s, root + u"/link"_s);
        QCOMPARE(workspace->externalChanges(),
                 (QStringList{u"изменён changed"_s, u"удалён gone"_s, u"не читается link"_s}));
    }

    void manyFilesAreLookedAtInSlices()
    {
        store->atomic([&] {
            for (int i = 0; i < 3000; ++i) {
                const QString name = QString::number(i);
                store->put(u"files"_s, u"p:"_s + name, u"p"_s, {{u"path"_s, name}, {u"hash"_s, u"x"_s}});
            }
        });
        EditLook look(*workspace);
        store->put(u"files"_s, u"p:2999"_s, u"p"_s, {{u"path"_s, u"2999"_s}, {u"deleted"_s, true}}); // meanwhile
        int slices = 1;
        while (look.lookOn())
            ++slices;
        QVERIFY(slices > 1);
        QCOMPARE(look.edits().size(), 2999);
        QCOMPARE(look.edits().constLast().text(), u"удалён 2998"_s);
    }

    void anEditIsSeenWhateverElseItLeavesTheSame()
    {
        // Files that were left alone for a while are known without being read again.
        for (const QString &name : {u"times"_s, u"other"_s, u"mode"_s, u"second"_s, u"same"_s})
            workspace->write(name, "1", u"me"_s, 0);
        const QString root = workspace->root();
        const auto folder = ConfinedFolder::hold(root.toUtf8());
        const auto isSettled = [&] {
            const auto stamp = folder->stamp("same");
            return !stamp || stamp->isSettled(QDateTime::currentMSecsSinceEpoch() * 1'000'000);
        };
        QTRY_VERIFY_WITH_TIMEOUT(isSettled(), 10000);
        QCOMPARE(workspace->externalChanges(), QStringList());
        const auto keepTimes = [&](const QString &name, const std::function<void()> &change) {
            struct stat old;
            ::stat(QFile::encodeName(root + u'/' + name).constData(), &old);
            change();
            const timespec times[] = {old.st_atim, old.st_mtim};
            ::utimensat(AT_FDCWD, QFile::encodeName(root + u'/' + name).constData(), times, 0);
        };
        keepTimes(u"times"_s, [&] { save(root + u"/times"_s, "2"); });
        keepTimes(u"other"_s, [&] {
            save(root + u"/new"_s, "2");
            std::rename(QFile::encodeName(root + u"/new"_s).constData(),
                        QFile::encodeName(root + u"/other"_s).constData());
        });
        ::chmod(QFile::encodeName(root + u"/mode"_s).constData(), 0755);
        ::link(QFile::encodeName(root + u"/second"_s).constData(),
               QFile::encodeName(root + u"/../second"_s).constData());
        QCOMPARE(workspace->externalChanges(),
                 (QStringList{u"изменён times"_s, u"изменён other"_s, u"не читается second"_s}));
        ::unlink(QFile::encodeName(root + u"/../second"_s).constData());
        workspace->takeEdit(u"times"_s);
        workspace->takeEdit(u"other"_s);
        QCOMPARE(workspace->checkpoint(u"t"_s, {})["files"_L1][0]["mode"_L1].toInt(), 0755);

        // One that is being written to looks the same from one write to the next, where the clock is coarse.
        constexpr qint64 second = 1'000'000'000;
        QVERIFY(!ConfinedFolder::Stamp{.modifiedNs = second}.isSettled(2 * second));
        QVERIFY(!ConfinedFolder::Stamp{.changedNs = second}.isSettled(2 * second));
        for (int i = 0; i < 300; ++i) {
            save(root + u"/same"_s, "1");
            QVERIFY(!workspace->handEdit(u"same"_s));
            save(root + u"/same"_s, "2");
            QVERIFY(workspace->handEdit(u"same"_s));
        }
    }

    void ofAnEditEitherSideIsTakenAndTheOtherKept()
    {
        const QByteArray binary("\0\xff\x80", 3);
        QCOMPARE(workspace->undoEdit(u"none"_s), QJsonObject());
        const QJsonObject first = workspace->write(u"a"_s, "1", u"me"_s, 0);
        QCOMPARE(workspace->takeEdit(u"a"_s), first);
        QCOMPARE(workspace->undoEdit(u"a"_s), first);

        save(path(u"a"_s), binary);
        QCOMPARE(workspace->takeEdit(u"a"_s)["author_agent"_L1], u"user"_s);
        QCOMPARE(workspace->recorded(u"a"_s), binary);
        QVERIFY(QFile::remove(path(u"a"_s)));
        workspace->undoEdit(u"a"_s); // revisions 3 and 4
        QCOMPARE(contentOf(path(u"a"_s)), binary);
        QVERIFY(QFile::remove(path(u"a"_s)));
        QCOMPARE(fields(workspace->takeEdit(u"a"_s), u"revision deleted status content"_s), u"5 true DELETED "_s);
        QCOMPARE(workspace->takeEdit(u"a"_s)["revision"_L1].toInt(), 5);

        save(path(u"a"_s), "new");
        QCOMPARE(workspace->externalChanges(), QStringList{u"добавлен a"_s});
        workspace->undoEdit(u"a"_s);
        QVERIFY(everythingIn(workspace->root()).isEmpty());
        QCOMPARE(workspace->externalChanges(), QStringList());
        QStringList history;
        for (const auto revisions = store->list(u"file_revisions"_s, u"p"_s); const QJsonValue &revision : revisions)
            history << fields(revision.toObject(), u"author_agent revision"_s);
        QCOMPARE(history.join(u' '), u"me 1 user 2 user 3 rollback 4 user 5 user 6"_s);
        QVERIFY(QDir().mkdir(path(u"a"_s)));
        QVERIFY(!workspace->handEdit(u"a"_s)); // what is no file can't be taken
        QVERIFY(QDir().rmdir(path(u"a"_s)));

        save(path(u"a"_s), QByteArray(2097153, 'x'));
        for (const auto &way : {&Workspace::takeEdit, &Workspace::undoEdit})
            QCOMPARE(errorOf([&] { (workspace.get()->*way)(u"a"_s); }), u"File exceeds 2 MiB limit"_s);
        QCOMPARE(QFileInfo(path(u"a"_s)).size(), 2097153);
    }

    void goingBackIsSeenBeforeAndUndoneAfter()
    {
        const QString start = withFiles();
        const QByteArray before = treeHash();
        workspace->write(u"d/changed"_s, "2", u"me"_s, 1);
        workspace->write(u"new"_s, "2", u"me"_s, 0);
        QVERIFY(QFile::remove(path(u"run.sh"_s)));
        workspace->takeEdit(u"run.sh"_s);
        save(path(u"foreign"_s), "theirs");
        QFile::setPermissions(path(u"new"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        const QByteArray after = treeHash();

        QStringList plan;
        for (const FileChange &change : workspace->restorePlan(start))
            plan << change.path;
        QCOMPARE(plan, (QStringList{u"d/changed"_s, u"new"_s, u"run.sh"_s}));
        QCOMPARE(treeHash(), after);
        QString way = start;
        for (int round = 0; round < 4; ++round) {
            way = restore(way);
            QCOMPARE(treeHash(), round % 2 == 0 ? before : after);
        }
        QCOMPARE(workspace->latest(u"same"_s)["revision"_L1].toInt(), 1); // what is the same isn't written

        save(path(u"new"_s), "edited");
        QCOMPARE(errorOf([&] { workspace->beginRestore(start); }), u"Rollback conflict: external changes"_s);
        QVERIFY(!workspace->isRestoring());
        workspace->takeEdit(u"new"_s);
        workspace->restoreRevision(u"new"_s, 1);
        QCOMPARE(contentOf(path(u"new"_s)), "2");
        QCOMPARE(workspace->latest(u"new"_s)["author_agent"_L1], u"rollback"_s);

        workspace->beginRestore(start);
        save(path(u"new"_s), "mine");
        while (workspace->restoreNext()) { }
        QCOMPARE(workspace->restoreSkipped(), QStringList{u"new"_s});
        QCOMPARE(contentOf(path(u"new"_s)), "mine");
    }

    /// A child is killed in the middle, at ever later moments.
    void aKilledRestoreIsFinishedAtTheNextStart()
    {
        const QString start = withFiles();
        for (int i = 0; i < 30; ++i)
            workspace->write(u"d/f%1"_s.arg(i), QByteArray(3000, char('a' + i % 26)), u"me"_s, 0);
        workspace->write(u"d/changed"_s, "2", u"me"_s, 1);
        const QByteArray full = treeHash();
        QSet<QByteArray> ends{full};
        QString way = start;
        int cut = 0;
        // How soon a restore begins and ends is the machine's: some kills more until enough have hit it.
        for (int round = 0; round < 24 || (round < 150 && (cut <= 2 || ends.size() < 2)); ++round) {
            const QString root = workspace->root();
            workspace.reset();
            store.reset();
            const pid_t child = ::fork();
            if (child == 0) {
                Store own(top->filePath(u"store.sqlite"_s));
                Workspace there(own);
                there.open(root, u"p"_s);
                there.beginRestore(way);
                while (there.restoreNext()) { }
                ::_exit(0);
            }
            ::usleep(useconds_t(2000 + round % 24 * 1500));
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
            store = std::make_unique<Store>(top->filePath(u"store.sqlite"_s));
            workspace = std::make_unique<Workspace>(*store);
            workspace->open(root, u"p"_s);
            cut += workspace->isRestoring() ? 1 : 0;
            while (workspace->restoreNext()) { }
            QVERIFY2(workspace->externalChanges().isEmpty(), qPrintable(workspace->externalChanges().join(u' ')));
            const QByteArray now = treeHash();
            ends.insert(now);
            QVERIFY(ends.size() <= 2); // as before or whole
            if (now != full) {
                for (const auto all = store->list(u"checkpoints"_s, u"p"_s); const QJsonValue &one : all)
                    way = one["reason"_L1].isString() ? one["id"_L1].toString() : way;
            } else {
                way = start;
            }
        }
        QVERIFY2(cut > 2 && ends.size() == 2, qPrintable(u"cut %1, ends %2"_s.arg(cut).arg(ends.size())));
    }

    void aRestoreOnAFullDiskLeavesAllAsItWas()
    {
        const QString outcome = sandbox::inChild([&] {
            const QString root = workspace->root();
            if (!sandbox::haveOwnMounts()
                || ::mount("tmpfs", QFile::encodeName(root).constData(), "tmpfs", 0, "size=128k") != 0)
                return u"no mounts"_s;
            Store ours(top->filePath(u"child.sqlite"_s));
            Workspace inside(ours);
            inside.open(root, u"p"_s);
            inside.write(u"z"_s, "1", u"me"_s, 0);
            inside.write(u"a large one"_s, QByteArray(90000, 'x'), u"me"_s, 0);
            const QString large = inside.checkpoint(u"t"_s, {})["id"_L1].toString();
            QFile::remove(root + u"/a large one"_s);
            inside.takeEdit(u"a large one"_s);
            inside.write(u"z"_s, "2", u"me"_s, 1);
            save(root + u"/foreign"_s, QByteArray(70000, 'x'));
            inside.beginRestore(large);
            QString told = errorOf([&] {
                while (inside.restoreNext()) { }
            });
            told += u' ' + QString::fromLatin1(contentOf(root + u"/z"_s));
            inside.open(root, u"p"_s); // as after a crash
            while (inside.restoreNext()) { }
            return told + u' ' + QString::fromLatin1(contentOf(root + u"/z"_s)) + u' ' + everythingIn(root).join(u' ')
                + inside.externalChanges().join(u' ');
        });
        if (outcome == "no mounts"_L1)
            QSKIP("no mounts of one's own here");
        QCOMPARE(outcome, u"Short write 1 2 foreign z"_s);
    }

    void externalChangesBlockACheckpoint()
    {
        workspace->write(u"a"_s, "1", u"me"_s, 0);
        workspace->write(u"b"_s, "1", u"me"_s, 0);
        const QJsonArray graph{QJsonObject{{u"id"_s, u"n1"_s}}};
        const QJsonObject snapshot = workspace->checkpoint(u"task"_s, graph);
        QCOMPARE(snapshot["task_id"_L1].toString(), u"task"_s);
        QCOMPARE(snapshot["graph"_L1].toArray(), graph);
        QCOMPARE(snapshot["files"_L1].toArray(), workspace->files());
        QCOMPARE(store->get(u"checkpoints"_s, snapshot["id"_L1].toString()), snapshot);

        save(path(u"b"_s), "edited");
        QCOMPARE(errorOf([&] { workspace->checkpoint(u"task"_s, {}); }), u"Checkpoint conflict: external changes"_s);
        QVERIFY(QFile::remove(path(u"b"_s)));
        QCOMPARE(errorOf([&] { workspace->checkpoint(u"task"_s, {}); }), u"Cannot read b"_s);
        QCOMPARE(store->list(u"checkpoints"_s, u"p"_s).size(), 1);
    }

    void rollbackBringsBackTheSnapshot()
    {
        const QByteArray noText = "\x89PNG\xff\xfe";
        for (const char *bytes : {"a1", "a2", "a3"})
            workspace->write(u"a"_s, bytes, u"me"_s, -1);
        workspace->write(u"same"_s, noText, u"me"_s, 0);
        const QString snapshot = workspace->checkpoint(u"t"_s, {})["id"_L1].toString();
        workspace->write(u"a"_s, "a4", u"me"_s, 3);
        workspace->write(u"a"_s, "a5", u"me"_s, 4);
        QJsonObject removed = workspace->write(u"d/later"_s, "l", u"me"_s, 0);
        save(path(u"untracked"_s), "u");

        workspace->rollback(snapshot);

        QCOMPARE(fields(workspace->latest(u"a"_s), u"revision content author_agent"_s), u"6 a3 rollback"_s);
        QCOMPARE(contentOf(path(u"a"_s)), "a3");
        QCOMPARE(workspace->latest(u"same"_s)["revision"_L1].toInt(), 2);
        QCOMPARE(contentOf(path(u"same"_s)), noText);

        removed[u"deleted"_s] = true;
        removed[u"status"_s] = u"ROLLED_BACK"_s;
        QCOMPARE(workspace->latest(u"d/later"_s), removed);
        QCOMPARE(everythingIn(path(u"d"_s)), QStringList());
        QCOMPARE(contentOf(path(u"untracked"_s)), "u");
        QCOMPARE(fields(workspace->write(u"d/later"_s, "l2", u"me"_s, 1), u"revision deleted"_s), u"2 "_s);
    }

    void rollbackTouchesNothingIfAFileWasChanged()
    {
        workspace->write(u"a"_s, "a1", u"me"_s, 0);
        const QString snapshot = workspace->checkpoint(u"t"_s, {})["id"_L1].toString();
        workspace->write(u"a"_s, "a2", u"me"_s, 1);
        workspace->write(u"z"_s, "z1", u"me"_s, 0);
        save(path(u"z"_s), "edited");

        QCOMPARE(errorOf([&] { workspace->rollback(snapshot); }), u"Rollback conflict: external changes"_s);
        QCOMPARE(contentOf(path(u"a"_s)), "a2");
        QCOMPARE(contentOf(path(u"z"_s)), "edited");
        QVERIFY(QFile::remove(path(u"z"_s)));
        QCOMPARE(errorOf([&] { workspace->rollback(snapshot); }), u"Cannot read z"_s);
        QCOMPARE(workspace->latest(u"a"_s)["revision"_L1].toInt(), 2);
    }

    void rollbackOfAnotherProjectFailsFirst()
    {
        workspace->write(u"a"_s, "1", u"me"_s, 0);
        const QString snapshot = workspace->checkpoint(u"t"_s, {})["id"_L1].toString();
        workspace->open(top->filePath(u"second"_s), u"q"_s);
        for (const QString &wrong : {snapshot, u"unknown"_s})
            QCOMPARE(errorOf([&] { workspace->rollback(wrong); }), u"Checkpoint belongs to another project"_s);
        QVERIFY(everythingIn(top->filePath(u"second"_s)).isEmpty());
    }

    void filesDeletedInTheSnapshotStayDeleted()
    {
        const QString empty = workspace->checkpoint(u"t"_s, {})["id"_L1].toString();
        workspace->write(u"a"_s, "1", u"me"_s, 0);
        workspace->rollback(empty);
        workspace->write(u"b"_s, "1", u"me"_s, 0);
        const QString withDeleted = workspace->checkpoint(u"t"_s, {})["id"_L1].toString();

        workspace->rollback(withDeleted);
        QCOMPARE(everythingIn(workspace->root()), QStringList{u"b"_s});
        QCOMPARE(workspace->latest(u"a"_s)["revision"_L1].toInt(), 1);

        workspace->write(u"a"_s, "2", u"me"_s, 1);
        workspace->rollback(withDeleted);
        QCOMPARE(everythingIn(workspace->root()), QStringList{u"b"_s});
        QVERIFY(workspace->latest(u"a"_s)["deleted"_L1].toBool());
    }

    void leftoversOfAKilledProcessAreCleared()
    {
        workspace->write(u"d/a"_s, "1", u"me"_s, 0);
        const QString dead = u".vesk-%1-0123456789abcdef.tmp"_s.arg(999999999);
        const QString living = u".vesk-%1-0123456789abcdef.tmp"_s.arg(::getppid());
        const QString taken = u".vesk-%1-fedcba9876543210.tmp"_s.arg(999999999); // by an older version
        store->put(u"files"_s, u"t"_s, u"p"_s, {{u"path"_s, u"d/"_s + taken}});
        QStringList kept{u".vesk-notes.tmp"_s, living, u"a"_s, u"x"_s + dead, taken};
        for (const QString &name : kept + QStringList{dead, u"../"_s + dead})
            save(path(u"d/"_s + name), "left");
        Workspace(*store).open(workspace->root(), {});
        QVERIFY(QFile::exists(path(dead))); // what is of no project may be anybody's
        workspace->open(workspace->root(), u"p"_s);
        QStringList found = everythingIn(path(u"d"_s));
        found.sort();
        kept.sort();
        QCOMPARE(found, kept);
        QCOMPARE(everythingIn(workspace->root()), QStringList{u"d"_s});
    }

    void theOrderOfTasksFollowsNoClock()
    {
        for (const QString &task : {u"t1"_s, u"t2"_s}) {
            workspace->checkpoint(task, {});
            workspace->write(task, "1", u"me"_s, 0);
        }
        inDatabase(u"UPDATE checkpoint_outlines SET updated='2000' WHERE body LIKE '%t2%'"_s);
        QCOMPARE(workspace->checkpointOf({})["task_id"_L1].toString(), u"t2"_s);
        QCOMPARE(workspace->filesOf(u"t1"_s), QStringList{u"t1"_s});
        QCOMPARE(workspace->filesOf(u"t2"_s), QStringList{u"t2"_s});

        inDatabase(u"DROP TABLE files"_s);
        QVERIFY(!errorOf([&] { workspace->open(top->filePath(u"other"_s), u"other"_s); }).isEmpty());
        QCOMPARE(workspace->project(), u"p"_s); // what can't be opened leaves the former one
    }

    void mountPointsAreRefused()
    {
        workspace->write(u"file"_s, "1", u"me"_s, 0);
        workspace->write(u"d/below/x"_s, "1", u"me"_s, 0);
        QVERIFY(QDir(top->path()).mkpath(u"outside/below"_s));
        save(top->filePath(u"outside/below/x"_s), "secret");
        const auto encoded = [&](const QString &name) { return QFile::encodeName(top->filePath(name)); };

        const QString outcome = sandbox::inChild([&] {
            // Of the same file system, so that its number gives nothing away.
            if (!sandbox::haveOwnMounts()
                || ::mount(encoded(u"outside"_s), encoded(u"project/d"_s), nullptr, MS_BIND, nullptr) != 0
                || ::mount(encoded(u"outside/below/x"_s), encoded(u"project/file"_s), nullptr, MS_BIND, nullptr) != 0)
                return u"no mounts"_s;
            QStringList errors;
            for (const auto walk : {ConfinedFolder::Walk::InKernel, ConfinedFolder::Walk::ByComponent}) {
                Store ours(top->filePath(u"child.sqlite"_s));
                Workspace inside(ours, walk);
                inside.open(top->filePath(u"project"_s), u"p"_s);
                for (const QString &path : {u"d"_s, u"d/below/x"_s, u"d/new"_s, u"d/con"_s, u"file"_s, u"file/x"_s}) {
                    errors += errorOf([&] { inside.read(path); });
                    errors += errorOf([&] { inside.write(path, "overwritten", u"me"_s, -1); });
                }
                // A root that is one itself is what the user chose.
                inside.open(top->filePath(u"project/d"_s), u"p"_s);
                errors += QString::fromUtf8(inside.read(u"below/x"_s));
            }
            errors.removeDuplicates();
            return errors.join(u", "_s);
        });

        if (outcome == "no mounts"_L1)
            QSKIP("no mounts of one's own here");
        QCOMPARE(outcome, u"Reparse paths are not allowed, secret"_s);
        QCOMPARE(contentOf(top->filePath(u"outside/below/x"_s)), "secret");
        QCOMPARE(everythingIn(top->filePath(u"outside"_s)), QStringList{u"below"_s});
    }

    void aFullDiskLosesNothing()
    {
        const QByteArray noRoom = "size=64k";
        const QByteArray noNodes = "nr_inodes=4"; // The top folder, one file, and what else is made below.
        for (const auto &[options, name, error] :
             {std::tuple{noRoom, u"new"_s, u"Short write"_s}, std::tuple{noRoom, u"a"_s, u"Short write"_s},
              std::tuple{noNodes, u"new"_s, u"Cannot write new"_s}, std::tuple{noNodes, u"a"_s, u"Cannot write a"_s},
              std::tuple{noNodes, u"d/new"_s, u"Cannot create parent directory"_s}}) {
            const QByteArray root = QFile::encodeName(workspace->root());
            const QString outcome = sandbox::inChild([&, name = name, options = options] {
                if (!sandbox::haveOwnMounts() || ::mount("tmpfs", root, "tmpfs", 0, options.constData()) != 0)
                    return u"no mounts"_s;
                QFile::remove(top->filePath(u"child.sqlite"_s));
                Store ours(top->filePath(u"child.sqlite"_s));
                Workspace full(ours);
                full.open(workspace->root(), u"p"_s);
                full.write(u"a"_s, "1", u"me"_s, 0);
                save(path(u"x"_s), {});
                save(path(u"y"_s), {});
                const QString first = errorOf([&] { full.write(name, QByteArray(100000, 'x'), u"me"_s, -1); });
                const QString state
                    = everythingIn(workspace->root()).join(u' ') + QString::fromUtf8(contentOf(path(u"a"_s)));
                if (state != u"a x y1"_s || ours.list(u"file_revisions"_s, {}).size() != 1)
                    return u"left: "_s + state;
                // With room again, all goes on.
                ::mount(nullptr, root, nullptr, MS_REMOUNT, "size=1m,nr_inodes=100");
                full.write(name, "2", u"me"_s, -1);
                return first;
            });
            if (outcome == "no mounts"_L1)
                QSKIP("no mounts of one's own here");
            QCOMPARE(outcome, error);
        }
    }

private:
    void inDatabase(const QString &statement) const
    {
        {
            QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
            other.setDatabaseName(top->filePath(u"store.sqlite"_s));
            QVERIFY(other.open() && QSqlQuery(other).exec(statement));
        }
        QSqlDatabase::removeDatabase(u"other"_s);
    }

    /// Some files, one of which may be run; gives a snapshot of them.
    QString withFiles()
    {
        for (const QString &name : {u"same"_s, u"d/changed"_s, u"run.sh"_s})
            workspace->write(name, "1", u"me"_s, 0);
        QFile::setPermissions(path(u"run.sh"_s), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return workspace->checkpoint(u"t"_s, {})["id"_L1].toString();
    }
    /// Goes back to a snapshot; gives that by which it can be undone.
    QString restore(const QString &snapshot)
    {
        const QString origin = workspace->beginRestore(snapshot)["id"_L1].toString();
        while (workspace->restoreNext()) { }
        return origin;
    }
    /// Over names, modes and bytes of all files but those of others.
    QByteArray treeHash() const
    {
        QCryptographicHash hash(QCryptographicHash::Sha256);
        QStringList names;
        QDirIterator all(workspace->root(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (all.hasNext())
            names << all.next();
        names.sort();
        for (const QString &name : std::as_const(names)) {
            if (name.endsWith(u"/foreign"_s))
                continue;
            hash.addData(name.toUtf8() + QByteArray::number(int(QFile::permissions(name))) + contentOf(name));
        }
        return hash.result();
    }

    /// The path is neither taken nor read nor written, for this reason.
    static void verifyRefused(Workspace &workspace, const QString &path, const QString &error)
    {
        QCOMPARE(errorOf([&] { workspace.resolve(path); }), error);
        QCOMPARE(errorOf([&] { workspace.read(path); }), error);
        QCOMPARE(errorOf([&] { workspace.write(path, "overwritten", u"me"_s, -1); }), error);
    }
    QString path(const QString &name) const { return top->filePath(u"project/"_s + name); }

    std::unique_ptr<QTemporaryDir> top;
    std::unique_ptr<Store> store;
    std::unique_ptr<Workspace> workspace;
};

SANDBOXED_TEST_MAIN(WorkspaceTest)
#include "tst_workspace.moc"
