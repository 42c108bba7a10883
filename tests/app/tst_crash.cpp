// What is left when the program is killed, or its disk is full, at any moment of a run. VESK_SLOW_TESTS=1 tries every
// system call that writes instead of a sample, and kills ten times as often.

#include "files.h"
#include "stored_records.h"
#include "tagged_processes.h"
#include "vesk_run.h"

#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

constexpr int kills = 55;
constexpr int sampleOfWrites = 15;

const auto writingCalls = u"write,pwrite64,fsync,fdatasync,rename,renameat,renameat2,link,linkat,unlink,unlinkat,"
                          "ftruncate,fallocate,mkdir,mkdirat"_s;

bool isSlow()
{
    return qEnvironmentVariableIsSet("VESK_SLOW_TESTS");
}

QStringList messagesOf(const QList<QJsonObject> &events, const QString &type)
{
    QStringList list;
    for (const QJsonObject &event : events) {
        if (event["type"_L1].toString() == type)
            list.append(event["message"_L1].toString());
    }
    return list;
}

/// How often each of the writing calls stands in a trace.
QList<std::pair<QString, int>> callsOf(const QString &trace)
{
    static const QRegularExpression call(u"^\\d+ +(\\w+)\\("_s, QRegularExpression::MultilineOption);
    QMap<QString, int> counts;
    for (auto match = call.globalMatch(trace); match.hasNext();)
        ++counts[match.next().captured(1)];
    QList<std::pair<QString, int>> list;
    for (auto entry = counts.cbegin(); entry != counts.cend(); ++entry)
        list.append({entry.key(), entry.value()});
    return list;
}

} // namespace

class CrashTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    /// Learns from a run that nothing disturbs.
    void initTestCase()
    {
        const VeskRun run;
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(run.run(run.arguments(VeskRun::calculator)).code, 0);
        usualMs = clock.elapsed();
        const QList<QJsonObject> revisions = StoredRecords(run.data()).rows(u"file_revisions"_s);
        for (const QJsonObject &revision : revisions)
            versions[revision["path"_L1].toString()].insert(revision["content"_L1].toString().toUtf8());
        QCOMPARE(versions.value(u"calculator.html"_s).size(), 2);
        QCOMPARE(versions.value(u"README-calculator.md"_s).size(), 1);

        const VeskRun other;
        const QString log = other.path(u"log"_s);
        if (traced(other, {u"-o"_s, log, u"-e"_s, u"trace="_s + writingCalls}).code == 0)
            calls = callsOf(QString::fromUtf8(contentOf(log)));
    }

    void cleanup() { QCOMPARE(tagged.alive(), 0); }

    void cleanupTestCase() { qInfo("%d runs ended between a file and its record", unrecorded); }

    void aKilledRunLeavesOnlyWhatIsWhole()
    {
        const int wanted = isSlow() ? 10 * kills : kills;
        auto *random = QRandomGenerator::global();
        int killed = 0;
        for (int tries = 0; killed < wanted; ++tries) {
            QVERIFY2(tries < wanted * 10, "most runs end before they are killed");
            const VeskRun run;
            const int delayMs = random->bounded(6);
            const int momentUs = random->bounded(int(usualMs + 20 * delayMs) * 1000);
            QProcess process;
            run.start(process,
                      run.arguments(VeskRun::calculator, {u"--json"_s, u"--mock-delay"_s, QString::number(delayMs)}));
            QThread::usleep(ulong(momentUs));
            process.kill();
            const Ended ended = VeskRun::ended(process);
            if (ended.code == -1)
                ++killed;
            else // A run may take less time now than the first one did.
                usualMs = std::max<qint64>(20, usualMs * 9 / 10);
            const QString problem = problemAfter(run, ended);
            QVERIFY2(problem.isEmpty(),
                     qPrintable(u"killed after %1 us: %2"_s.arg(QString::number(momentUs), problem)));
        }
    }

    void aRunKilledAtAWriteLeavesOnlyWhatIsWhole_data() { addWrites({}); }

    void aRunKilledAtAWriteLeavesOnlyWhatIsWhole()
    {
        const VeskRun run;
        const QString problem = problemAfter(run, disturbed(run, u"signal=KILL:when=%1"_s));
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }

    void aDiskThatFillsUpEndsTheRunInOrder_data()
    {
        addWrites({u"pwrite64"_s, u"ftruncate"_s, u"linkat"_s, u"fsync"_s});
    }

    void aDiskThatFillsUpEndsTheRunInOrder()
    {
        const VeskRun run;
        const Ended ended = disturbed(run, u"error=ENOSPC:when=%1+"_s);
        const QList<QJsonObject> events = ended.events();
        const bool completed = !events.isEmpty() && events.last()["message"_L1].toString() == "COMPLETED"_L1;
        QVERIFY2(ended.code == (completed ? 0 : 1), qPrintable(QString::number(ended.code) + ended.err));
        static const QRegularExpression reason(
            u"database or disk is full|disk I/O error|unable to open|Atomic file replacement failed"_s);
        QVERIFY2(completed || (ended.out + ended.err).contains(reason), qPrintable(ended.out.right(2000) + ended.err));
        const QString problem = problemAfter(run, ended);
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }

    void theProgramsOfAKilledRunDieWithIt()
    {
        const VeskRun run;
        QProcess process;
        run.start(process,
                  run.arguments(VeskRun::build,
                                VeskRun::shell(u"trap '' TERM HUP INT; sleep 60 & (setsid sleep 60 &); "
                                               "(setsid sh -c '(setsid sleep 60 &) & sleep 60' &); "
                                               "touch started; sleep 60"_s)
                                    + QStringList{u"--allow-commands"_s}));
        QTRY_VERIFY(QFile::exists(run.project() + u"/started"_s));
        QVERIFY(tagged.alive() > 5);
        process.kill();
        QCOMPARE(VeskRun::ended(process).code, -1);
        QTRY_COMPARE(tagged.alive(), 0);
        QCOMPARE(run.run(run.arguments(VeskRun::calculator)).code, 0);
        QCOMPARE(StoredRecords(run.data()).rows(u"tasks"_s).first()["phase"_L1].toString(), "INTERRUPTED");
    }

