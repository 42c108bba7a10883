// The background's renderer with its real worker, and with workers that misbehave.

#include "background_renderer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
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

/// The processes below this one, or below another.
QStringList processesBelow(qint64 parent = ::getpid())
{
    QFile file(u"/proc/%1/task/%1/children"_s.arg(parent));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()).split(u' ', Qt::SkipEmptyParts)
                                          : QStringList();
}

bool lives(const QString &process)
{
    QFile file(u"/proc/%1/stat"_s.arg(process));
    return file.open(QIODevice::ReadOnly) && !file.readAll().contains(") Z ");
}

/// A worker that answers each line with what the environment says: %G is the right generation, and a number of spaces
/// before a brace fills the line up to so many bytes.
int misbehave(const QByteArray &answer)
{
    for (std::string line; std::getline(std::cin, line);) {
        if (answer == "exit")
            return 0;
        if (answer == "crash")
            std::raise(SIGKILL);
        QByteArray text = answer;
        if (const qsizetype size = qgetenv("TEST_SIZE").toLongLong())
            text += QByteArray(size - text.size() - 1, ' ');
        std::cout << text.constData() << std::endl;
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
    void cleanup();
    void aFrameIsWhatTheScriptReturns();
    void aScriptThatFailsIsToldAndTriedNoMore_data();
    void aScriptThatFailsIsToldAndTriedNoMore();
    void aRunawayScriptIsStoppedAndTheNextOneDrawn();
    void aFrameOnItsWayIsTheOnlyOne();
    void anEmptyScriptEndsTheWorker();
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

void BackgroundTest::cleanup()
{
    renderer.reset();
    QCOMPARE(processesBelow(), QStringList());
    qunsetenv("TEST_ANSWER");
    qunsetenv("TEST_SIZE");
}

void BackgroundTest::aFrameIsWhatTheScriptReturns()
{
    const QVariantList frame
        = rendered(u"return [{type:'line',x:t,y:w,x2:h,y2:NaN}, 5, 'text', null] // and more"_s, 0.25);
    const QVariantMap line{
        {u"type"_s, u"line"_s}, {u"x"_s, 0.25}, {u"y"_s, 400}, {u"x2"_s, 300}, {u"y2"_s, QVariant::fromValue(nullptr)}};
    QCOMPARE(frame, (QVariantList{line, QVariantMap(), QVariantMap(), QVariantMap()}));
    QCOMPARE(rendered(u"return Array.from({length:500},(_,i)=>({x:i}))"_s).size(), 200);
    QCOMPARE(renderer->frame().last().toMap()[u"x"_s], 199);
    QCOMPARE(rendered(u"var a=[{x:1}]; a.length=1e9; return a"_s).size(), 200);
    // What a script keeps lasts as long as the script, in the same process.
    const QString counts = u"this.n=(this.n||0)+1; return Array(n).fill({})"_s;
    QCOMPARE(rendered(counts).size(), 1);
    const QStringList worker = processesBelow();
    QCOMPARE(rendered(counts).size(), 2);
    QCOMPARE(processesBelow(), worker);
    QCOMPARE(renderer->error(), QString());
}

void BackgroundTest::aScriptThatFailsIsToldAndTriedNoMore_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QStringList>("texts"); // Which of them is a matter of how much memory there is, and how soon.
    QTest::addColumn<int>("line");
    const auto row = [](const char *name, const QString &code, const QStringList &texts, int line = 0) {
        QTest::newRow(name) << code << texts << line;
    };
    const QStringList ends{tooLong, failed};
    row("a number", u"return 5"_s, {wrong + u"5"_s});
    row("an exception", u"\n\nnothing()"_s, {wrong + u"ReferenceError: nothing is not defined"_s}, 3);
    row("a long text", u"return 'x'.repeat(300)"_s, {wrong + QString(250, u'x')});
    row("a length and no array", u"return {length:1e9}"_s, {wrong + u"[object Object]"_s});
    row("recursion", u"return (function f(){return f()})()"_s,
        {wrong + u"RangeError: Maximum call stack size exceeded."_s});
    row("an endless loop", u"for(;;);"_s, {tooLong});
    row("an endless proxy", u"return new Proxy([],{get(){for(;;);}})"_s, {tooLong});
    row("an endless text", u"return {toString(){for(;;);}}"_s, {tooLong});
    row("an endless getter", u"return [{get x(){for(;;);}}]"_s, {tooLong});
    row("lists without end", u"var a=[]; for(;;) a.push(new Array(1000).fill(1))"_s, ends);
    row("strings without end", u"var s='x'; for(;;) s+=s"_s, ends);
    row("a gigabyte", u"return 'x'.repeat(1e9)"_s, ends);
    row("a deep entry", u"var o={}; for(var i=0;i<1e5;i++) o={o}; return [o]"_s, ends);
    row("a huge entry", u"return [new Array(1e9)]"_s, ends);
    row("a large frame", u"return Array(200).fill({type:'x'.repeat(2000)})"_s, {tooLarge});
}

void BackgroundTest::aScriptThatFailsIsToldAndTriedNoMore()
{
    QFETCH(QString, code);
    QFETCH(QStringList, texts);
    // The first frame may take seconds, as the worker starts with it.
    const QString script = u"if (t == 0) return [{}]; "_s + code;
    QCOMPARE(rendered(script).size(), 1);
    rendered(script, 1);
    QVERIFY2(texts.contains(renderer->error()), qPrintable(renderer->error()));
    QTEST(renderer->errorLine(), "line");
    QTRY_COMPARE(processesBelow(), QStringList());
    renderer->render(script, 0, 400, 300);
    QCOMPARE(processesBelow(), QStringList());
}

void BackgroundTest::aRunawayScriptIsStoppedAndTheNextOneDrawn()
{
    QCOMPARE(rendered(u"if (t == 0) return [{}]; for(;;);"_s).size(), 1);
    QCOMPARE(rendered(u"if (t == 0) return [{}]; for(;;);"_s, 1), QVariantList());
    QCOMPARE(renderer->error(), tooLong);
    QCOMPARE(rendered(u"return ["_s), QVariantList());
    QVERIFY(renderer->error().startsWith(wrong + u"SyntaxError: "_s));
    QCOMPARE(renderer->errorLine(), 1);
    QCOMPARE(rendered(u"return [{}]"_s).size(), 1);
    QCOMPARE(renderer->error(), QString());
}

void BackgroundTest::aFrameOnItsWayIsTheOnlyOne()
{
    const QString code = u"this.n=(this.n||0)+1; return Array(n).fill({t})"_s;
    const QSignalSpy spy(renderer.get(), &BackgroundRenderer::changed);
    for (int time = 1; time < 5; ++time)
        renderer->render(code, time, 1, 1);
    QCOMPARE(rendered(code, 5).size(), 1);
    QCOMPARE(renderer->frame()[0].toMap()[u"t"_s], 1);
    QCOMPARE(spy.size(), 2); // For the new script and its first frame.
    // A frame of an old script never comes under a new one.
    renderer->render(code, 6, 1, 1);
    QCOMPARE(rendered(u"return [{t:'new'}]"_s)[0].toMap()[u"t"_s], u"new"_s);
}

void BackgroundTest::anEmptyScriptEndsTheWorker()
{
    rendered(u"return [{}]"_s);
    QCOMPARE(processesBelow().size(), 1);
    renderer->render(u" \n"_s, 1, 1, 1);
    QVERIFY(renderer->frame().isEmpty() && renderer->error().isEmpty());
    QTRY_COMPARE(processesBelow(), QStringList());
    rendered(u"return nothing"_s);
    renderer->render(u""_s, 1, 1, 1);
    QCOMPARE(renderer->error(), QString());
}

void BackgroundTest::aMisbehavingWorkerIsNoDanger_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("error");
    QTest::addColumn<int>("shapes");
    const QByteArray good = R"({"generation":1,"shapes":[{}]})";
    QTest::newRow("the largest frame") << good << 256000 << QString() << 1;
    QTest::newRow("one byte more") << good << 256001 << tooLarge << 0;
    QTest::newRow("another generation") << QByteArray(R"({"generation":7,"shapes":[{}]})") << 0 << tooLong << 0;
    QTest::newRow("no object") << QByteArray("[]") << 0 << tooLong << 0;
    QTest::newRow("it ends") << QByteArray("exit") << 0 << failed << 0;
    QTest::newRow("it crashes") << QByteArray("crash") << 0 << failed << 0;
}

