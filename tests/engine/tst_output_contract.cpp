#include "helpers.h"
#include "output_contract.h"
#include "roles.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class OutputContractTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anEmptyAnswerIsRefusedForEveryRole();
    void anAnswerIsHeldToTheContractOfItsRole_data();
    void anAnswerIsHeldToTheContractOfItsRole();
};

namespace {

QString faultOf(const QString &role, const QJsonObject &result)
{
    try {
        validateOutput(role, result);
    } catch (const std::runtime_error &error) {
        return textOf(error);
    }
    return {};
}

QJsonObject with(QJsonObject object, const QString &key, const QJsonValue &value)
{
    object[key] = value;
    return object;
}

QJsonObject without(QJsonObject object, const QString &key)
{
    object.remove(key);
    return object;
}

const QJsonObject approval{{u"verdict"_s, u"APPROVE"_s},
                           {u"issues"_s, QJsonArray()},
                           {u"required_changes"_s, QJsonArray()},
                           {u"confidence"_s, 0.5}};
const QJsonObject specification{{u"title"_s, u"Калькулятор"_s},
                                {u"requirements"_s, QJsonArray()},
                                {u"acceptance_criteria"_s, QJsonArray()},
                                {u"questions"_s, QJsonArray()}};
const QJsonObject question{{u"summary"_s, u""_s}, {u"question"_s, u"Как?"_s}, {u"options"_s, QJsonArray{u"Так"_s}}};
const QJsonObject file{{u"path"_s, u"a.txt"_s}, {u"content"_s, u""_s}};

QJsonObject files(int count)
{
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(file);
    return {{u"files"_s, array}};
}

QJsonObject filesWith(const QJsonValue &second)
{
    return {{u"files"_s, QJsonArray{file, second}}};
}

QJsonObject plan(const QStringList &dependencies)
{
    const QJsonObject node{{u"id"_s, u"a"_s},
                           {u"title"_s, u"Шаг"_s},
                           {u"kind"_s, u"code"_s},
                           {u"dependencies"_s, QJsonArray::fromStringList(dependencies)}};
    return {{u"nodes"_s, QJsonArray{node}}};
}

void addReviews()
{
    const auto confidence = [](const QJsonValue &value) { return with(approval, u"confidence"_s, value); };
    const auto verdict = [](const QJsonValue &value) { return with(approval, u"verdict"_s, value); };
    const QString judge = u"risk_judge"_s;
    const QString badVerdict = u"Invalid verdict"_s;
    const QString badArrays = u"Review requires issues and required_changes arrays"_s;
    const QString badConfidence = u"Invalid confidence"_s;

    QTest::newRow("approve") << judge << approval << QString();
    QTest::newRow("revise") << u"correctness_reviewer"_s << verdict(u"REVISE"_s) << QString();
    QTest::newRow("reject") << u"validator"_s << verdict(u"REJECT"_s) << QString();
    QTest::newRow("small letters") << judge << verdict(u"approve"_s) << badVerdict;
    QTest::newRow("blank around") << judge << verdict(u"APPROVE "_s) << badVerdict;
    QTest::newRow("no verdict") << u"validator"_s << without(approval, u"verdict"_s) << badVerdict;
    QTest::newRow("verdict is judged first") << judge << QJsonObject{{u"summary"_s, u"x"_s}} << badVerdict;
    QTest::newRow("no issues") << judge << without(approval, u"issues"_s) << badArrays;
    QTest::newRow("changes as text") << judge << with(approval, u"required_changes"_s, u"x"_s) << badArrays;
    QTest::newRow("confidence 0") << judge << confidence(0) << QString();
    QTest::newRow("confidence 1") << judge << confidence(1) << QString();
    QTest::newRow("confidence 1.01") << judge << confidence(1.01) << badConfidence;
    QTest::newRow("confidence -0.1") << judge << confidence(-0.1) << badConfidence;
    QTest::newRow("confidence as text") << judge << confidence(u"0.5"_s) << badConfidence;
    QTest::newRow("confidence as yes") << judge << confidence(true) << badConfidence;
    QTest::newRow("no confidence") << judge << without(approval, u"confidence"_s) << badConfidence;
    QTest::newRow("a reviewer of one's own") << u"my_reviewer_2"_s << QJsonObject{{u"summary"_s, u"x"_s}} << badVerdict;
    QTest::newRow("Reviewer is none") << u"Reviewer"_s << QJsonObject{{u"summary"_s, u"x"_s}} << QString();
}

void addPlansAndSpecifications()
{
    const QString badSpecification = u"Invalid task specification"_s;
    const QString orchestrator = u"orchestrator"_s;

    QTest::newRow("plan") << u"planner"_s << plan({}) << QString();
    QTest::newRow("cycle") << u"planner"_s << plan({u"a"_s}) << u"Dependency cycle"_s;
    QTest::newRow("no such dependency") << u"planner"_s << plan({u"b"_s}) << u"Missing dependency: b"_s;
    QTest::newRow("nodes as object") << u"planner"_s << QJsonObject{{u"nodes"_s, QJsonObject()}}
                                     << u"Plan requires nodes"_s;
    QTest::newRow("no node") << u"planner"_s << QJsonObject{{u"nodes"_s, QJsonArray()}}
                             << u"Graph requires 1..64 nodes"_s;
    QTest::newRow("specification") << orchestrator << specification << QString();
    for (const QString &key : {u"requirements"_s, u"acceptance_criteria"_s, u"questions"_s})
        QTest::newRow(qPrintable(u"no "_s + key)) << orchestrator << without(specification, key) << badSpecification;
    QTest::newRow("questions as text") << orchestrator << with(specification, u"questions"_s, u"?"_s)
                                       << badSpecification;
    QTest::newRow("empty title") << orchestrator << with(specification, u"title"_s, u""_s)
                                 << u"Specification title missing"_s;
    QTest::newRow("title as number") << orchestrator << with(specification, u"title"_s, 7)
                                     << u"Specification title missing"_s;
    QTest::newRow("structure") << u"structure"_s << QJsonObject{{u"items"_s, QJsonArray()}} << QString();
    QTest::newRow("items as text") << u"structure"_s << QJsonObject{{u"items"_s, u"x"_s}}
                                   << u"Structure requires items"_s;
}

void addFiles()
{
    const QString coding = u"coding"_s;
    const QString badFile = u"File requires path and content"_s;

    QTest::newRow("16 files") << coding << files(16) << QString();
    QTest::newRow("17 files") << coding << files(17) << u"Too many files per node"_s;
    QTest::newRow("no file") << coding << files(0) << u"Code output needs files"_s;
    QTest::newRow("files as object") << coding << QJsonObject{{u"files"_s, file}} << u"Code output needs files"_s;
    QTest::newRow("no path") << coding << filesWith(without(file, u"path"_s)) << badFile;
    QTest::newRow("content as number") << coding << filesWith(with(file, u"content"_s, 1)) << badFile;
    QTest::newRow("file as text") << coding << filesWith(u"a.txt"_s) << badFile;
}

void addCoordinations()
{
    const auto asked = [](const QString &key, const QJsonValue &value) { return with(question, key, value); };
    const auto decided
        = [](const QJsonValue &summary) { return QJsonObject{{u"needs_user"_s, false}, {u"summary"_s, summary}}; };
    const QString coordinator = u"coordinator"_s;
    const QString noSummary = u"Coordinator summary missing"_s;
    const QString noQuestion = u"Главный агент должен вернуть вопрос и варианты."_s;

    QTest::newRow("decided") << coordinator << decided(u"Исправляю."_s) << QString();
    QTest::newRow("decided with blanks") << coordinator << decided(u" \n"_s) << noSummary;
    QTest::newRow("decided with a number") << coordinator << decided(5) << noSummary;
    QTest::newRow("asked without a flag") << coordinator << question << QString();
    QTest::newRow("asked with a flag") << coordinator << asked(u"needs_user"_s, true) << QString();
    QTest::newRow("0 is no false") << coordinator << with(decided(u"Исправляю."_s), u"needs_user"_s, 0) << noQuestion;
    QTest::newRow("no flag and no question")
        << coordinator << without(decided(u"Исправляю."_s), u"needs_user"_s) << noQuestion;
    QTest::newRow("no summary") << coordinator << without(question, u"summary"_s) << noQuestion;
    QTest::newRow("question of blanks") << coordinator << asked(u"question"_s, u"  "_s) << noQuestion;
    QTest::newRow("no options") << coordinator << asked(u"options"_s, QJsonArray()) << noQuestion;
    QTest::newRow("options as text") << coordinator << asked(u"options"_s, u"Так"_s) << noQuestion;
    QTest::newRow("option as object") << coordinator << asked(u"options"_s, QJsonArray{u"Так"_s, QJsonObject()})
                                      << u"Вариант должен быть строкой."_s;
}

} // namespace

void OutputContractTest::anEmptyAnswerIsRefusedForEveryRole()
{
    for (const QString &role : builtInRoles() + QStringList{u"specialist"_s, QString()})
        QCOMPARE(faultOf(role, {}), u"Empty result"_s);
}

void OutputContractTest::anAnswerIsHeldToTheContractOfItsRole_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<QJsonObject>("result");
    QTest::addColumn<QString>("fault");

    addReviews();
    addPlansAndSpecifications();
    addFiles();
    addCoordinations();
    QTest::newRow("summary") << u"specialist"_s << QJsonObject{{u"summary"_s, u""_s}} << QString();
    QTest::newRow("summary as number") << u"observer"_s << QJsonObject{{u"summary"_s, 1}}
                                       << u"Result requires summary"_s;
    QTest::newRow("another key") << u"research"_s << QJsonObject{{u"text"_s, u"x"_s}} << u"Result requires summary"_s;
}

void OutputContractTest::anAnswerIsHeldToTheContractOfItsRole()
{
    QFETCH(QString, role);
    QFETCH(QJsonObject, result);

    QTEST(faultOf(role, result), "fault");
}

QTEST_GUILESS_MAIN(OutputContractTest)
#include "tst_output_contract.moc"
