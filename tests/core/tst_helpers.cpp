#include "budget.h"
#include "event_bus.h"
#include "helpers.h"

#include <QRegularExpression>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace vesk;

class HelpersTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void parseObject_findsTheObjectInAReply_data();
    void parseObject_findsTheObjectInAReply();
    void parseObject_refusesWhatIsNoObject_data();
    void parseObject_refusesWhatIsNoObject();
    void identifiersAndTimesHaveTheirFixedForm();
    void aBudgetHoldsToItsLimit();
    void theBusStampsARecordOfSixKeysAndDeliversItAtOnce();
};

void HelpersTest::parseObject_findsTheObjectInAReply_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("bare") << u"{\"a\":1}"_s;
    QTest::newRow("prose round it") << u"Вот ответ: {\"a\":1} — готово."_s;
    QTest::newRow("code fence") << u"```json\n{\"a\":1}\n```"_s;
}

void HelpersTest::parseObject_findsTheObjectInAReply()
{
    QFETCH(QString, text);
    QCOMPARE(parseObject(text), (QJsonObject{{u"a"_s, 1}}));
}

void HelpersTest::parseObject_refusesWhatIsNoObject_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("start");
    QTest::newRow("empty") << QString() << u"Expected a JSON object"_s;
    QTest::newRow("closing before opening") << u"} {"_s << u"Expected a JSON object"_s;
    QTest::newRow("an array") << u"[1,2]"_s << u"Expected a JSON object"_s;
    QTest::newRow("two objects in a row") << u"{\"a\":1} {\"b\":2}"_s << u"Invalid JSON: "_s;
    QTest::newRow("broken") << u"{\"a\":}"_s << u"Invalid JSON: "_s;
    QTest::newRow("nested beyond the parser's depth")
        << u"{\"a\":"_s.repeated(5000) + u"1"_s + u"}"_s.repeated(5000) << u"Invalid JSON: "_s;
}

void HelpersTest::parseObject_refusesWhatIsNoObject()
{
    QFETCH(QString, text);
    QFETCH(QString, start);
    try {
        parseObject(text);
        QFAIL("accepted");
    } catch (const std::runtime_error &error) {
        QVERIFY2(textOf(error).startsWith(start), error.what());
        QVERIFY(start != "Invalid JSON: "_L1 || textOf(error).size() > start.size());
    }
}

void HelpersTest::identifiersAndTimesHaveTheirFixedForm()
{
    static const QRegularExpression uuid(u"^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$"_s);
    static const QRegularExpression time(u"^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z$"_s);
    QVERIFY(uuid.match(id()).hasMatch());
    QVERIFY(id() != id());
    QVERIFY(time.match(now()).hasMatch());
    QCOMPARE(digest("abc"), u"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"_s);
    QCOMPARE(json({{u"б"_s, 1}, {u"a"_s, QJsonArray{true}}}), u"{\"a\":[true],\"б\":1}"_s);
}

void HelpersTest::aBudgetHoldsToItsLimit()
{
    BudgetManager budget;
    QCOMPARE(budget.limit, 100000);
    QVERIFY(budget.reserve(0));
    QVERIFY(!budget.reserve(-1));
    QVERIFY(budget.reserve(100000));
    QVERIFY(!budget.reserve(1));
    QVERIFY(budget.reserve(0));
    QVERIFY(!budget.reserve(std::numeric_limits<qint64>::max()));
    QCOMPARE(budget.reserved, 100000);

    budget.settle(200000, -5);
    QCOMPARE(budget.reserved, 0);
    QCOMPARE(budget.used, 0);
    budget.settle(0, 100001);
    QVERIFY(!budget.reserve(0));
}

void HelpersTest::theBusStampsARecordOfSixKeysAndDeliversItAtOnce()
{
    EventBus bus;
    QList<QJsonObject> seen;
    QObject::connect(&bus, &EventBus::event, &bus, [&](const QJsonObject &record) { seen.append(record); });

    bus.publish(u"t"_s, u"PhaseChanged"_s, u"PLANNING"_s, {{u"k"_s, 1}});

    QCOMPARE(seen.size(), 1);
    QCOMPARE(seen[0].keys(), (QStringList{u"data"_s, u"id"_s, u"message"_s, u"task_id"_s, u"time"_s, u"type"_s}));
    QCOMPARE(seen[0]["data"_L1].toObject(), (QJsonObject{{u"k"_s, 1}}));
    QCOMPARE(seen[0]["task_id"_L1].toString(), u"t"_s);
}

QTEST_APPLESS_MAIN(HelpersTest)
#include "tst_helpers.moc"
