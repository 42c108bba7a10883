#include "engine_fixture.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class IntakeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void ordersAreCarriedOutBeforeTheChiefGoesOn();
    void anOrderThatCannotBeGivenEndsTheRun_data();
    void anOrderThatCannotBeGivenEndsTheRun();
    void anOrderIsGivenOnce();
    void theChiefHasThreeRounds();
    void anAgentWorksOnItsLastOrder();
    void ordersThatNobodyTakesEndTheRun();
    void theChiefDecidesHowTheRunGoesOn_data();
    void theChiefDecidesHowTheRunGoesOn();
    void theSpecificationKeepsWhatTheChiefDidNotWrite();
    void questionsComeFirst();
    void aQuestionOffersUpToThreeAnswers_data();
    void aQuestionOffersUpToThreeAnswers();
    void anAnswerIsRefused_data();
    void anAnswerIsRefused();
    void whileAQuestionIsOpenTheRunStandsStill();
    void whatFollowsAnAnswerMayFail();
    void theCoordinatorAsksOnlyWhatIsNew_data();
    void theCoordinatorAsksOnlyWhatIsNew();
};

namespace {

QJsonObject chief(const QJsonObject &more)
{
    return ScriptedProvider::with(ScriptedProvider::specification(), more);
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
    /// Why the task failed, or its end.
    QString ending()
    {
        if (!engine.busy())
            start();
        runToEnd();
        return phase() == "FAILED"_L1 ? error() : phase();
    }
    QJsonValue spec(const QString &key) const { return state(u"spec"_s)[key]; }
    /// Asks the user in the middle of the run.
    void askUser(const QString &question, const QJsonArray &options = {}, const std::function<void()> &then = [] { })
    {
        engine.askDecision(question, options, then);
    }
};

/// A run with a held intake, in which a test asks of its own.
class AskingRun : public AutonomousRun {
public:
    AskingRun()
    {
        model.holding = true;
        start();
        runUntil([this] { return model.held() == 1; });
    }
};

} // namespace

void IntakeTest::ordersAreCarriedOutBeforeTheChiefGoesOn()
{
    AutonomousRun run(
        {orders({order(u"a"_s, u" Первое\n"_s), order(u"b"_s, u"Второе"_s)}), ScriptedProvider::answerOnly()});
    QCOMPARE(run.ending(), u"COMPLETED"_s);
    QCOMPARE(run.model.asked(), (QStringList{u"orchestrator"_s, u"specialist"_s, u"specialist"_s, u"orchestrator"_s}));
    QCOMPARE(run.messages(u"AutomaticCorrection"_s), QStringList{u"Главный передаёт поручения выбранным помощникам"_s});
    QCOMPARE(run.model.artifact(u"specialist"_s)[u"request"_s].toString(), u"Сделай файл"_s);
    QCOMPARE(run.model.input(u"specialist"_s)[u"agent_rules"_s].toString(),
             u"Правила\nТекущее поручение главного: Первое"_s);
    QCOMPARE(run.model.input(u"specialist"_s, 1)[u"agent_rules"_s].toString(),
             u"Правила\nТекущее поручение главного: Второе"_s);

    const QJsonArray results = run.model.input(u"orchestrator"_s, 1)[u"task"_s][u"delegation_results"_s].toArray();
    QCOMPARE(results.size(), 2);
    QCOMPARE(results[1][u"agent_id"_s].toString(), u"b"_s);
    QVERIFY(!results[1][u"result"_s][u"summary"_s].toString().isEmpty());
    QCOMPARE(run.spec(u"delegation_results"_s).toArray(), results);

    QCOMPARE(run.spec(u"answer_only"_s), QJsonValue(true));
    QVERIFY(run.state(u"plan"_s).toObject().isEmpty());
    QCOMPARE(run.messages(u"TaskCompleted"_s), QStringList{u"Ответ"_s});
    QVERIFY(run.eventsOf(u"TaskCompleted"_s)[0][u"data"_s].toObject().isEmpty());
    QVERIFY(run.permissions.grants.isEmpty());
}

