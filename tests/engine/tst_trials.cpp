// Tests that are run once more with empty files.

#include "files.h"
#include "node_kind.h"
#include "test_copy.h"
#include "test_trial.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QThreadPool>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

Node tool(const QString &id, const QStringList &line, const QString &started = u"2"_s, bool success = true)
{
    Node node;
    node.id = id;
    node.kind = u"tool"_s;
    node.input = {{u"program"_s, line.first()},
                  {u"arguments"_s, QJsonArray::fromStringList(line.mid(1))},
                  {u"verification"_s, true}};
    node.output = {{u"success"_s, success}, {u"started_at"_s, started}};
    return node;
}

} // namespace

class TrialsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void onlyTestsOfTheProjectAreTried()
    {
        const QString sh = u"/bin/sh"_s;
        const auto package
            = [](const QString &test) { return QJsonObject{{u"scripts"_s, QJsonObject{{u"test"_s, test}}}}; };
        const QStringList npmTest{u"/usr/bin/node"_s, u"/x/npm-cli.js"_s, u"test"_s};
        const QList<std::pair<QStringList, bool>> rows{
            {{u"/usr/bin/python3"_s, u"-m"_s, u"pytest"_s}, true},
            {{u"/usr/bin/python3"_s, u"tests/check.py"_s}, false},
            {{u"/usr/bin/python3"_s, u"test_a.py"_s}, true},
            {npmTest, true},
            {{sh, u"-c"_s, u"pytest || true"_s}, false},
            {{u"/usr/bin/cargo"_s, u"test"_s}, true},
            {{sh, u"-c"_s, u"test -s main.py"_s}, false},
            {{sh, u"-c"_s, u"./run_tests.sh && pytest"_s}, false},
            {{sh, u"-c"_s, u"cd /p/x && pytest"_s}, true},
            {{sh, u"-c"_s, u"cd /usr && pytest"_s}, false},
            {{sh, u"-c"_s, u"cd ~/x && pytest"_s}, false},
        };
        for (const auto &[line, isTried] : rows)
            QVERIFY2(trialsOf({tool(u"t"_s, line)}, package(u"jest"_s), u"/p"_s).isEmpty() != isTried,
                     qPrintable(line.join(u' ')));
        QVERIFY(trialsOf({tool(u"t"_s, npmTest)}, package(u"eslint ."_s), u"/p"_s).isEmpty());
        QVERIFY(trialsOf({tool(u"t"_s, npmTest, u"2"_s, false)}, package(u"jest"_s), u"/p"_s).isEmpty());
    }

    void buildsGoFirstAndInstallationsDoNot()
    {
        const QString cmake = u"/usr/bin/cmake"_s;
        const QList<Node> nodes{
            tool(u"t"_s, {u"/usr/bin/ctest"_s}, u"5"_s), tool(u"b"_s, {cmake, u"--build"_s}, u"4"_s),
            tool(u"c"_s, {cmake, u"-S"_s, u"."_s}, u"3"_s), tool(u"i"_s, {u"/usr/bin/make"_s, u"install"_s}, u"4"_s),
            tool(u"later"_s, {u"/usr/bin/make"_s}, u"6"_s)};
        const QList<Trial> trials = trialsOf(nodes, {}, u"/p"_s);
        QCOMPARE(trials.size(), 1);
        QCOMPARE(trials[0].commands, (QList{nodes[2].input, nodes[1].input, nodes[0].input}));
    }

    void whatIsUnderTestIsEmptied()
    {
        const QList<std::tuple<QString, QString, TrialFile>> rows{
            {u"main.py"_s, u"x = 1"_s, TrialFile::Emptied},
            {u"README.md"_s, u"assert"_s, TrialFile::Emptied},
            {u"data.json"_s, u"{}"_s, TrialFile::Emptied},
            {u"tests/data.json"_s, u"{}"_s, TrialFile::Kept},
            {u"test_main.py"_s, {}, TrialFile::Kept},
            {u"package.json"_s, {}, TrialFile::Kept},
            {u"web/.eslintrc.js"_s, {}, TrialFile::Kept},
            {u"vite.config.ts"_s, {}, TrialFile::Kept},
            {u"checks/a.js"_s, {}, TrialFile::Kept},
            {u"run.js"_s, {}, TrialFile::Kept},
            {u"lib.rs"_s, u"#[cfg(test)]"_s, TrialFile::Mixed},
            {u"FooTests.cs"_s, u"[Fact]"_s, TrialFile::Mixed},
            {u"a.js"_s, u"test('sum', () => 1)"_s, TrialFile::Mixed},
            {u"a.js"_s, u"r.test(x)"_s, TrialFile::Emptied},
        };
        for (const auto &[path, text, kind] : rows)
            QVERIFY2(fileInTrial(path, text, {u"node"_s, u"run.js"_s}) == kind, qPrintable(path));
    }

    void aCommandIsMovedIntoTheCopy()
    {
        QJsonObject command = tool({}, {u"/p/bin/t"_s, u"/p"_s, u"--in=/p/a"_s, u"/p2 /x/p/a"_s}).input;
        command[u"timeout_ms"_s] = 9000;
        const QJsonObject moved = movedCommand(command, 100, u"/p"_s, u"/c"_s);
        QCOMPARE(moved[u"program"_s], u"/c/bin/t"_s);
        QCOMPARE(moved[u"arguments"_s], (QJsonArray{u"/c"_s, u"--in=/c/a"_s, u"/p2 /x/p/a"_s}));
        QCOMPARE(moved[u"timeout_ms"_s], 5300);
        QCOMPARE(movedCommand(command, 5000, u"/p"_s, u"/c"_s)[u"timeout_ms"_s], 9000);
    }

    void aCopyHoldsWhatTestsNeedAndGoesAway()
    {
        QTemporaryDir folder;
        const QString root = folder.filePath(u"p"_s);
        const auto write = [&](const QString &path, const QByteArray &text) { save(root + u'/' + path, text); };
        write(u"main.py"_s, "x = 1");
        write(u"test_main.py"_s, "import main");
        write(u"README.md"_s, "x");
        write(u"main.o"_s, "x");
        write(u"build/main.o"_s, "x");
        write(u"build/kept.py"_s, "x");
        write(u"__pycache__/main.pyc"_s, "x");
        write(u"packages/own/index.js"_s, "x");
        write(u"node_modules/@a/b/index.js"_s, "x");
        QVERIFY(QFile::link(u"../packages/own"_s, root + u"/node_modules/own"_s));
        QVERIFY(QFile::link(root, root + u"/node_modules/self"_s));
        write(u"vendor/price.py"_s, "x = 1");
        QVERIFY(QFile::link(u"main.py"_s, root + u"/link.py"_s));
        QCOMPARE(::mkfifo(QFile::encodeName(root + u"/pipe"_s).constData(), 0600), 0);
        const QString copies = folder.filePath(u"copies"_s);
        const CopyOrder order{root, copies, {u"build/kept.py"_s, u"vendor/price.py"_s}, {}};
        auto copy = TestCopy::make(order);
        QVERIFY(copy);
        const auto has = [&](const QString &path) { return QFileInfo::exists(copy->path() + u'/' + path); };
        QCOMPARE(QFileInfo(copy->path() + u"/main.py"_s).size(), 0);
        QCOMPARE(QFileInfo(copy->path() + u"/test_main.py"_s).size(), 11);
        QVERIFY(has(u"build/kept.py"_s) && has(u"node_modules/@a/b/index.js"_s));
        QVERIFY(!has(u"main.o"_s) && !has(u"build/main.o"_s) && !has(u"__pycache__"_s) && !has(u"link.py"_s));
        QCOMPARE(QFileInfo(copy->path() + u"/node_modules/own/index.js"_s).size(), 0);
        QCOMPARE(QFileInfo(copy->path() + u"/vendor/price.py"_s).size(), 0);
        QCOMPARE(QFileInfo(copy->path() + u"/node_modules/self"_s).symLinkTarget(), copy->path());
        QVERIFY(!copy->wasBypassed());
        QVERIFY(!contentOf(root + u"/build/main.o"_s).isEmpty());
        QVERIFY(copy->wasBypassed());
        QFile::setPermissions(copy->path() + u"/build"_s, QFile::ReadOwner | QFile::ExeOwner);
        copy.reset();
        QThreadPool::globalInstance()->waitForDone();
        QVERIFY(!QFileInfo::exists(copies) && QFileInfo::exists(root + u"/node_modules/@a/b/index.js"_s));

        QVERIFY(!TestCopy::make({root, root + u"/copies"_s, {}, {}}));
        QVERIFY(!TestCopy::make({root, copies, {}, {u"main.py"_s, u"index.js"_s}})); // No source is emptied.
        // Where the whole program can be reached from a copy, nothing is found out.
        for (const QString &path : {u".venv/lib/python3/site-packages/price.py"_s, u"test_net.py"_s}) {
            write(path, "get('http://localhost')");
            QVERIFY2(!TestCopy::make(order), qPrintable(path));
            QVERIFY(QFile::remove(root + u'/' + path));
        }
        QVERIFY(TestCopy::make(order));
        write(u"film.mp4"_s, QByteArray(21 << 20, 'x'));
        QVERIFY(!TestCopy::make(order));
        QThreadPool::globalInstance()->waitForDone();
        QVERIFY(!QFileInfo::exists(copies));
    }
};

QTEST_GUILESS_MAIN(TrialsTest)
#include "tst_trials.moc"
