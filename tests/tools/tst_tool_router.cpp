#include "tool_router.h"

#include "event_bus.h"
#include "few_descriptors.h"
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

    void aRefusedCallIsAnsweredAtOnce_data();
    void aRefusedCallIsAnsweredAtOnce();
    void withoutAGrantNothingIsDone();
    void aGrantForOneActionCoversTheSameCallOnce();
    void fingerprintsDifferExactlyWhenTheActionsDo_data();
    void fingerprintsDifferExactlyWhenTheActionsDo();

    void aFileIsWrittenAndReadBeforeTheCallReturns();
    void anExpectedRevisionIsHandedToTheWorkspace();

    void aProgramAnswersWithItsOutputAndExitCode();
    void aProgramSeesTheWorkspaceAndAnUnchangedEnvironment();
    void aProgramThatReadsItsInputFindsItEmpty();
    void argumentsReachTheProgramAsTheyAre();
    void aSignalIsNoSuccess();
    void aProgramThatCannotBeStartedHasExitCodeMinusOne_data();
    void aProgramThatCannotBeStartedHasExitCodeMinusOne();
    void withoutItsFolderAProgramIsNotStarted();
    void aStartThatFailsAtOnceIsAnsweredLater();
    void withoutAGuardNothingRuns();

    void outputIsCutAfterItsFirstMebibyte();
    void aCharacterCutInTheMiddleBecomesAReplacement();
    void outputWrittenRightBeforeTheEndIsThere_data();
    void outputWrittenRightBeforeTheEndIsThere();
    void aFloodOfOutputTakesNoMemory();

    void timeLimitsAreClamped_data();
    void timeLimitsAreClamped();
    void aProgramIsKilledAtItsTimeLimit();
    void nothingOutlivesItsAction_data();
    void nothingOutlivesItsAction();

    void cancellingKillsEverythingInSilence();
    void theEndOfTheRouterEndsItsPrograms();
    void programsRunSideBySide();
    void aCallbackMayStartTheNextProgram();
    void aCallbackMayCancelTheOthers();
    void aCallbackMayDeleteTheRouter();
    void whatACallbackThrowsGoesNoFurther();
    void manyRunsLeaveNoDescriptorsOpen();

private:
    std::unique_ptr<Desk> desk;
};

void ToolRouterTest::aRefusedCallIsAnsweredAtOnce_data()
{
    QTest::addColumn<QStringList>("allowed");
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QJsonObject>("arguments");
    QTest::addColumn<QString>("error");
    const auto row
        = [](const char *name, const QString &tool, const QJsonObject &arguments, const QString &error,
             const QStringList &allowed = allTools) { QTest::newRow(name) << allowed << tool << arguments << error; };
    const QString missing = u"Agent does not have this tool capability"_s;
    row("not the agent's", u"write_file"_s, {}, missing, {u"read_file"_s});
    row("unknown and not the agent's", u"format_disk"_s, {}, missing);
    row("other case", u"Read_File"_s, {{u"path"_s, u"a"_s}}, missing);
    row("unknown", u"format_disk"_s, {}, u"Unknown tool"_s, {u"format_disk"_s});

    const QString relative = u"Terminal requires absolute executable path"_s;
    const QJsonArray none;
    row("bare program", u"run_command"_s, {{u"program"_s, u"node"_s}, {u"arguments"_s, none}}, relative);
    row("relative program", u"run_command"_s, {{u"program"_s, u"./sh"_s}, {u"arguments"_s, none}}, relative);
    row("resource", u"run_command"_s, {{u"program"_s, u":/qt-project.org"_s}, {u"arguments"_s, none}}, relative);
    row("program is a number", u"run_command"_s, {{u"program"_s, 1}, {u"arguments"_s, none}}, relative);
    row("no program", u"run_command"_s, {{u"arguments"_s, none}}, relative);
    row("program is not there", u"run_command"_s, {{u"program"_s, u"/no/such"_s}, {u"arguments"_s, none}},
        u"Executable not found"_s);
    row("program with a zero", u"run_command"_s, {{u"program"_s, u"/bin/sh\0x"_s}, {u"arguments"_s, none}},
        u"Executable not found"_s);
    row("no arguments", u"run_command"_s, {{u"program"_s, u"/bin/sh"_s}}, u"arguments must be an array"_s);
    row("arguments are a text", u"run_command"_s, {{u"program"_s, u"/bin/sh"_s}, {u"arguments"_s, u"-c"_s}},
        u"arguments must be an array"_s);
    row("number among the arguments", u"run_command"_s,
        {{u"program"_s, u"/bin/sh"_s}, {u"arguments"_s, QJsonArray{u"-c"_s, 5}}}, u"Argument must be a string"_s);
    row("argument with a zero", u"run_command"_s,
        {{u"program"_s, u"/bin/sh"_s}, {u"arguments"_s, QJsonArray{u"a\0b"_s}}}, u"Argument must be a string"_s);

    row("no path", u"read_file"_s, {}, u"path must be a string"_s);
    row("path is a number", u"write_file"_s, {{u"path"_s, 5}, {u"content"_s, u""_s}}, u"path must be a string"_s);
    row("no content", u"write_file"_s, {{u"path"_s, u"a.txt"_s}}, u"content must be a string"_s);
    row("content is a number", u"write_file"_s, {{u"path"_s, u"a.txt"_s}, {u"content"_s, 5}},
        u"content must be a string"_s);
}

