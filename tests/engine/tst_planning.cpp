#include "engine_fixture.h"
#include "json_text.h"

#include "panel_vote.h"

#include <QTest>

#include <tuple>

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
        for (const auto &[given, expected, verdict] :
             std::initializer_list<std::tuple<QString, int, QString>>{{{}, 1, u"WAIT"_s},
                                                                      {u"cj"_s, 3, u"WAIT"_s},
                                                                      {u"cir"_s, 3, u"APPROVE"_s},
                                                                      {u"ccv"_s, 3, u"REVISE"_s},
                                                                      {u"jcc"_s, 3, u"REJECT"_s},
                                                                      {u"vj"_s, 2, u"REJECT"_s}}) {
            QList<QJsonObject> reviews;
            for (const QChar letter : given)
                reviews.append(review(letter));
            QCOMPARE(vote(reviews, expected), verdict);
        }
    }

    void aPanelDiscussesWhatIsNotClean()
    {
        // The rounds, the verdict of the discussion if there is one, and what comes next.
        for (const QString &row :
             {u"ccc, STRUCTURING"_s, u"cic ccc,APPROVE STRUCTURING"_s, u"ccr ccr,APPROVE STRUCTURING"_s,
              u"jvc iri,APPROVE STRUCTURING"_s, u"vvv cvj,REJECT PLANNING"_s}) {
            const QStringList rounds = row.section(u',', 0, 0).split(u' ');
            JudgedRun run(rounds);
            run.start();
            QVERIFY(run.runUntil([&] { return run.phases().size() == 4; }));
            for (const QString &judge : planJudges)
                QCOMPARE(run.model.count(judge), rounds.size());
            const QList<QJsonObject> discussions = run.eventsOf(u"DiscussionCompleted"_s);
            QCOMPARE(discussions.size(), rounds.size() - 1);
            QCOMPARE(fields(discussions.value(0), u"data.verdict"_s) + u' ' + run.phases().last(),
                     row.section(u',', 1));
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
                 object(u"{'reviewer':'requirements_judge','verdict':'REVISE','issues':['Довод'],"
                        "'required_changes':['Довод']}"_s));
        QCOMPARE(run.model.artifact(u"risk_judge"_s, 1),
                 ScriptedProvider::with(first, {{u"discussion_round"_s, 2}, {u"peer_reviews"_s, peers}}));

        const QJsonArray stored = run.stored(u"reviews"_s);
        QCOMPARE(fields(stored, u"0.reviewer 5.version 6"_s), u"requirements_judge 2 "_s);
        QCOMPARE(stored[0][u"artifact"_s].toObject(), first);
    }

    void theStructureIsJudgedByItsOwnPanel()
    {
        JudgedRun run;
        run.start();
        QVERIFY(run.runToPhase(u"EXECUTION"_s));
        QCOMPARE(run.model.asked().mid(0, 8).join(u' '),
                 u"orchestrator planner requirements_judge architecture_judge risk_judge structure dependency_judge "
                 "maintainability_judge"_s);
        const QJsonObject judged = run.model.artifact(u"dependency_judge"_s);
        for (const QString &topic : {u"plan"_s, u"structure"_s}) {
            QCOMPARE(judged[topic], run.state(topic));
            QCOMPARE(run.stored(topic + u's'), QJsonArray{run.state(topic)});
        }
    }

    void afterThreeRevisionsTheRunFails()
    {
        for (const QString &role : {u"planner"_s, u"structure"_s}) {
            const bool isPlan = role == u"planner"_s;
            const QString topic = isPlan ? u"plan"_s : role;
            const QString judge = isPlan ? u"risk_judge"_s : u"dependency_judge"_s;
            JudgedRun run;
            run.model.answer(judge, review(u'j'));
            QCOMPARE(run.ending(), isPlan ? u"Plan revision limit reached"_s : u"Structure revision limit reached"_s);
            QCOMPARE(run.model.count(role), 3);
            QCOMPARE(run.model.count(judge), 6);
            QCOMPARE(run.model.count(u"coordinator"_s), 3);

            const QJsonArray stored = run.stored(topic + u's');
            QCOMPARE(fields(stored, u"0.required_changes 1.revision 3"_s), u" 2 "_s);
            const QJsonArray objections = run.model.artifact(u"coordinator"_s)[u"reviews"_s].toArray();
            QCOMPARE(objections.size(), isPlan ? 3 : 2);
            const QJsonObject objected
                = ScriptedProvider::with(stored[0].toObject(), {{u"required_changes"_s, objections}});
            QCOMPARE(run.model.artifact(role, 1)[u"previous_"_s + topic].toObject(), objected);
            QCOMPARE(run.model.artifact(u"coordinator"_s)[topic].toObject(), objected);
        }
    }
};

QTEST_GUILESS_MAIN(PlanningTest)
#include "tst_planning.moc"
