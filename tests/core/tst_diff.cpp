// Differences, held against the system's own diff and patch.

#include "diff.h"
#include "files.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

struct Outcome {
    int code;
    QByteArray out;
};

Outcome run(const QString &program, const QStringList &arguments, const QString &folder)
{
    QProcess process;
    process.setWorkingDirectory(folder);
    process.start(program, arguments);
    process.waitForFinished();
    return {process.exitCode(), process.readAll()};
}

/// A few different lines, so that many are alike, and at times no line feed at the end.
QByteArray randomText(QRandomGenerator &random, int mostLines)
{
    QByteArray text;
    for (int lines = random.bounded(mostLines + 1); lines > 0; --lines)
        text += QByteArray(1, char('a' + random.bounded(5))) + (random.bounded(9) == 0 ? "\r\n" : "\n");
    if (random.bounded(4) == 0)
        text.chop(1);
    return text;
}

LineCounts changed(const QByteArray &before, const QByteArray &after)
{
    return countsOf(lineDiff(linesOf(before), linesOf(after)));
}

} // namespace

class DiffTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void itIsAsShortAsThatOfDiffAndPatchAppliesIt()
    {
        if (QStandardPaths::findExecutable(u"diff"_s).isEmpty() || QStandardPaths::findExecutable(u"patch"_s).isEmpty())
            QSKIP("diff and patch are not installed");
        QRandomGenerator random(20251125);
        for (int round = 0; round < 150; ++round) {
            const QTemporaryDir folder;
            const QString name = round % 2 == 0 ? u"a \"ё\\.txt"_s : u"b.txt"_s;
            const QByteArray before = randomText(random, round);
            const QByteArray after = randomText(random, round);
            save(folder.filePath(name), before);
            save(folder.filePath(u"after"_s), after);
            const QByteArray told = run(u"diff"_s, {u"--minimal"_s, u"-U0"_s, name, u"after"_s}, folder.path()).out;
            const LineCounts counts = changed(before, after);
            const auto beginning = [&](const char *sign) { return told.count(QByteArray("\n") + sign); };
            QCOMPARE(counts.removed + counts.added, std::max<qsizetype>(0, beginning("-") + beginning("+") - 1));

            save(folder.filePath(u"patch"_s), unifiedDiff(name, before, after));
            if (before == after)
                continue;
            const Outcome applied
                = run(u"patch"_s, {u"-p1"_s, u"--fuzz=0"_s, u"--binary"_s, u"-i"_s, u"patch"_s}, folder.path());
            QVERIFY2(applied.code == 0 && contentOf(folder.filePath(name)) == after, applied.out.constData());
        }
    }

    void filesComeAndGo()
    {
        for (const QByteArray &text : {QByteArray("1\n2"), QByteArray("")}) {
            const QTemporaryDir folder;
            const QStringList apply{u"-p1"_s, u"-i"_s, u"patch"_s};
            save(folder.filePath(u"patch"_s), unifiedDiff(u"d/new"_s, {}, text));
            QCOMPARE(run(u"patch"_s, apply, folder.path()).code, 0);
            QCOMPARE(contentOf(folder.filePath(u"d/new"_s)), text);
            save(folder.filePath(u"patch"_s), unifiedDiff(u"d/new"_s, text, {}));
            QCOMPARE(run(u"patch"_s, apply, folder.path()).code, 0);
            QVERIFY(!QFile::exists(folder.filePath(u"d/new"_s)));
        }
        QCOMPARE(unifiedDiff(u"a"_s, QByteArray("\0", 1), QByteArray("1")), "Binary files a/a and b/a differ\n");
        QVERIFY(unifiedDiff(u"a"_s, QByteArray("1"), QByteArray("1")).isEmpty());
    }

    void changedWordsAreFound()
    {
        const WordDiff diff = wordDiff(u"int value = old_name(1);", u"int value = new_name(1, 2);");
        QCOMPARE(diff.removed, (QList<Span>{{12, 8}}));
        QCOMPARE(diff.added, (QList<Span>{{12, 8}, {22, 3}}));
        QCOMPARE(wordDiff(QString(2001, u'x'), u"x").removed, (QList<Span>{{0, 2001}}));
    }

    void largeTextsTakeNoTime()
    {
        QRandomGenerator random(1);
        QByteArray before;
        QByteArray after;
        for (int i = 0; i < 20000; ++i) { // all lines known to both, nearly none at its place
            before += QByteArray::number(random.bounded(300)) + '\n';
            after += QByteArray::number(random.bounded(300)) + '\n';
        }
        QElapsedTimer clock;
        clock.start();
        const QList<QByteArrayView> lines = linesOf(before);
        const QList<QByteArrayView> others = linesOf(after);
        const QList<DiffBlock> blocks = lineDiff(lines, others);
        qInfo("20,000 scattered lines: %lld ms", clock.elapsed());
        QVERIFY(clock.elapsed() < 3000);
        qsizetype at = 0;
        qsizetype other = 0;
        for (const DiffBlock &block : blocks) { // what lies between the blocks is the same
            for (; at < block.oldFrom; ++at, ++other)
                QCOMPARE(lines[at], others[other]);
            QCOMPARE(other, block.newFrom);
            at += block.oldCount;
            other += block.newCount;
        }
        QCOMPARE(lines.size() - at, others.size() - other);
    }
};

QTEST_GUILESS_MAIN(DiffTest)
#include "tst_diff.moc"