void ToolRouterTest::aRefusedCallIsAnsweredAtOnce()
{
    QFETCH(QStringList, allowed);
    QFETCH(QString, tool);
    QFETCH(QJsonObject, arguments);
    QFETCH(QString, error);

    desk->start(tool, arguments, allowed);

    QCOMPARE(desk->answers.size(), 1);
    const QJsonObject record = desk->answers.first();
    QCOMPARE(record["error"].toString(), error);
    QCOMPARE(record["success"], QJsonValue(false));
    QCOMPARE(record["duration_ms"], QJsonValue(0));
    QCOMPARE(record["tool"].toString(), tool);
    QCOMPARE(record["arguments"].toObject(), arguments);
    QCOMPARE(record.keys(),
             QStringList({"agent_id", "arguments", "duration_ms", "error", "id", "started_at", "success", "tool"}));
    QCOMPARE(desk->published(), QStringList("ToolFinished: Tool failed"));
    QCOMPARE(desk->log.first()["data"].toObject(), record);
    QCOMPARE(desk->log.first()["task_id"].toString(), "task");
    QVERIFY(QDir(desk->folder.path()).isEmpty());
}

void ToolRouterTest::withoutAGrantNothingIsDone()
{
    desk->permissions.grants = {{u"write_file"_s, {}, {}, {}, u"SESSION"_s, PermissionLevel::Read}};
    const QJsonObject write{{u"path"_s, u"a.txt"_s}, {u"content"_s, u"text"_s}};
    QCOMPARE(desk->call(u"write_file"_s, write)["error"].toString(), "Permission required for this action");
    QCOMPARE(desk->call(u"read_file"_s, write)["error"].toString(), "Permission required for this action");
    QCOMPARE(desk->shell(u"echo > b.txt"_s)["error"].toString(), "Permission required for this action");
    QCOMPARE(desk->published(), QStringList("ToolFinished: Tool failed"));
    QVERIFY(QDir(desk->folder.path()).isEmpty());
}

void ToolRouterTest::aGrantForOneActionCoversTheSameCallOnce()
{
    const QJsonObject granted = Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 0"_s});
    desk->permissions.grants
        = {{u"run_command"_s, u"task"_s, u"project"_s, ToolRouter::fingerprint(u"run_command"_s, granted),
            u"THIS_ACTION"_s, PermissionLevel::Execute}};

    const QString refused = u"Permission required for this action"_s;
    QCOMPARE(desk->shell(u"exit 1"_s)["error"].toString(), refused);
    QCOMPARE(desk->call(u"run_command"_s, granted)["success"], QJsonValue(true));
    QCOMPARE(desk->call(u"run_command"_s, granted)["error"].toString(), refused);
}

void ToolRouterTest::fingerprintsDifferExactlyWhenTheActionsDo_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QByteArray>("arguments");
    QTest::addColumn<bool>("same");
    QTest::newRow("the same") << u"run_command"_s << R"({"program": "/a", "arguments": ["b"]})"_ba << true;
    QTest::newRow("other order of keys") << u"run_command"_s << R"({"arguments": ["b"], "program": "/a"})"_ba << true;
    QTest::newRow("other tool") << u"read_file"_s << R"({"program": "/a", "arguments": ["b"]})"_ba << false;
    QTest::newRow("other value") << u"run_command"_s << R"({"program": "/b", "arguments": ["b"]})"_ba << false;
    QTest::newRow("one key more") << u"run_command"_s << R"({"program": "/a", "arguments": ["b"], "timeout_ms": 1})"_ba
                                  << false;
    QTest::newRow("other split") << u"run_command"_s << R"({"program": "/a", "arguments": ["b", ""]})"_ba << false;
}

