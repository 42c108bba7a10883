#include "engine_fixture.h"
#include "json_text.h"

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
        QCOMPARE(run.model.asked().join(u' '), u"orchestrator specialist specialist orchestrator"_s);
        for (int nth = 0; nth < 2; ++nth)
            QCOMPARE(run.model.input(u"specialist"_s, nth)[u"agent_rules"_s].toString(),
                     u"Правила\nТекущее поручение главного: "_s + (nth == 0 ? u"Первое"_s : u"Второе"_s));

        const QJsonArray results = run.model.input(u"orchestrator"_s, 1)[u"task"_s][u"delegation_results"_s].toArray();
        QCOMPARE(fields(results, u"0.agent_id 1.agent_id 2"_s), u"a b "_s);
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
            QString next; ///< The first phase after INTAKE, and the error.
            bool automatic = true;
            bool simulation = false;
        };
        const QJsonObject execute
            = chief(object(u"{'action':'EXECUTE','nodes':[{'id':'n','title':'N','kind':'code','input':{'path':'n.md'},"
                           "'dependencies':[]}]}"_s));
        const QList<Row> rows{
            {ScriptedProvider::answerOnly(), u"COMPLETED "_s},
            {ScriptedProvider::answerOnly(u" \n"_s), u"FAILED Главный не вернул ответ"_s},
            {execute, u"EXECUTION "_s},
            {execute, u"PREVIEW "_s, true, true},
            {chief(object(u"{'action':'EXECUTE','nodes':[]}"_s)), u"FAILED Главный не вернул действия"_s},
            {chief(object(u"{'action':'PLAN'}"_s)), u"PLANNING "_s},
            {chief(object(u"{'action':'answer'}"_s)), u"PLANNING "_s},
            {ScriptedProvider::answerOnly(), u"PLANNING "_s, false},
            {orders({order(u"x"_s, u""_s)}), u"PLANNING "_s, false},
        };
        for (const auto &[answer, next, automatic, simulation] : rows) {
            AutonomousRun run({answer});
            run.engine.automaticRouting = automatic;
            run.start(u"Файл"_s, simulation);
            QVERIFY(run.runUntil([&] { return run.phases().size() == 2; }));
            QCOMPARE(run.phases().last() + u' ' + run.error(), next);
            if (next == u"EXECUTION "_s) {
                QCOMPARE(fields(run.state(u"plan"_s), u"revision"_s), u"1"_s);
                QCOMPARE(run.ending(), u"COMPLETED"_s);
                QCOMPARE(run.model.count(u"planner"_s), 0);
            }
        }
    }

    void questionsComeFirst()
    {
        const QJsonObject asking
            = ScriptedProvider::with(ScriptedProvider::answerOnly(), object(u"{'questions':['Первый?','Второй?']}"_s));
        AutonomousRun run({asking, ScriptedProvider::answerOnly()});
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        QJsonObject decision = run.state(u"decision"_s).toObject();
        QCOMPARE(fields(decision, u"question options"_s), u"Первый?\nВторой? ['Использовать предложенный вариант']"_s);
        QCOMPARE(run.storedTask()[u"decision"_s].toObject(), decision);

        run.engine.clarify(u" Оба "_s);
        QCOMPARE(fields(run.engine.snapshot(), u"decision phase"_s), u"{} INTAKE"_s);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QJsonObject task = run.model.input(u"orchestrator"_s, 1)[u"task"_s].toObject();
        decision[u"answer"_s] = u" Оба "_s;
        QCOMPARE(task[u"clarification"_s].toString(), u" Оба "_s);
        QCOMPARE(task[u"decisions"_s].toArray(), QJsonArray{decision});
        QCOMPARE(run.stored(u"messages"_s)[1][u"content"_s].toString(), u" Оба "_s);
    }

    void oneQuestionIsOpenAtATimeAndNotEveryAnswerIsTaken()
    {
        AskingRun run;
        QCOMPARE(errorOf([&] { run.engine.askDecision(u" "_s, {}, [] { }); }),
                 u"Главный агент не сформулировал вопрос."_s);
        QCOMPARE(errorOf([&] { run.engine.clarify(u"Да"_s); }), u"Нет ожидающего уточнения."_s);
        run.engine.askDecision(u" Вопрос? "_s, {u"1"_s, u" "_s, u"3"_s}, [] { });
        QCOMPARE(fields(run.state(u"decision"_s), u"question options"_s), u"Вопрос? ['1','3']"_s);
        const QJsonObject before = run.engine.snapshot();
        QCOMPARE(errorOf([&] { run.engine.askDecision(u"Ещё?"_s, {}, [] { }); }),
                 u"Другое уточнение ещё ожидает ответа."_s);
        QCOMPARE(errorOf([&] { run.engine.clarify(u" \n"_s); }), u"Введите ответ."_s);
        run.breakStore(u"1"_s, u"messages"_s);
        QVERIFY(errorOf([&] { run.engine.clarify(u"Да"_s); }).startsWith(u"SQLite: disk gone"_s));
        QCOMPARE(fields(run.engine.snapshot(), u"phase decision spec"_s), fields(before, u"phase decision spec"_s));
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
        for (const bool isNew : {true, false}) {
            AskingRun run;
            run.engine.askDecision(u"Старый вопрос?"_s, {}, [] { });
            run.engine.clarify(u"Да"_s);
            const QString question = isNew ? u"Какой цвет?"_s : u"Старый вопрос?"_s;
            run.model.answer(
                u"coordinator"_s,
                object(u"{'needs_user':true,'summary':'Итог','question':'%1','options':['Да']}"_s.arg(question)));
            int continued = 0;
            run.engine.consult(u"final"_s, {{u"plan"_s, 1}}, [&] { ++continued; });
            QVERIFY(run.runUntil([&] { return run.model.release(u"coordinator"_s); }));
            QCOMPARE(run.model.artifact(u"coordinator"_s), object(u"{'plan':1,'topic':'final'}"_s));
            QCOMPARE(continued, isNew ? 0 : 1);
            QCOMPARE(fields(run.state(u"decision"_s), u"question"_s), isNew ? question : QString());
            if (isNew)
                run.engine.clarify(u"Да"_s);
            QCOMPARE(continued, 1);
        }
    }
};

QTEST_GUILESS_MAIN(IntakeTest)
#include "tst_intake.moc"
