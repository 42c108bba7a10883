// A project of the user's own, on a copy of this program's source tree: taken in, changed by a task and by hand,
// compared, taken back and forth, copied and committed. How long each takes, how long the longest turn of the event
// loop is meanwhile, and how much memory the process has had so far.

#include "backend_desk.h"
#include "helpers.h"
#include "model_server.h"
#include "process_containment.h"
#include "scripted_provider.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QStringList &changedFiles()
{
    static const QStringList paths{u"README.md"_s, u"src/core/budget.h"_s, u"docs/workspace.md"_s};
    return paths;
}

QByteArray bytesOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void append(const QString &path, const QByteArray &line)
{
    QFile file(path);
    if (file.open(QIODevice::Append))
        file.write(line);
}

QByteArray run(const QString &folder, const QStringList &command)
{
    QProcess process;
    process.setWorkingDirectory(folder);
    process.start(command.first(), command.mid(1));
    process.waitForFinished();
    return process.readAllStandardOutput();
}

/// Of all names, modes and bytes below a folder, the repository apart.
QByteArray treeHash(const QString &folder)
{
    QStringList paths;
    QDirIterator all(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (all.hasNext())
        paths.append(all.next());
    paths.sort();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QString &path : std::as_const(paths)) {
        if (path.startsWith(folder + u"/.git/"_s))
            continue;
        hash.addData(path.toUtf8() + QByteArray::number(int(QFile::permissions(path))));
        hash.addData(bytesOf(path));
    }
    return hash.result().toHex();
}

int memoryMb()
{
    for (const QByteArray &line : bytesOf(u"/proc/self/status"_s).split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toInt() / 1024;
    }
    return 0;
}

} // namespace

class OwnBench : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aSourceTreeIsTheUsersOwnAllTheWay()
    {
        ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
        Desk desk;
        root = desk.path(u"tree"_s);
        run(desk.folder.path(), {u"git"_s, u"clone"_s, u"-q"_s, QStringLiteral(VESK_SOURCE), root});
        for (const QString &pair : {u"user.name=T"_s, u"user.email=t@example.org"_s})
            run(root, {u"git"_s, u"config"_s, pair.section(u'=', 0, 0), pair.section(u'=', 1)});
        if (!QFile::exists(root + u"/README.md"_s))
            QSKIP("the source tree is no repository, or git is not installed");
        ModelServer model([this](const LLMRequest &request) { return answerTo(request); });
        desk.connectTo(model.url());
        desk.call("setPreference", {u"git_commit"_s, true});

        measure(
            "looked at", [&] { desk.call("lookAtFolder", {root}); },
            [&] { return phase(desk, "takeIn") == u"offer"_s; });
        measure("taken in", [&] { desk.call("acceptFolder"); }, [&] { return phase(desk, "takeIn").isEmpty(); });
        qInfo("%lld files", qlonglong(desk.read("files").toList().size()));
        const QByteArray start = treeHash(root);
        measure(
            "a task changes three files",
            [&] { desk.call("start", {u"Поправь README.md"_s, false, 200000, u""_s, u"[]"_s}); },
            [&] { return desk.phase() == u"COMPLETED"_s || desk.phase() == u"FAILED"_s; });
        QVERIFY2(desk.phase() == u"COMPLETED"_s, qPrintable(desk.message() + desk.chat().join(u'\n')));
        append(root + u"/README.md"_s, "\nBy hand.\n");
        measure(
            "a hand edit is noticed", [&] { desk.call("lookForEdits"); },
            [&] { return desk.read("handEdits").toList().size() == 1; });
        measure(
            "and taken", [&] { desk.call("takeEdits", {u""_s}); },
            [&] { return desk.read("handEdits").toList().isEmpty(); });
        Differences &shown = *desk.backend->property("differences").value<Differences *>();
        measure("differences", [&] { desk.call("compareTask", {u""_s}); }, [&] { return !shown.isBusy(); });
        QCOMPARE(shown.files().size(), 3);
        const QByteArray full = treeHash(root);
        QVERIFY(start != full);
        const auto isStill = [&] { return !desk.read("restoring").toBool(); };
        const QString point = desk.call("restorePoints").toList().last().toMap()[u"id"_s].toString();
        measure("taken back", [&] { desk.call("restore", {point}); }, isStill);
        QCOMPARE(treeHash(root), start);
        measure("and forth", [&] { desk.call("undoRestore"); }, isStill);
        QCOMPARE(treeHash(root), full);
        for (const QString &copy : {u"copy.zip"_s, u"copy"_s}) {
            measure(
                "copied", [&] { desk.call("exportFiles", {desk.path(copy), u""_s}); },
                [&] { return desk.read("exporting").toString().isEmpty(); });
            QVERIFY2(QFile::exists(desk.path(copy)), qPrintable(desk.message()));
        }
        measure(
            "a commit is shown", [&] { desk.call("lookAtCommit"); },
            [&] { return phase(desk, "commit") == u"offer"_s; });
        measure(
            "and made", [&] { desk.call("commitFiles", {u"Три файла"_s}); },
            [&] { return phase(desk, "commit") == u"done"_s; });
        const QByteArray committed = run(root, {u"git"_s, u"show"_s, u"--format="_s, u"--name-only"_s, u"HEAD"_s});
        QStringList names = QString::fromUtf8(committed).split(u'\n', Qt::SkipEmptyParts);
        QStringList wanted = changedFiles();
        wanted.sort();
        QCOMPARE(names, wanted);
        QCOMPARE(run(root, {u"git"_s, u"status"_s, u"--porcelain"_s}), QByteArray());
    }

private:
    static QString phase(const Desk &desk, const char *property)
    {
        return desk.read(property).toMap()[u"phase"_s].toString();
    }

    QString answerTo(const LLMRequest &request) const
    {
        if (request.role == u"planner"_s) {
            QJsonArray nodes;
            for (const QString &path : changedFiles())
                nodes.append(ScriptedProvider::node(path, u"code"_s, {{u"path"_s, path}}));
            return json(ScriptedProvider::plan(nodes));
        }
        if (request.role == u"coding"_s) {
            const QString path = request.input[u"artifact"_s][u"node"_s][u"input"_s][u"path"_s].toString();
            const QString text = QString::fromUtf8(bytesOf(root + u'/' + path));
            return json(ScriptedProvider::file(path, text + (path.endsWith(u".h"_s) ? u"// end\n"_s : u"\nEnd.\n"_s)));
        }
        return request.role == u"orchestrator"_s ? json(ScriptedProvider::taskSpec()) : ModelServer::unasking(request);
    }

    /// Does something, and turns the event loop until it has come to its end.
    static void measure(const char *what, const std::function<void()> &begin, const std::function<bool()> &isOver)
    {
        QElapsedTimer whole;
        whole.start();
        begin();
        qint64 longest = whole.elapsed();
        while (!isOver() && whole.elapsed() < 120000) {
            QElapsedTimer turn;
            turn.start();
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            longest = std::max(longest, turn.elapsed());
        }
        qInfo("%-28s %6lld ms, longest turn %4lld ms, %4d MB", what, qlonglong(whole.elapsed()), qlonglong(longest),
              memoryMb());
    }

    QString root;
};

QTEST_GUILESS_MAIN(OwnBench)
#include "bench_own.moc"
