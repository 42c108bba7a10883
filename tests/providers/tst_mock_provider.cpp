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

    void nothingComesAfterACancellationAndNewRequestsWork()
    {
        MockProvider provider;
        provider.delayMs = 1;
        QStringList answers;
        const auto ask = [&](MockProvider &asked, const QString &name) {
            asked.request({{}, u"planner"_s, {}, {}, 0}, [&answers, name](const LLMResult &) { answers.append(name); });
        };
        ask(provider, u"cancelled"_s);
        provider.cancelAll();
        {
            MockProvider brief;
            brief.delayMs = 1;
            ask(brief, u"brief"_s);
        }
        provider.delayMs = 5;
        ask(provider, u"first"_s);
        ask(provider, u"second"_s);

        QTRY_COMPARE(answers, QStringList({u"first"_s, u"second"_s}));
    }

};

QTEST_GUILESS_MAIN(MockProviderTest)
#include "tst_mock_provider.moc"