void IntakeTest::anOrderThatCannotBeGivenEndsTheRun_data()
{
    QTest::addColumn<QJsonValue>("bad");
    QTest::addColumn<QString>("error");
    const QString noTask = u"Главный не указал задание помощнику"_s;
    const QString noAgent = u"Главный выбрал недоступного агента: "_s;
    QTest::newRow("no task") << QJsonValue(QJsonObject{{u"agent_id"_s, u"a"_s}}) << noTask;
    QTest::newRow("a blank task") << QJsonValue(order(u"x"_s, u" \t"_s)) << noTask;
    QTest::newRow("an unknown agent") << QJsonValue(order(u"x"_s, u"Дело"_s)) << noAgent + u'x';
    QTest::newRow("an agent switched off") << QJsonValue(order(u"off"_s, u"Дело"_s)) << noAgent + u"off"_s;
    QTest::newRow("no agent") << QJsonValue(QJsonObject{{u"task"_s, u"Дело"_s}}) << noAgent;
    QTest::newRow("no object") << QJsonValue(u"a"_s) << noTask;
}

void IntakeTest::anOrderThatCannotBeGivenEndsTheRun()
{
    QFETCH(QJsonValue, bad);
    AutonomousRun run({orders({order(u"a"_s, u"Дело"_s), bad})});
    run.engine.agentNetwork.append(QJsonObject{{u"id"_s, u"off"_s}});
    QTEST(run.ending(), "error");
    QCOMPARE(run.model.asked(), QStringList{u"orchestrator"_s});
}

void IntakeTest::anOrderIsGivenOnce()
{
    QJsonObject again = ScriptedProvider::answerOnly();
    again[u"delegations"_s] = QJsonArray{order(u"a"_s, u"Дело "_s)};
    AutonomousRun run(
        {orders({order(u"a"_s, u"Дело"_s)}), orders({order(u"a"_s, u"Дело"_s), order(u"b"_s, u"Дело"_s)}), again});
    QCOMPARE(run.ending(), u"COMPLETED"_s);
    QCOMPARE(run.model.count(u"specialist"_s), 2);
    QCOMPARE(run.model.count(u"orchestrator"_s), 3);
    QCOMPARE(run.spec(u"delegation_results"_s)[1][u"agent_id"_s].toString(), u"b"_s);
}

void IntakeTest::theChiefHasThreeRounds()
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

void IntakeTest::anAgentWorksOnItsLastOrder()
{
    const QString longTask(8001, u'д');
    QJsonObject end = ScriptedProvider::answerOnly();
    end[u"delegations"_s] = QJsonArray{order(u"a"_s, u"Первое"_s), order(u"a"_s, longTask.first(8000))};
    AutonomousRun run({orders({order(u"a"_s, u"Первое"_s), order(u"a"_s, u"  "_s + longTask)}), end});
    QCOMPARE(run.ending(), u"COMPLETED"_s);
    QCOMPARE(run.model.count(u"specialist"_s), 1);
    QCOMPARE(run.model.input(u"specialist"_s)[u"agent_rules"_s].toString().section(u": "_s, 1), longTask.first(8000));
}

void IntakeTest::ordersThatNobodyTakesEndTheRun()
{
    AutonomousRun run({orders({order(u"a"_s, u"Дело"_s)})});
    run.start();
    run.engine.agentNetwork = {};
    QCOMPARE(run.ending(), u"Выбранные помощники не могут выполнить это поручение с текущими вложениями"_s);
}

void IntakeTest::theChiefDecidesHowTheRunGoesOn_data()
{
    QTest::addColumn<bool>("automatic");
    QTest::addColumn<QJsonObject>("answer");
    QTest::addColumn<bool>("simulation");
    QTest::addColumn<QString>("phase"); // the first one after INTAKE
    QTest::addColumn<QString>("error");
    const auto execute
        = [](const QJsonArray &nodes) { return chief({{u"action"_s, u"EXECUTE"_s}, {u"nodes"_s, nodes}}); };
    const auto node = [](const QStringList &after) {
        return ScriptedProvider::node(u"n"_s, u"code"_s, {{u"path"_s, u"n.md"_s}}, after);
    };
    const QString none;
    QTest::newRow("answer") << true << ScriptedProvider::answerOnly() << false << u"COMPLETED"_s << none;
    QTest::newRow("no answer") << true << ScriptedProvider::answerOnly(u" \n"_s) << false << u"FAILED"_s
                               << u"Главный не вернул ответ"_s;
    QTest::newRow("execute") << true << execute({node({})}) << false << u"EXECUTION"_s << none;
    QTest::newRow("simulate") << true << execute({node({})}) << true << u"PREVIEW"_s << none;
    QTest::newRow("no actions") << true << execute({}) << false << u"FAILED"_s << u"Главный не вернул действия"_s;
    QTest::newRow("a cycle") << true << execute({node({u"n"_s})}) << false << u"FAILED"_s << u"Dependency cycle"_s;
    QTest::newRow("plan") << true << chief({{u"action"_s, u"PLAN"_s}}) << false << u"PLANNING"_s << none;
    QTest::newRow("nothing") << true << chief({}) << false << u"PLANNING"_s << none;
    QTest::newRow("an unknown action") << true << chief({{u"action"_s, u"answer"_s}}) << false << u"PLANNING"_s << none;
    QTest::newRow("by hand, answer") << false << ScriptedProvider::answerOnly() << false << u"PLANNING"_s << none;
    QTest::newRow("by hand, orders") << false << orders({order(u"x"_s, u""_s)}) << false << u"PLANNING"_s << none;
}

