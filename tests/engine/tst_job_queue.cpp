#include "engine_fixture.h"
#include "json_text.h"

#include "prompt_notes.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTest>

#include <array>
#include <tuple>

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
        QCOMPARE(fields(run.lastRun(), u"role name"_s), u"orchestrator Главный · structure"_s);
        QCOMPARE(run.model.requests.last().system, PromptManager::get(u"structure"_s));
        run.answerNow(u"structure"_s);
        QCOMPARE(run.answers.size(), 1);
    }

    void whichAgentTakesTheJob()
    {
        const QJsonArray three{agent(u"a"_s, 40), agent(u"b"_s, 60), agent(u"c"_s, 60)};
        const auto one = [](const QString &more) { return QJsonArray{agent(u"a"_s, 90, object(more))}; };
        const QList<std::tuple<QJsonArray, QJsonObject, QString>> rows{
            {{}, {}, u"specialist for specialist"_s},
            {three, {}, u"b for b"_s}, // the first in rank
            {three, nodeFor(u"c"_s), u"c Scripted"_s},
            {three, nodeFor(u"unknown"_s), u"b for b"_s},
            {three, member(u"m"_s, 5), u"m Scripted"_s},
            {one(u"{'mode':'workflow'}"_s), nodeFor(u"a"_s), u"specialist for specialist"_s},
            {one(u"{'enabled':false}"_s), nodeFor(u"a"_s), u"specialist for specialist"_s},
        };
        for (const auto &[network, artifact, takes] : rows) {
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
            QCOMPARE(fields(run.lastRun(), u"role model logical_role"_s), takes + u" specialist"_s);
            QCOMPARE(ofRole.requests.size() + ofAgent.requests.size(), takes.contains(u"for "_s) ? 1 : 0);
        }
    }

    void aRoleHasItsLimitAndItsStatus()
    {
        QueueRun run;
        run.begin();
        for (const QString &row : {u"coding WORKING 8192"_s, u"coding FIXING 8192"_s, u"risk_judge REVIEWING 1536"_s,
                                   u"workflow_reviewer REVIEWING 1536"_s, u"validator REVIEWING 2048"_s,
                                   u"planner PLANNING 2048"_s, u"observer THINKING 2048"_s}) {
            const QString role = row.section(u' ', 0, 0);
            run.ask(role, row.contains(u"FIXING"_s) ? object(u"{'fixes':[]}"_s) : QJsonObject());
            EngineFixture::settle();
            const LLMRequest &request = run.model.requests.last();
            QCOMPARE(fields(run.lastRun(), u"role status"_s) + u' ' + QString::number(request.maxTokens), row);
            QCOMPARE(request.system, PromptManager::get(role));
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
        QCOMPARE(fields(agents, u"1.allowed_tools 2.allowed_tools"_s), u"['write_file','read_file'] []"_s);
        QCOMPARE(run.lastRun()[u"agent_id"_s], agents[1][u"id"_s]);
    }

    void whatARequestHolds()
    {
        QueueRun run;
        run.store.put(u"memory_entries"_s, u"m"_s, u"project"_s, {{u"text"_s, u"Помни"_s}});
        run.store.put(u"memory_entries"_s, u"n"_s, u"other"_s, {{u"text"_s, u"Чужое"_s}});
        run.engine.automaticRouting = true;
        run.engine.mcpTools = array(u"[{'name':'find'}]"_s);
        run.engine.roleSkills = object(u"{'specialist':{'instructions':'Навык'},'planner':{'instructions':''}}"_s);
        const QJsonObject more = object(u"{'rules':'Правило','tasks':['code']}"_s);
        run.engine.agentNetwork
            = {agent(u"a"_s, 50, ScriptedProvider::with({{u"instructions"_s, QString(16001, u'я')}}, more))};
        run.begin();
        run.ask(u"specialist"_s, {{u"segment"_s, QJsonObject()}});
        run.ask(u"planner"_s);
        EngineFixture::settle();

        const QJsonObject input = run.model.input(u"specialist"_s);
        QCOMPARE(fields(input, u"memory role_skill_instructions agent_rules enabled_agent_tasks"_s),
                 u"[{'text':'Помни'}] Навык Правило ['code']"_s);
        QCOMPARE(input[u"specialist_instructions"_s].toString(), QString(16000, u'я'));
        QVERIFY(!input[u"task"_s].toObject().contains(u"available_mcp_tools"_s));
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
        const QString order(96000, u'a');
        const QList<std::pair<QJsonObject, QString>> rows{
            {{{u"instructions"_s, order}}, u"Selected context exceeds configured limit"_s},
            {{{u"instructions"_s, order}, {u"path"_s, u"a.txt"_s}},
             u"Задание для файла a.txt не помещается в один запрос к модели: в нём 9\\d{4} символов, "
             "а помещается 96000\\."_s}};
        for (const auto &[input, error] : rows) {
            QueueRun run;
            run.begin();
            run.ask(u"specialist"_s, {{u"node"_s, QJsonObject{{u"input"_s, input}}}, {u"text"_s, order}});
            QCOMPARE(run.endings, QStringList{u"FAILED"_s});
            QVERIFY2(QRegularExpression(error).match(run.error()).hasMatch(), qPrintable(run.error()));
        }
    }

    void aFailedRequestIsRepeatedWithinLimits()
    {
        // r: fails for now, t: is cut off, e: fails for good, x: no JSON, g: good
        for (const auto &[letters, limits, ending] : std::initializer_list<std::array<QString, 3>>{
                 {u"trxg"_s, u"8192 16384 16384 16384"_s, u"COMPLETED 4  5"_s},
                 {u"rrxrg"_s, u"8192 8192 8192 8192"_s, u"ERROR 4 r 5"_s},
                 {u"eg"_s, u"8192"_s, u"ERROR 1 e 5"_s}}) {
            QueueRun run;
            for (const QChar letter : letters)
                run.model.answer(u"coding"_s, told(letter));
            run.begin();
            run.model.holding = false;
            run.ask(u"coding"_s);
            QElapsedTimer timer;
            timer.start();
            QVERIFY(run.runUntil([&] { return !run.engine.busy() || !run.answers.isEmpty(); }));
            const bool isFinal = letters.startsWith(u'e');
            QVERIFY(timer.elapsed() >= (isFinal ? 0 : 1450)); // 0.5 and 1 s, by coarse timers

            QStringList asked;
            for (const LLMRequest &request : std::as_const(run.model.requests).sliced(1))
                asked.append(QString::number(request.maxTokens));
            QCOMPARE(asked.join(u' '), limits);
            const QJsonObject record = run.lastRun();
            QCOMPARE(fields(record, u"status attempt error output_tokens"_s), ending);
            QCOMPARE(run.error(), record[u"error"_s].toString());
            QCOMPARE(record[u"output"_s].toObject(), run.answers.value(0));
            QCOMPARE(run.messages(u"RetryScheduled"_s).size(), isFinal ? 0 : 2);
        }
    }

    void anAnswerThatDoesNotFitIsRepairedOnce()
    {
        for (const auto &[text, message] : {std::pair{u"Готово"_s, u"Expected a JSON object"_s},
                                            {u"{\"nodes\":[]}"_s, u"Graph requires 1..64 nodes"_s}}) {
            QueueRun run;
            run.begin();
            run.model.answer(u"planner"_s, ScriptedProvider::text(text));
            run.ask(u"planner"_s);
            run.answerNow(u"planner"_s);
            QJsonObject repair = run.model.input(u"planner"_s, 1);
            QCOMPARE(repair.take(u"format_error"_s).toString(), message);
            QCOMPARE(repair.take(u"format_instruction"_s).toString(),
                     u"Return valid JSON satisfying the role schema. This is your only format repair attempt."_s);
            QCOMPARE(repair, run.model.input(u"planner"_s, 0));
            QVERIFY(run.engine.busy());

            run.answerNow(u"planner"_s);
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
        for (const bool enough : {true, false}) {
            QueueRun run;
            run.begin(enough ? need : need - 1);
            QCOMPARE(run.model.held(), enough ? 1 : 0);
            QCOMPARE(run.error(), enough ? QString() : u"Token budget reached before next request"_s);
            QCOMPARE(run.lastRun()[u"status"_s].toString() == u"CANCELLED"_s, !enough);
        }
    }

    void whatAnAnswerCosts()
    {
        // What the prompt and the answer are said to have cost, and what is charged; -1: what was reserved.
        for (const auto &[prompt, completion, cost] : std::initializer_list<std::tuple<int, int, qint64>>{
                 {10, 5, 15}, {0, 7, 7}, {2000000000, 2, 2000000002}, {0, 0, -1}, {-9, 4, -1}}) {
            QueueRun run;
            run.begin(5000000000);
            LLMResult result = ScriptedProvider::result({{u"summary"_s, u"Итог"_s}});
            result.promptTokens = prompt;
            result.completionTokens = completion;
            run.model.answer(u"specialist"_s, result);
            const qint64 others = run.state(u"reserved_tokens"_s).toInteger();
            run.ask(u"specialist"_s);
            EngineFixture::settle();
            const qint64 reserved = run.state(u"reserved_tokens"_s).toInteger() - others;
            run.answerNow(u"specialist"_s);
            QCOMPARE(run.state(u"tokens"_s).toInteger(), cost < 0 ? reserved : cost);
            QCOMPARE(run.state(u"reserved_tokens"_s).toInteger(), others);
        }
    }

    void aContinuationMayEndTheRun()
    {
        // The step throws; it fails the run or cancels it first.
        for (const auto &[first, ending] : {std::pair{QString(), u"FAILED Ошибка шага ERROR"_s},
                                            {u"fail"_s, u"FAILED Причина COMPLETED"_s},
                                            {u"cancel"_s, u"CANCELLED  COMPLETED"_s}}) {
            QueueRun run;
            run.begin();
            run.engine.enqueueDirect(u"specialist"_s, {}, [&run, first = first](const QJsonObject &) {
                if (first == u"fail"_s)
                    run.engine.fail(u"Причина"_s);
                if (first == u"cancel"_s)
                    run.engine.cancel();
                throw std::runtime_error("Ошибка шага");
            });
            run.answerNow(u"specialist"_s);
            QCOMPARE(run.endings.join(u' ') + u' ' + run.error() + u' ' + fields(run.lastRun(), u"status"_s), ending);
            QVERIFY(run.stored(u"agent_runs"_s).contains(run.lastRun()));
        }
    }
};

QTEST_GUILESS_MAIN(JobQueueTest)
#include "tst_job_queue.moc"