void ToolRouterTest::fingerprintsDifferExactlyWhenTheActionsDo()
{
    QFETCH(QString, tool);
    QFETCH(QByteArray, arguments);
    QFETCH(bool, same);
    // SHA-256 of: run_command{"arguments":["b"],"program":"/a"}
    const QString expected
        = ToolRouter::fingerprint(u"run_command"_s, {{u"program"_s, u"/a"_s}, {u"arguments"_s, QJsonArray{u"b"_s}}});
    QCOMPARE(expected, "9754c8459de5765d7cb017564a028fcc403fd0873b1f3e82597ecfa9be5d472e");
    const QJsonObject object = QJsonDocument::fromJson(arguments).object();
    QCOMPARE(ToolRouter::fingerprint(tool, object) == expected, same);
}

void ToolRouterTest::aFileIsWrittenAndReadBeforeTheCallReturns()
{
    const QJsonObject write{{u"path"_s, u"notes/a.txt"_s}, {u"content"_s, u"Привет, \U0001F600\n"_s}};
    desk->start(u"write_file"_s, write);
    QCOMPARE(desk->answers.size(), 1);
    const QJsonObject written = desk->answers.first();
    QCOMPARE(written["success"], QJsonValue(true));
    QCOMPARE(written["revision"].toObject()["author_agent"].toString(), "agent");
    QCOMPARE(written["duration_ms"], QJsonValue(0));
    QCOMPARE(desk->published(), QStringList({"ToolCalled: write_file", "ToolFinished: Tool completed"}));
    const QJsonObject called = desk->log.first()["data"].toObject();
    QCOMPARE(called.keys(), QStringList({"agent_id", "arguments", "id", "started_at", "tool"}));
    QCOMPARE(called["id"], written["id"]);

    desk->start(u"read_file"_s, {{u"path"_s, u"notes/a.txt"_s}});
    QCOMPARE(desk->answers.size(), 2);
    QCOMPARE(desk->answers.last()["content"], write["content"]);
    QVERIFY(desk->answers.last()["id"] != written["id"]);

    desk->start(u"read_file"_s, {{u"path"_s, u"missing.txt"_s}});
    QCOMPARE(desk->answers.last()["success"], QJsonValue(false));
    QVERIFY(!desk->answers.last()["error"].toString().isEmpty());
    QCOMPARE(desk->published().last(), "ToolFinished: Tool failed");
}

void ToolRouterTest::anExpectedRevisionIsHandedToTheWorkspace()
{
    const auto write = [this](const QString &content, const QJsonValue &expected) {
        QJsonObject arguments{{u"path"_s, u"a.txt"_s}, {u"content"_s, content}};
        if (!expected.isUndefined())
            arguments["expected_revision"] = expected;
        return desk->call(u"write_file"_s, arguments);
    };
    const int first = write(u"one"_s, 0)["revision"].toObject()["revision"].toInt();
    QCOMPARE(first, 1);
    QCOMPARE(write(u"two"_s, first)["success"], QJsonValue(true));
    QCOMPARE(write(u"three"_s, first)["success"], QJsonValue(false));
    QCOMPARE(desk->call(u"read_file"_s, {{u"path"_s, u"a.txt"_s}})["content"].toString(), "two");
    QCOMPARE(write(u"four"_s, QJsonValue::Undefined)["success"], QJsonValue(true));
}

void ToolRouterTest::aProgramAnswersWithItsOutputAndExitCode()
{
    const QJsonObject record = desk->shell(u"echo Ответ; echo error >&2; exit 3"_s);
    QCOMPARE(record["success"], QJsonValue(false));
    QCOMPARE(record["exit_code"], QJsonValue(3));
    QCOMPARE(record["stdout"].toString(), "Ответ\n");
    QCOMPARE(record["stderr"].toString(), "error\n");
    QCOMPARE(record["timed_out"], QJsonValue(false));
    QVERIFY(record["duration_ms"].toInt(-1) >= 0);
    QCOMPARE(record.keys(),
             QStringList({"agent_id", "arguments", "duration_ms", "exit_code", "id", "started_at", "stderr", "stdout",
                          "success", "timed_out", "tool"}));
    QCOMPARE(desk->published(), QStringList({"ToolCalled: run_command", "ToolFinished: Tool failed"}));
    QCOMPARE(desk->log.last()["data"].toObject(), record);

    QCOMPARE(desk->shell(u"exit 0"_s)["success"], QJsonValue(true));
    QCOMPARE(desk->published().last(), "ToolFinished: Tool completed");
}

