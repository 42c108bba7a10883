#include "calculator_page.h"
#include "helpers.h"
#include "mock_provider.h"

#include <QElapsedTimer>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class MockProviderTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anAnswerComesLaterWithItsCounts();
    void twoRequestsAreAnsweredInOrder();
    void nothingComesAfterACancellationAndNewRequestsWork();
    void aDestroyedProviderStaysSilent();
    void theCoordinatorAsksByTopic_data();
    void theCoordinatorAsksByTopic();
    void aBuildRequestIsKnownByItsWords_data();
    void aBuildRequestIsKnownByItsWords();
    void aClarifiedTaskAsksNothing();
    void aDemoChatEndsInTheReport();
    void anUnknownRoleSumsUp();
    void theCalculatorIsPlannedAsTwoFiles();
    void theBuildIsPlannedAsOneCommand();
    void aFileIsWrittenForItsPath_data();
    void aFileIsWrittenForItsPath();
    void aCodingOrderIsFoundInTheArtifactOfARun();
    void onlyTheCorrectnessReviewerMindsTheDivisionByZero_data();
    void onlyTheCorrectnessReviewerMindsTheDivisionByZero();
    void thePageCalculates_data();
    void thePageCalculates();
};

namespace {

QJsonObject answer(const QString &role, const QJsonObject &input = {})
{
    return MockProvider::respond({id(), role, QString(), input, 2048});
}

QJsonObject taskOf(const QString &request, const QString &clarification = {})
{
    return {{u"task"_s, QJsonObject{{u"original_request"_s, request}, {u"clarification"_s, clarification}}}};
}

QJsonObject nodeFor(const QString &path)
{
    return {{u"input"_s, QJsonObject{{u"path"_s, path}}}};
}

QJsonObject written(const QJsonObject &input)
{
    return answer(u"coding"_s, input)[u"files"_s].toArray().at(0).toObject();
}

QString firstPage()
{
    return written({})[u"content"_s].toString();
}

QString fixedPage(const QString &clarification = {})
{
    QJsonObject input = taskOf(u"калькулятор"_s, clarification);
    input[u"fixes"_s] = QJsonArray();
    return written(input)[u"content"_s].toString();
}

} // namespace

void MockProviderTest::anAnswerComesLaterWithItsCounts()
{
    MockProvider provider;
    QCOMPARE(provider.delayMs, 300);
    QCOMPARE(provider.name(), u"Mock / deterministic"_s);
    provider.delayMs = 0;
    QList<LLMResult> results;

    const QJsonObject input{{u"task_report"_s, u"Готово: 1"_s}}; // {"task_report":"Готово: 1"} has 27 characters
    provider.request({u"x"_s, u"chat"_s, u"ignored"_s, input, 0}, [&](LLMResult result) { results.append(result); });

    QVERIFY(results.isEmpty());
    QTRY_COMPARE(results.size(), 1);
    const LLMResult result = results.first();
    QCOMPARE(result.content, json(answer(u"chat"_s, input)));
    QCOMPARE(result.error, QString());
    QCOMPARE(result.promptTokens, 6);
    QCOMPARE(result.completionTokens, result.content.size() / 4);
    QVERIFY(!result.retryable && !result.truncated);
}

void MockProviderTest::twoRequestsAreAnsweredInOrder()
{
    MockProvider provider;
    provider.delayMs = 30;
    QStringList answers;
    QElapsedTimer clock;
    clock.start();

    for (const QString &role : {u"observer"_s, u"planner"_s})
        provider.request({{}, role, {}, {}, 0}, [&answers, role](LLMResult) { answers.append(role); });

    QTRY_COMPARE(answers, QStringList({u"observer"_s, u"planner"_s}));
    QVERIFY(clock.elapsed() >= 29); // timers count whole milliseconds
}