void IntakeTest::theChiefDecidesHowTheRunGoesOn()
{
    QFETCH(bool, automatic);
    QFETCH(QJsonObject, answer);
    QFETCH(bool, simulation);
    QFETCH(QString, phase);
    AutonomousRun run({answer});
    run.engine.automaticRouting = automatic;
    run.start(u"Файл"_s, simulation);
    QVERIFY(run.runUntil([&] { return run.messages(u"PhaseChanged"_s).size() == 2; }));
    QCOMPARE(run.messages(u"PhaseChanged"_s).last(), phase);
    QTEST(run.error(), "error");
    if (phase == "PLANNING"_L1)
        return;
    QCOMPARE(run.model.count(u"planner"_s), 0);
    QCOMPARE(run.state(u"plan"_s)[u"revision"_s].toInt(),
             answer[u"action"_s] == "EXECUTE"_L1 && !answer[u"nodes"_s].toArray().isEmpty() ? 1 : 0);
    if (phase == "EXECUTION"_L1)
        QCOMPARE(run.ending(), u"COMPLETED"_s);
}

void IntakeTest::theSpecificationKeepsWhatTheChiefDidNotWrite()
{
    AutonomousRun run({chief({{u"original_request"_s, u"Другое"_s},
                              {u"build_command"_s, u"rm"_s},
                              {u"risk_level"_s, u"LOW"_s},
                              {u"decisions"_s, QJsonArray{u"Выдумка"_s}}})});
    run.engine.conversationHistory = {QJsonObject{{u"content"_s, u"Раньше"_s}}};
    run.model.holding = true;
    run.start();
    const QJsonObject before = run.state(u"spec"_s).toObject();
    QVERIFY(run.runUntil([&] { return run.model.release(u"orchestrator"_s); }));
    const QJsonObject after = run.state(u"spec"_s).toObject();
    QCOMPARE(after.keys(),
             (QStringList{u"acceptance_criteria"_s, u"automatic_routing"_s, u"available_executables"_s,
                          u"available_mcp_tools"_s, u"available_specialists"_s, u"build_command"_s, u"clarification"_s,
                          u"decisions"_s, u"delegation_results"_s, u"disabled_agents"_s, u"existing_files"_s,
                          u"media"_s, u"media_analysis"_s, u"media_tools"_s, u"original_request"_s, u"questions"_s,
                          u"requirements"_s, u"risk_level"_s, u"title"_s}));
    for (const QString &key : {u"clarification"_s, u"decisions"_s, u"delegation_results"_s, u"media_analysis"_s})
        QVERIFY2(after[key].isNull(), qPrintable(key));
    for (const QString &key : {u"original_request"_s, u"build_command"_s, u"available_executables"_s})
        QCOMPARE(after[key], before[key]);
}

void IntakeTest::questionsComeFirst()
{
    QJsonObject asking = ScriptedProvider::answerOnly();
    asking[u"questions"_s] = QJsonArray{u"Первый?"_s, u"Второй?"_s};
    AutonomousRun run({asking, ScriptedProvider::answerOnly()});
    run.start();
    QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
    const QJsonObject decision = run.state(u"decision"_s).toObject();
    QCOMPARE(decision.keys(), (QStringList{u"id"_s, u"options"_s, u"question"_s, u"stage"_s}));
    QCOMPARE(decision[u"question"_s].toString(), u"Первый?\nВторой?"_s);
    QCOMPARE(decision[u"options"_s].toArray(), QJsonArray{u"Использовать предложенный вариант"_s});
    QCOMPARE(decision[u"stage"_s].toString(), u"INTAKE"_s);
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
    const QJsonArray messages = run.stored(u"messages"_s);
    QCOMPARE(messages.size(), 2);
    QCOMPARE(messages[1][u"content"_s].toString(), u" Оба "_s);
    QCOMPARE(messages[1][u"role"_s].toString(), u"user"_s);
}