void ToolRouterTest::aProgramSeesTheWorkspaceAndAnUnchangedEnvironment()
{
    const QString folder = QFileInfo(desk->folder.path()).canonicalFilePath();
    QCOMPARE(desk->run(u"/bin/pwd"_s, {u"-P"_s})["stdout"].toString().trimmed(), folder);

    qputenv("VESK_TEST_LINE", "Привет = мир");
    QStringList expected = QProcessEnvironment::systemEnvironment().toStringList();
    QStringList seen = desk->run(u"/usr/bin/env"_s, {u"-0"_s})["stdout"].toString().split(QChar::Null);
    qunsetenv("VESK_TEST_LINE");
    seen.removeAll(QString());
    std::ranges::sort(expected);
    std::ranges::sort(seen);
    QCOMPARE(seen, expected);
}

void ToolRouterTest::aProgramThatReadsItsInputFindsItEmpty()
{
    const QJsonObject record = desk->run(u"/bin/cat"_s, {}, 5000);
    QCOMPARE(record["success"], QJsonValue(true));
    QCOMPARE(record["stdout"].toString(), "");
}

void ToolRouterTest::argumentsReachTheProgramAsTheyAre()
{
    const QStringList hard{u""_s, u"two words"_s, u"$HOME `id` ; \"'\\"_s, u"--"_s, u"--status"_s, u"линия\nдва"_s};
    const QJsonObject record = desk->run(u"/bin/sh"_s, QStringList{u"-c"_s, u"printf '<%s>' \"$@\""_s, u"sh"_s} + hard);
    QCOMPARE(record["stdout"].toString(), u'<' + hard.join(u"><"_s) + u'>');
}

void ToolRouterTest::aSignalIsNoSuccess()
{
    const QJsonObject record = desk->shell(u"echo before; kill -TERM $$"_s);
    QCOMPARE(record["success"], QJsonValue(false));
    QCOMPARE(record["exit_code"], QJsonValue(15));
    QCOMPARE(record["stdout"].toString(), "before\n");
    QCOMPARE(record["timed_out"], QJsonValue(false));
}

void ToolRouterTest::aProgramThatCannotBeStartedHasExitCodeMinusOne_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("executable");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no right to execute") << "#!/bin/sh\n"_ba << false << u"Permission denied"_s;
    QTest::newRow("no program at all") << "exit 0\n"_ba << true << u"Exec format error"_s;
    QTest::newRow("missing interpreter") << "#!/no/such\n"_ba << true << u"No such file or directory"_s;
}

void ToolRouterTest::aProgramThatCannotBeStartedHasExitCodeMinusOne()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, executable);
    QFETCH(QString, reason);
    QFile file(desk->folder.filePath(u"program"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | (executable ? QFile::ExeOwner : QFile::Permission{}));

    const QJsonObject record = desk->run(file.fileName(), {});

    QCOMPARE(record["success"], QJsonValue(false));
    QCOMPARE(record["exit_code"], QJsonValue(-1));
    QVERIFY(!record.contains("error"));
    QCOMPARE(record["stderr"].toString(), file.fileName() + u": "_s + reason + u'\n');
}