void MockProviderTest::nothingComesAfterACancellationAndNewRequestsWork()
{
    MockProvider provider;
    provider.delayMs = 1;
    QStringList answers;
    provider.request({{}, u"planner"_s, {}, {}, 0}, [&](LLMResult) { answers.append(u"cancelled"_s); });

    provider.cancelAll();
    provider.request({{}, u"planner"_s, {}, {}, 0}, [&](LLMResult) { answers.append(u"later"_s); });

    QTRY_VERIFY(!answers.isEmpty());
    QCOMPARE(answers, QStringList{u"later"_s});
}

void MockProviderTest::aDestroyedProviderStaysSilent()
{
    QStringList answers;
    {
        MockProvider brief;
        brief.delayMs = 1;
        brief.request({{}, u"planner"_s, {}, {}, 0}, [&](LLMResult) { answers.append(u"brief"_s); });
    }
    MockProvider provider;
    provider.delayMs = 5;
    provider.request({{}, u"planner"_s, {}, {}, 0}, [&](LLMResult) { answers.append(u"alive"_s); });

    QTRY_VERIFY(!answers.isEmpty());
    QCOMPARE(answers, QStringList{u"alive"_s});
}

void MockProviderTest::theCoordinatorAsksByTopic_data()
{
    QTest::addColumn<QString>("question");
    QTest::addColumn<QString>("firstOption");

    QTest::newRow("code") << u"Проверка нашла деление на ноль. Как показывать ошибку?"_s
                          << u"Показать сообщение рядом с результатом"_s;
    QTest::newRow("structure") << u"Проверяющие предложили изменить структуру. Как продолжить?"_s
                               << u"Исправить предложенный вариант"_s;
    QTest::newRow("plan") << u"В плане есть замечания. Какой вариант выбираем?"_s
                          << u"Исправить предложенный вариант"_s;
}

void MockProviderTest::theCoordinatorAsksByTopic()
{
    const QString topic = QString::fromLatin1(QTest::currentDataTag());
    const QJsonObject asked = answer(u"coordinator"_s, {{u"artifact"_s, QJsonObject{{u"topic"_s, topic}}}});

    QCOMPARE(asked[u"summary"_s].toString(), u"Нужно ваше решение."_s);
    QTEST(asked[u"question"_s].toString(), "question");
    QTEST(asked[u"options"_s][0].toString(), "firstOption");
    QCOMPARE(asked[u"options"_s].toArray().size(), 2);
}

void MockProviderTest::aBuildRequestIsKnownByItsWords_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<QString>("title");

    const QString build = u"Сборка проекта"_s;
    QTest::newRow("english") << u"please bUiLd it"_s << build;
    QTest::newRow("inside a word") << u"rebuilding"_s << build;
    QTest::newRow("russian") << u"Запусти СБОРку"_s << build;
    QTest::newRow("neither") << u"Собери калькулятор"_s << u"Приложение-калькулятор"_s;
    QTest::newRow("nothing") << QString() << u"Приложение-калькулятор"_s;
}

void MockProviderTest::aBuildRequestIsKnownByItsWords()
{
    QFETCH(QString, request);

    QTEST(answer(u"orchestrator"_s, taskOf(request))[u"title"_s].toString(), "title");
}

void MockProviderTest::aClarifiedTaskAsksNothing()
{
    for (const QString &request : {u"калькулятор"_s, u"сборка"_s}) {
        QCOMPARE(answer(u"orchestrator"_s, taskOf(request))[u"questions"_s].toArray().size(), 1);
        QCOMPARE(answer(u"orchestrator"_s, taskOf(request, u"Да"_s))[u"questions"_s], QJsonValue(QJsonArray()));
    }
}

void MockProviderTest::aDemoChatEndsInTheReport()
{
    const auto reply = [](const QString &report) {
        return answer(u"chat"_s, {{u"task_report"_s, report}})[u"summary"_s].toString();
    };

    QVERIFY(reply(u"Отчёт"_s).endsWith(u"в настройках API.\n\nОтчёт"_s));
    QVERIFY(reply({}).endsWith(u"\n\nМогу показать цикл работы на примере калькулятора. Выберите режим «Задача» и "
                               "напишите «Создай калькулятор»."_s));
}

