#include "helpers.h"
#include "mock_provider.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

/// What the demo says and writes is seen in whole runs, in tst_calculator.
class MockProviderTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anAnswerComesLaterWithItsCounts()
    {
        MockProvider provider;
        provider.delayMs = 0;
        QList<LLMResult> results;

        const QJsonObject input{{u"task_report"_s, u"Готово: 1"_s}}; // {"task_report":"Готово: 1"} has 27 characters
        provider.request({u"x"_s, u"chat"_s, u"ignored"_s, input, 0},
                         [&](const LLMResult &result) { results.append(result); });

        QVERIFY(results.isEmpty());
        QTRY_COMPARE(results.size(), 1);
        const LLMResult result = results.first();
        QVERIFY(parseObject(result.content)[u"summary"_s].toString().endsWith(u"\n\nГотово: 1"_s));
        QCOMPARE(result.error, QString());
        QCOMPARE(result.promptTokens, 6);
        QCOMPARE(result.completionTokens, result.content.size() / 4);
    }
};

QTEST_GUILESS_MAIN(MockProviderTest)
#include "tst_mock_provider.moc"
