#include "process_containment.h"

#include "few_descriptors.h"
#include "tagged_processes.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

#include <fcntl.h>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QString treeProgram = QStringLiteral(PROCESS_TREE_PROGRAM);
// A guard that the application has started, its second, and the program.
constexpr int processesOfARun = 3;
// What takes milliseconds may take seconds on a busy machine.
constexpr std::chrono::seconds patience(30);

/// A process of this test that runs one program contained.
struct Contained {
    QProcess process;
    std::shared_ptr<ProcessContainment> containment = std::make_shared<ProcessContainment>();

    QString prepare(const QString &program, const QStringList &arguments)
    {
        return containment->prepare(process, program, arguments);
    }

    bool start(const QString &program, const QStringList &arguments)
    {
        if (!prepare(program, arguments).isEmpty())
            return false;
        process.start();
        return process.waitForStarted();
    }

    bool run(const QString &program, const QStringList &arguments)
    {
        return start(program, arguments) && process.waitForFinished();
    }

    bool shell(const QString &script) { return run(u"/bin/sh"_s, {u"-c"_s, script}); }
};

/// The field of /proc/<process>/status.
QByteArray statusField(const QByteArray &status, const QByteArray &name)
{
    for (const QByteArray &line : status.split('\n')) {
        if (line.startsWith(name + ':'))
            return line.sliced(name.size() + 1).trimmed();
    }
    return {};
}

} // namespace

class ProcessContainmentTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(guard); }

    void theProcessEndsAsTheProgramEnds()
    {
        for (const int code : {0, 126, 255}) {
            Contained contained;
            QVERIFY(contained.shell(u"exit %1"_s.arg(code)));
            QCOMPARE(contained.process.exitCode(), code);
            QCOMPARE(contained.process.exitStatus(), QProcess::NormalExit);
            QVERIFY(!contained.containment->failedToStart());
        }
        for (const int signal : {SIGTERM, SIGKILL, SIGSEGV}) {
            Contained contained;
            QVERIFY(contained.shell(u"kill -%1 $$"_s.arg(signal)));
            QCOMPARE(contained.process.exitCode(), signal);
            QCOMPARE(contained.process.exitStatus(), QProcess::CrashExit);
        }
    }

    void eachStepThatCanFailHasItsText()
    {
        const QList<std::pair<int, QString>> steps{{1, u"Cannot set process job limits"_s},
                                                   {3, u"Cannot initialize process attributes"_s},
                                                   {4, u"Cannot assign process job attribute"_s},
                                                   {5, {}}};
        for (const auto &[freeDescriptors, text] : steps) {
            Contained contained;
            const FewDescriptors few(freeDescriptors);
            QCOMPARE(contained.prepare(u"/bin/sh"_s, {}), text);
        }
        QVERIFY(Contained().shell(u"exit 0"_s));
    }

    void aGuardThatCannotBeExecutedFailsTheFirstStep()
    {
        const auto restore = qScopeGuard([this] { ProcessContainment::useGuard(guard); });
        for (const QString &wrong : {u"/no/such/guard"_s, u"/tmp"_s, u"/etc/passwd"_s}) {
            ProcessContainment::useGuard(wrong);
            QCOMPARE(Contained().prepare(u"/bin/sh"_s, {}), "Cannot create process job");
        }
    }

    void aProgramHasThreeDescriptorsAndASessionOfItsOwn()
    {
        const int stray = ::open("/dev/null", O_RDONLY); // Without O_CLOEXEC, as a careless library opens files.
        const auto close = qScopeGuard([stray] { ::close(stray); });
        Contained descriptors;
        QVERIFY(descriptors.run(treeProgram, {u"descriptors"_s}));
        QCOMPARE(descriptors.process.readAllStandardOutput(), "0 1 2 ");

        Contained session;
        QVERIFY(session.run(treeProgram, {u"session"_s}));
        QCOMPARE(session.process.readAllStandardOutput(), "1");
    }

    void aProgramStartsWithUsualSignals()
    {
        std::signal(SIGPIPE, SIG_IGN);
        const auto restore = qScopeGuard([] { std::signal(SIGPIPE, SIG_DFL); });
        Contained contained;
        QVERIFY(contained.run(u"/bin/cat"_s, {u"/proc/self/status"_s}));
        const QByteArray status = contained.process.readAllStandardOutput();
        QCOMPARE(statusField(status, "SigBlk"), "0000000000000000");
        QCOMPARE(statusField(status, "SigIgn"), "0000000000000000");
    }

    void aProgramThatIsAskedToEndKeepsItsExitCode()
    {
        const TaggedProcesses tagged;
        Contained contained;
        QVERIFY(contained.start(u"/bin/sh"_s,
                                {u"-c"_s, u"trap 'exit 9' TERM; echo ready; while :; do sleep 0.02; done"_s}));
        QVERIFY(contained.process.waitForReadyRead());
        contained.process.terminate();
        QVERIFY(contained.process.waitForFinished());
        QCOMPARE(contained.process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(contained.process.exitCode(), 9);
        QCOMPARE(tagged.alive(), 0);
    }

    void aProgramThatWillNotEndIsKilledAfterItsGrace()
    {
        const TaggedProcesses tagged;
        Contained contained;
        QVERIFY(contained.start(treeProgram, {u"grow"_s, u"5"_s, u"1"_s}));
        QVERIFY(tagged.growTo(processesOfARun + 5));
        QElapsedTimer clock;
        clock.start();
        contained.process.terminate();
        QVERIFY(contained.process.waitForFinished());
        QCOMPARE_GE(clock.elapsed(), 400);
        QCOMPARE(contained.process.exitCode(), SIGKILL);
        QCOMPARE(tagged.alive(), 0);
    }

    void aProcessWhoseFirstThreadHasEndedIsKilledToo()
    {
        Contained contained;
        QVERIFY(contained.run(treeProgram, {u"leave-thread"_s}));
        const QByteArray process = contained.process.readAllStandardOutput();
        QVERIFY(process.toInt() > 0);
        QVERIFY(!QFile::exists(u"/proc/"_s + process));
    }

    void droppingTheProcessEndsTheTree()
    {
        const TaggedProcesses tagged;
        {
            Contained contained;
            QVERIFY(contained.start(treeProgram, {u"grow"_s, u"5"_s, u"2"_s}));
            QVERIFY(tagged.growTo(processesOfARun + 5 + 25));
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Destroyed while process .* is still running"_s));
        }
        QVERIFY(tagged.vanish());
    }

    void nothingOutlivesItsProgram_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("atLeast"); // Alive before the program is ended; 0 when it ends by itself.
        QTest::addColumn<int>("exitCode");
        QTest::newRow("a daemon") << QStringList{u"daemon"_s, u"5"_s} << 0 << 5;
        QTest::newRow("deaf sessions") << QStringList{u"grow"_s, u"7"_s, u"2"_s} << processesOfARun + 56 << 9;
        QTest::newRow("forks without end") << QStringList{u"hop"_s, u"4"_s} << processesOfARun << 9;
        QTest::newRow("a bomb") << QStringList{u"bomb"_s, u"150"_s} << 60 << 9;
        for (const QString &what : {u"close-all"_s, u"stop-itself"_s, u"stop-guards"_s})
            QTest::newRow(qPrintable(what)) << QStringList{what} << processesOfARun + 1 << 9;
        for (const QString &what : {u"kill-inner-guard"_s, u"kill-outer-guard"_s})
            QTest::newRow(qPrintable(what)) << QStringList{what} << 0 << 9;
    }

    void nothingOutlivesItsProgram()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, atLeast);
        const TaggedProcesses tagged;
        Contained contained;
        QVERIFY(contained.start(treeProgram, arguments));
        if (atLeast > 0) {
            QVERIFY(tagged.growTo(atLeast));
            ProcessContainment::end(contained.process);
        }
        QTRY_COMPARE_WITH_TIMEOUT(contained.process.state(), QProcess::NotRunning, 30000);
        QTEST(contained.process.exitCode(), "exitCode");
        // Without its outer guard a program is over for us a moment before the inner one has cleared up.
        QVERIFY(arguments.first() == "kill-outer-guard" ? tagged.vanish() : tagged.alive() == 0);
    }

    void nothingSurvivesAKilledApplication_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("atLeast"); // Alive before the application is killed,
        QTest::addColumn<int>("stopped"); // and stopped among them.
        constexpr int application = 1;
        QTest::newRow("a large tree") << QStringList{u"grow"_s, u"10"_s, u"2"_s} << application + processesOfARun + 110
                                      << 0;
        QTest::newRow("a daemon") << QStringList{u"close-all"_s} << application + processesOfARun + 1 << 0;
        QTest::newRow("forks without end") << QStringList{u"hop"_s, u"4"_s} << application + processesOfARun << 0;
        QTest::newRow("stopped guards") << QStringList{u"stop-guards"_s} << application + processesOfARun + 1 << 2;
    }

    void nothingSurvivesAKilledApplication()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, atLeast);
        QFETCH(int, stopped);
        const TaggedProcesses tagged;
        QProcess application;
        application.start(QStringLiteral(CONTAINED_APP_PROGRAM), QStringList{guard, treeProgram} + arguments);
        QVERIFY(application.waitForStarted());
        QVERIFY(tagged.growTo(atLeast));
        QVERIFY(tagged.stopTo(stopped));

        application.kill();
        QVERIFY(application.waitForFinished());
        QVERIFY(tagged.vanish());
    }

    void aKilledApplicationLeavesItsProgramAMomentToClearUp()
    {
        const TaggedProcesses tagged;
        const QTemporaryDir folder;
        const QString script = u"exec 2>&-; trap ': > asked; exit' TERM; : > ready; while :; do sleep 0.02; done"_s;
        QProcess application;
        application.setWorkingDirectory(folder.path());
        application.start(QStringLiteral(CONTAINED_APP_PROGRAM), {guard, u"/bin/sh"_s, u"-c"_s, script});
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(folder.filePath(u"ready"_s)), patience);
        application.kill();
        QVERIFY(application.waitForFinished());
        QVERIFY(tagged.vanish());
        QVERIFY(QFile::exists(folder.filePath(u"asked"_s)));
    }

private:
    const QString guard = QStringLiteral(VESK_GUARD_PROGRAM);
};

QTEST_GUILESS_MAIN(ProcessContainmentTest)
#include "tst_process_containment.moc"