void IntakeTest::aQuestionOffersUpToThreeAnswers_data()
{
    QTest::addColumn<QJsonArray>("options");
    QTest::addColumn<QJsonArray>("kept");
    QTest::newRow("none") << QJsonArray() << QJsonArray();
    QTest::newRow("as given") << QJsonArray{u" Да "_s} << QJsonArray{u" Да "_s};
    QTest::newRow("the second of four is blank")
        << QJsonArray{u"1"_s, u" \t"_s, u"3"_s, u"4"_s} << QJsonArray{u"1"_s, u"3"_s, u"4"_s};
    QTest::newRow("five") << QJsonArray{u"1"_s, u"2"_s, u"3"_s, u"4"_s, u"5"_s} << QJsonArray{u"1"_s, u"2"_s, u"3"_s};
    QTest::newRow("no text") << QJsonArray{1, true, QJsonObject(), u"1"_s} << QJsonArray{u"1"_s};
    QTest::newRow("long") << QJsonArray{QString(200, u'я')} << QJsonArray{QString(180, u'я')};
}

void IntakeTest::aQuestionOffersUpToThreeAnswers()
{
    QFETCH(QJsonArray, options);
    AskingRun run;
    run.askUser(u" Вопрос? "_s, options);
    QCOMPARE(run.state(u"decision"_s)[u"question"_s].toString(), u"Вопрос?"_s);
    QTEST(run.state(u"decision"_s)[u"options"_s].toArray(), "kept");
    QCOMPARE(run.errorOf([&] { run.askUser(u"Ещё?"_s); }), u"Другое уточнение ещё ожидает ответа."_s);
}

void IntakeTest::anAnswerIsRefused_data()
{
    QTest::addColumn<bool>("open");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<bool>("storeFails");
    QTest::addColumn<QString>("error");
    QTest::newRow("no question") << false << u"Да"_s << false << u"Нет ожидающего уточнения."_s;
    QTest::newRow("blank") << true << u" \n"_s << false << u"Введите ответ."_s;
    QTest::newRow("not stored") << true << u"Да"_s << true << u"SQLite: disk gone"_s;
}

void IntakeTest::anAnswerIsRefused()
{
    QFETCH(bool, open);
    QFETCH(QString, answer);
    QFETCH(bool, storeFails);
    QFETCH(QString, error);
    AskingRun run;
    QCOMPARE(run.errorOf([&] { run.askUser(u" "_s); }), u"Главный агент не сформулировал вопрос."_s);
    if (open)
        run.askUser(u"Вопрос?"_s);
    if (storeFails)
        run.breakStore(u"1"_s, u"messages"_s);
    const QJsonObject before = run.engine.snapshot();
    const QString refusal = run.errorOf([&] { run.engine.clarify(answer); });
    QVERIFY2(refusal.startsWith(error), qPrintable(refusal));
    for (const QString &key : {u"phase"_s, u"decision"_s, u"spec"_s})
        QCOMPARE(run.state(key), before[key]);
    QCOMPARE(run.errorOf([&] { run.engine.approve(u"x"_s, true); }), u"Approval is no longer pending"_s);
    QCOMPARE(run.endings, QStringList());
}

void IntakeTest::whileAQuestionIsOpenTheRunStandsStill()
{
    AskingRun run;
    QStringList order;
    const auto ask = [&](const QString &name, const std::function<void()> &then) {
        run.engine.enqueueDirect(u"specialist"_s, {}, [&order, name, then](const QJsonObject &) {
            order.append(name);
            then();
        });
    };
    ask(u"first"_s, [&] { run.askUser(u"Второй вопрос?"_s, {}, [&] { order.append(u"answer 2"_s); }); });
    ask(u"second"_s, [] { });
    EngineFixture::settle();
    run.askUser(u"Вопрос?"_s, {}, [&] { order.append(u"answer 1"_s); });
    ask(u"third"_s, [] { });
    while (run.model.release(u"specialist"_s)) { }
    EngineFixture::settle();
    QVERIFY(order.isEmpty());
    QCOMPARE(run.model.count(u"specialist"_s), 2);
    QCOMPARE(run.stored(u"artifacts"_s).size(), 2);

    run.engine.clarify(u"Да"_s);
    QCOMPARE(order, (QStringList{u"answer 1"_s, u"first"_s}));
    QCOMPARE(run.phase(), u"CLARIFICATION"_s);
    run.engine.pause();
    run.engine.clarify(u"Нет"_s);
    QCOMPARE(run.phase(), u"INTAKE"_s);
    QCOMPARE(order.size(), 2);
    run.engine.resume();
    QCOMPARE(order, (QStringList{u"answer 1"_s, u"first"_s, u"answer 2"_s, u"second"_s}));
    QVERIFY(run.runUntil([&] { return run.model.release(u"specialist"_s); }));
    QCOMPARE(order.last(), u"third"_s);
    QCOMPARE(run.state(u"spec"_s)[u"decisions"_s].toArray().size(), 2);
}

