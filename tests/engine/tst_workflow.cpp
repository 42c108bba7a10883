#include "engine_fixture.h"
#include "json_text.h"

#include "workflow.h"

#include <QTest>

#include <tuple>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const auto with = &ScriptedProvider::with;

/// An agent in front of the planner.
QJsonObject agent(const QString &id, const QStringList &after = {}, const QJsonObject &more = {})
{
    return with({{u"id"_s, id},
                 {u"name"_s, u"Имя "_s + id},
                 {u"enabled"_s, true},
                 {u"parent"_s, u"planner"_s},
                 {u"mode"_s, u"workflow"_s},
                 {u"after"_s, QJsonArray::fromStringList(after)}},
                more);
}

QJsonObject reviewer(const QString &id, const QStringList &after)
{
    return agent(id, after, {{u"kind"_s, u"review"_s}});
}

QJsonArray agents(int count)
{
    QJsonArray list;
    for (int i = 0; i < count; ++i)
        list.append(agent(QString::number(i), i == 0 ? QStringList() : QStringList{QString::number(i - 1)}));
    return list;
}

/// A run with a network in front of its stages. Every member sums up with its own id.
class ChainRun : public EngineFixture {
public:
    explicit ChainRun(const QJsonArray &network)
    {
        scriptOneFile();
        engine.agentNetwork = network;
        model.respond(u"specialist"_s, [this](const LLMRequest &request) {
            return ScriptedProvider::result(summary(agentOf(request)));
        });
    }
    static QJsonObject summary(const QString &id) { return {{u"summary"_s, u"Итог "_s + id}}; }
    static QJsonObject deliverable(const QString &id)
    {
        return {{u"agent_id"_s, id}, {u"agent"_s, u"Имя "_s + id}, {u"result"_s, summary(id)}};
    }
    /// The agents or roles that were asked, in order, up to the planner.
    QString order() const
    {
        QStringList ids;
        for (const LLMRequest &request : model.requests) {
            if (request.role != u"orchestrator"_s)
                ids.append(agentOf(request));
            if (request.role == u"planner"_s)
                break;
        }
        return ids.join(u' ');
    }
    QJsonObject payload(const QString &id, int nth = 0) const
    {
        for (const LLMRequest &request : model.requests) {
            if (agentOf(request) == id && nth-- == 0)
                return request.input[u"artifact"_s].toObject();
        }
        return {};
    }
};

} // namespace

class WorkflowTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aNetworkIsChecked()
    {
        const QString cycle = u"Связь создаёт цикл: агент не может ждать сам себя"_s;
        const QList<std::pair<QJsonArray, QString>> networks{
            {agents(24), {}},
            {agents(25), u"Можно добавить до 24 агентов"_s},
            {{agent(u"a"_s), agent(u"a"_s)}, u"Повторный ID агента"_s},
            {{agent(u"a"_s, {u"a"_s})}, cycle},
            {{agent(u"a"_s, {u"c"_s}), agent(u"b"_s, {u"a"_s}), agent(u"c"_s, {u"b"_s})}, cycle},
            {{agent(u"a"_s), agent(u"b"_s, {u"a"_s}), agent(u"c"_s, {u"a"_s}), agent(u"d"_s, {u"b"_s, u"c"_s})}, {}},
            {{agent(u"a"_s, {u"x"_s})}, u"Связанный агент не найден"_s},
            {{agent(u"a"_s, {u"b"_s}), agent(u"b"_s, {}, {{u"parent"_s, u"coding"_s}})},
             u"Связанные агенты должны работать перед одним этапом"_s},
            {{agent(u"a"_s, {u"b"_s}), agent(u"b"_s, {}, {{u"mode"_s, u"delegate"_s}})},
             u"Связи между агентами требуют режима цепочки"_s},
        };
        for (const auto &[network, error] : networks)
            QCOMPARE(errorOf([&] { validateAgentWorkflow(network); }), error);
    }

    void whoRunsInFrontOfAStage()
    {
        const QList<std::tuple<QString, QString, bool>> rows{
            // Fields of the agent; the media, i: an image, v: a video; whether it runs.
            {u"{'enabled':false}"_s, {}, false},
            {u"{'parent':'coding'}"_s, {}, false},
            {u"{'mode':'delegate'}"_s, {}, false},
            {u"{'tasks':[]}"_s, u"iv"_s, false},
            {u"{'tasks':['photo']}"_s, {}, true},
            {u"{'media_analysis':'photo','tasks':['photo']}"_s, u"vi"_s, true},
            {u"{'media_analysis':'photo','tasks':['photo','ocr']}"_s, u"v"_s, false},
            {u"{'media_analysis':'photo','tasks':['photo','code']}"_s, u"v"_s, true},
            {u"{'media_analysis':'video','tasks':['video']}"_s, u"i"_s, false},
            {u"{'media_analysis':'both','tasks':['ocr']}"_s, u"v"_s, true},
            {u"{'media_analysis':'both','tasks':['ocr']}"_s, {}, false},
        };
        for (const auto &[more, media, runs] : rows) {
            QJsonArray items;
            for (const QChar letter : media)
                items.append(QJsonObject{{u"kind"_s, letter == u'i' ? u"image"_s : u"video"_s}});
            const QJsonObject candidate = agent(u"a"_s, {}, object(more));
            QVERIFY2(chainMembers({candidate}, u"planner"_s, items).size() == (runs ? 1 : 0), qPrintable(more));
        }
    }

    void aChainHandsItsResultsOn()
    {
        ChainRun run(
            {agent(u"c"_s, {u"b"_s, u"a"_s}), agent(u"b"_s, {u"a"_s}), agent(u"a"_s, {}, {{u"enabled"_s, false}})});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.order(), u"b c planner"_s);
        QCOMPARE(fields(run.payload(u"b"_s), u"upstream_deliverables"_s), u"[]"_s);
        QCOMPARE(fields(run.payload(u"c"_s), u"upstream_deliverables disabled_dependencies"_s),
                 u"[{'agent_id':'b','result':{'summary':'Итог b'}}] ['a']"_s);
        QCOMPARE(run.messages(u"WorkflowStepCompleted"_s), (QStringList{u"Имя b"_s, u"Имя c"_s}));
        QCOMPARE(run.model.artifact(u"planner"_s)[u"team_deliverables"_s].toArray(),
                 (QJsonArray{ChainRun::deliverable(u"c"_s), ChainRun::deliverable(u"b"_s)}));
    }

    void aChainRunsOncePerTask()
    {
        ChainRun run({agent(u"a"_s)});
        for (int round = 0; round < 2; ++round)
            run.model.answer(u"risk_judge"_s, ScriptedProvider::verdict(u"REVISE"_s, u"Довод"_s));
        run.model.answer(u"risk_judge"_s, ScriptedProvider::approval());
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.model.count(u"planner"_s), 2);
        QCOMPARE(run.model.count(u"specialist"_s), 1);
        QCOMPARE(run.model.artifact(u"planner"_s, 1)[u"team_deliverables"_s].toArray(),
                 QJsonArray{ChainRun::deliverable(u"a"_s)});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.model.count(u"specialist"_s), 2);
    }

    void whoWaitsForNobodyStartsByRank()
    {
        ChainRun run({agent(u"a"_s, {}, {{u"priority"_s, 49}}), agent(u"b"_s), agent(u"c"_s, {}, {{u"priority"_s, 51}}),
                      agent(u"d"_s), agent(u"e"_s, {u"a"_s}, {{u"priority"_s, 99}})});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.order(), u"c b d a e planner"_s);
    }

    void aReviewerSendsItsUpstreamBack()
    {
        ChainRun run({agent(u"a"_s), agent(u"b"_s, {u"a"_s}), reviewer(u"r"_s, {u"b"_s}), agent(u"d"_s, {u"a"_s})});
        const QJsonObject objection = ScriptedProvider::verdict(u"REVISE"_s, u"Довод"_s);
        run.model.answer(u"workflow_reviewer"_s, objection);
        run.model.answer(u"workflow_reviewer"_s, ScriptedProvider::approval());
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.order(), u"a b d r a b r planner"_s);
        QVERIFY(run.model.requests[4].system.startsWith(PromptManager::get(u"workflow_reviewer"_s)));
        for (const QString &id : {u"a"_s, u"b"_s, u"r"_s}) {
            QVERIFY(!run.payload(id, 0).contains(u"feedback"_s));
            QCOMPARE(run.payload(id, 1)[u"feedback"_s].toObject(), objection);
        }
        QCOMPARE(fields(run.model.artifact(u"planner"_s), u"team_deliverables.2.result.verdict team_deliverables.4"_s),
                 u"APPROVE "_s);
    }

    void afterTwoReworksTheUserDecides()
    {
        for (const QString &answer : {u"Продолжить исправление"_s, u"Остановить задачу"_s, u"лучше ОСТАНОВИТЬ"_s}) {
            const bool stops = !answer.startsWith(u'П');
            ChainRun run({agent(u"a"_s), reviewer(u"r"_s, {u"a"_s})});
            run.model.answer(u"workflow_reviewer"_s, ScriptedProvider::verdict(u"REJECT"_s, u"Довод"_s));
            run.start();
            QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
            QCOMPARE(run.model.count(u"workflow_reviewer"_s), 3);
            QCOMPARE(fields(run.state(u"decision"_s), u"options"_s),
                     u"['Продолжить исправление','Остановить задачу']"_s);

            run.engine.clarify(answer);
            QCOMPARE(run.endings, stops ? QStringList{u"CANCELLED"_s} : QStringList());
            QVERIFY(stops || run.runToPhase(u"CLARIFICATION"_s));
            QCOMPARE(run.model.count(u"workflow_reviewer"_s), stops ? 3 : 6);
            QCOMPARE(run.model.count(u"specialist"_s), stops ? 3 : 6);
        }
    }

    void stagesThatStartTogetherShareTheChain()
    {
        ChainRun run({agent(u"a"_s, {}, {{u"parent"_s, u"coding"_s}})});
        run.model.forget(u"planner"_s);
        QJsonArray nodes;
        for (const QString &id : {u"one"_s, u"two"_s})
            nodes.append(ScriptedProvider::node(id, u"code"_s, {{u"path"_s, QString(id + u".md"_s)}}));
        run.model.answer(u"planner"_s, ScriptedProvider::plan(nodes));
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.model.count(u"specialist"_s), 1);
        QCOMPARE(fields(run.payload(u"a"_s), u"node.id"_s), u"one"_s);
        for (int nth = 0; nth < 2; ++nth) {
            const QJsonObject order = run.model.artifact(u"coding"_s, nth);
            QCOMPARE(fields(order, u"node.id"_s), nth == 0 ? u"one"_s : u"two"_s);
            QCOMPARE(order[u"team_deliverables"_s].toArray(), QJsonArray{ChainRun::deliverable(u"a"_s)});
        }
    }

    void whatAnAnalystSawStaysInTheTask()
    {
        const QJsonObject analyst = object(u"{'media_analysis':'photo','tasks':['photo']}"_s);
        ChainRun run({agent(u"a"_s, {}, with(analyst, {{u"parent"_s, u"orchestrator"_s}})), agent(u"b"_s, {}, analyst),
                      agent(u"c"_s)});
        run.engine.requestMedia = array(u"[{'kind':'image'}]"_s);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QString seen = u"{'agent':'Имя %1','result':{'summary':'Итог %1'}}"_s;
        const QString key = u"task.media_analysis"_s;
        QCOMPARE(fields(run.model.input(u"orchestrator"_s), key), u'[' + seen.arg(u"a"_s) + u']');
        QCOMPARE(fields(run.model.input(u"planner"_s), key), u'[' + seen.arg(u"a"_s) + u',' + seen.arg(u"b"_s) + u']');
    }

    void orderedAgentsRunWithoutTheirLinks()
    {
        const QJsonArray members = delegatedMembers(
            {reviewer(u"r"_s, {u"a"_s}), agent(u"a"_s), agent(u"off"_s, {}, {{u"enabled"_s, false}}), agent(u"idle"_s)},
            {{u"r"_s, u"Проверь"_s}, {u"a"_s, u"Посмотри"_s}, {u"off"_s, u"Нет"_s}});
        QCOMPARE(members.size(), 2);
        QCOMPARE(members[0][u"after"_s].toArray(), QJsonArray());
        QCOMPARE(members[0][u"kind"_s].toString(), u"specialist"_s);
        QVERIFY(members[1][u"rules"_s].toString().endsWith(u"Текущее поручение главного: Посмотри"_s));
    }
};

QTEST_GUILESS_MAIN(WorkflowTest)
#include "tst_workflow.moc"