void MockProviderTest::anUnknownRoleSumsUp()
{
    for (const QString &role : {u"specialist"_s, u"chat_router"_s, u"Planner"_s, QString()})
        QCOMPARE(answer(role), QJsonObject({{u"summary"_s, u"Результат этапа подготовлен"_s}}));
}

void MockProviderTest::theCalculatorIsPlannedAsTwoFiles()
{
    const QJsonArray nodes = answer(u"planner"_s, taskOf(u"калькулятор"_s))[u"nodes"_s].toArray();

    QCOMPARE(nodes.size(), 2);
    QCOMPARE(nodes[0][u"input"_s][u"path"_s].toString(), u"calculator.html"_s);
    QCOMPARE(nodes[1],
             QJsonValue(QJsonObject{{u"id"_s, u"guide"_s},
                                    {u"title"_s, u"Написать инструкцию"_s},
                                    {u"kind"_s, u"code"_s},
                                    {u"dependencies"_s, QJsonArray()},
                                    {u"input"_s, QJsonObject{{u"path"_s, u"README-calculator.md"_s}}}}));
}

void MockProviderTest::theBuildIsPlannedAsOneCommand()
{
    const QJsonObject command{{u"program"_s, u"cmake"_s}, {u"arguments"_s, QJsonArray{u"--build"_s}}};
    const QJsonObject task{{u"original_request"_s, u"build"_s}, {u"build_command"_s, command}};
    const auto nodes = [](const QJsonObject &input) { return answer(u"planner"_s, input)[u"nodes"_s].toArray(); };

    const QJsonArray planned = nodes({{u"task"_s, task}});
    QCOMPARE(planned.size(), 1);
    QCOMPARE(planned[0][u"kind"_s].toString(), u"tool"_s);
    QCOMPARE(planned[0][u"input"_s].toObject(), command);

    QCOMPARE(nodes(taskOf(u"build"_s))[0][u"input"_s], QJsonValue(QJsonObject()));
}

void MockProviderTest::aFileIsWrittenForItsPath_data()
{
    QTest::addColumn<QJsonObject>("input");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("content");

    const QString readme
        = u"# Калькулятор\n\nОткройте calculator.html в браузере. Введите два числа и выберите действие. "
          "При делении на ноль появится сообщение об ошибке. Работает без интернета и зависимостей.\n"_s;
    QTest::newRow("no path") << QJsonObject() << u"calculator.html"_s << firstPage();
    QTest::newRow("page") << QJsonObject{{u"node"_s, nodeFor(u"sub/x.html"_s)}} << u"sub/x.html"_s << firstPage();
    QTest::newRow("guide") << QJsonObject{{u"node"_s, nodeFor(u"R.md"_s)}} << u"R.md"_s << readme;
    QTest::newRow("fixed guide") << QJsonObject{{u"node"_s, nodeFor(u"R.md"_s)}, {u"fixes"_s, QJsonArray()}}
                                 << u"R.md"_s << readme;
    QTest::newRow("capital ending") << QJsonObject{{u"node"_s, nodeFor(u"R.MD"_s)}} << u"R.MD"_s << firstPage();
    QTest::newRow("empty fixes") << QJsonObject{{u"fixes"_s, QJsonArray()}} << u"calculator.html"_s << fixedPage();
}

void MockProviderTest::aFileIsWrittenForItsPath()
{
    QFETCH(QJsonObject, input);
    const QJsonObject file = written(input);

    QTEST(file[u"path"_s].toString(), "path");
    QTEST(file[u"content"_s].toString(), "content");
    QVERIFY(!file[u"content"_s].toString().contains(u"GUARD"_s));
}

void MockProviderTest::aCodingOrderIsFoundInTheArtifactOfARun()
{
    QJsonObject artifact{{u"node"_s, nodeFor(u"guide.md"_s)}};
    QCOMPARE(written({{u"artifact"_s, artifact}})[u"path"_s].toString(), u"guide.md"_s);

    artifact = {{u"node"_s, nodeFor(u"x.html"_s)}, {u"fixes"_s, QJsonArray()}};
    QCOMPARE(written({{u"artifact"_s, artifact}})[u"content"_s].toString(), fixedPage());
}

