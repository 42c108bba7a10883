#include "engine_fixture.h"
#include "json_text.h"

#include "workflow.h"

#include <QTest>

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
    QStringList order() const
    {
        QStringList ids;
        for (const LLMRequest &request : model.requests) {
            if (request.role != u"orchestrator"_s)
                ids.append(agentOf(request));
            if (request.role == u"planner"_s)
                break;
        }
        return ids;
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
        struct Row {
            QString fields;
            QString media; ///< i: an image, v: a video
            bool runs;
        };
        const QList<Row> rows{
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
        for (const auto &[fields, media, runs] : rows) {
            QJsonArray items;
            for (const QChar letter : media)
                items.append(QJsonObject{{u"kind"_s, letter == u'i' ? u"image"_s : u"video"_s}});
            const QJsonObject candidate = agent(u"a"_s, {}, object(fields));
            QVERIFY2(chainMembers({candidate}, u"planner"_s, items) == (runs ? QJsonArray{candidate} : QJsonArray()),
                     qPrintable(fields));
        }
    }

    void aChainHandsItsResultsOn()
    {
        const QJsonArray network{agent(u"c"_s, {u"b"_s, u"a"_s}), agent(u"b"_s, {u"a"_s}),
                                 agent(u"a"_s, {}, {{u"enabled"_s, false}})};
        ChainRun run(network);
        run.start();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.order(), (QStringList{u"b"_s, u"c"_s, u"planner"_s}));
        QCOMPARE(run.payload(u"b"_s)[u"upstream_deliverables"_s].toArray(), QJsonArray());
        const QJsonObject payload = run.payload(u"c"_s);
        QCOMPARE(payload[u"upstream_deliverables"_s].toArray(),
                 (QJsonArray{QJsonObject{{u"agent_id"_s, u"b"_s}, {u"result"_s, ChainRun::summary(u"b"_s)}}}));
        QCOMPARE(payload[u"disabled_dependencies"_s].toArray(), QJsonArray{u"a"_s});
        QCOMPARE(run.messages(u"WorkflowStepCompleted"_s), (QStringList{u"Имя b"_s, u"Имя c"_s}));
        QCOMPARE(run.model.artifact(u"planner"_s)[u"team_deliverables"_s].toArray(),
                 (QJsonArray{ChainRun::deliverable(u"c"_s), ChainRun::deliverable(u"b"_s)}));
    }

    void aChainRunsOncePerTask()
    {
        ChainRun run({agent(u"a"_s)});
        run.model.answer(u"risk_judge"_s, ScriptedProvider::verdict(u"REVISE"_s, u"Довод"_s));
        run.model.answer(u"risk_judge"_s, ScriptedProvider::verdict(u"REVISE"_s, u"Довод"_s));
        run.model.answer(u"risk_judge"_s, ScriptedProvider::approval());
        run.start();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.model.count(u"planner"_s), 2);
        QCOMPARE(run.model.count(u"specialist"_s), 1);
        QCOMPARE(run.model.artifact(u"planner"_s, 1)[u"team_deliverables"_s].toArray(),
                 QJsonArray{ChainRun::deliverable(u"a"_s)});

        run.start();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.model.count(u"specialist"_s), 2);
    }

    void whoWaitsForNobodyStartsByRank()
    {
        ChainRun run({agent(u"a"_s, {}, {{u"priority"_s, 49}}), agent(u"b"_s), agent(u"c"_s, {}, {{u"priority"_s, 51}}),
                      agent(u"d"_s), agent(u"e"_s, {u"a"_s}, {{u"priority"_s, 99}})});
        run.start();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.order(), (QStringList{u"c"_s, u"b"_s, u"d"_s, u"a"_s, u"e"_s, u"planner"_s}));
        WorkflowGroup group;
        group.members = run.engine.agentNetwork;
        QCOMPARE(readyMembers(group).first(), run.engine.agentNetwork[2]);
    }

    void aReviewerSendsItsUpstreamBack()
    {
        ChainRun run({agent(u"a"_s), agent(u"b"_s, {u"a"_s}), reviewer(u"r"_s, {u"b"_s}), agent(u"d"_s, {u"a"_s})});
        const QJsonObject objection = ScriptedProvider::verdict(u"REVISE"_s, u"Довод"_s);
        run.model.answer(u"workflow_reviewer"_s, objection);
        run.model.answer(u"workflow_reviewer"_s, ScriptedProvider::approval());
        run.start();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.order(), (QStringList{u"a"_s, u"b"_s, u"d"_s, u"r"_s, u"a"_s, u"b"_s, u"r"_s, u"planner"_s}));
        QVERIFY(run.model.requests[4].system.startsWith(PromptManager::get(u"workflow_reviewer"_s)));
        for (const QString &id : {u"a"_s, u"b"_s, u"r"_s}) {
            QVERIFY(!run.payload(id, 0).contains(u"feedback"_s));
            QCOMPARE(run.payload(id, 1)[u"feedback"_s].toObject(), objection);
        }
        const QJsonArray deliverables = run.model.artifact(u"planner"_s)[u"team_deliverables"_s].toArray();
        QCOMPARE(deliverables.size(), 4);
        QCOMPARE(deliverables[2][u"result"_s].toObject(), ScriptedProvider::approval());
    }

    void afterTwoReworksTheUserDecides()
    {
        const QList<std::pair<QString, bool>> answers{
            {u"Продолжить исправление"_s, false}, {u"Остановить задачу"_s, true}, {u"лучше ОСТАНОВИТЬ"_s, true}};
        for (const auto &[answer, stops] : answers) {
            ChainRun run({agent(u"a"_s), reviewer(u"r"_s, {u"a"_s})});
            run.model.answer(u"workflow_reviewer"_s, ScriptedProvider::verdict(u"REJECT"_s, u"Довод"_s));
            run.start();
            QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
            QCOMPARE(run.model.count(u"workflow_reviewer"_s), 3);
            QCOMPARE(run.state(u"decision"_s)[u"options"_s].toArray(),
                     (QJsonArray{u"Продолжить исправление"_s, u"Остановить задачу"_s}));

            run.engine.clarify(answer);
            QCOMPARE(run.endings, stops ? QStringList{u"CANCELLED"_s} : QStringList());
            if (stops)
                continue;
            QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
            QCOMPARE(run.model.count(u"workflow_reviewer"_s), 6);
            QCOMPARE(run.model.count(u"specialist"_s), 6);
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
        run.start();
        QVERIFY(run.runToEnd());
        QCOMPARE(run.phase(), u"COMPLETED"_s);
        QCOMPARE(run.model.count(u"specialist"_s), 1);
        QCOMPARE(run.payload(u"a"_s)[u"node"_s][u"id"_s].toString(), u"one"_s);
        for (int nth = 0; nth < 2; ++nth) {
            const QJsonObject order = run.model.artifact(u"coding"_s, nth);
            QCOMPARE(order[u"node"_s][u"id"_s].toString(), nth == 0 ? u"one"_s : u"two"_s);
            QCOMPARE(order[u"team_deliverables"_s].toArray(), QJsonArray{ChainRun::deliverable(u"a"_s)});
        }
    }

    void whatAnAnalystSawStaysInTheTask()
    {
        const QJsonObject analyst{{u"media_analysis"_s, u"photo"_s}, {u"tasks"_s, QJsonArray{u"photo"_s}}};
        ChainRun run({agent(u"a"_s, {}, with(analyst, {{u"parent"_s, u"orchestrator"_s}})), agent(u"b"_s, {}, analyst),
                      agent(u"c"_s)});
        run.engine.requestMedia = {QJsonObject{{u"kind"_s, u"image"_s}}};
        run.start();
        QVERIFY(run.runToEnd());
        const auto seen = [](const QString &id) {
            return QJsonObject{{u"agent"_s, u"Имя "_s + id}, {u"result"_s, ChainRun::summary(id)}};
        };
        QCOMPARE(run.model.input(u"orchestrator"_s)[u"task"_s][u"media_analysis"_s].toArray(),
                 QJsonArray{seen(u"a"_s)});
        QCOMPARE(run.model.input(u"planner"_s)[u"task"_s][u"media_analysis"_s].toArray(),
                 (QJsonArray{seen(u"a"_s), seen(u"b"_s)}));
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
