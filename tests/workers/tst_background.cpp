// The background's renderer with its real worker, and with workers that misbehave.

#include "background_renderer.h"
#include "files.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <csignal>
#include <iostream>

#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QString wrong = u"JavaScript должен вернуть массив фигур. "_s;
const QString tooLong = u"Фон остановлен: слишком долго выполняется JavaScript"_s;
const QString failed = u"Не удалось запустить фон"_s;
const QString tooLarge = u"Слишком большой кадр фона"_s;

QByteArrayList processesBelow(qint64 parent = ::getpid())
{
    QByteArrayList list = contentOf(u"/proc/%1/task/%1/children"_s.arg(parent)).split(' ');
    list.removeAll("");
    return list;
}

/// A worker that answers each line with the same text, and blanks up to so many bytes. Without a text it crashes.
int misbehave(QByteArray answer, qsizetype bytes)
{
    answer += QByteArray(std::max<qsizetype>(0, bytes - answer.size() - 1), ' ');
    for (std::string line; answer != "exit" && std::getline(std::cin, line);) {
        if (answer == "crash")
            std::raise(SIGKILL);
        std::cout << answer.constData() << std::endl;
    }
    return 0;
}

/// A renderer of its own: a process to be killed.
int renderForEver()
{
    BackgroundRenderer renderer;
    renderer.render(u"while(true){}"_s, 0, 1, 1);
    return QCoreApplication::exec();
}

} // namespace

class BackgroundTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init() { renderer = std::make_unique<BackgroundRenderer>(); }
    void cleanup()
    {
        renderer.reset();
        QCOMPARE(processesBelow(), QByteArrayList());
        qunsetenv("TEST_ANSWER");
    }
    void aFrameIsWhatTheScriptReturns();
    void aScriptThatFailsIsToldAndTriedNoMore_data();
    void aScriptThatFailsIsToldAndTriedNoMore();
    void aFrameOnItsWayIsTheOnlyOne();
    void aMisbehavingWorkerIsNoDanger_data();
    void aMisbehavingWorkerIsNoDanger();
    void theWorkerDiesWithTheProgram();

private:
    /// The frame, once it or an error has come.
    QVariantList rendered(const QString &code, double time = 0)
    {
        renderer->render(code, time, 400, 300);
        const QSignalSpy spy(renderer.get(), &BackgroundRenderer::changed);
        (void)QTest::qWaitFor([&] { return !spy.isEmpty(); }, 30000);
        return renderer->frame();
    }
    std::unique_ptr<BackgroundRenderer> renderer;
};

void BackgroundTest::aFrameIsWhatTheScriptReturns()
{
    const QVariantMap line{{u"x"_s, 0.25}, {u"y"_s, 400}, {u"x2"_s, 300}, {u"y2"_s, QVariant::fromValue(nullptr)}};
    QCOMPARE(rendered(u"return [{x:t,y:w,x2:h,y2:NaN}, 5, null] // and more"_s, 0.25),
             (QVariantList{line, QVariantMap(), QVariantMap()}));
    QCOMPARE(rendered(u"return Array.from({length:500},(_,i)=>({x:i}))"_s).size(), 200);
    QCOMPARE(renderer->frame().last().toMap()[u"x"_s], 199);
    QCOMPARE(rendered(u"var a=[{x:1}]; a.length=1e9; return a"_s).size(), 200);
    renderer->render(u" \n"_s, 1, 1, 1);
    QVERIFY(renderer->frame().isEmpty() && renderer->error().isEmpty());
    QTRY_COMPARE(processesBelow(), QByteArrayList());
}

void BackgroundTest::aScriptThatFailsIsToldAndTriedNoMore_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QStringList>("texts"); // Which of them is a matter of how much memory there is, and how soon.
    QTest::addColumn<int>("line");
    const auto row = [](const QString &code, const QStringList &texts, int line = 0) {
        QTest::newRow(qPrintable(code)) << code << texts << line;
    };
    const QStringList ends{tooLong, failed};
    row(u"return 5"_s, {wrong + u"5"_s});
    row(u"\n\nnothing()"_s, {wrong + u"ReferenceError: nothing is not defined"_s}, 3);
    row(u"return eval('1 +')"_s, {wrong + u"SyntaxError: Expected token `numeric literal'"_s}, 1);
    row(u"return 'x'.repeat(300)"_s, {wrong + QString(250, u'x')});
    row(u"return {length:1e9}"_s, {wrong + u"[object Object]"_s});
    row(u"return (function f(){return f()})()"_s, {wrong + u"RangeError: Maximum call stack size exceeded."_s});
    row(u"for(;;);"_s, {tooLong});
    row(u"return new Proxy([],{get(){for(;;);}})"_s, {tooLong});
    row(u"return {toString(){for(;;);}}"_s, {tooLong});
    row(u"return [{get x(){for(;;);}}]"_s, {tooLong});
    row(u"var a=[]; for(;;) a.push(new Array(1000).fill(1))"_s, ends);
    row(u"var s='x'; for(;;) s+=s"_s, ends);
    row(u"return 'x'.repeat(1e9)"_s, ends);
    row(u"var o={}; for(var i=0;i<1e5;i++) o={o}; return [o]"_s, ends);
    row(u"return [new Array(1e9)]"_s, ends);
    row(u"return Array(200).fill({type:'x'.repeat(2000)})"_s, {tooLarge});
}