private:
    /// A run in which this happens at the call of the row.
    Ended disturbed(const VeskRun &run, const QString &what) const
    {
        QFETCH(QString, call);
        QFETCH(int, number);
        const QString inject = u"inject=%1:%2"_s.arg(call, what.arg(number));
        return traced(run, {u"-o"_s, u"/dev/null"_s, u"-e"_s, u"trace="_s + call, u"-e"_s, inject});
    }

    /// A row for each call that a run makes; of the many that are plain writes only a sample.
    void addWrites(const QStringList &wanted)
    {
#ifdef __SANITIZE_ADDRESS__
        QSKIP("the leak check of this build can't be traced");
#endif
        if (calls.isEmpty())
            QSKIP("no strace, or it may not trace");
        QTest::addColumn<QString>("call");
        QTest::addColumn<int>("number");
        for (const auto &[call, count] : std::as_const(calls)) {
            if (!wanted.isEmpty() && !wanted.contains(call))
                continue;
            const bool all = isSlow() || !call.contains("write"_L1);
            for (int i = 0; i < (all ? count : sampleOfWrites); ++i) {
                const int number = 1 + (all ? i : QRandomGenerator::global()->bounded(count));
                QTest::addRow("%s %d", qPrintable(call), number) << call << number;
            }
        }
    }

    Ended traced(const VeskRun &run, const QStringList &options) const
    {
        return run.run(run.arguments(VeskRun::calculator, {u"--json"_s}), [&](QProcess &process) {
            process.setProgram(QStandardPaths::findExecutable(u"strace"_s));
            process.setArguments(QStringList{u"-f"_s} + options + QStringList{VeskRun::program()});
        });
    }

    /// All that must hold on these folders after a run that was cut off; empty when it does.
    QString problemAfter(const VeskRun &run, const Ended &ended)
    {
        if (tagged.alive() != 0)
            return u"a process is alive"_s;
        const StoredRecords stored(run.data());
        for (const QString &problem : {stored.problem(), problemOfStorage(stored, ended), problemOfFiles(run)}) {
            if (!problem.isEmpty())
                return problem;
        }
        return problemOfNextRun(run, stored.lastTask()["id"_L1].toString());
    }

    /// Nothing that was told is lost, and the task stands in the phase told last or the one before.
    QString problemOfStorage(const StoredRecords &stored, const Ended &ended) const
    {
        const QList<QJsonObject> events = stored.rows(u"events"_s);
        const QList<QJsonObject> printed = ended.events();
        for (const QJsonObject &event : printed) {
            if (event["type"_L1].toString() != "Result"_L1 && !events.contains(event))
                return u"an event was printed and not stored"_s;
        }
        const QStringList phases = messagesOf(events, u"PhaseChanged"_s);
        const QJsonObject task = stored.lastTask();
        if (task.isEmpty())
            return phases.size() <= 1 ? QString() : u"no task, but its phases "_s + phases.join(u' ');
        if (!phases.last(std::min<qsizetype>(2, phases.size())).contains(task["phase"_L1].toString()))
            return u"the task stands in "_s + task["phase"_L1].toString() + u" after "_s + phases.join(u' ');
        return task["spec"_L1]["original_request"_L1].toString() == VeskRun::calculator ? QString()
                                                                                        : u"the task is cut"_s;
    }

    QString problemOfFiles(const VeskRun &run) const
    {
        const QStringList names = QDir(run.project()).entryList(QDir::Files | QDir::Hidden);
        for (const QString &name : names) {
            const bool isTemporary = name.startsWith(".vesk-"_L1) && name.endsWith(".tmp"_L1);
            if (!isTemporary && !versions.value(name).contains(contentOf(run.project() + u'/' + name)))
                return name + u" is half written"_s;
        }
        return {};
    }

    /// The same folders serve the next run, unless a file was left without its record: such a file is the user's.
    QString problemOfNextRun(const VeskRun &run, const QString &killedTask)
    {
        QHash<QString, QString> recorded;
        const QList<QJsonObject> files = StoredRecords(run.data()).rows(u"files"_s);
        for (const QJsonObject &file : files)
            recorded[file["path"_L1].toString()] = file["content"_L1].toString();
        bool whole = true;
        for (auto file = versions.cbegin(); file != versions.cend(); ++file)
            whole = whole
                && contentOf(run.project() + u'/' + file.key()) == recorded.value(file.key(), u"(none)"_s).toUtf8();
        unrecorded += !whole;

        const Ended next = run.run(run.arguments(VeskRun::calculator));
        static const QRegularExpression refusal(
            u"Existing/untracked or externally modified file: |Checkpoint conflict: external changes"_s);
        const bool refused = next.out.contains(refusal);
        if (next.code != (whole ? 0 : 1) || refused == whole)
            return u"the next run: "_s + next.out + next.err;
        const QStringList left = QDir(run.project()).entryList(QDir::Files | QDir::Hidden);
        for (const QString &name : left) {
            if (!versions.contains(name))
                return name + u" was left"_s;
        }

        const StoredRecords stored(run.data());
        static const QStringList ends{u"COMPLETED"_s, u"ERROR"_s, u"CANCELLED"_s, u"INTERRUPTED"_s};
        const QList<QJsonObject> tasks = stored.rows(u"tasks"_s);
        for (const QJsonObject &task : tasks) {
            if (task["id"_L1].toString() != killedTask)
                continue;
            QHash<QString, QString> known;
            const QJsonArray runs = task["runs"_L1].toArray();
            for (const QJsonValue &entry : runs)
                known[entry["id"_L1].toString()] = entry["status"_L1].toString();
            const QList<QJsonObject> rows = stored.rows(u"agent_runs"_s);
            for (const QJsonObject &row : rows) {
                const QString status = row["status"_L1].toString();
                if (row["task_id"_L1].toString() == killedTask
                    && (!ends.contains(status) || known.value(row["id"_L1].toString()) != status))
                    return u"a run of the killed task stands in "_s + status;
            }
            const QString phase = task["phase"_L1].toString();
            return phase == "INTERRUPTED"_L1 || phase == "COMPLETED"_L1 || phase == "FAILED"_L1
                ? QString()
                : u"the killed task stands in "_s + phase;
        }
        return killedTask.isEmpty() ? QString() : u"the killed task is gone"_s;
    }

    TaggedProcesses tagged;
    QHash<QString, QSet<QByteArray>> versions; ///< By file, all contents that a run gives it.
    qint64 usualMs = 0; ///< How long a run takes.
    QList<std::pair<QString, int>> calls; ///< How often an undisturbed run makes each; empty where it can't be traced.
    int unrecorded = 0; ///< Runs that ended between a file and its record.
};

QTEST_GUILESS_MAIN(CrashTest)

#include "tst_crash.moc"
