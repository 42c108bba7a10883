#include "engine_fixture.h"

#include "prompt_notes.h"

#include <QElapsedTimer>
#include <QTest>

#include <array>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// A run whose intake waits for its answer, so that a test can queue requests of its own.
class QueueRun : public EngineFixture {
public:
    void begin(qint64 budget = 100000000)
    {
        model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
        model.holding = true;
        engine.start(u"Сделай файл"_s, false, budget, {});
        runUntil([this] { return !engine.busy() || model.held() == 1; });
    }
    void ask(const QString &role, const QJsonObject &artifact = {})
    {
        engine.enqueueDirect(role, artifact, [this](const QJsonObject &answer) { answers.append(answer); });
    }
    QJsonObject lastRun() const { return state(u"runs"_s).toArray().last().toObject(); }
    /// Lets the request of that role be sent, and answered.
    void answerNow(const QString &role)
    {
        runUntil([&] { return model.release(role); }, 1000);
        settle();
    }

    QList<QJsonObject> answers;
};

QJsonObject agent(const QString &id, int priority, const QJsonObject &more = {})
{
    return ScriptedProvider::with({{u"id"_s, id},
                                   {u"name"_s, u"Имя "_s + id},
                                   {u"enabled"_s, true},
                                   {u"priority"_s, priority},
                                   {u"parent"_s, u"specialist"_s}},
                                  more);
}

QJsonObject member(const QString &id, int priority)
{
    return {{u"workflow_agent"_s, agent(id, priority)}};
}

QJsonObject nodeFor(const QString &agentId)
{
    return {{u"node"_s, QJsonObject{{u"input"_s, QJsonObject{{u"agent_id"_s, agentId}}}}}};
}

LLMResult told(QChar letter)
{
    LLMResult result = letter == u'x' ? ScriptedProvider::text(u"Готово"_s)
                                      : ScriptedProvider::result(ScriptedProvider::file(u"a.md"_s, u"Текст"_s));
    if (letter == u'r' || letter == u't' || letter == u'e')
        result.error = letter;
    result.retryable = letter == u'r';
    result.truncated = letter == u't';
    return result;
}

} // namespace

class JobQueueTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void theHighestPriorityLeavesFirst()
    {
        QueueRun run;
        run.begin();
        run.model.requests.clear();
        const QList<int> priorities{50, 80, 50, 10};
        for (qsizetype i = 0; i < priorities.size(); ++i)
            run.ask(u"specialist"_s, member(QString::number(i), priorities[i]));
        run.ask(u"specialist"_s, {{u"priority"_s, 99}});
        QVERIFY(run.model.requests.isEmpty());
        QVERIFY(run.runUntil([&] { return run.model.requests.size() == 5; }));

        QStringList order;
        for (const LLMRequest &request : std::as_const(run.model.requests))
            order.append(run.agentOf(request));
        QCOMPARE(order, (QStringList{u"1"_s, u"0"_s, u"2"_s, u"specialist"_s, u"3"_s}));
    }

    void onlySoManyAreUnderWay()
    {
        const QList<std::pair<int, int>> limits{{-5, 1}, {3, 3}, {8, 8}, {100, 8}};
        for (const auto &[wanted, limit] : limits) {
            QueueRun run;
            run.engine.maxParallel = wanted;
            run.begin();
            for (int i = 0; i < 11; ++i)
                run.ask(u"specialist"_s);
            EngineFixture::settle();
            QCOMPARE(run.model.held(), limit);
            while (run.answers.size() < 11) {
                QVERIFY(run.model.release(run.model.count(u"specialist"_s) == 0 ? QString() : u"specialist"_s));
                EngineFixture::settle();
                QVERIFY(run.model.held() <= limit);
            }
        }
    }

    void aReviewerThatIsSwitchedOffApproves()
    {
        const QStringList roles{u"risk_judge"_s, u"integration_reviewer"_s, u"validator"_s, u"observer"_s};
        const QJsonObject approval = ScriptedProvider::with(
            ScriptedProvider::approval(),
            {{u"confidence"_s, 1}, {u"summary"_s, u"Роль отключена пользователем; проверка не выполнялась."_s}});
        QueueRun run;
        run.engine.disabledAgents = QSet<QString>(roles.begin(), roles.end());
        run.begin();
        for (const QString &role : roles)
            run.ask(role);
        run.engine.pause();
        EngineFixture::settle();
        QVERIFY(run.answers.isEmpty());
        run.engine.resume();
        QCOMPARE(run.answers, QList<QJsonObject>(4, approval));
        QCOMPARE(run.messages(u"AgentSkipped"_s), roles);
        QCOMPARE(run.model.asked(), QStringList{u"orchestrator"_s});

        run.ask(roles.first());
        run.engine.cancel();
        EngineFixture::settle();
        QCOMPARE(run.answers.size(), 4);
    }

    void theChiefStandsInForAWorkerThatIsSwitchedOff()
    {
        QueueRun run;
        run.engine.disabledAgents = {u"structure"_s};
        run.begin();
        run.ask(u"structure"_s);
        EngineFixture::settle();
        QCOMPARE(run.lastRun()[u"role"_s].toString(), u"orchestrator"_s);
        QCOMPARE(run.lastRun()[u"name"_s].toString(), u"Главный · structure"_s);
        QCOMPARE(run.model.requests.last().role, u"structure"_s);
        QCOMPARE(run.model.requests.last().system, PromptManager::get(u"structure"_s));
        run.answerNow(u"structure"_s);
        QCOMPARE(run.answers.size(), 1);
    }

    void whichAgentTakesTheJob()
    {
        const QJsonArray three{agent(u"a"_s, 40), agent(u"b"_s, 60), agent(u"c"_s, 60)};
        const auto one = [](const QJsonObject &more) { return QJsonArray{agent(u"a"_s, 90, more)}; };
        struct Row {
            QJsonArray network;
            QJsonObject artifact;
            QString role;
            QString provider;
        };
        const QList<Row> rows{
            {{}, {}, u"specialist"_s, u"for specialist"_s},
            {three, {}, u"b"_s, u"for b"_s}, // the first in rank
            {three, nodeFor(u"c"_s), u"c"_s, u"Scripted"_s},
            {three, nodeFor(u"unknown"_s), u"b"_s, u"for b"_s},
            {three, member(u"m"_s, 5), u"m"_s, u"Scripted"_s},
            {one({{u"mode"_s, u"workflow"_s}}), nodeFor(u"a"_s), u"specialist"_s, u"for specialist"_s},
            {one({{u"enabled"_s, false}}), nodeFor(u"a"_s), u"specialist"_s, u"for specialist"_s},
        };
        for (const auto &[network, artifact, role, provider] : rows) {
            QueueRun run;
            ScriptedProvider ofRole;
            ScriptedProvider ofAgent;
            ofRole.displayName = u"for specialist"_s;
            ofAgent.displayName = u"for b"_s;
            run.engine.agentNetwork = network;
            run.engine.agentProviders = {{u"specialist"_s, &ofRole}, {u"b"_s, &ofAgent}};
            run.begin();
            run.ask(u"specialist"_s, artifact);
            EngineFixture::settle();
            const QJsonObject record = run.lastRun();
            QCOMPARE(record[u"role"_s].toString(), role);
            QCOMPARE(record[u"logical_role"_s].toString(), u"specialist"_s);
            QCOMPARE(record[u"model"_s].toString(), provider);
            QCOMPARE(ofRole.requests.size() + ofAgent.requests.size(), provider == "Scripted"_L1 ? 0 : 1);
        }
    }

    void aRoleHasItsLimitAndItsStatus()
    {
        struct Row {
            QString role;
            QString status;
            int tokens;
        };
        const QList<Row> rows{{u"coding"_s, u"WORKING"_s, 8192},       {u"coding"_s, u"FIXING"_s, 8192},
                              {u"risk_judge"_s, u"REVIEWING"_s, 1536}, {u"workflow_reviewer"_s, u"REVIEWING"_s, 1536},
                              {u"validator"_s, u"REVIEWING"_s, 2048},  {u"planner"_s, u"PLANNING"_s, 2048},
                              {u"observer"_s, u"THINKING"_s, 2048}};
        QueueRun run;
        run.begin();
        for (const auto &[role, status, tokens] : rows) {
            run.ask(role, status == "FIXING"_L1 ? QJsonObject{{u"fixes"_s, QJsonArray()}} : QJsonObject());
            EngineFixture::settle();
            QCOMPARE(run.model.requests.last().maxTokens, tokens);
            QCOMPARE(run.lastRun()[u"status"_s].toString(), status);
            QCOMPARE(run.model.requests.last().system, PromptManager::get(role));
            run.answerNow(role);
        }
    }

    void aRoleHasOneAgentPerTask()
    {
        QueueRun run;
        run.begin();
        for (const QString &role : {u"coding"_s, u"specialist"_s, u"coding"_s})
            run.ask(role);
        const QJsonArray agents = run.stored(u"agents"_s);
        QCOMPARE(agents.size(), 3);
        QCOMPARE(agents[1][u"allowed_tools"_s].toArray(), (QJsonArray{u"write_file"_s, u"read_file"_s}));
        QVERIFY(agents[2][u"allowed_tools"_s].toArray().isEmpty());
        QCOMPARE(run.lastRun()[u"agent_id"_s], agents[1][u"id"_s]);
    }

    void whatARequestHolds()
    {
        QueueRun run;
        run.store.put(u"memory_entries"_s, u"m"_s, u"project"_s, {{u"text"_s, u"Помни"_s}});
        run.store.put(u"memory_entries"_s, u"n"_s, u"other"_s, {{u"text"_s, u"Чужое"_s}});
        run.engine.automaticRouting = true;
        run.engine.mcpTools = {QJsonObject{{u"name"_s, u"find"_s}}};
        run.engine.roleSkills = {{u"specialist"_s, QJsonObject{{u"instructions"_s, u"Навык"_s}}},
                                 {u"planner"_s, QJsonObject{{u"instructions"_s, u""_s}}}};
        run.engine.agentNetwork = {agent(u"a"_s, 50,
                                         {{u"instructions"_s, QString(16001, u'я')},
                                          {u"rules"_s, u"Правило"_s},
                                          {u"tasks"_s, QJsonArray{u"code"_s}}})};
        run.begin();
        run.ask(u"specialist"_s, {{u"segment"_s, QJsonObject()}});
        run.ask(u"planner"_s);
        EngineFixture::settle();

        const QJsonObject input = run.model.input(u"specialist"_s);
        QCOMPARE(input[u"memory"_s].toArray(), (QJsonArray{QJsonObject{{u"text"_s, u"Помни"_s}}}));
        QVERIFY(!input[u"task"_s].toObject().contains(u"available_mcp_tools"_s));
        QCOMPARE(input[u"role_skill_instructions"_s].toString(), u"Навык"_s);
        QCOMPARE(input[u"specialist_instructions"_s].toString(), QString(16000, u'я'));
        QCOMPARE(input[u"agent_rules"_s].toString(), u"Правило"_s);
        QCOMPARE(input[u"enabled_agent_tasks"_s].toArray(), QJsonArray{u"code"_s});
        QCOMPARE(run.model.requests[1].system,
                 PromptManager::get(u"specialist"_s) + roleSkillNote() + specialistNote() + segmentNote());
        QCOMPARE(run.model.requests[0].system, PromptManager::get(u"orchestrator"_s) + autonomousNote());
        QCOMPARE(run.model.requests[2].system, PromptManager::get(u"planner"_s));
        for (const QString &role : {u"orchestrator"_s, u"planner"_s})
            QCOMPARE(run.model.input(role)[u"task"_s][u"available_mcp_tools"_s].toArray(), run.engine.mcpTools);
        QCOMPARE(run.model.input(u"planner"_s).keys(), (QStringList{u"artifact"_s, u"memory"_s, u"task"_s}));
    }

    void whatDoesNotFitEndsTheRun()
    {
        QueueRun run;
        run.begin();
        run.ask(u"specialist"_s, {{u"text"_s, QString(96000, u'a')}});
        QCOMPARE(run.endings, QStringList{u"FAILED"_s});
        QCOMPARE(run.error(), u"Selected context exceeds configured limit"_s);
    }

    void aFailedRequestIsRepeatedWithinLimits()
    {
        // r: fails for now, t: is cut off, e: fails for good, x: no JSON, g: good
        struct Row {
            QString letters;
            QList<int> tokens; ///< The output limits of the requests.
            QString error{}; ///< That of the run; empty when the answer arrived.
        };
        for (const auto &[letters, tokens, error] : {Row{u"trxg"_s, {8192, 16384, 16384, 16384}},
                                                     {u"rrxrg"_s, {8192, 8192, 8192, 8192}, u"r"_s},
                                                     {u"eg"_s, {8192}, u"e"_s}}) {
            QueueRun run;
            for (const QChar letter : letters)
                run.model.answer(u"coding"_s, told(letter));
            run.begin();
            run.model.holding = false;
            run.ask(u"coding"_s);
            QElapsedTimer timer;
            timer.start();
            QVERIFY(run.runUntil([&] { return !run.engine.busy() || !run.answers.isEmpty(); }));
            QVERIFY(timer.elapsed() >= (error == u"e"_s ? 0 : 1450)); // 0.5 and 1 s, by coarse timers

            QList<int> limits;
            for (const LLMRequest &request : std::as_const(run.model.requests)) {
                if (request.role == u"coding"_s)
                    limits.append(request.maxTokens);
            }
            QCOMPARE(limits, tokens);
            QCOMPARE(run.error(), error);
            const QJsonObject record = run.lastRun();
            QCOMPARE(record[u"status"_s].toString(), error.isEmpty() ? u"COMPLETED"_s : u"ERROR"_s);
            QCOMPARE(record[u"attempt"_s].toInt(), int(tokens.size()));
            QCOMPARE(record[u"error"_s].toString(), error);
            QCOMPARE(record[u"output"_s].toObject(), run.answers.value(0));
            QCOMPARE(record[u"output_tokens"_s].toInt(), told(letters[tokens.size() - 1]).completionTokens);
            QCOMPARE(run.messages(u"RetryScheduled"_s).size(), error == u"e"_s ? 0 : 2);
        }
    }

    void anAnswerThatDoesNotFitIsRepairedOnce()
    {
        const QList<std::array<QString, 3>> answers{
            {u"coding"_s, u"Готово"_s, u"Expected a JSON object"_s},
            {u"risk_judge"_s, u"{}"_s, u"Empty result"_s},
            {u"planner"_s, u"{\"nodes\":[]}"_s, u"Graph requires 1..64 nodes"_s},
            {u"orchestrator"_s, u"{\"title\":\"Т\"}"_s, u"Invalid task specification"_s},
        };
        for (const auto &[role, text, message] : answers) {
            QueueRun run;
            run.begin();
            run.model.forget(role);
            run.model.answer(role, ScriptedProvider::text(text));
            if (role != "orchestrator"_L1) // that one is asked already
                run.ask(role);
            run.answerNow(role);

            QCOMPARE(run.model.count(role), 2);
            QJsonObject repair = run.model.input(role, 1);
            QCOMPARE(repair.take(u"format_error"_s).toString(), message);
            QCOMPARE(repair.take(u"format_instruction"_s).toString(),
                     u"Return valid JSON satisfying the role schema. This is your only format repair attempt."_s);
            QCOMPARE(repair, run.model.input(role, 0));
            QVERIFY(run.engine.busy());

            run.answerNow(role);
            QCOMPARE(run.endings, QStringList{u"FAILED"_s});
            QCOMPARE(run.error(), message);
            QCOMPARE(run.lastRun()[u"status"_s].toString(), u"ERROR"_s);
            QVERIFY(run.answers.isEmpty());
        }
    }

    void theBudgetIsSpentToTheLastToken()
    {
        QueueRun roomy;
        roomy.begin();
        const qint64 need = roomy.state(u"reserved_tokens"_s).toInteger();
        const LLMRequest request = roomy.model.requests.value(0);
        QCOMPARE(need, jsonBytes(request.input).size() + request.system.toUtf8().size() + request.maxTokens);

        QueueRun exact;
        exact.begin(need);
        QCOMPARE(exact.model.held(), 1);
        QueueRun less;
        less.begin(need - 1);
        QVERIFY(less.model.requests.isEmpty());
        QCOMPARE(less.endings, QStringList{u"FAILED"_s});
        QCOMPARE(less.error(), u"Token budget reached before next request"_s);
        QCOMPARE(less.lastRun()[u"status"_s].toString(), u"CANCELLED"_s);
    }

    void whatAnAnswerCosts()
    {
        struct Bill {
            int prompt;
            int completion;
            qint64 cost; ///< -1: what was reserved
        };
        for (const Bill &bill : {Bill{10, 5, 15}, {0, 7, 7}, {2000000000, 2, 2000000002}, {0, 0, -1}, {-9, 4, -1}}) {
            QueueRun run;
            run.begin(5000000000);
            LLMResult result = ScriptedProvider::result({{u"summary"_s, u"Итог"_s}});
            result.promptTokens = bill.prompt;
            result.completionTokens = bill.completion;
            run.model.answer(u"specialist"_s, result);
            const qint64 others = run.state(u"reserved_tokens"_s).toInteger();
            run.ask(u"specialist"_s);
            EngineFixture::settle();
            const qint64 reserved = run.state(u"reserved_tokens"_s).toInteger() - others;
            run.answerNow(u"specialist"_s);
            QCOMPARE(run.state(u"tokens"_s).toInteger(), bill.cost < 0 ? reserved : bill.cost);
            QCOMPARE(run.state(u"reserved_tokens"_s).toInteger(), others);
        }
    }

    void aContinuationMayEndTheRun()
    {
        // The step fails the run, cancels it, throws.
        for (const auto &[steps, end, error, status] :
             std::initializer_list<std::array<QString, 4>>{{u"t"_s, u"FAILED"_s, u"Ошибка шага"_s, u"ERROR"_s},
                                                           {u"ft"_s, u"FAILED"_s, u"Причина"_s, u"COMPLETED"_s},
                                                           {u"ct"_s, u"CANCELLED"_s, {}, u"COMPLETED"_s}}) {
            QueueRun run;
            run.begin();
            run.engine.enqueueDirect(u"specialist"_s, {}, [&](const QJsonObject &) {
                if (steps.contains(u'f'))
                    run.engine.fail(u"Причина"_s);
                if (steps.contains(u'c'))
                    run.engine.cancel();
                require(!steps.contains(u't'), u"Ошибка шага"_s);
            });
            run.answerNow(u"specialist"_s);
            QCOMPARE(run.endings, QStringList{end});
            QCOMPARE(run.error(), error);
            QCOMPARE(run.lastRun()[u"status"_s].toString(), status);
            QVERIFY(run.stored(u"agent_runs"_s).contains(run.lastRun()));
        }
    }
};

QTEST_GUILESS_MAIN(JobQueueTest)
#include "tst_job_queue.moc"
