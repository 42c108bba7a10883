#include "engine_fixture.h"

#include "panel_vote.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QStringList planJudges{u"requirements_judge"_s, u"architecture_judge"_s, u"risk_judge"_s};

/// c: a clean approval, i and r: an approval with an issue or a required change, v: "REVISE", j: "REJECT".
QJsonObject review(QChar letter)
{
    if (letter == u'v' || letter == u'j')
        return ScriptedProvider::verdict(letter == u'v' ? u"REVISE"_s : u"REJECT"_s, u"Довод"_s);
    QJsonObject approval = ScriptedProvider::approval();
    if (letter != u'c')
        approval[letter == u'i' ? u"issues"_s : u"required_changes"_s] = QJsonArray{u"Мелочь"_s};
    return approval;
}

QList<QJsonObject> reviews(const QString &letters)
{
    QList<QJsonObject> list;
    for (const QChar letter : letters)
        list.append(review(letter));
    return list;
}

/// A run in which the plan's judges answer as the letters say, round by round.
class JudgedRun : public EngineFixture {
public:
    explicit JudgedRun(const QStringList &rounds = {})
    {
        scriptOneFile();
        for (const QString &letters : rounds) {
            for (qsizetype i = 0; i < letters.size(); ++i)
                model.answer(planJudges[i], review(letters[i]));
        }
    }
};

} // namespace

class PlanningTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void oneDissentIsEnough()
    {
        const QList<std::tuple<QString, int, QString>> votes{{u""_s, 1, u"WAIT"_s},       {u"cj"_s, 3, u"WAIT"_s},
                                                             {u"cir"_s, 3, u"APPROVE"_s}, {u"ccv"_s, 3, u"REVISE"_s},
                                                             {u"jcc"_s, 3, u"REJECT"_s},  {u"vj"_s, 2, u"REJECT"_s}};
        for (const auto &[given, expected, verdict] : votes)
            QCOMPARE(vote(reviews(given), expected), verdict);
    }

    void aPanelDiscussesWhatIsNotClean()
    {
        struct Row {
            QStringList rounds;
            QString verdict; ///< of the discussion; empty when there is none
            QString next;
        };
        const QList<Row> rows{
            {{u"ccc"_s}, {}, u"STRUCTURING"_s},
            {{u"cic"_s, u"ccc"_s}, u"APPROVE"_s, u"STRUCTURING"_s},
            {{u"ccr"_s, u"ccr"_s}, u"APPROVE"_s, u"STRUCTURING"_s},
            {{u"jvc"_s, u"iri"_s}, u"APPROVE"_s, u"STRUCTURING"_s},
            {{u"vvv"_s, u"cvj"_s}, u"REJECT"_s, u"PLANNING"_s},
        };
        for (const auto &[rounds, verdict, next] : rows) {
            JudgedRun run(rounds);
            run.start();
            QVERIFY(run.runUntil([&] { return run.phases().size() == 4; }));
            QCOMPARE(run.phases().last(), next);
            for (const QString &judge : planJudges)
                QCOMPARE(run.model.count(judge), rounds.size());
            const QList<QJsonObject> discussions = run.eventsOf(u"DiscussionCompleted"_s);
            QCOMPARE(discussions.size(), rounds.size() - 1);
            if (!discussions.isEmpty())
                QCOMPARE(discussions[0][u"data"_s][u"verdict"_s].toString(), verdict);
        }
    }

    void aJudgeWorksAloneFirst()
    {
        JudgedRun run({u"vcc"_s, u"ccc"_s});
        run.start();
        QVERIFY(run.runToPhase(u"STRUCTURING"_s));
        const QJsonObject plan = run.state(u"plan"_s).toObject();
        QCOMPARE(plan[u"revision"_s].toInt(), 1);
        const QJsonObject first{{u"plan"_s, plan}, {u"discussion_round"_s, 1}, {u"review_stage"_s, u"PLAN_REVIEW"_s}};
        QCOMPARE(run.model.artifact(u"risk_judge"_s, 0), first);

        const QJsonArray peers = run.eventsOf(u"DiscussionStarted"_s).value(0)[u"data"_s][u"peer_reviews"_s].toArray();
        QCOMPARE(peers.size(), 3);
        QCOMPARE(peers[0].toObject(),
                 (QJsonObject{{u"reviewer"_s, u"requirements_judge"_s},
                              {u"verdict"_s, u"REVISE"_s},
                              {u"issues"_s, QJsonArray{u"Довод"_s}},
                              {u"required_changes"_s, QJsonArray{u"Довод"_s}}}));
        QJsonObject second = first;
        second[u"discussion_round"_s] = 2;
        second[u"peer_reviews"_s] = peers;
        QCOMPARE(run.model.artifact(u"risk_judge"_s, 1), second);

        const QJsonArray stored = run.stored(u"reviews"_s);
        QCOMPARE(stored.size(), 6);
        QCOMPARE(stored[0][u"reviewer"_s].toString(), u"requirements_judge"_s);
        QCOMPARE(stored[0][u"artifact"_s].toObject(), first);
        QCOMPARE(stored[5][u"version"_s].toInt(), 2);
    }

    void theStructureIsJudgedByItsOwnPanel()
    {
        JudgedRun run;
        run.start();
        QVERIFY(run.runToPhase(u"EXECUTION"_s));
        QCOMPARE(run.model.asked().mid(0, 8),
                 (QStringList{u"orchestrator"_s, u"planner"_s, u"requirements_judge"_s, u"architecture_judge"_s,
                              u"risk_judge"_s, u"structure"_s, u"dependency_judge"_s, u"maintainability_judge"_s}));
        const QJsonObject plan = run.state(u"plan"_s).toObject();
        const QJsonObject structure = run.state(u"structure"_s).toObject();
        const QJsonObject judged = run.model.artifact(u"dependency_judge"_s);
        QCOMPARE(judged[u"plan"_s].toObject(), plan);
        QCOMPARE(judged[u"structure"_s].toObject(), structure);
        const Store store(run.databasePath);
        QCOMPARE(store.get(u"plans"_s, run.task() + u":1"_s), plan);
        QCOMPARE(store.get(u"structures"_s, run.task() + u":1"_s), structure);
    }

    void afterThreeRevisionsTheRunFails()
    {
        for (const QString &role : {u"planner"_s, u"structure"_s}) {
            const bool isPlan = role == u"planner"_s;
            const QString topic = isPlan ? u"plan"_s : role;
            const QString judge = isPlan ? u"risk_judge"_s : u"dependency_judge"_s;
            JudgedRun run;
            run.model.answer(judge, review(u'j'));
            run.start();
            QVERIFY(run.runToEnd());
            QCOMPARE(run.error(), isPlan ? u"Plan revision limit reached"_s : u"Structure revision limit reached"_s);
            QCOMPARE(run.model.count(role), 3);
            QCOMPARE(run.model.count(judge), 6);
            QCOMPARE(run.model.count(u"coordinator"_s), 3);

            const QJsonArray stored = run.stored(topic + u's');
            QCOMPARE(stored.size(), 3);
            QCOMPARE(stored[1][u"revision"_s].toInt(), 2);
            const QJsonArray objections = run.model.artifact(u"coordinator"_s)[u"reviews"_s].toArray();
            QCOMPARE(objections.size(), isPlan ? 3 : 2);
            QJsonObject objected = stored[0].toObject();
            QVERIFY(!objected.contains(u"required_changes"_s));
            objected[u"required_changes"_s] = objections;
            QCOMPARE(run.model.artifact(role, 1)[u"previous_"_s + topic].toObject(), objected);
            QCOMPARE(run.model.artifact(u"coordinator"_s)[topic].toObject(), objected);
        }
    }
};

QTEST_GUILESS_MAIN(PlanningTest)
#include "tst_planning.moc"
