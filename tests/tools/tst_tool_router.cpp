#include "tool_router.h"

#include "event_bus.h"
#include "files.h"
#include "permissions.h"
#include "process_containment.h"
#include "store.h"
#include "tagged_processes.h"
#include "workspace.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTestEventLoop>
#include <QTimer>

#include <memory>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QStringList allTools{u"read_file"_s, u"write_file"_s, u"run_command"_s};

/// A router over a real workspace, with a grant for everything.
struct Desk {
    Desk()
    {
        workspace.open(folder.path(), u"project"_s);
        for (const QString &tool : allTools)
            permissions.grants.append({tool, {}, {}, {}, u"SESSION"_s, PermissionLevel::Execute});
        QObject::connect(&events, &EventBus::event, &events, [this](const QJsonObject &event) { log.append(event); });
    }

    void start(const QString &tool, const QJsonObject &arguments, const QStringList &allowed = allTools)
    {
        router->execute(u"task"_s, u"agent"_s, allowed, tool, arguments, [this](const QJsonObject &record) {
            answers.append(record);
            waiting.exitLoop();
        });
    }

    /// The answer to one call; empty when there was not exactly one.
    QJsonObject call(const QString &tool, const QJsonObject &arguments, const QStringList &allowed = allTools)
    {
        answers.clear();
        log.clear();
        start(tool, arguments, allowed);
        if (answers.isEmpty())
            waiting.enterLoop(std::chrono::seconds(40));
        return answers.size() == 1 ? answers.first() : QJsonObject();
    }

    QJsonObject run(const QString &program, const QStringList &arguments, int timeoutMs = 30000)
    {
        return call(u"run_command"_s, command(program, arguments, timeoutMs));
    }

    QJsonObject shell(const QString &script, int timeoutMs = 30000)
    {
        return run(u"/bin/sh"_s, {u"-c"_s, script}, timeoutMs);
    }

    void execute(const QString &script, const std::function<void(QJsonObject)> &callback)
    {
        router->execute(u"task"_s, u"agent"_s, allTools, u"run_command"_s, command(u"/bin/sh"_s, {u"-c"_s, script}),
                        callback);
    }

    static QJsonObject command(const QString &program, const QStringList &arguments, int timeoutMs = 30000)
    {
        return {{u"program"_s, program},
                {u"arguments"_s, QJsonArray::fromStringList(arguments)},
                {u"timeout_ms"_s, timeoutMs}};
    }

    static QJsonObject sleeping() { return command(u"/bin/sh"_s, {u"-c"_s, u"sleep 600 & sleep 600"_s}); }

    QStringList published() const
    {
        QStringList list;
        for (const QJsonObject &event : log)
            list.append(event["type"_L1].toString() + u": "_s + event["message"_L1].toString());
        return list;
    }

    QTemporaryDir folder;
    QTemporaryDir data;
    Store store{data.filePath(u"vesk.db"_s)};
    Workspace workspace{store};
    EventBus events;
    PermissionManager permissions;
    std::unique_ptr<ToolRouter> router = std::make_unique<ToolRouter>(&workspace, &events, &permissions);
    QList<QJsonObject> answers;
    QList<QJsonObject> log;
    QTestEventLoop waiting; ///< A true event loop; qWait() sleeps between two looks at the events.
};

const QString treeProgram = QStringLiteral(PROCESS_TREE_PROGRAM);
// A guard that the application has started, its second, and the program.
constexpr int processesOfARun = 3;
// What takes milliseconds may take seconds on a busy machine.
constexpr std::chrono::seconds patience(30);

qint64 peakMemoryKib()
{
    QFile file(u"/proc/self/status"_s);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = file.readAll();
    return text.sliced(text.indexOf("VmHWM:") + 6).simplified().split(' ').first().toLongLong();
}

int openDescriptors()
{
    return int(QDir(u"/proc/self/fd"_s).entryList(QDir::Files | QDir::System | QDir::NoDotAndDotDot).size());
}

} // namespace

class ToolRouterTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM)); }
    void init() { desk = std::make_unique<Desk>(); }
    void cleanup() { desk.reset(); }

    void aRefusedCallIsAnsweredAtOnce()
    {
        struct Row {
            QString tool;
            QJsonObject arguments;
            QString error;
            QStringList allowed = allTools;
        };
        const QString relative = u"Terminal requires absolute executable path"_s;
        const QList<Row> rows{
            {u"write_file"_s, {}, u"Agent does not have this tool capability"_s, {u"read_file"_s}},
            {u"format_disk"_s, {}, u"Unknown tool"_s, {u"format_disk"_s}},
            {u"run_command"_s, Desk::command(u"node"_s, {}), relative},
            {u"run_command"_s, Desk::command(u":/qt-project.org"_s, {}), relative},
            {u"run_command"_s, Desk::command(u"/no/such"_s, {}), u"Executable not found"_s},
            {u"run_command"_s, Desk::command(u"/bin/sh\0x"_s, {}), u"Executable not found"_s},
            {u"run_command"_s, Desk::command(u"/bin/sh"_s, {u"a\0b"_s}), u"Argument must be a string"_s},
            {u"run_command"_s,
             {{u"program"_s, u"/bin/sh"_s}, {u"arguments"_s, u"-c"_s}},
             u"arguments must be an array"_s},
            {u"write_file"_s, {{u"path"_s, 5}, {u"content"_s, u""_s}}, u"path must be a string"_s},
            {u"write_file"_s, {{u"path"_s, u"a.txt"_s}}, u"content must be a string"_s},
        };
        for (const auto &[tool, arguments, error, allowed] : rows) {
            init();
            desk->start(tool, arguments, allowed);
            QCOMPARE(desk->answers.size(), 1);
            const QJsonObject record = desk->answers.first();
            QCOMPARE(record["error"].toString(), error);
            QCOMPARE(record["success"], QJsonValue(false));
            QCOMPARE(record["tool"].toString(), tool);
            QCOMPARE(record["arguments"].toObject(), arguments);
            QCOMPARE(desk->published(), QStringList("ToolFinished: Tool failed"));
            QCOMPARE(desk->log.first()["data"].toObject(), record);
            QVERIFY(QDir(desk->folder.path()).isEmpty());
        }
    }

    void withoutAGrantNothingIsDone()
    {
        desk->permissions.grants = {{u"write_file"_s, {}, {}, {}, u"SESSION"_s, PermissionLevel::Read},
                                    {u"run_command"_s, {}, {}, {}, u"SESSION"_s, PermissionLevel::Write}};
        const QJsonObject write{{u"path"_s, u"a.txt"_s}, {u"content"_s, u"text"_s}};
        QCOMPARE(desk->call(u"write_file"_s, write)["error"].toString(), "Permission required for this action");
        QCOMPARE(desk->call(u"read_file"_s, write)["error"].toString(), "Permission required for this action");
        QCOMPARE(desk->shell(u"echo > b.txt"_s)["error"].toString(), "Permission required for this action");
        QCOMPARE(desk->published(), QStringList("ToolFinished: Tool failed"));
        QVERIFY(QDir(desk->folder.path()).isEmpty());

        desk->permissions.grants = {{u"read_file"_s, {}, {}, {}, u"SESSION"_s, PermissionLevel::Read}};
        QCOMPARE(desk->call(u"read_file"_s, write)["error"].toString(), "Cannot read a.txt");
    }

    void fingerprintsDifferExactlyWhenTheActionsDo()
    {
        const auto print = [](const QString &tool, const QByteArray &arguments) {
            return ToolRouter::fingerprint(tool, QJsonDocument::fromJson(arguments).object());
        };
        // SHA-256 of: run_command{"arguments":["b"],"program":"/a"}
        const QString expected = u"9754c8459de5765d7cb017564a028fcc403fd0873b1f3e82597ecfa9be5d472e"_s;
        QCOMPARE(print(u"run_command"_s, R"({"program": "/a", "arguments": ["b"]})"), expected);
        QVERIFY(print(u"read_file"_s, R"({"program": "/a", "arguments": ["b"]})") != expected);
        for (const char *other :
             {R"({"program": "/b", "arguments": ["b"]})", R"({"program": "/a", "arguments": ["b", ""]})",
              R"({"program": "/a", "arguments": ["b"], "timeout_ms": 1})"})
            QVERIFY2(print(u"run_command"_s, other) != expected, other);
    }

    void aFileIsWrittenAndReadBeforeTheCallReturns()
    {
        const QJsonObject write{{u"path"_s, u"notes/a.txt"_s}, {u"content"_s, u"Привет, \U0001F600\n"_s}};
        desk->start(u"write_file"_s, write);
        QCOMPARE(desk->answers.size(), 1);
        const QJsonObject written = desk->answers.first();
        QCOMPARE(written["success"], QJsonValue(true));
        QCOMPARE(written["revision"].toObject()["author_agent"].toString(), "agent");
        QCOMPARE(desk->published(), QStringList({"ToolCalled: write_file", "ToolFinished: Tool completed"}));
        QCOMPARE(desk->log.first()["data"].toObject()["id"], written["id"]);

        desk->start(u"read_file"_s, {{u"path"_s, u"notes/a.txt"_s}});
        QCOMPARE(desk->answers.value(1)["content"], write["content"]);

        desk->start(u"read_file"_s, {{u"path"_s, u"missing.txt"_s}});
        QCOMPARE(desk->answers.value(2)["success"], QJsonValue(false));
        QVERIFY(!desk->answers.last()["error"].toString().isEmpty());
        QCOMPARE(desk->published().last(), "ToolFinished: Tool failed");
    }

    void anExpectedRevisionIsHandedToTheWorkspace()
    {
        const auto isWritten = [this](const QString &content, int expected) {
            return desk
                ->call(
                    u"write_file"_s,
                    {{u"path"_s, u"a.txt"_s}, {u"content"_s, content}, {u"expected_revision"_s, expected}})["success"]
                .toBool();
        };
        QVERIFY(isWritten(u"one"_s, 0));
        QVERIFY(!isWritten(u"two"_s, 0));
        QVERIFY(isWritten(u"three"_s, 1));
        QVERIFY(desk->call(u"write_file"_s, {{u"path"_s, u"a.txt"_s}, {u"content"_s, u"four"_s}})["success"].toBool());
    }

    void aProgramAnswersWithItsOutputAndExitCode()
    {
        const QJsonObject record = desk->shell(u"echo Ответ; echo error >&2; exit 3"_s);
        QCOMPARE(record["success"], QJsonValue(false));
        QCOMPARE(record["exit_code"], QJsonValue(3));
        QCOMPARE(record["stdout"].toString(), "Ответ\n");
        QCOMPARE(record["stderr"].toString(), "error\n");
        QCOMPARE(record["timed_out"], QJsonValue(false));
        QVERIFY(record["duration_ms"].toInt(-1) >= 0);
        QCOMPARE(desk->published(), QStringList({"ToolCalled: run_command", "ToolFinished: Tool failed"}));
        QCOMPARE(desk->log.last()["data"].toObject(), record);

        QCOMPARE(desk->run(u"/bin/cat"_s, {}, 5000)["success"], QJsonValue(true)); // finds its input empty
        QCOMPARE(desk->published().last(), "ToolFinished: Tool completed");
    }

    void aProgramSeesAnUnchangedEnvironment()
    {
        qputenv("VESK_TEST_LINE", "Привет = мир");
        QStringList expected = QProcessEnvironment::systemEnvironment().toStringList();
        QStringList seen = desk->run(u"/usr/bin/env"_s, {u"-0"_s})["stdout"].toString().split(QChar::Null);
        qunsetenv("VESK_TEST_LINE");
        seen.removeAll(QString());
        std::ranges::sort(expected);
        std::ranges::sort(seen);
        QCOMPARE(seen, expected);
    }

    void argumentsReachTheProgramAsTheyAre()
    {
        const QStringList hard{u""_s, u"two words"_s, u"$HOME `id` ; \"'\\"_s, u"--"_s, u"--status"_s, u"линия\nдва"_s};
        const QJsonObject record
            = desk->run(u"/bin/sh"_s, QStringList{u"-c"_s, u"printf '<%s>' \"$@\""_s, u"sh"_s} + hard);
        QCOMPARE(record["stdout"].toString(), u'<' + hard.join(u"><"_s) + u'>');
    }

    void aProgramThatCannotBeStartedHasExitCodeMinusOne()
    {
        const QString program = desk->folder.filePath(u"program"_s);
        save(program, "exit 0\n");
        for (const char *reason : {"Permission denied\n", "Exec format error\n"}) {
            const QJsonObject record = desk->run(program, {});
            QCOMPARE(record["exit_code"], QJsonValue(-1));
            QCOMPARE(record["success"], QJsonValue(false));
            QVERIFY2(record["stderr"].toString().endsWith(reason), qPrintable(record["stderr"].toString()));
            QFile::setPermissions(program, QFile::ReadOwner | QFile::ExeOwner);
        }
    }

    void withoutAGuardNothingRuns()
    {
        ProcessContainment::useGuard(u"/no/such/guard"_s);
        const QJsonObject record = desk->shell(u"exit 0"_s);
        ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
        QCOMPARE(record["error"].toString(), "Cannot create process job");
        QCOMPARE(desk->published(), QStringList({"ToolCalled: run_command", "ToolFinished: Tool failed"}));
    }

    void outputWrittenRightBeforeTheEndIsThere()
    {
        for (const int bytes : {1, 4097, 65536, 65537, 300000}) {
            for (int round = 0; round < 5; ++round) {
                const QJsonObject record
                    = desk->run(treeProgram, {u"flood"_s, u"1"_s, u""_s, u"."_s, QString::number(bytes)});
                QCOMPARE(record["stdout"].toString().size(), bytes);
            }
        }
    }

    void aFloodOfOutputTakesNoMemory()
    {
        const qint64 before = peakMemoryKib();
        const QString flood
            = u"'%1' flood 1 start . 200000000 && touch a & '%1' flood 2 start . 200000000 && touch b; wait"_s;
        const QJsonObject record = desk->shell(flood.arg(treeProgram));
        QCOMPARE(QDir(desk->folder.path()).entryList(QDir::Files), QStringList({"a", "b"}));
        QCOMPARE(record["success"], QJsonValue(true));
        for (const char *stream : {"stdout", "stderr"}) {
            QCOMPARE(record[stream].toString().size(), 1048576);
            QVERIFY(record[stream].toString().startsWith("start..")); // its first part
        }
        QVERIFY(before > 0);
#ifdef __SANITIZE_ADDRESS__
        QSKIP("The address checks keep freed memory for a while");
#endif
        QCOMPARE_LT(peakMemoryKib() - before, 20 * 1024);
    }

    void timeLimitsAreClamped()
    {
        const QList<std::pair<QJsonValue, int>> limits{
            {5, 100}, {-1, 100}, {45000, 45000}, {1e12, 120000}, {QJsonValue::Undefined, 30000}, {u"5"_s, 30000}};
        for (const auto &[given, limitMs] : limits) {
            QJsonObject arguments = Desk::sleeping();
            arguments["timeout_ms"] = given;
            init();
            desk->start(u"run_command"_s, arguments);
            const auto *timer = desk->router->findChild<QTimer *>();
            QVERIFY(timer && timer->isActive() && timer->isSingleShot());
            QCOMPARE(timer->interval(), limitMs);
        }
    }

    void aProgramIsKilledAtItsTimeLimit()
    {
        const TaggedProcesses tagged;
        QElapsedTimer clock;
        clock.start();
        const QJsonObject record = desk->shell(u"trap '' TERM; echo before; sleep 600 & sleep 600"_s, 200);
        QCOMPARE(tagged.alive(), 0);
        QCOMPARE_LT(clock.elapsed(), 60000);
        QCOMPARE(record["success"], QJsonValue(false));
        QCOMPARE(record["timed_out"], QJsonValue(true));
        QCOMPARE(record["exit_code"], QJsonValue(9));
        QCOMPARE(record["stdout"].toString(), "before\n");
        QVERIFY(record["duration_ms"].toInt() >= 200);
        QCOMPARE(desk->published().last(), "ToolFinished: Tool failed");
    }

    void cancellingEndsAllInSilence()
    {
        const TaggedProcesses tagged;
        for (int run = 0; run < 2; ++run)
            desk->start(u"run_command"_s, Desk::sleeping());
        QVERIFY(tagged.growTo(2 * processesOfARun));

        desk->router->cancelAll();
        desk->log.clear();
        QVERIFY(tagged.vanish());
        QTRY_VERIFY_WITH_TIMEOUT(desk->router->children().isEmpty(), patience);
        QVERIFY(desk->log.isEmpty());
        QVERIFY(desk->answers.isEmpty());
        QCOMPARE(desk->shell(u"exit 0"_s)["success"], QJsonValue(true));
    }

    void programsRunSideBySide()
    {
        // Each ends only when all have begun.
        const QString script = u"touch ready.$1; until [ $(ls ready.* | wc -l) = 20 ]; do sleep 0.05; done"_s;
        for (int run = 0; run < 20; ++run)
            desk->start(u"run_command"_s,
                        Desk::command(u"/bin/sh"_s, {u"-c"_s, script, u"sh"_s, QString::number(run)}));
        QTRY_COMPARE_WITH_TIMEOUT(desk->answers.size(), 20, patience);
    }

    void aCallbackMayDeleteTheRouter()
    {
        const TaggedProcesses tagged;
        desk->start(u"run_command"_s, Desk::sleeping());
        desk->execute(u"exit 0"_s, [&](const QJsonObject &) { desk->router.reset(); });
        QTRY_VERIFY_WITH_TIMEOUT(!desk->router, patience);
        QCOMPARE(tagged.alive(), 0);
        QVERIFY(desk->answers.isEmpty());
    }

    void whatACallbackThrowsGoesNoFurther()
    {
        bool called = false;
        QTest::ignoreMessage(QtWarningMsg, "A tool's callback: not my day");
        desk->execute(u"exit 0"_s, [&](const QJsonObject &) {
            called = true;
            throw std::runtime_error("not my day");
        });
        QTRY_VERIFY_WITH_TIMEOUT(called, patience);
        QCOMPARE(desk->shell(u"exit 0"_s)["success"], QJsonValue(true));
    }

    void manyRunsLeaveNoDescriptorsOpen()
    {
        desk->shell(u"exit 0"_s);
        QTRY_VERIFY_WITH_TIMEOUT(desk->router->children().isEmpty(), patience);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        const int before = openDescriptors();
        for (int run = 0; run < 200; ++run)
            QCOMPARE(desk->shell(u"exit 0"_s)["success"], QJsonValue(true));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(openDescriptors(), before);
    }

private:
    std::unique_ptr<Desk> desk;
};

QTEST_GUILESS_MAIN(ToolRouterTest)
#include "tst_tool_router.moc"