void BackgroundTest::aScriptThatFailsIsToldAndTriedNoMore()
{
    QFETCH(QString, code);
    QFETCH(QStringList, texts);
    // The first frame may take seconds, as the worker starts with it.
    const QString script = u"if (t == 0) return [{}]; "_s + code;
    QCOMPARE(rendered(script).size(), 1);
    QElapsedTimer clock;
    clock.start();
    rendered(script, 1);
    QVERIFY(renderer->error() != tooLong || clock.elapsed() < 2000);
    QVERIFY2(texts.contains(renderer->error()), qPrintable(renderer->error()));
    QTEST(renderer->errorLine(), "line");
    QCOMPARE(renderer->frame().isEmpty(), renderer->error() != tooLarge && renderer->error() != failed);
    QTRY_COMPARE(processesBelow(), QByteArrayList());
    renderer->render(script, 0, 400, 300);
    QCOMPARE(processesBelow(), QByteArrayList());
    renderer->render(u"return [{}]"_s, 0, 400, 300);
    QCOMPARE(renderer->error(), QString());
    QTRY_COMPARE(renderer->frame().size(), 1);
    QCOMPARE(renderer->error(), QString());
}

void BackgroundTest::aFrameOnItsWayIsTheOnlyOne()
{
    const QString code = u"this.n=(this.n||0)+1; return Array(n).fill({t})"_s;
    const QSignalSpy spy(renderer.get(), &BackgroundRenderer::changed);
    for (int time = 1; time < 5; ++time)
        renderer->render(code, time, 1, 1);
    QCOMPARE(rendered(code, 5)[0].toMap()[u"t"_s], 1);
    QCOMPARE(spy.size(), 2); // For the new script and its first frame.
    QCOMPARE(rendered(code, 6).size(), 2); // What a script keeps lasts.
    QCOMPARE(renderer->frame()[0].toMap()[u"t"_s], 6);
    // A frame of an old script never comes under a new one.
    renderer->render(code, 7, 1, 1);
    QCOMPARE(rendered(u"return [{t:'new'}]"_s)[0].toMap()[u"t"_s], u"new"_s);
}

void BackgroundTest::aMisbehavingWorkerIsNoDanger_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("shapes");
    const QByteArray good = R"({"generation":1,"shapes":[{}]})";
    QTest::newRow("256000") << good << QString() << 1;
    QTest::newRow("256001") << good << tooLarge << 0;
    QTest::newRow("another generation") << QByteArray(R"({"generation":7,"shapes":[{}]})") << tooLong << 0;
    QTest::newRow("it ends") << QByteArray("exit") << failed << 0;
    QTest::newRow("it crashes") << QByteArray("crash") << failed << 0;
}

void BackgroundTest::aMisbehavingWorkerIsNoDanger()
{
    QFETCH(QByteArray, answer);
    qputenv("TEST_ANSWER", answer);
    qputenv("TEST_SIZE", QTest::currentDataTag());
    QCOMPARE(rendered(u"return [{}]"_s).size(), *static_cast<int *>(QTest::qData("shapes", qMetaTypeId<int>())));
    QTEST(renderer->error(), "error");
}

void BackgroundTest::theWorkerDiesWithTheProgram()
{
    QProcess program;
    program.start(QCoreApplication::applicationFilePath(), {u"--render"_s});
    QTRY_COMPARE(processesBelow(program.processId()).size(), 1);
    const QString stat = u"/proc/%1/stat"_s.arg(QString::fromLatin1(processesBelow(program.processId())[0]));
    // Hundredths of a second of processor time: the script is running.
    QTRY_VERIFY(contentOf(stat).split(' ').value(13).toInt() > 20);
    program.kill();
    const auto isGone = [&] { return !QFile::exists(stat) || contentOf(stat).contains(") Z "); };
    QTRY_VERIFY_WITH_TIMEOUT(isGone(), 2000); // Sooner than its processor time is over.
    program.waitForFinished();
}

int main(int count, char **arguments)
{
    const bool isWorker = count > 1 && qstrcmp(arguments[1], "--background-worker") == 0;
    if (isWorker && qEnvironmentVariableIsSet("TEST_ANSWER"))
        return misbehave(qgetenv("TEST_ANSWER"), qEnvironmentVariableIntValue("TEST_SIZE"));
    if (isWorker)
        return ::execv(VESK_PROGRAM, arguments);
    QCoreApplication application(count, arguments);
    if (count > 1 && qstrcmp(arguments[1], "--render") == 0)
        return renderForEver();
    BackgroundTest test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_background.moc"
