#include "engine_fixture.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonObject chief(const QJsonObject &more)
{
    return ScriptedProvider::with(ScriptedProvider::taskSpec(), more);
}

QJsonObject order(const QString &agent, const QString &task)
{
    return {{u"agent_id"_s, agent}, {u"task"_s, task}};
}

QJsonObject orders(const QJsonArray &list)
{
    return chief({{u"delegations"_s, list}});
}

/// A run in the autonomous mode with two specialists.
class AutonomousRun : public EngineFixture {
public:
    explicit AutonomousRun(const QList<QJsonObject> &answers = {})
    {
        engine.automaticRouting = true;
        for (const QString &id : {u"a"_s, u"b"_s})
            engine.agentNetwork.append(QJsonObject{
                {u"id"_s, id}, {u"name"_s, u"Имя "_s + id}, {u"enabled"_s, true}, {u"rules"_s, u"Правила"_s}});
        for (const QJsonObject &answer : answers)
            model.answer(u"orchestrator"_s, answer);
    }
};

/// A run with a held intake, in which a test asks of its own.
class AskingRun : public AutonomousRun {
public:
    AskingRun()
    {
        model.holding = true;
        start();
        runToHeld(1);
    }
};

} // namespace

class IntakeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aQuestionWithoutTextIsNone()
    {
        EngineFixture run;
        run.scriptOneFile();
        QJsonObject spec = ScriptedProvider::taskSpec();
        spec[u"questions"_s] = QJsonArray{u" "_s, QJsonObject{{u"x"_s, 1}}};
        run.model.answer(u"orchestrator"_s, spec);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
    }

    void anAnswerBringsNoneOfTheEnginesOwnNotes()
    {
        EngineFixture run;
        QJsonObject answer = ScriptedProvider::taskSpec({u"Какой?"_s});
        for (const QString &key : {u"answer_only"_s, u"checks_prepared"_s, u"browser_check_prepared"_s,
                                   u"verification_limitation"_s, u"final_fix_cycles"_s})
            answer[key] = -40;
        run.model.answer(u"orchestrator"_s, answer);
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        const QStringList keys = run.state(u"spec"_s).toObject().keys();
        QVERIFY(keys.filter(QRegularExpression(u"_only|prepared|limitation|cycles"_s)).isEmpty());
    }

    void ordersAreCarriedOutBeforeTheChiefGoesOn()
    {
        AutonomousRun run(
            {orders({order(u"a"_s, u" Первое\n"_s), order(u"b"_s, u"Второе"_s)}), ScriptedProvider::answerOnly()});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.model.asked(),
                 (QStringList{u"orchestrator"_s, u"specialist"_s, u"specialist"_s, u"orchestrator"_s}));
        QCOMPARE(run.model.input(u"specialist"_s)[u"agent_rules"_s].toString(),
                 u"Правила\nТекущее поручение главного: Первое"_s);
        QCOMPARE(run.model.input(u"specialist"_s, 1)[u"agent_rules"_s].toString(),
                 u"Правила\nТекущее поручение главного: Второе"_s);

        const QJsonArray results = run.model.input(u"orchestrator"_s, 1)[u"task"_s][u"delegation_results"_s].toArray();
        QCOMPARE(results.size(), 2);
        QCOMPARE(results[1][u"agent_id"_s].toString(), u"b"_s);
        QVERIFY(!results[1][u"result"_s][u"summary"_s].toString().isEmpty());
        QCOMPARE(run.messages(u"TaskCompleted"_s), QStringList{u"Ответ"_s});
        QVERIFY(run.permissions.grants.isEmpty());
    }

    void anOrderThatCannotBeGivenEndsTheRun()
    {
        const QString noTask = u"Главный не указал задание помощнику"_s;
        const QList<std::pair<QJsonValue, QString>> bad{
            {order(u"x"_s, u" \t"_s), noTask},
            {u"a"_s, noTask},
            {order(u"off"_s, u"Дело"_s), u"Главный выбрал недоступного агента: off"_s},
        };
        for (const auto &[wrong, error] : bad) {
            AutonomousRun run({orders({order(u"a"_s, u"Дело"_s), wrong})});
            run.engine.agentNetwork.append(QJsonObject{{u"id"_s, u"off"_s}});
            QCOMPARE(run.ending(), error);
            QCOMPARE(run.model.asked(), QStringList{u"orchestrator"_s});
        }
    }

    void anOrderIsGivenOnce()
    {
        QJsonObject again = ScriptedProvider::answerOnly();
        again[u"delegations"_s] = QJsonArray{order(u"a"_s, u"Дело "_s)};
        AutonomousRun run(
            {orders({order(u"a"_s, u"Дело"_s)}), orders({order(u"a"_s, u"Дело"_s), order(u"b"_s, u"Дело"_s)}), again});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.model.count(u"specialist"_s), 2);
        QCOMPARE(run.model.count(u"orchestrator"_s), 3);
        QCOMPARE(run.state(u"spec"_s)[u"delegation_results"_s][1][u"agent_id"_s].toString(), u"b"_s);
    }

    void theChiefHasThreeRounds()
    {
        AutonomousRun run;
        for (int round = 1; round <= 4; ++round)
            run.model.answer(u"orchestrator"_s, orders({order(u"a"_s, QString::number(round))}));
        QCOMPARE(run.ending(), u"Главный не завершил делегирование за три раунда. Результаты сохранены."_s);
        QCOMPARE(run.model.count(u"specialist"_s), 3);
        QCOMPARE(run.storedTask()[u"spec"_s][u"delegation_results"_s].toArray().size(), 3);

        run.model.forget(u"orchestrator"_s);
        run.model.answer(u"orchestrator"_s, orders({order(u"a"_s, u"1"_s)}));
        run.model.answer(u"orchestrator"_s, ScriptedProvider::answerOnly());
        QCOMPARE(run.ending(), u"COMPLETED"_s); // a new task counts anew and knows no orders
        QCOMPARE(run.model.count(u"specialist"_s), 4);
    }

    void anAgentWorksOnItsLastOrder()
    {
        const QString longTask(8001, u'д');
        QJsonObject end = ScriptedProvider::answerOnly();
        end[u"delegations"_s] = QJsonArray{order(u"a"_s, u"Первое"_s), order(u"a"_s, longTask.first(8000))};
        AutonomousRun run({orders({order(u"a"_s, u"Первое"_s), order(u"a"_s, u"  "_s + longTask)}), end});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.model.count(u"specialist"_s), 1);
        QCOMPARE(run.model.input(u"specialist"_s)[u"agent_rules"_s].toString().section(u": "_s, 1),
                 longTask.first(8000));
    }

    void theChiefDecidesHowTheRunGoesOn()
    {
        struct Row {
            QJsonObject answer;
            QString phase; ///< The first one after INTAKE.
            QString error{};
            bool automatic = true;
            bool simulation = false;
        };
        const auto execute
            = [](const QJsonArray &nodes) { return chief({{u"action"_s, u"EXECUTE"_s}, {u"nodes"_s, nodes}}); };
        const QJsonArray nodes{ScriptedProvider::node(u"n"_s, u"code"_s, {{u"path"_s, u"n.md"_s}})};
        const QList<Row> rows{
            {ScriptedProvider::answerOnly(), u"COMPLETED"_s},
            {ScriptedProvider::answerOnly(u" \n"_s), u"FAILED"_s, u"Главный не вернул ответ"_s},
            {execute(nodes), u"EXECUTION"_s},
            {execute(nodes), u"PREVIEW"_s, {}, true, true},
            {execute({}), u"FAILED"_s, u"Главный не вернул действия"_s},
            {chief({{u"action"_s, u"PLAN"_s}}), u"PLANNING"_s},
            {chief({{u"action"_s, u"answer"_s}}), u"PLANNING"_s},
            {ScriptedProvider::answerOnly(), u"PLANNING"_s, {}, false},
            {orders({order(u"x"_s, u""_s)}), u"PLANNING"_s, {}, false},
        };
        for (const auto &[answer, phase, error, automatic, simulation] : rows) {
            AutonomousRun run({answer});
            run.engine.automaticRouting = automatic;
            run.start(u"Файл"_s, simulation);
            QVERIFY(run.runUntil([&] { return run.messages(u"PhaseChanged"_s).size() == 2; }));
            QCOMPARE(run.messages(u"PhaseChanged"_s).last(), phase);
            QCOMPARE(run.error(), error);
            if (phase == "EXECUTION"_L1) {
                QCOMPARE(run.state(u"plan"_s)[u"revision"_s].toInt(), 1);
                QCOMPARE(run.ending(), u"COMPLETED"_s);
                QCOMPARE(run.model.count(u"planner"_s), 0);
            }
        }
    }

    void questionsComeFirst()
    {
        QJsonObject asking = ScriptedProvider::answerOnly();
        asking[u"questions"_s] = QJsonArray{u"Первый?"_s, u"Второй?"_s};
        AutonomousRun run({asking, ScriptedProvider::answerOnly()});
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        const QJsonObject decision = run.state(u"decision"_s).toObject();
        QCOMPARE(decision[u"question"_s].toString(), u"Первый?\nВторой?"_s);
        QCOMPARE(decision[u"options"_s].toArray(), QJsonArray{u"Использовать предложенный вариант"_s});
        QCOMPARE(run.storedTask()[u"decision"_s].toObject(), decision);

        run.engine.clarify(u" Оба "_s);
        QVERIFY(run.state(u"decision"_s).toObject().isEmpty());
        QCOMPARE(run.phase(), u"INTAKE"_s);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QJsonObject task = run.model.input(u"orchestrator"_s, 1)[u"task"_s].toObject();
        QJsonObject answered = decision;
        answered[u"answer"_s] = u" Оба "_s;
        QCOMPARE(task[u"clarification"_s].toString(), u" Оба "_s);
        QCOMPARE(task[u"decisions"_s].toArray(), QJsonArray{answered});
        QCOMPARE(run.stored(u"messages"_s)[1][u"content"_s].toString(), u" Оба "_s);
    }

    void oneQuestionIsOpenAtATime()
    {
        AskingRun run;
        run.engine.askDecision(u" Вопрос? "_s, {u"1"_s, u" "_s, u"3"_s}, [] { });
        QCOMPARE(run.state(u"decision"_s)[u"question"_s].toString(), u"Вопрос?"_s);
        QCOMPARE(run.state(u"decision"_s)[u"options"_s].toArray(), (QJsonArray{u"1"_s, u"3"_s}));
        QCOMPARE(errorOf([&] { run.engine.askDecision(u"Ещё?"_s, {}, [] { }); }),
                 u"Другое уточнение ещё ожидает ответа."_s);
    }

    void anAnswerIsRefused()
    {
        AskingRun run;
        QCOMPARE(errorOf([&] { run.engine.askDecision(u" "_s, {}, [] { }); }),
                 u"Главный агент не сформулировал вопрос."_s);
        QCOMPARE(errorOf([&] { run.engine.clarify(u"Да"_s); }), u"Нет ожидающего уточнения."_s);
        run.engine.askDecision(u"Вопрос?"_s, {}, [] { });
        const QJsonObject before = run.engine.snapshot();
        QCOMPARE(errorOf([&] { run.engine.clarify(u" \n"_s); }), u"Введите ответ."_s);
        run.breakStore(u"1"_s, u"messages"_s);
        QVERIFY(errorOf([&] { run.engine.clarify(u"Да"_s); }).startsWith(u"SQLite: disk gone"_s));
        for (const QString &key : {u"phase"_s, u"decision"_s, u"spec"_s})
            QCOMPARE(run.state(key), before[key]);
        QCOMPARE(run.endings, QStringList());
    }

    void whileAQuestionIsOpenTheRunStandsStill()
    {
        AskingRun run;
        QStringList order;
        const auto ask = [&](const QString &name, const std::function<void()> &then) {
            run.engine.enqueueDirect(u"specialist"_s, {}, [&order, name, then](const QJsonObject &) {
                order.append(name);
                then();
            });
        };
        ask(u"first"_s, [&] { run.engine.askDecision(u"Второй вопрос?"_s, {}, [&] { order.append(u"answer 2"_s); }); });
        ask(u"second"_s, [] { });
        EngineFixture::settle();
        run.engine.askDecision(u"Вопрос?"_s, {}, [&] { order.append(u"answer 1"_s); });
        while (run.model.release(u"specialist"_s)) { }
        EngineFixture::settle();
        QVERIFY(order.isEmpty());
        QCOMPARE(run.stored(u"artifacts"_s).size(), 2);

        run.engine.clarify(u"Да"_s);
        QCOMPARE(order, (QStringList{u"answer 1"_s, u"first"_s}));
        QCOMPARE(run.phase(), u"CLARIFICATION"_s);
        run.engine.pause();
        run.engine.clarify(u"Нет"_s);
        QCOMPARE(order.size(), 2);
        run.engine.resume();
        QCOMPARE(order.mid(2), (QStringList{u"answer 2"_s, u"second"_s}));
    }

    void theCoordinatorAsksOnlyWhatIsNew()
    {
        const QString topic = u"final"_s;
        for (const QString &question : {u"Какой цвет?"_s, u"Старый вопрос?"_s, u"Продолжить?"_s}) {
            const bool asked = question.startsWith(u"Какой"_s);
            AskingRun run;
            run.engine.askDecision(u"Старый вопрос?"_s, {}, [] { });
            run.engine.clarify(u"Да"_s);
            run.model.answer(u"coordinator"_s,
                             {{u"needs_user"_s, true},
                              {u"summary"_s, u"Итог"_s},
                              {u"question"_s, question},
                              {u"options"_s, QJsonArray{u"Да"_s}}});
            int continued = 0;
            run.engine.consult(topic, {{u"plan"_s, 1}}, [&] { ++continued; });
            QVERIFY(run.runUntil([&] { return run.model.release(u"coordinator"_s); }));
            QCOMPARE(run.model.artifact(u"coordinator"_s), (QJsonObject{{u"plan"_s, 1}, {u"topic"_s, topic}}));
            QCOMPARE(continued, asked ? 0 : 1);
            QCOMPARE(run.state(u"decision"_s)[u"question"_s].toString(), asked ? question : QString());
            if (asked)
                run.engine.clarify(u"Да"_s);
            QCOMPARE(continued, 1);
        }
    }
};

QTEST_GUILESS_MAIN(IntakeTest)
#include "tst_intake.moc"
