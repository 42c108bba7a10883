#include "calculator_page.h"
#include "planned_run.h"

#include <QStandardPaths>
#include <QTest>

using namespace vesk;

namespace {

class MockRun : public PlannedRun {
public:
    MockRun()
        : PlannedRun({})
    {
        mock.delayMs = 1;
        engine.setProvider(&mock);
    }
    /// Runs until the engine asks, and tells what.
    QString question()
    {
        runToPhase(u"CLARIFICATION"_s);
        return state(u"decision"_s)[u"question"_s].toString();
    }

    MockProvider mock;
};

} // namespace

/// Whole runs on the mock model, as a new user sees them.
class CalculatorTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aCalculatorIsAskedForRejectedFixedAndApproved_data()
    {
        QTest::addColumn<QString>("choice");
        QTest::addColumn<QString>("result"); // of a division by zero
        QTest::addColumn<QStringList>("alerts");

        const QString refusal = u"На ноль делить нельзя"_s;
        QTest::newRow("beside the result") << u"Показать сообщение рядом с результатом"_s << refusal << QStringList();
        QTest::newRow("on its own") << u"Выводить отдельное предупреждение"_s << u"Ошибка"_s << QStringList{refusal};
    }

    void aCalculatorIsAskedForRejectedFixedAndApproved()
    {
        QFETCH(QString, choice);
        const QString page = u"calculator.html"_s;
        MockRun run;
        run.start(u"Создай калькулятор"_s);
        QCOMPARE(run.question(), u"Создать локальный калькулятор для браузера, без аккаунта и внешних зависимостей?"_s);
        run.engine.clarify(u"Да, локально и без аккаунта"_s);
        QCOMPARE(run.phase(), u"INTAKE"_s);
        QCOMPARE(run.question(), u"Проверка нашла деление на ноль. Как показывать ошибку?"_s);
        QVERIFY(run.state(u"decision"_s)[u"options"_s].toArray().contains(choice));
        QVERIFY(!run.fileContent(page).contains("b===0"));
        run.engine.clarify(choice);
        QCOMPARE(run.outcome(), u"COMPLETED"_s);

        QCOMPARE(run.workspace.latest(page)[u"revision"_s].toInt(), 2);
        QVERIFY(run.fileContent(u"README-calculator.md"_s).startsWith("# Калькулятор"));
        QCOMPARE(run.rows(u"fix_requests"_s).size(), 1);
        QCOMPARE(run.nodes().size(), 2); // nothing of it needs a check
        QCOMPARE(run.state(u"spec"_s)[u"decisions"_s].toArray().size(), 2);

        const QString node = QStandardPaths::findExecutable(u"node"_s);
        if (node.isEmpty())
            QSKIP("The page's script runs in Node.js, which is not installed.");
        const QString written = QString::fromUtf8(run.fileContent(page));
        const QJsonObject byZero = calculate(node, written, {u"6"_s, u"/"_s, u"0"_s});
        QTEST(byZero[u"result"_s].toString(), "result");
        QTEST(strings(byZero[u"alerts"_s].toArray()), "alerts");
        QCOMPARE(calculate(node, written, {u"7"_s, u"/"_s, u"2"_s})[u"result"_s].toString(), u"3.5"_s);
    }

    void aBuildRunsTheChosenCommand()
    {
        for (const bool allowed : {true, false}) {
            MockRun run;
            run.answerPermissions(allowed);
            run.start(u"Запусти сборку"_s, false, command(u"/usr/bin/env"_s, {u"touch"_s, u"built"_s}));
            QCOMPARE(run.question(), u"Использовать выбранную папку и команду сборки из настроек?"_s);
            run.engine.clarify(u"Да"_s);
            QCOMPARE(run.outcome(), allowed ? u"COMPLETED"_s : u"Terminal permission denied"_s);
            QCOMPARE(QFile::exists(run.projectFile(u"built"_s)), allowed);
            QCOMPARE(run.nodes().size(), 1);
        }
    }
};

QTEST_GUILESS_MAIN(CalculatorTest)
#include "tst_calculator.moc"
