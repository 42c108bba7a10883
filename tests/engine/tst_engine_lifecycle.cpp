#include "engine_fixture.h"
#include "json_text.h"

#include <QFileInfo>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QStringList busyPhases{u"INTAKE"_s,      u"CLARIFICATION"_s, u"PLANNING"_s,
                             u"PLAN_REVIEW"_s, u"STRUCTURING"_s,   u"STRUCTURE_REVIEW"_s,
                             u"PREVIEW"_s,     u"EXECUTION"_s,     u"VALIDATION"_s};

/// Each status of the records once, in order.
QString statuses(const QJsonArray &records)
{
    QStringList list;
    for (const QJsonValue &record : records)
        list.append(record[u"status"_s].toString());
    list.removeDuplicates();
    list.sort();
    return list.join(u' ');
}

/// A task without what changes at every look at it.
QJsonObject timeless(QJsonObject task)
{
    task.remove(u"updated"_s);
    return task;
}

QJsonObject agent(const QString &id, const QJsonObject &more)
{
    return ScriptedProvider::with(
        {{u"id"_s, id}, {u"name"_s, id}, {u"enabled"_s, true}, {u"instructions"_s, u"Тайна"_s}}, more);
}

/// The chief answers at once.
void scriptAnswer(EngineFixture &run)
{
    run.engine.automaticRouting = true;
    run.model.forget(u"orchestrator"_s);
    run.model.answer(u"orchestrator"_s, ScriptedProvider::answerOnly());
}

} // namespace

class EngineLifecycleTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aTaskStaysInItsProject()
    {
        EngineFixture run;
        run.scriptOneFile();
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        run.workspace.open(run.folder.filePath(u"other"_s), u"other"_s);
        run.engine.persist();
        QCOMPARE(run.storedTask()["project_id"_L1].toString(), u"project"_s);
        QCOMPARE(run.store.taskOutlines(u"other"_s), QJsonArray());
    }

    void anEventOfAToolThatCannotBeStoredEndsTheRun()
    {
        EngineFixture run;
        run.scriptOneFile();
        QObject::connect(&run.events, &EventBus::event, &run.engine, [](const QJsonObject &event) {
            require(event["type"_L1].toString() != "ToolFinished"_L1, u"disk gone"_s);
        });
        QCOMPARE(run.ending(), u"disk gone"_s);
    }

    void anIdleEngineHasNothingToEnd()
    {
        EngineFixture run;
        run.engine.cancel();
        run.engine.fail(u"Причина"_s);
        QCOMPARE(errorOf([&] { run.engine.pause(); }), u"No task to pause"_s);
        QCOMPARE(errorOf([&] { run.engine.resume(); }), u"No task to resume"_s);
        QCOMPARE(errorOf([&] { run.engine.runPreview(); }), u"No preview ready"_s);
        QCOMPARE(run.phase(), u"IDLE"_s);
        QVERIFY(run.log.isEmpty() && run.endings.isEmpty());
    }

    void aTaskThatCannotBeginChangesNothing()
    {
        for (const QString &message : {u"Enter a task request"_s, u"Повторный ID агента"_s, u"SQLite: disk gone"_s}) {
            EngineFixture run;
            run.scriptOneFile();
            run.start();
            QVERIFY(run.runToEnd());
            const QJsonObject before = timeless(run.engine.snapshot());
            const qsizetype grants = run.permissions.grants.size();

            if (message.startsWith(u"Повторный"_s))
                run.engine.agentNetwork = {agent(u"a"_s, {}), agent(u"a"_s, {})};
            if (message.startsWith(u"SQLite"_s))
                run.breakStore(u"1"_s, u"messages"_s);
            const QString error = errorOf([&] { run.start(message.startsWith(u"Enter"_s) ? u" \n\t"_s : u"Файл"_s); });
            QVERIFY2(error.startsWith(message), qPrintable(error));
            QCOMPARE(timeless(run.engine.snapshot()), before);
            QCOMPARE(run.permissions.grants.size(), grants);
            QCOMPARE(run.endings, QStringList{u"COMPLETED"_s});
        }
    }

    void aTaskBeginsWithAllThatIsKnown()
    {
        EngineFixture run;
        run.workspace.write(u"kept.md"_s, "text", u"t"_s, -1);
        run.engine.requestMedia = array(u"[{'kind':'image'}]"_s);
        run.engine.conversationHistory = array(u"[{'content':'Раньше'}]"_s);
        run.engine.previousSpec = object(u"{'requirements':['Старое']}"_s);
        run.engine.mcpTools = array(u"[{'name':'find'}]"_s);
        run.engine.disabledAgents = {u"observer"_s, u"coding"_s};
        run.engine.agentNetwork = {agent(u"offered"_s, {{u"parent"_s, u"coding"_s}}), agent(u"free"_s, {}),
                                   agent(u"off"_s, {{u"parent"_s, u"coding"_s}, {u"enabled"_s, false}})};
        run.model.holding = true;
        run.start(u"  Сделай файл\n"_s, false, object(u"{'program':'/bin/make','arguments':['all']}"_s));

        QJsonObject spec = run.state(u"spec"_s).toObject();
        const QJsonObject programs = spec.take(u"available_executables"_s).toObject();
        QCOMPARE(spec, object(uR"({'automatic_routing':false,'media_tools':{},'original_request':'  Сделай файл\n',
            'build_command':{'program':'/bin/make','arguments':['all']},'media':[{'kind':'image'}],
            'conversation_history':[{'content':'Раньше'}],'previous_requirements':['Старое'],
            'available_mcp_tools':[{'name':'find'}],'disabled_agents':['coding','observer'],
            'existing_files':[{'path':'kept.md','revision':1}],
            'available_specialists':[{'id':'offered','name':'offered','enabled':true,'parent':'coding'}]})"_s));
        for (const QJsonValue &program : programs)
            QVERIFY2(QFileInfo(program.toString()).isAbsolute(), qPrintable(program.toString()));
        QCOMPARE(run.stored(u"messages"_s)[0][u"content"_s].toString(), u"  Сделай файл\n"_s);
    }

    void aBudgetIsAtLeastAThousand()
    {
        EngineFixture run;
        run.model.holding = true;
        for (const qint64 asked : {qint64(-1), qint64(999), qint64(1001), qint64(5000000000)}) {
            run.engine.start(u"Файл"_s, false, asked, {});
            QCOMPARE(run.state(u"token_limit"_s).toInteger(), std::max<qint64>(asked, 1000));
            run.engine.cancel();
        }
    }

    void aSimulationMayOnlyReadUntilItIsApproved()
    {
        EngineFixture run;
        const auto allowed = [&](const QString &tool, PermissionLevel level) {
            return run.permissions.allowed(tool, level, run.task(), u"project"_s, {}, false);
        };
        QVERIFY(run.reach(u"PREVIEW"_s));
        QVERIFY(allowed(u"read_file"_s, PermissionLevel::Read));
        QVERIFY(!allowed(u"write_file"_s, PermissionLevel::Write));
        QVERIFY(run.stored(u"checkpoints"_s).isEmpty());

        run.model.releaseAll();
        run.engine.runPreview();
        QVERIFY(allowed(u"write_file"_s, PermissionLevel::Write));
        QCOMPARE(run.state(u"simulation"_s), QJsonValue(false));
        QVERIFY(run.runToEnd());
        QCOMPARE(run.endings, QStringList{u"COMPLETED"_s});
        QVERIFY(!run.fileContent(u"notes.md"_s).isEmpty());
    }

    void inEveryPhaseARunEndsOnce_data()
    {
        QTest::addColumn<QString>("phase");
        for (const QString &phase : busyPhases)
            QTest::addRow("%s", qPrintable(phase)) << phase;
    }

    void inEveryPhaseARunEndsOnce()
    {
        QFETCH(QString, phase);
        for (const QString &end : {u"CANCELLED"_s, u"FAILED"_s}) {
            const bool cancelled = end == u"CANCELLED"_s;
            EngineFixture run;
            ScriptedProvider another;
            run.engine.agentProviders[u"nobody"_s] = &another;
            QVERIFY(run.reach(phase));
            if (!cancelled && phase == u"EXECUTION"_s)
                run.engine.pause(); // a paused run ends like any other
            QCOMPARE(errorOf([&] { run.start(); }), u"A task is already active"_s);
            QVERIFY(!errorOf([&] { run.engine.setProvider(&another); }).isEmpty());
            const QStringList asked = run.model.asked();

            run.model.deaf = true;
            if (cancelled)
                run.engine.cancel();
            else
                run.engine.fail(u"Причина"_s);
            run.engine.cancel();
            run.engine.fail(u"Другая причина"_s);
            run.model.releaseAll();
            EngineFixture::settle();

            QCOMPARE(run.endings, QStringList{end});
            QCOMPARE(run.messages(u"TaskFailed"_s), cancelled ? QStringList() : QStringList{u"Причина"_s});
            QCOMPARE(run.model.asked(), asked);
            QCOMPARE(run.model.cancellations + another.cancellations, 2);
            QVERIFY(run.permissions.grants.isEmpty());

            const QJsonObject task = run.storedTask();
            QCOMPARE(fields(task, u"phase error reserved_tokens decision pending"_s),
                     end + (cancelled ? u"  0 {} []"_s : u" Причина 0 {} []"_s));
            const QString runs = phase == "INTAKE"_L1                  ? u"CANCELLED"_s
                : phase == "CLARIFICATION"_L1 || phase == "PREVIEW"_L1 ? u"COMPLETED"_s
                                                                       : u"CANCELLED COMPLETED"_s;
            QCOMPARE(statuses(run.stored(u"agent_runs"_s)), runs);
            QCOMPARE(statuses(task[u"runs"_s].toArray()), runs);
            const QString nodes = phase == "PREVIEW"_L1 || phase == "EXECUTION"_L1 ? end
                : phase == "VALIDATION"_L1                                         ? u"COMPLETED"_s
                                                                                   : QString();
            QCOMPARE(statuses(task[u"graph"_s].toArray()), nodes);
        }
    }

    void inEveryPhaseAPausedRunStandsStill_data() { inEveryPhaseARunEndsOnce_data(); }

    void inEveryPhaseAPausedRunStandsStill()
    {
        QFETCH(QString, phase);
        EngineFixture run;
        QVERIFY(run.reach(phase));
        const QStringList asked = run.model.asked();

        run.engine.pause();
        run.model.releaseAll();
        EngineFixture::settle();
        QCOMPARE(run.model.asked(), asked);
        QCOMPARE(fields(run.storedTask(), u"phase paused reserved_tokens"_s), phase + u" true 0"_s);
        // Work under way is done, paid for and kept; only what follows from it waits.
        QCOMPARE(statuses(run.stored(u"agent_runs"_s)), u"COMPLETED"_s);
        QCOMPARE(run.stored(u"artifacts"_s).size(), asked.size());

        if (phase == "CLARIFICATION"_L1) {
            run.engine.clarify(u"Да"_s);
            EngineFixture::settle();
            QCOMPARE(run.model.asked(), asked);
            QCOMPARE(run.phase(), u"INTAKE"_s);
        }
        run.engine.resume();
        if (phase == "PREVIEW"_L1)
            run.engine.runPreview();
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        QCOMPARE(run.endings, QStringList{u"COMPLETED"_s});
    }

    void afterEveryEndANewTaskBegins()
    {
        for (const QString &end : {u"COMPLETED"_s, u"FAILED"_s, u"CANCELLED"_s}) {
            EngineFixture run;
            QVERIFY(run.reach(u"EXECUTION"_s));
            const QString first = run.task();
            if (end == "CANCELLED"_L1)
                run.engine.cancel();
            else if (end == "FAILED"_L1)
                run.engine.fail(u"Причина"_s);
            run.model.releaseAll();
            QVERIFY(run.runToEnd());
            run.engine.fail(u"Поздно"_s);
            QCOMPARE(run.phase(), end);

            run.model.holding = true;
            run.start(u"Ещё один"_s);
            QVERIFY(run.task() != first);
            QCOMPARE(fields(run.engine.snapshot(), u"error tokens plan structure decision graph"_s),
                     u" 0 {} {} {} []"_s);
            QCOMPARE(run.state(u"runs"_s).toArray().size(), 1);
            run.model.releaseAll();
            QVERIFY(run.runToEnd());
            QCOMPARE(run.endings, (QStringList{end, u"COMPLETED"_s}));
            QCOMPARE(Store(run.databasePath).get(u"tasks"_s, first)[u"phase"_s].toString(), end);
        }
    }

    void anAnswerToAnEarlierTaskIsDropped()
    {
        EngineFixture run;
        run.model.deaf = true;
        QVERIFY(run.reach(u"INTAKE"_s));
        run.engine.cancel();
        run.start();
        QVERIFY(run.runToHeld(2));
        const QJsonObject before = timeless(run.engine.snapshot());
        QVERIFY(run.model.release());
        EngineFixture::settle();
        QCOMPARE(timeless(run.engine.snapshot()), before);

        run.model.releaseAll();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.endings, (QStringList{u"CANCELLED"_s, u"COMPLETED"_s}));
    }

    void anAnswerFindsNoEngine()
    {
        EngineFixture run;
        run.model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
        run.model.holding = true;
        auto engine
            = std::make_unique<Engine>(run.store, run.workspace, run.events, run.permissions, run.tools, &run.model);
        engine->start(u"Файл"_s, false, 100000, {});
        QVERIFY(run.runToHeld(1));
        engine.reset();
        run.model.releaseAll();
        EngineFixture::settle();
        QCOMPARE(run.model.asked(), QStringList{u"orchestrator"_s});
    }

    void aRunPassesThroughAllStagesAndIsStoredWithSlimRuns()
    {
        EngineFixture run;
        run.scriptOneFile(true);
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        run.engine.clarify(u"Любой"_s);
        QVERIFY(run.runToEnd());
        QCOMPARE(run.phases().join(u' '),
                 u"INTAKE CLARIFICATION INTAKE PLANNING PLAN_REVIEW STRUCTURING "
                 "STRUCTURE_REVIEW EXECUTION VALIDATION COMPLETED"_s);
        QVERIFY(run.permissions.grants.isEmpty());

        QJsonObject expected = timeless(run.engine.snapshot());
        QCOMPARE(expected[u"tokens"_s].toInt(), 15 * int(run.model.requests.size()));
        QJsonObject stored = timeless(run.storedTask());
        const QJsonArray full = expected.take(u"runs"_s).toArray();
        const QJsonArray slim = stored.take(u"runs"_s).toArray();
        QCOMPARE(stored, expected);
        QCOMPARE(slim.size(), full.size());
        for (qsizetype i = 0; i < full.size(); ++i) {
            QJsonObject record = full[i].toObject();
            QCOMPARE(run.store.get(u"agent_runs"_s, record[u"id"_s].toString()), record);
            QVERIFY(!record.take(u"context"_s).toObject().isEmpty());
            QVERIFY(!record.take(u"system_prompt"_s).toString().isEmpty());
            QCOMPARE(fields(slim[i], u"output.verdict output.files"_s), fields(record, u"output.verdict"_s) + u' ');
            record[u"output"_s] = slim[i][u"output"_s];
            QCOMPARE(slim[i].toObject(), record);
        }
    }

    void aStoreThatBreaksEndsTheRunOnce_data()
    {
        QTest::addColumn<bool>("answered");
        QTest::addColumn<int>("step");
        QTest::newRow("an answer at once, every write") << true << 1;
        QTest::newRow("a whole run, every 9th write") << false << 9;
    }

    void aStoreThatBreaksEndsTheRunOnce()
    {
        QFETCH(bool, answered);
        QFETCH(int, step);
        for (int passing = 0;; passing += step) {
            EngineFixture run;
            if (answered)
                scriptAnswer(run);
            else
                run.scriptOneFile();
            // As the application does; what it throws comes out of the engine's own announcements.
            QObject::connect(&run.events, &EventBus::event, &run.events, [&](const QJsonObject &event) {
                run.store.put(u"events"_s, event[u"id"_s].toString(), run.task(), event);
            });
            run.breakStoreAfter(passing);
            const QString refusal = errorOf([&] { run.start(); });
            QVERIFY(run.runToEnd());
            EngineFixture::settle();
            if (run.phase() == "COMPLETED"_L1) {
                QVERIFY(passing > 10 * step);
                QCOMPARE(run.endings, QStringList{u"COMPLETED"_s});
                return;
            }
            QCOMPARE(run.phase(), refusal.isEmpty() ? u"FAILED"_s : u"IDLE"_s);
            QCOMPARE(run.endings, refusal.isEmpty() ? QStringList{u"FAILED"_s} : QStringList());
            QVERIFY2(!refusal.isEmpty() || run.error().startsWith("SQLite: disk gone"), qPrintable(run.error()));
            QVERIFY(!refusal.isEmpty() || run.permissions.grants.isEmpty());
            QVERIFY(run.storedTask()[u"phase"_s].toString() != u"COMPLETED"_s);

            run.mendStore();
            scriptAnswer(run);
            QCOMPARE(run.ending(), u"COMPLETED"_s);
        }
    }

    void whoIsToldOfAStepMayEndTheRun()
    {
        for (const bool byEvent : {true, false}) {
            EngineFixture run;
            run.scriptOneFile();
            run.model.respond(u"correctness_reviewer"_s, [](const LLMRequest &request) {
                const bool fixed = request.input[u"artifact"_s][u"node"_s][u"input"_s][u"fix_attempts"_s].toInt() > 0;
                return ScriptedProvider::result(fixed ? ScriptedProvider::approval()
                                                      : ScriptedProvider::verdict(u"REVISE"_s, u"Плохо"_s));
            });
            int left = 0;
            qsizetype asked = 0;
            QJsonObject atEnd;
            const auto strike = [&] {
                if (--left == 0) {
                    asked = run.model.requests.size();
                    run.engine.cancel();
                    atEnd = timeless(run.engine.snapshot());
                }
            };
            QObject::connect(&run.events, &EventBus::event, &run.events, [&] { byEvent ? strike() : void(); });
            QObject::connect(&run.engine, &Engine::changed, &run.engine, [&] { byEvent ? void() : strike(); });
            for (int nth = 1;; ++nth) {
                run.endings.clear();
                left = nth;
                run.start();
                QVERIFY(run.runToEnd());
                left = 0;
                EngineFixture::settle();
                QCOMPARE(run.endings, QStringList{run.phase()});
                if (run.phase() == "COMPLETED"_L1) {
                    QVERIFY(nth > 30);
                    break;
                }
                QCOMPARE(run.phase(), u"CANCELLED"_s);
                QCOMPARE(run.model.requests.size(), asked);
                QCOMPARE(timeless(run.engine.snapshot()), atEnd);
                QCOMPARE(fields(run.storedTask(), u"phase reserved_tokens"_s), u"CANCELLED 0"_s);
            }
        }
    }
};

QTEST_GUILESS_MAIN(EngineLifecycleTest)
#include "tst_engine_lifecycle.moc"
