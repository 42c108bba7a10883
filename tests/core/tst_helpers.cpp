#include "budget.h"
#include "error_of.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace vesk;

class HelpersTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void theObjectInAReplyIsFound()
    {
        for (const QString &text : {u"{\"a\":1}"_s, u"Вот ответ: {\"a\":1} — готово."_s, u"```json\n{\"a\":1}\n```"_s})
            QCOMPARE(parseObject(text), (QJsonObject{{u"a"_s, 1}}));
    }

    void bracketsInTextsAreNoNesting()
    {
        const QString text = u"{\"a\": \""_s + u"{["_s.repeated(600) + u"\"}"_s;
        QCOMPARE(parseObject(text)[u"a"_s].toString().size(), 1200);
    }

    void whatIsNoObjectIsRefused()
    {
        const QString open = u"{\"a\":"_s;
        const QString close = u"}"_s;
        for (const auto &[text, start] :
             {std::pair{QString(), u"Expected a JSON object"_s},
              {u"} {"_s, u"Expected a JSON object"_s},
              {u"{\"a\":1} {\"b\":2}"_s, u"Invalid JSON: "_s},
              {open.repeated(5000) + u'1' + close.repeated(5000), u"Invalid JSON: "_s}, // beyond the parser's depth
              // Too deep to be read again as part of a record.
              {open.repeated(513) + u"\"}}\\\"{\""_s + close.repeated(513), u"Invalid JSON: too deep"_s}}) {
            const QString error = errorOf([&] { parseObject(text); });
            QVERIFY2(error.startsWith(start), qPrintable(text.left(20) + error));
        }
    }

    void aBudgetHoldsToItsLimit()
    {
        BudgetManager budget;
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
};

QTEST_APPLESS_MAIN(HelpersTest)
#include "tst_helpers.moc"