void BackgroundTest::aMisbehavingWorkerIsNoDanger()
{
    QFETCH(QByteArray, answer);
    QFETCH(int, size);
    qputenv("TEST_ANSWER", answer);
    if (size)
        qputenv("TEST_SIZE", QByteArray::number(size));
    rendered(u"return [{}]"_s);
    QTEST(renderer->error(), "error");
    QTEST(int(renderer->frame().size()), "shapes");
}

void BackgroundTest::theWorkerDiesWithTheProgram()
{
    QProcess program;
    program.start(QCoreApplication::applicationFilePath(), {u"--render"_s});
    QVERIFY(program.waitForStarted());
    QTRY_COMPARE(processesBelow(program.processId()).size(), 1);
    const QString worker = processesBelow(program.processId()).constFirst();
    const auto isBusy = [&] {
        QFile file(u"/proc/%1/stat"_s.arg(worker));
        file.open(QIODevice::ReadOnly);
        return file.readAll().split(' ').value(13).toInt() > 20; // Hundredths of a second: the script is running.
    };
    QTRY_VERIFY(isBusy());
    program.kill();
    QTRY_VERIFY_WITH_TIMEOUT(!lives(worker), 2000); // Sooner than its processor time is over.
    program.waitForFinished();
}

int main(int count, char **arguments)
{
    if (count > 1 && qstrcmp(arguments[1], "--background-worker") == 0) {
        if (qEnvironmentVariableIsSet("TEST_ANSWER"))
            return misbehave(qgetenv("TEST_ANSWER"));
        return ::execv(VESK_PROGRAM, arguments);
    }
    QCoreApplication application(count, arguments);
    if (count > 1 && qstrcmp(arguments[1], "--render") == 0)
        return renderForEver();
    BackgroundTest test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_background.moc"
