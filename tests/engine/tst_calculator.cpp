#include "json_text.h"
#include "planned_run.h"

#include <QJsonDocument>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

using namespace vesk;

namespace {

constexpr auto browser = R"(
const fs = require('fs');
const [page, a, op, b] = [fs.readFileSync(0, 'utf8'), ...process.argv.slice(1)];
const elements = {a: {value: a}, op: {value: op}, b: {value: b}, run: {}, result: {textContent: ''}};
for (const id of Object.keys(elements))
    if (!page.includes(`id="${id}"`)) throw new Error(id);
const document = {getElementById: id => elements[id]};
const alerts = [];
new Function('document', 'alert', /<script>(.*)<\/script>/s.exec(page)[1])(document, text => alerts.push(text));
elements.run.onclick();
console.log(JSON.stringify({result: String(elements.result.textContent), alerts}));
)";

/// Runs the script of a calculator's page with the program `node`, in a document that has just its elements: enters
/// first number, action and second number, presses the button and tells {"result", "alerts"}. Empty when the script
/// fails.
QJsonObject calculate(const QString &node, const QByteArray &page, const QStringList &entries)
{
    QProcess process;
    process.start(node, QStringList{u"-e"_s, QString::fromUtf8(browser), u"--"_s} + entries);
    process.write(page);
    process.closeWriteChannel();
    process.waitForFinished(60000);
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
}

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
        QTest::addColumn<QString>("byZero"); // result of a division by zero, and what is said
        QTest::newRow("beside") << u"Показать сообщение рядом с результатом"_s << u"На ноль делить нельзя []"_s;
        QTest::newRow("on its own") << u"Выводить отдельное предупреждение"_s << u"Ошибка ['На ноль делить нельзя']"_s;
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
        const QByteArray written = run.fileContent(page);
        QTEST(fields(calculate(node, written, {u"6"_s, u"/"_s, u"0"_s}), u"result alerts"_s), "byZero");
        QCOMPARE(calculate(node, written, {u"7"_s, u"/"_s, u"2"_s})[u"result"_s].toString(), u"3.5"_s);
    }
};

QTEST_GUILESS_MAIN(CalculatorTest)
#include "tst_calculator.moc"
