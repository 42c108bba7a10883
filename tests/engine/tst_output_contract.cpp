#include "error_of.h"
#include "json_text.h"
#include "output_contract.h"
#include "roles.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class OutputContractTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anEmptyAnswerIsRefusedForEveryRole()
    {
        for (const QString &role : builtInRoles() + QStringList{u"specialist"_s, QString()})
            QCOMPARE(errorOf([&] { validateOutput(role, {}); }), u"Empty result"_s);
    }

    void anAnswerIsHeldToTheContractOfItsRole_data()
    {
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("fault");
        const auto row = [](const QString &role, const QString &answer, const QString &fault = {}) {
            QTest::addRow("%s %s", qPrintable(role), qPrintable(answer.left(150))) << role << answer << fault;
        };

        const QString review = u"{'verdict':%1,'issues':[],'required_changes':%2,'confidence':%3}"_s;
        const auto judged = [&](const QString &verdict, const QString &confidence, const QString &fault = {}) {
            row(u"risk_judge"_s, review.arg(verdict, u"[]"_s, confidence), fault);
        };
        judged(u"'APPROVE'"_s, u"0.5"_s);
        judged(u"'REVISE'"_s, u"0"_s);
        judged(u"'REJECT'"_s, u"1"_s);
        judged(u"'approve'"_s, u"0.5"_s, u"Invalid verdict"_s);
        judged(u"null"_s, u"0.5"_s, u"Invalid verdict"_s);
        for (const QString &bad : {u"1.01"_s, u"-0.1"_s, u"'0.5'"_s, u"null"_s})
            judged(u"'APPROVE'"_s, bad, u"Invalid confidence"_s);
        row(u"validator"_s, review.arg(u"'APPROVE'"_s, u"'x'"_s, u"1"_s),
            u"Review requires issues and required_changes arrays"_s);
        for (const QString &role : {u"validator"_s, u"correctness_reviewer"_s, u"my_reviewer_2"_s})
            row(role, u"{'summary':'x'}"_s, u"Invalid verdict"_s);

        const QString plan = u"{'nodes':[{'id':'a','title':'Шаг','kind':'code','dependencies':[%1]}]}"_s;
        row(u"planner"_s, plan.arg(QString()));
        row(u"planner"_s, plan.arg(u"'a'"_s), u"Dependency cycle"_s);
        row(u"planner"_s, u"{'nodes':{}}"_s, u"Plan requires nodes"_s);
        row(u"planner"_s, u"{'nodes':[]}"_s, u"Graph requires 1..64 nodes"_s);
        row(u"structure"_s, u"{'items':[]}"_s);
        row(u"structure"_s, u"{'items':'x'}"_s, u"Structure requires items"_s);

        const QString taskSpec = u"{'title':%1,'requirements':%2,'acceptance_criteria':%3,'questions':%4}"_s;
        const QString list = u"[]"_s;
        const QString bad = u"Invalid task specification"_s;
        row(u"orchestrator"_s, taskSpec.arg(u"'Игра'"_s, list, list, list));
        row(u"orchestrator"_s, taskSpec.arg(u"''"_s, list, list, list), u"Specification title missing"_s);
        row(u"orchestrator"_s, taskSpec.arg(u"'Игра'"_s, u"null"_s, list, list), bad);
        row(u"orchestrator"_s, taskSpec.arg(u"'Игра'"_s, list, u"null"_s, list), bad);
        row(u"orchestrator"_s, taskSpec.arg(u"'Игра'"_s, list, list, u"'?'"_s), bad);

        const auto files = [](int count) {
            return u"{'files':[%1]}"_s.arg(QStringList(count, u"{'path':'a','content':''}"_s).join(u','));
        };
        row(u"coding"_s, files(16));
        row(u"coding"_s, files(17), u"Too many files per node"_s);
        row(u"coding"_s, files(0), u"Code output needs files"_s);
        row(u"coding"_s, u"{'files':{}}"_s, u"Code output needs files"_s);
        for (const QString &file : {u"{'content':''}"_s, u"{'path':'a','content':1}"_s, u"'a.txt'"_s})
            row(u"coding"_s, u"{'files':[{'path':'a','content':''},%1]}"_s.arg(file),
                u"File requires path and content"_s);

        const QString noQuestion = u"Главный агент должен вернуть вопрос и варианты."_s;
        row(u"coordinator"_s, u"{'needs_user':false,'summary':'Исправляю.'}"_s);
        row(u"coordinator"_s, u"{'needs_user':false,'summary':' '}"_s, u"Coordinator summary missing"_s);
        row(u"coordinator"_s, u"{'needs_user':0,'summary':'Исправляю.'}"_s, noQuestion);
        row(u"coordinator"_s, u"{'summary':'','question':'Как?','options':['Так']}"_s);
        row(u"coordinator"_s, u"{'question':'Как?','options':['Так']}"_s, noQuestion);
        row(u"coordinator"_s, u"{'summary':'','question':' ','options':['Так']}"_s, noQuestion);
        row(u"coordinator"_s, u"{'summary':'','question':'Как?','options':[]}"_s, noQuestion);
        row(u"coordinator"_s, u"{'summary':'','question':'Как?','options':['Так',{}]}"_s,
            u"Вариант должен быть строкой."_s);

        row(u"specialist"_s, u"{'summary':''}"_s);
        row(u"observer"_s, u"{'summary':1}"_s, u"Result requires summary"_s);
        row(u"research"_s, u"{'text':'x'}"_s, u"Result requires summary"_s);
    }

    void anAnswerIsHeldToTheContractOfItsRole()
    {
        QFETCH(QString, role);
        QFETCH(QString, answer);
        QTEST(errorOf([&] { validateOutput(role, object(answer)); }), "fault");
    }
};

QTEST_GUILESS_MAIN(OutputContractTest)
#include "tst_output_contract.moc"