void MockProviderTest::onlyTheCorrectnessReviewerMindsTheDivisionByZero_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("content");
    QTest::addColumn<bool>("approved");

    const QString reviewer = u"correctness_reviewer"_s;
    QTest::newRow("first page") << reviewer << u"a.html"_s << firstPage() << false;
    QTest::newRow("fixed page") << reviewer << u"a.html"_s << fixedPage() << true;
    QTest::newRow("guide") << reviewer << u"a.md"_s << firstPage() << true;
    QTest::newRow("capital ending") << reviewer << u"a.HTML"_s << firstPage() << true;
    for (const QString &other : {u"integration_reviewer"_s, u"risk_judge"_s, u"validator"_s, u"my_reviewer"_s})
        QTest::newRow(qPrintable(other)) << other << u"a.html"_s << firstPage() << true;
}

void MockProviderTest::onlyTheCorrectnessReviewerMindsTheDivisionByZero()
{
    QFETCH(QString, role);
    QFETCH(QString, path);
    QFETCH(QString, content);
    QFETCH(bool, approved);
    const QJsonObject file{{u"path"_s, path}, {u"content"_s, content}};
    const auto unless = [approved](const QString &text) { return approved ? QJsonArray() : QJsonArray{text}; };

    QCOMPARE(answer(role, {{u"artifact"_s, QJsonObject{{u"file"_s, file}}}}),
             QJsonObject({{u"verdict"_s, approved ? u"APPROVE"_s : u"REVISE"_s},
                          {u"issues"_s, unless(u"Не обработано деление на ноль"_s)},
                          {u"required_changes"_s, unless(u"Добавить проверку b===0 перед делением"_s)},
                          {u"confidence"_s, 0.95}}));
}

void MockProviderTest::thePageCalculates_data()
{
    QTest::addColumn<QString>("page");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QStringList>("alerts");

    const QString refusal = u"На ноль делить нельзя"_s;
    const QString alerting = fixedPage(u"Лучше Выводить отдельное предупреждение"_s);
    const QStringList byZero{u"6"_s, u"/"_s, u"0"_s};
    const QStringList none;
    QTest::newRow("sum") << firstPage() << QStringList{u"6"_s, u"+"_s, u"2"_s} << u"8"_s << none;
    QTest::newRow("difference") << firstPage() << QStringList{u"6"_s, u"-"_s, u"2"_s} << u"4"_s << none;
    QTest::newRow("product") << fixedPage() << QStringList{u"6"_s, u"*"_s, u"0"_s} << u"0"_s << none;
    QTest::newRow("quotient") << fixedPage() << QStringList{u"7"_s, u"/"_s, u"2"_s} << u"3.5"_s << none;
    QTest::newRow("by zero on the first page") << firstPage() << byZero << u"Infinity"_s << none;
    QTest::newRow("by zero on the fixed page") << fixedPage() << byZero << refusal << none;
    QTest::newRow("by zero with an alert") << alerting << byZero << u"Ошибка"_s << QStringList{refusal};
    QTest::newRow("quotient with an alert") << alerting << QStringList{u"6"_s, u"/"_s, u"2"_s} << u"3"_s << none;
}

void MockProviderTest::thePageCalculates()
{
    const QString node = QStandardPaths::findExecutable(u"node"_s);
    if (node.isEmpty())
        QSKIP("The page's script runs in Node.js, which is not installed.");
    QFETCH(QString, page);
    QFETCH(QStringList, entries);

    const QJsonObject shown = calculate(node, page, entries);

    QTEST(shown[u"result"_s].toString(), "result");
    QTEST(strings(shown[u"alerts"_s].toArray()), "alerts");
}

QTEST_GUILESS_MAIN(MockProviderTest)
#include "tst_mock_provider.moc"