void IntakeTest::whatFollowsAnAnswerMayFail()
{
    AskingRun run;
    run.askUser(u"Вопрос?"_s, {}, [] { require(false, u"Ошибка шага"_s); });
    run.engine.clarify(u"Да"_s);
    QCOMPARE(run.endings, QStringList{u"FAILED"_s});
    QCOMPARE(run.error(), u"Ошибка шага"_s);
}

void IntakeTest::theCoordinatorAsksOnlyWhatIsNew_data()
{
    QTest::addColumn<QString>("topic");
    QTest::addColumn<QJsonValue>("needsUser");
    QTest::addColumn<QString>("question");
    QTest::addColumn<bool>("asked");
    const QJsonValue yes(true);
    const QString routine = u"Стоит ли  Продолжить и Исправить это?"_s;
    QTest::newRow("needed") << u"code"_s << yes << u"Какой цвет?"_s << true;
    QTest::newRow("not needed") << u"code"_s << QJsonValue(false) << u"Какой цвет?"_s << false;
    QTest::newRow("left open") << u"plan"_s << QJsonValue() << u"Какой цвет?"_s << true;
    QTest::newRow("the word false") << u"plan"_s << QJsonValue(u"false"_s) << u"Какой цвет?"_s << true;
    QTest::newRow("a repeat") << u"plan"_s << yes << u" СТАРЫЙ \n вопрос? "_s << false;
    QTest::newRow("routine, code") << u"code"_s << yes << routine << false;
    QTest::newRow("routine, final") << u"final"_s << yes << u" ПРОДОЛЖИТЬ? "_s << false;
    QTest::newRow("routine, plan") << u"plan"_s << yes << u"Продолжить?"_s << true;
    QTest::newRow("half routine") << u"code"_s << yes << u"Продолжить как есть?"_s << true;
    const QString rest = u"продолжить, исправить "_s;
    QTest::newRow("routine, 179") << u"code"_s << yes << rest + QString(179 - rest.size(), u'я') << false;
    QTest::newRow("routine, 180") << u"code"_s << yes << rest + QString(180 - rest.size(), u'я') << true;
}

void IntakeTest::theCoordinatorAsksOnlyWhatIsNew()
{
    QFETCH(QString, topic);
    QFETCH(QJsonValue, needsUser);
    QFETCH(QString, question);
    QFETCH(bool, asked);
    AskingRun run;
    run.askUser(u"Старый вопрос?"_s);
    run.engine.clarify(u"Да"_s);
    run.model.answer(u"coordinator"_s,
                     {{u"needs_user"_s, needsUser},
                      {u"summary"_s, u"Итог"_s},
                      {u"question"_s, question},
                      {u"options"_s, QJsonArray{u"Да"_s}}});
    int continued = 0;
    run.engine.consult(topic, {{u"plan"_s, 1}}, [&] { ++continued; });
    QVERIFY(run.runUntil([&] { return run.model.release(u"coordinator"_s); }));
    QCOMPARE(run.model.artifact(u"coordinator"_s), (QJsonObject{{u"plan"_s, 1}, {u"topic"_s, topic}}));
    QCOMPARE(run.messages(u"AutomaticCorrection"_s), asked ? QStringList() : QStringList{u"Итог"_s});
    QCOMPARE(continued, asked ? 0 : 1);
    if (!asked)
        return;
    QCOMPARE(run.state(u"decision"_s)[u"question"_s].toString(), question);
    QCOMPARE(run.state(u"decision"_s)[u"options"_s].toArray(), QJsonArray{u"Да"_s});
    run.engine.clarify(u"Да"_s);
    QCOMPARE(continued, 1);
}

QTEST_GUILESS_MAIN(IntakeTest)
#include "tst_intake.moc"