void ToolRouterTest::withoutItsFolderAProgramIsNotStarted()
{
    desk->folder.remove();
    desk->start(u"run_command"_s, Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 0"_s}));
    QCOMPARE(desk->answers.size(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(desk->answers.size(), 1, patience);
    QCOMPARE(desk->answers.first()["exit_code"], QJsonValue(-1));
    QCOMPARE(desk->answers.first()["success"], QJsonValue(false));
    QVERIFY(!desk->answers.first().contains("error"));
    QVERIFY(desk->answers.first()["stderr"].toString().contains("No such file or directory"));
}

void ToolRouterTest::aStartThatFailsAtOnceIsAnsweredLater()
{
    for (const bool cancelled : {false, true}) {
        desk->answers.clear();
        QTest::ignoreMessage(QtWarningMsg, "QProcess: Cannot create pipe (Too many open files)");
        {
            const FewDescriptors enoughForTheContainmentOnly(6);
            desk->start(u"run_command"_s, Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 0"_s}));
        }
        QCOMPARE(desk->answers.size(), 0);
        if (cancelled)
            desk->router->cancelAll();
        QTRY_VERIFY_WITH_TIMEOUT(desk->router->children().isEmpty(), patience);
        QCOMPARE(desk->answers.size(), cancelled ? 0 : 1);
    }
}

void ToolRouterTest::withoutAGuardNothingRuns()
{
    ProcessContainment::useGuard(u"/no/such/guard"_s);
    const QJsonObject record = desk->shell(u"exit 0"_s);
    ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
    QCOMPARE(record["error"].toString(), "Cannot create process job");
    QCOMPARE(desk->published(), QStringList({"ToolCalled: run_command", "ToolFinished: Tool failed"}));
}

void ToolRouterTest::outputIsCutAfterItsFirstMebibyte()
{
    const QJsonObject record = desk->run(treeProgram, {u"flood"_s, u"1"_s, u"start"_s, u"."_s, u"2097152"_s});
    QCOMPARE(record["success"], QJsonValue(true));
    QCOMPARE(record["stdout"].toString().size(), 1048576);
    QVERIFY(record["stdout"].toString().startsWith("start.."));
    QCOMPARE(desk->run(treeProgram, {u"flood"_s, u"2"_s, u""_s, u"."_s, u"1048576"_s})["stderr"].toString().size(),
             1048576);
}

void ToolRouterTest::aCharacterCutInTheMiddleBecomesAReplacement()
{
    const QString text
        = desk->run(treeProgram, {u"flood"_s, u"1"_s, u"x"_s, u"я"_s, u"2097153"_s})["stdout"].toString();
    QCOMPARE(text.size(), 1 + 524287 + 1);
    QVERIFY(text.endsWith(u"яя\uFFFD"_s));
}

void ToolRouterTest::outputWrittenRightBeforeTheEndIsThere_data()
{
    QTest::addColumn<int>("bytes");
    for (const int bytes : {1, 4097, 65536, 65537, 300000})
        QTest::addRow("%d bytes", bytes) << bytes;
}

void ToolRouterTest::outputWrittenRightBeforeTheEndIsThere()
{
    QFETCH(int, bytes);
    for (int round = 0; round < 5; ++round) {
        const QJsonObject record = desk->run(treeProgram, {u"flood"_s, u"1"_s, u""_s, u"."_s, QString::number(bytes)});
        QCOMPARE(record["stdout"].toString().size(), bytes);
    }
}

void ToolRouterTest::aFloodOfOutputTakesNoMemory()
{
    const qint64 before = peakMemoryKib();
    const QString flood = u"'%1' flood 1 '' . 200000000 && touch a & '%1' flood 2 '' . 200000000 && touch b; wait"_s;
    const QJsonObject record = desk->shell(flood.arg(treeProgram));
    QCOMPARE(QDir(desk->folder.path()).entryList(QDir::Files), QStringList({"a", "b"}));
    QCOMPARE(record["success"], QJsonValue(true));
    QCOMPARE(record["stdout"].toString().size(), 1048576);
    QCOMPARE(record["stderr"].toString().size(), 1048576);
    QVERIFY(before > 0);
#ifdef __SANITIZE_ADDRESS__
    QSKIP("The address checks keep freed memory for a while");
#endif
    QCOMPARE_LT(peakMemoryKib() - before, 20 * 1024);
}

void ToolRouterTest::timeLimitsAreClamped_data()
{
    QTest::addColumn<QJsonValue>("given");
    QTest::addColumn<int>("limitMs");
    QTest::newRow("short") << QJsonValue(5) << 100;
    QTest::newRow("negative") << QJsonValue(-1) << 100;
    QTest::newRow("usual") << QJsonValue(45000) << 45000;
    QTest::newRow("long") << QJsonValue(600000) << 120000;
    QTest::newRow("beyond any integer") << QJsonValue(1e12) << 120000;
    QTest::newRow("absent") << QJsonValue(QJsonValue::Undefined) << 30000;
    QTest::newRow("no number") << QJsonValue(u"5"_s) << 30000;
}

void ToolRouterTest::timeLimitsAreClamped()
{
    QFETCH(QJsonValue, given);
    QFETCH(int, limitMs);
    QJsonObject arguments = Desk::sleeping();
    arguments["timeout_ms"] = given;
    desk->start(u"run_command"_s, arguments);
    const auto *timer = desk->router->findChild<QTimer *>();
    QVERIFY(timer);
    QCOMPARE(timer->interval(), limitMs);
    QVERIFY(timer->isActive() && timer->isSingleShot());
}

void ToolRouterTest::aProgramIsKilledAtItsTimeLimit()
{
    const TaggedProcesses tagged;
    QElapsedTimer clock;
    clock.start();
    const QJsonObject record = desk->shell(u"trap '' TERM; echo before; sleep 600 & sleep 600"_s, 200);
    QCOMPARE(tagged.alive(), 0);
    QCOMPARE_LT(clock.elapsed(), 10000);
    QCOMPARE(record["success"], QJsonValue(false));
    QCOMPARE(record["timed_out"], QJsonValue(true));
    QCOMPARE(record["exit_code"], QJsonValue(9));
    QCOMPARE(record["stdout"].toString(), "before\n");
    QVERIFY(record["duration_ms"].toInt() >= 200);
    QCOMPARE(desk->published().last(), "ToolFinished: Tool failed");
}

void ToolRouterTest::nothingOutlivesItsAction_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("timedOut");
    QTest::newRow("a daemon is left") << QStringList{u"daemon"_s, u"5"_s} << 5 << false;
    QTest::newRow("deaf to signals, many sessions") << QStringList{u"grow"_s, u"7"_s, u"2"_s} << 9 << true;
    QTest::newRow("forks without end") << QStringList{u"hop"_s, u"4"_s} << 9 << true;
    QTest::newRow("closes its descriptors") << QStringList{u"close-all"_s} << 9 << true;
    QTest::newRow("stops itself") << QStringList{u"stop-itself"_s} << 9 << true;
    QTest::newRow("stops the guards") << QStringList{u"stop-guards"_s} << 9 << true;
    QTest::newRow("kills the inner guard") << QStringList{u"kill-inner-guard"_s} << 9 << false;
    QTest::newRow("kills the outer guard") << QStringList{u"kill-outer-guard"_s} << 9 << false;
}

void ToolRouterTest::nothingOutlivesItsAction()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(bool, timedOut);
    const TaggedProcesses tagged;
    const QJsonObject record = desk->run(treeProgram, arguments, timedOut ? 500 : 30000);
    // Without its outer guard a run is over for us a moment before the inner one has cleared up.
    if (arguments.first() == "kill-outer-guard")
        QVERIFY(tagged.vanish());
    QCOMPARE(tagged.alive(), 0);
    QCOMPARE(record["exit_code"], QJsonValue(exitCode));
    QCOMPARE(record["timed_out"], QJsonValue(timedOut));
    QCOMPARE(record["success"], QJsonValue(false));
}

void ToolRouterTest::cancellingKillsEverythingInSilence()
{
    const TaggedProcesses tagged;
    for (const QStringList &arguments : {QStringList{u"grow"_s, u"5"_s, u"2"_s}, QStringList{u"close-all"_s}})
        desk->start(u"run_command"_s, Desk::command(treeProgram, arguments));
    QVERIFY(tagged.growTo(2 * processesOfARun + 5 + 25 + 1));

    desk->router->cancelAll();
    desk->log.clear();
    QVERIFY(tagged.vanish());
    QTRY_VERIFY_WITH_TIMEOUT(desk->router->children().isEmpty(), patience);
    QVERIFY(desk->log.isEmpty());
    QVERIFY(desk->answers.isEmpty());

    desk->router->cancelAll();
    QCOMPARE(desk->shell(u"exit 0"_s)["success"], QJsonValue(true));
}

void ToolRouterTest::theEndOfTheRouterEndsItsPrograms()
{
    const TaggedProcesses tagged;
    desk->start(u"run_command"_s, Desk::command(treeProgram, {u"grow"_s, u"5"_s, u"1"_s}));
    desk->start(u"run_command"_s, Desk::sleeping());
    QVERIFY(tagged.growTo(2 * processesOfARun + 5 + 2));
    desk->router.reset();
    QCOMPARE(tagged.alive(), 0);
    QVERIFY(desk->answers.isEmpty());
    QCOMPARE(desk->published(), QStringList({"ToolCalled: run_command", "ToolCalled: run_command"}));
}

void ToolRouterTest::programsRunSideBySide()
{
    // Each ends only when all have begun.
    const QString script = u"touch ready.$1; until [ $(ls ready.* | wc -l) = 20 ]; do sleep 0.05; done; exit $1"_s;
    for (int run = 0; run < 20; ++run) {
        desk->start(u"run_command"_s, Desk::command(u"/bin/sh"_s, {u"-c"_s, script, u"sh"_s, QString::number(run)}));
    }
    QTRY_COMPARE_WITH_TIMEOUT(desk->answers.size(), 20, patience);
    QSet<int> codes;
    for (const QJsonObject &record : std::as_const(desk->answers)) {
        QCOMPARE(record["exit_code"].toInt(), record["arguments"]["arguments"][3].toString().toInt());
        codes.insert(record["exit_code"].toInt());
    }
    QCOMPARE(codes.size(), 20);
}

void ToolRouterTest::aCallbackMayStartTheNextProgram()
{
    int done = 0;
    std::function<void(QJsonObject)> next = [&](const QJsonObject &record) {
        if (record["exit_code"].toInt() == ++done && done < 5)
            desk->router->execute(u"task"_s, u"agent"_s, allTools, u"run_command"_s,
                                  Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit %1"_s.arg(done + 1)}), next);
    };
    desk->router->execute(u"task"_s, u"agent"_s, allTools, u"run_command"_s,
                          Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 1"_s}), next);
    QTRY_COMPARE_WITH_TIMEOUT(done, 5, patience);
}

void ToolRouterTest::aCallbackMayCancelTheOthers()
{
    const TaggedProcesses tagged;
    desk->start(u"run_command"_s, Desk::sleeping());
    bool called = false;
    desk->router->execute(u"task"_s, u"agent"_s, allTools, u"run_command"_s,
                          Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 0"_s}), [&](const QJsonObject &) {
                              called = true;
                              desk->router->cancelAll();
                          });
    QTRY_VERIFY_WITH_TIMEOUT(called, patience);
    QVERIFY(tagged.vanish());
    QVERIFY(desk->answers.isEmpty());
}

void ToolRouterTest::aCallbackMayDeleteTheRouter()
{
    const TaggedProcesses tagged;
    desk->start(u"run_command"_s, Desk::sleeping());
    desk->router->execute(u"task"_s, u"agent"_s, allTools, u"run_command"_s,
                          Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 0"_s}),
                          [&](const QJsonObject &) { desk->router.reset(); });
    QTRY_VERIFY_WITH_TIMEOUT(!desk->router, patience);
    QCOMPARE(tagged.alive(), 0);
    QVERIFY(desk->answers.isEmpty());

    desk->router = std::make_unique<ToolRouter>(&desk->workspace, &desk->events, &desk->permissions);
    desk->router->execute(u"task"_s, u"agent"_s, allTools, u"read_file"_s, {{u"path"_s, u"missing"_s}},
                          [&](const QJsonObject &) { desk->router.reset(); });
    QVERIFY(!desk->router);
}

void ToolRouterTest::whatACallbackThrowsGoesNoFurther()
{
    int calls = 0;
    const auto throwing = [&](const QJsonObject &) {
        ++calls;
        throw std::runtime_error("not my day");
    };
    QTest::ignoreMessage(QtWarningMsg, "A tool's callback: not my day");
    desk->router->execute(u"task"_s, u"agent"_s, allTools, u"read_file"_s, {{u"path"_s, u"missing"_s}}, throwing);
    QCOMPARE(calls, 1);

    QTest::ignoreMessage(QtWarningMsg, "A tool's callback: not my day");
    desk->router->execute(u"task"_s, u"agent"_s, allTools, u"run_command"_s,
                          Desk::command(u"/bin/sh"_s, {u"-c"_s, u"exit 0"_s}), throwing);
    QTRY_COMPARE_WITH_TIMEOUT(calls, 2, patience);
    QCOMPARE(desk->shell(u"exit 0"_s)["success"], QJsonValue(true));
}

void ToolRouterTest::manyRunsLeaveNoDescriptorsOpen()
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

QTEST_GUILESS_MAIN(ToolRouterTest)
#include "tst_tool_router.moc"
