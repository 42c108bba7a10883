#include "json_text.h"
#include "planned_run.h"

#include <QDir>
#include <QJsonDocument>
#include <QTest>

#include <array>
#include <csignal>

using namespace vesk;

namespace {

QStringList approvals(const PlannedRun &run)
{
    QStringList ids;
    for (const QJsonObject &event : run.eventsOf(u"PermissionRequested"_s))
        ids.append(event[u"data"_s][u"id"_s].toString());
    return ids;
}

/// Runs until so many questions have been asked in all.
bool asks(PlannedRun &run, int times)
{
    return run.runUntil([&] { return approvals(run).size() >= times; });
}

QJsonObject terminalRun(const PlannedRun &run)
{
    const QJsonArray runs = run.rows(u"agent_runs"_s);
    for (const QJsonValue &entry : runs) {
        if (entry[u"role"_s] == u"terminal"_s)
            return entry.toObject();
    }
    return {};
}

QJsonObject mcp(const QString &id)
{
    return ScriptedProvider::node(
        id, u"mcp"_s,
        {{u"server_id"_s, u"s"_s}, {u"tool"_s, u"find"_s}, {u"arguments"_s, QJsonObject{{u"query"_s, u"Что?"_s}}}});
}

} // namespace

class ToolsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aCommandWaitsForItsApprovalAndHoldsNobodyElse()
    {
        PlannedRun run({shell(u"t"_s, u"pwd"_s), code(u"a.txt"_s), code(u"b.txt"_s, {u"t"_s})});
        QObject::connect(&run.engine, &Engine::changed, &run.engine, [&] {
            // Before the user is waited for, the question is on disk.
            if (!run.state(u"pending"_s).toArray().isEmpty())
                QCOMPARE(run.storedTask()[u"pending"_s], run.state(u"pending"_s));
        });
        run.start();
        QVERIFY(run.runUntil([&] { return run.status(u"a.txt"_s) == u"COMPLETED"_s; }));

        QCOMPARE(run.phase(), u"EXECUTION"_s);
        QCOMPARE(fields(run.nodes(), u"0.status 2.status"_s), u"BLOCKED QUEUED"_s);
        const QJsonObject input = run.node(u"t"_s)[u"input"_s].toObject();
        const QString id = run.task() + u':' + ToolRouter::fingerprint(u"run_command"_s, input);
        QCOMPARE(run.eventsOf(u"PermissionRequested"_s).first()[u"data"_s].toObject(),
                 QJsonObject({{u"id"_s, id}, {u"arguments"_s, input}, {u"cwd"_s, run.workspace.root()}}));
        QCOMPARE(run.state(u"pending"_s).toArray(),
                 QJsonArray({QJsonObject{{u"id"_s, id}, {u"node"_s, run.node(u"t"_s)}}}));
        QCOMPARE(errorOf([&] { run.engine.approve(u"another"_s, true); }), u"Approval is no longer pending"_s);

        run.engine.approve(id, true);
        QCOMPARE(run.status(u"t"_s), u"RUNNING"_s);
        QCOMPARE(errorOf([&] { run.engine.approve(id, true); }), u"Approval is no longer pending"_s);
        QCOMPARE(fields(run.rows(u"permissions"_s), u"0.tool 0.scope 0.action 1"_s),
                 u"run_command THIS_ACTION "_s + id + u' ');
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
    }

    void aRunOfAProgramIsOnRecord()
    {
        PlannedRun run({shell(u"t"_s, u"pwd; echo problem >&2"_s), shell(u"u"_s, u"true"_s, {u"t"_s})});
        run.answerPermissions(true);
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        const QJsonObject output = run.node(u"t"_s)[u"output"_s].toObject();
        QCOMPARE(fields(output, u"stdout stderr"_s), run.workspace.root() + u"\n problem\n"_s);
        QCOMPARE(run.store.get(u"tool_calls"_s, output[u"id"_s].toString()), output);
        const QJsonObject record = terminalRun(run);
        QCOMPARE(record[u"status"_s].toString(), u"COMPLETED"_s);
        QCOMPARE(record[u"context"_s], run.node(u"t"_s)[u"input"_s]);
        QCOMPARE(record[u"output"_s].toObject(), output);
        // One agent for both programs.
        QCOMPARE(run.messages(u"AgentCreated"_s).count(u"Terminal Agent"_s), 1);
        QCOMPARE(output[u"agent_id"_s], record[u"agent_id"_s]);
    }

    void aRefusalEndsTheRun()
    {
        PlannedRun run({shell(u"t"_s, u"touch done"_s)});
        run.answerPermissions(false);

        QCOMPARE(run.ending(), u"Terminal permission denied"_s);
        QVERIFY(!QFile::exists(run.projectFile(u"done"_s)));
        QVERIFY(run.state(u"pending"_s).toArray().isEmpty());
        QVERIFY(run.rows(u"permissions"_s).isEmpty());
    }

    void anApprovalDuringAPauseWaitsForTheEndOfThePause()
    {
        PlannedRun run({shell(u"t"_s, u"true"_s)});
        run.start();
        QVERIFY(asks(run, 1));
        run.engine.pause();
        run.engine.approve(approvals(run).first(), true);
        QCOMPARE(run.status(u"t"_s), u"QUEUED"_s);
        run.engine.resume();
        QCOMPARE(run.status(u"t"_s), u"RUNNING"_s);
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        QCOMPARE(approvals(run).size(), 1);
    }

    void anApprovalIsForOneRun()
    {
        for (const bool computerAccess : {false, true}) {
            PlannedRun run({code(u"a.txt"_s), check(u"t"_s, u"grep new a.txt"_s, {u"a.txt"_s})});
            run.engine.computerAccess = computerAccess;
            run.texts = {{u"a.txt"_s, {u"old"_s, u"new"_s}}};
            run.answerPermissions(true);
            qsizetype left = 0;
            run.when(u"ToolFinished"_s, {},
                     [&] { left = std::ranges::count(run.permissions.grants, u"THIS_ACTION"_s, &Grant::scope); });
            QCOMPARE(run.ending(), u"COMPLETED"_s);
            QCOMPARE(run.calls(u"t"_s), 2);
            QCOMPARE(approvals(run).size(), computerAccess ? 0 : 2);
            QCOMPARE(left, 0); // each run uses its grant up
        }
    }

    void aMediaJobOfThisProjectNeedsNoQuestion()
    {
        for (const QString &ffmpeg : {u"/usr/bin/ffmpeg"_s, u"/tmp/ffmpeg"_s}) {
            const QTemporaryDir folder;
            QJsonObject job = object(u"{'operation':'video','input':'in.png','output':'art/out.png'}"_s);
            job[u"root"_s] = QFileInfo(folder.path()).canonicalFilePath();
            job[u"ffmpeg"_s] = ffmpeg;
            PlannedRun run({ScriptedProvider::node(
                u"m"_s, u"tool"_s, command(QCoreApplication::applicationFilePath(), {u"--media-job"_s, json(job)}))});
            run.workspace.open(folder.path(), u"media"_s);
            run.engine.mediaTools = {{u"ffmpeg"_s, u"/usr/bin/ffmpeg"_s}};
            run.start();
            QVERIFY(run.runUntil([&] { return !run.engine.busy() || !approvals(run).isEmpty(); }));
            QCOMPARE(run.status(u"m"_s), ffmpeg.startsWith(u"/usr"_s) ? u"COMPLETED"_s : u"BLOCKED"_s);
        }
    }

    void aFileThatAToolHasMadeIsAMediumOfTheProject()
    {
        PlannedRun run({});
        QVERIFY(QDir(run.workspace.root()).mkdir(u"art"_s) && run.save(u"art/out.png"_s, "xyz"));
        const QString link = run.folder.filePath(u"way"_s);
        QVERIFY(QFile::link(run.workspace.root(), link));
        const QString missing = u"Инструмент сообщил о готовом файле, но в проекте его нет: "_s;
        for (const auto &[named, kept, told] : QList<std::array<QString, 3>>{
                 {u"art/out.png"_s, u"art/out.png"_s, {}},
                 {run.workspace.root() + u"/art/out.png"_s, u"art/out.png"_s, {}},
                 {link + u"/art/out.png"_s, u"art/out.png"_s, {}},
                 {u"art/none.png"_s, {}, missing + u"art/none.png"_s},
                 {run.workspace.root() + u"/none"_s, {}, missing + run.workspace.root() + u"/none"_s},
                 {u"art"_s, {}, missing + u"art"_s},
                 {u"/bin/sh"_s, {}, {}},
                 {u"../way"_s, {}, {}},
             }) {
            const QString event = id();
            run.workspace.open(run.workspace.root(), event); // a project of its own
            const bool isOwn = named == u"art/out.png"_s;
            const QString preview = isOwn ? u"assets/o.preview.jpg"_s : u"../../secret.png"_s;
            const QString printed = json({{u"success"_s, true}, {u"path"_s, named}, {u"preview"_s, preview}});
            run.core.journal.record(
                {{u"id"_s, event},
                 {u"task_id"_s, event},
                 {u"type"_s, u"ToolFinished"_s},
                 {u"data"_s,
                  QJsonObject{{u"tool"_s, u"run_command"_s}, {u"success"_s, true}, {u"stdout"_s, printed}}}});
            const QJsonArray media = run.store.list(u"artifacts"_s, event);
            QCOMPARE(media.at(0)[u"path"_s].toString(), kept);
            QCOMPARE(media.at(0)[u"preview"_s].toString(), isOwn ? preview : QString());
            QCOMPARE(media.size(), kept.isEmpty() ? 0 : 1);
            QCOMPARE(run.store.list(u"messages"_s, event).at(0)[u"content"_s].toString(), told);
        }
    }

    void twoNodesWithOneCommandRunOnceEach()
    {
        PlannedRun run({shell(u"t"_s, u"echo x >> log"_s), shell(u"u"_s, u"echo x >> log"_s)});
        run.start();
        QVERIFY(asks(run, 2));
        QCOMPARE(approvals(run)[0], approvals(run)[1]);
        QCOMPARE(run.state(u"pending"_s).toArray().size(), 1);

        run.engine.approve(approvals(run)[0], true);
        QCOMPARE(run.status(u"u"_s), u"RUNNING"_s);
        QCOMPARE(run.status(u"t"_s), u"BLOCKED"_s);
        QCOMPARE(approvals(run).size(), 3);

        run.engine.approve(approvals(run)[2], true);
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        QCOMPARE(run.fileContent(u"log"_s), "x\nx\n");
    }

    void anApprovedCheckWaitsForTheFileThatIsBeingRewritten()
    {
        PlannedRun run({code(u"a.txt"_s), check(u"t"_s, u"grep new a.txt"_s, {u"a.txt"_s}),
                        check(u"u"_s, u"cat a.txt"_s, {u"a.txt"_s})});
        run.texts = {{u"a.txt"_s, {u"old"_s, u"new"_s}}};
        run.when(u"AutomaticCorrection"_s, {}, [&] { run.model.holding = true; });
        run.start();
        QVERIFY(asks(run, 2));
        run.engine.approve(approvals(run)[0], true);
        QVERIFY(run.runUntil([&] { return run.model.held() == 1; }));

        run.engine.approve(approvals(run)[1], true);
        QCOMPARE(run.status(u"u"_s), u"QUEUED"_s);

        run.answerPermissions(true);
        run.model.holding = false;
        QVERIFY(run.model.release(u"coding"_s));
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        QCOMPARE(run.node(u"u"_s)[u"output"_s][u"stdout"_s].toString(), u"new"_s);
        QCOMPARE(run.calls(u"u"_s), 1);
        QCOMPARE(approvals(run).size(), 3); // the first check twice
    }

    void aFailingCommandEndsTheRun()
    {
        PlannedRun run({shell(u"t"_s, u"exit 3"_s), code(u"a.txt"_s, {u"t"_s})});
        run.engine.computerAccess = true;
        QCOMPARE(run.ending(), u"Команда завершилась ошибкой. Подробности сохранены в журнале инструмента."_s);
        QCOMPARE(fields(run.node(u"t"_s), u"status output.exit_code"_s), u"FAILED 3"_s);
        QCOMPARE(terminalRun(run)[u"status"_s].toString(), u"ERROR"_s);
        QCOMPARE(run.calls(u"t"_s), 1);
        QCOMPARE(run.model.count(u"coding"_s), 0);
    }

    void aCancelledRunLeavesNoProgramBehind()
    {
        PlannedRun run({shell(u"t"_s, u"echo $$ > part; mv part pid; exec sleep 60"_s)});
        run.engine.computerAccess = true;
        run.start();
        QVERIFY(run.runUntil([&] { return QFile::exists(run.projectFile(u"pid"_s)); }));
        const pid_t program = run.fileContent(u"pid"_s).trimmed().toInt();
        QCOMPARE(::kill(program, 0), 0);

        run.engine.cancel();

        QCOMPARE(terminalRun(run)[u"status"_s].toString(), u"CANCELLED"_s);
        QTRY_VERIFY(::kill(program, 0) != 0);
        QVERIFY(run.messages(u"ToolFinished"_s).isEmpty());
        QCOMPARE(run.endings, QStringList{u"CANCELLED"_s});
    }

    void anMcpToolIsCalledThroughTheHook()
    {
        PlannedRun run({mcp(u"m"_s), code(u"a.txt"_s, {u"m"_s})});
        QStringList called;
        const QJsonObject found{{u"success"_s, true}, {u"content"_s, u"Нашлось"_s}};
        run.engine.mcpCall = [&](const QString &server, const QString &tool, const QJsonObject &arguments,
                                 const Engine::Answer &done) {
            called = {server, tool, json(arguments), run.status(u"m"_s)};
            done(found); // a client may answer before it returns
        };

        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(called, QStringList({u"s"_s, u"find"_s, u"{\"query\":\"Что?\"}"_s, u"RUNNING"_s}));
        QCOMPARE(run.node(u"m"_s)[u"output"_s].toObject(), found);
        QCOMPARE(run.orders(u"a.txt"_s).first()[u"dependencies"_s], QJsonValue(QJsonArray{found}));
        QVERIFY(approvals(run).isEmpty());
    }

    void aFailingMcpToolEndsTheRun()
    {
        for (const auto &[result, error] :
             {std::pair{object(u"{'success':false,'error':'Нет связи'}"_s), u"Нет связи"_s},
              {object(u"{}"_s), u"Ошибка инструмента MCP"_s}}) {
            PlannedRun run({mcp(u"m"_s)});
            run.engine.mcpCall
                = [&run, result](const QString &, const QString &, const QJsonObject &, const Engine::Answer &done) {
                      QTimer::singleShot(0, &run.engine, [done, result] { done(result); });
                  };
            QCOMPARE(run.ending(), error);
            QCOMPARE(run.status(u"m"_s), u"FAILED"_s);
            QCOMPARE(run.node(u"m"_s)[u"output"_s].toObject(), result);
        }
        QCOMPARE(PlannedRun({mcp(u"m"_s)}).ending(), u"MCP-клиент недоступен"_s);
    }

    void anMcpResultOfAnEndedRunIsIgnored()
    {
        PlannedRun run({mcp(u"m"_s)});
        QList<Engine::Answer> waiting;
        run.engine.mcpCall = [&](const QString &, const QString &, const QJsonObject &, const Engine::Answer &done) {
            waiting.append(done);
        };
        run.start();
        QVERIFY(run.runUntil([&] { return waiting.size() == 1; }));
        run.engine.cancel();
        waiting[0]({{u"success"_s, true}});
        QCOMPARE(run.status(u"m"_s), u"CANCELLED"_s);

        run.start();
        QVERIFY(run.runUntil([&] { return waiting.size() == 2; }));
        waiting[0]({{u"success"_s, false}});
        QCOMPARE(run.status(u"m"_s), u"RUNNING"_s);
        waiting[1]({{u"success"_s, true}});
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
    }
};

int main(int argc, char **argv)
{
    // Started by the engine as its own media worker.
    if (argc > 1 && qstrcmp(argv[1], "--media-job") == 0)
        return 0;
    const QCoreApplication application(argc, argv);
    ToolsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_tools.moc"
