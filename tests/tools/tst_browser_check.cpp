#include "files.h"
#include "programs.h"
#include "tagged_processes.h"

#include <QElapsedTimer>
#include <QNetworkInterface>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <map>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QString script = QStringLiteral(BROWSER_CHECK);
const QString pages = QStringLiteral(PAGES "/");

// The caller's limit is 35 s.
constexpr qint64 latestEndMs = 30000;
constexpr std::chrono::seconds patience(60);

QString document(const QString &body)
{
    return u"<!doctype html><meta charset=utf-8><meta name=viewport content=\"width=device-width\"><h1>Страница</h1>"_s
        + body;
}

/// One run of the check, with folders of its own for temporary files and for what belongs to the user.
class Check {
public:
    explicit Check(const QString &page, const QString &browser = browserProgram())
    {
        process.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
        change(u"HOME"_s, home.path());
        change(u"TMPDIR"_s, temporary.path());
        process.setProgram(QStandardPaths::findExecutable(u"node"_s));
        process.setArguments({script, browser, page});
    }

    void change(const QString &variable, const QString &value)
    {
        QProcessEnvironment environment = process.processEnvironment();
        environment.insert(variable, value);
        process.setProcessEnvironment(environment);
    }

    void start()
    {
        clock.start();
        process.start();
    }
    static constexpr int stillRunning = -1000;

    /// Waits for the end; the exit code, or the signal with a minus.
    int end()
    {
        (void)QTest::qWaitFor([this] { return process.state() == QProcess::NotRunning; }, patience);
        return code();
    }
    int run()
    {
        start();
        return end();
    }

    int code() const
    {
        if (process.state() != QProcess::NotRunning)
            return stillRunning;
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -process.exitCode();
    }
    /// What the run has left behind.
    QStringList leftovers() const { return everythingIn(temporary.path()) + everythingIn(home.path()); }

    QTemporaryDir temporary;
    QTemporaryDir home;
    QProcess process;
    QElapsedTimer clock;
    qint64 tookMs = 0;
    QString report;

    Q_DISABLE_COPY_MOVE(Check)
};

/// Checks that are carried out some at a time, in the order in which they were added, while somebody waits for one.
class Checks {
public:
    /// The check of this page.
    Check &add(const QString &page)
    {
        waiting.append(page);
        return *all.emplace(page, std::make_unique<Check>(page)).first->second;
    }

    /// The check of this page, when it is done.
    const Check &of(const QString &page)
    {
        if (waiting.removeOne(page))
            waiting.prepend(page); // Where one test alone is run, it does not wait for the pages of all others.
        startSome();
        const Check &check = *all.at(page);
        if (!QTest::qWaitFor([&] { return check.tookMs > 0; }, 4 * patience))
            qWarning("The check of %s does not end", qPrintable(page));
        return check;
    }

private:
    static constexpr int atOnce = 3; // Each waits for half of its time.

    void startSome()
    {
        while (running < atOnce && !waiting.isEmpty())
            start(*all.at(waiting.takeFirst()));
    }

    void start(Check &check)
    {
        ++running;
        QObject::connect(&check.process, &QProcess::finished, &context, [this, &check] {
            check.tookMs = check.clock.elapsed();
            check.report = QString::fromUtf8(check.process.readAllStandardOutput());
            --running;
            startSome();
        });
        check.start();
    }

    QStringList waiting;
    int running = 0;
    std::map<QString, std::unique_ptr<Check>> all;
    QObject context;
};

struct Verdict {
    const char *name;
    QString page;
    int code = 0;
    QStringList said{};
    QStringList unsaid{};
};

const QList<Verdict> verdicts{
    {"a page without faults", u"clean.html"_s, 0, {u"Страница clean.html открывается без ошибок"_s}, {u"Замечания"_s}},
    {"a drawing that comes late", u"canvas.html"_s, 0, {}, {u"Замечания"_s}},
    {"things that only look like faults",
     u"unusual.html"_s,
     0,
     {u"- Не загружается https://fonts.example/inter.css: адрес в интернете"_s, u"api/tasks"_s,
      u"- console.error: Проверка связи не удалась"_s},
     {u"шире экрана"_s, u"обработано позже"_s}},
    {"modules work from a server",
     u"modules/index.html"_s,
     0,
     {u"только через веб-сервер. При открытии файла двойным щелчком: Не загружается app.js"_s}},
    {"what a bundler has built", u"built/index.html"_s, 0, {u"только через веб-сервер"_s}},
    {"errors of scripts",
     u"scripts.html"_s,
     1,
     {u"Ошибка JavaScript: TypeError: Cannot read properties of undefined (reading 'length')\n   scripts.html:10:"_s,
      u" | return order.items.length;"_s, u"Ошибка JavaScript: SyntaxError"_s, u"   broken.js:1:"_s,
      u"Необработанный отказ Promise: Error: нет связи"_s,
      u"выведена через console.error: ReferenceError: undefinedName is not defined"_s,
      u"Content-Security-Policy страницы не даёт выполнить её код: script-src"_s}},
    {"files that are not there",
     u"requests/index.html"_s,
     1,
     {u"Не загружается img/logo.png: такого файла в папке страницы нет.\n   index.html:6:"_s, u"Не загружается no.js"_s,
      u"Не загружается data.json"_s, u"Не загружается outside.js"_s, u"- Не загружается api/tasks"_s},
     {u"Прочитан файл вне папки"_s}},
    {"white on white", u"blank.html"_s, 1, {u"Страница пуста"_s}},
    {"a background and nothing on it", u"empty-app.html"_s, 1, {u"Страница пуста"_s}},
    {"too wide for a phone alone",
     u"wide-on-phone.html"_s,
     1,
     {u"Страница шире экрана: 768 вместо 390 пикселей, появляется прокрутка вбок. [телефон 390×844]"_s,
      u"<div#board.grid>: правый край на 768"_s}},
    {"a message that blocks", u"alert.html"_s, 1, {u"Окно alert() при загрузке останавливает страницу: «Добро"_s}},
    {"messages without end", u"alert-loop.html"_s, 1, {u"одно за другим"_s}},
    {"a script without end",
     u"endless.html"_s,
     1,
     {u"Скрипт занимает страницу без конца"_s, u"endless.html:8:"_s, u" | for (;;);"_s,
      u"endless.html:10:1 | findExit();"_s}},
    {"a page that does not stay", u"reloads.html"_s, 1, {u"без конца перезагружается"_s}},
    {"a page that goes elsewhere",
     u"leaves.html"_s,
     1,
     {u"Страница при загрузке открывает окно https://shop.example/"_s,
      u"Страница сама переходит на https://shop.example/"_s}},
    {"a page that wants to close and not to be closed", u"closes.html"_s, 0},
    {"thousands of errors", u"flood.html"_s, 1, {u"Error: 0xxx"_s, u"Есть и другие ошибки, не показано: "_s}},
};

} // namespace

/// An address of this computer under which it could be another one; null when it has none.
static QHostAddress outerAddress()
{
    const QList<QHostAddress> addresses = QNetworkInterface::allAddresses();
    for (const QHostAddress &address : addresses) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback())
            return address;
    }
    return {};
}

class BrowserCheckTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();

    void aPageGetsItsVerdict_data()
    {
        QTest::addColumn<int>("index");
        for (int index = 0; index < verdicts.size(); ++index)
            QTest::newRow(verdicts[index].name) << index;
    }

    void aPageGetsItsVerdict()
    {
        QFETCH(int, index);
        const Verdict &verdict = verdicts[index];
        const Check &check = checks.of(pages + verdict.page);

        const QByteArray report = check.report.toUtf8();
        QVERIFY2(check.code() == verdict.code, report.constData());
        for (const QString &text : verdict.said)
            QVERIFY2(check.report.contains(text), qPrintable(u"no «%1» in:\n%2"_s.arg(text, check.report)));
        for (const QString &text : verdict.unsaid)
            QVERIFY2(!check.report.contains(text), qPrintable(u"«%1» in:\n%2"_s.arg(text, check.report)));
        QVERIFY2(check.report.size() < 16000, qPrintable(QString::number(check.report.size())));
        QVERIFY2(check.tookMs < latestEndMs, qPrintable(QString::number(check.tookMs)));
    }

    void anyFolderWillDo()
    {
        const Check &check = checks.of(longName);

        QCOMPARE(check.report,
                 u"Страница глав #1?.html открывается без ошибок (компьютер 1280×800, телефон 390×844).\n"_s);
        QCOMPARE(check.code(), 0);
    }

    void noOtherComputerIsAsked()
    {
        if (!otherComputer.isListening())
            QSKIP("this computer has no address but loopback");
        const Check &check = checks.of(outwards);

        QVERIFY(!otherComputer.hasPendingConnections());
        QVERIFY2(check.report.contains(u"/picture.png: адрес в интернете, сеть при проверке закрыта"_s),
                 qPrintable(check.report));
        QCOMPARE(check.code(), 0);
    }

    void noFileOutsideOfTheFolderIsRead()
    {
        const Check &check = checks.of(linked);

        QCOMPARE(check.code(), 1);
        QVERIFY2(check.report.contains(u"Не загружается link.js"_s), qPrintable(check.report));
        QVERIFY2(check.report.contains(u"Not allowed to load local resource"_s), qPrintable(check.report));
        QVERIFY2(!check.report.contains(u"Секрет прочитан"_s), qPrintable(check.report));
    }

    void whatNeverComesIsNamed()
    {
        const Check &check = checks.of(never);

        QVERIFY(silent.hasPendingConnections()); // Loopback is open.
        QCOMPARE(check.code(), 1);
        QVERIFY2(check.report.contains(u"Страница не загрузилась за 8 с."_s), qPrintable(check.report));
        QVERIFY2(check.report.contains(u"/never.png"_s), qPrintable(check.report));
        QVERIFY(check.tookMs < latestEndMs);
    }

    void mailIsNotOpened()
    {
        QCOMPARE(checks.of(mail).code(), 0);
        QVERIFY(!QFile::exists(folder.filePath(u"started"_s)));
    }

    void aCheckLeavesNothingBehind()
    {
        for (const Verdict &verdict : verdicts)
            QCOMPARE(checks.of(pages + verdict.page).leftovers(), QStringList());
        for (const QString &page : {outwards, linked, never, mail})
            QCOMPARE(checks.of(page).leftovers(), QStringList());
        QVERIFY(processes.vanish());
    }

    void anInterruptedCheckCleansUp()
    {
        Check check(pages + u"endless.html"_s);
        waitForBrowser(check);
        QVERIFY(!check.leftovers().isEmpty());

        check.process.terminate();

        QCOMPARE(check.end(), 128 + SIGTERM);
        QCOMPARE(check.leftovers(), QStringList());
        QVERIFY(processes.vanish());
    }

    void ofAKilledCheckNoProcessStaysAndTheNextRemovesItsFolder()
    {
        Check check(pages + u"endless.html"_s);
        waitForBrowser(check);
        check.process.kill();
        QCOMPARE(check.end(), -SIGKILL);
        QVERIFY(processes.vanish());

        const QStringList profiles = check.leftovers();
        QCOMPARE(profiles.size(), 1);
        const QString ofAnotherRun = u"vesk-browser-check-young"_s;
        QVERIFY(QDir(check.temporary.path()).mkdir(ofAnotherRun));
        const timespec longAgo[2]{{1000000000, 0}, {1000000000, 0}};
        const QByteArray profile = QFile::encodeName(check.temporary.filePath(profiles.first()));
        QCOMPARE(::utimensat(AT_FDCWD, profile.constData(), longAgo, 0), 0);

        check.process.setArguments({script, browserProgram(), pages + u"clean.html"_s});
        QCOMPARE(check.run(), 0);
        QCOMPARE(check.leftovers(), QStringList{ofAnotherRun});
    }

    void withoutABrowserNothingIsSaidAboutThePage()
    {
        for (const QString &browser : {u"/no/such/browser"_s, u"/bin/false"_s}) {
            Check check(pages + u"alert.html"_s, browser);
            QCOMPARE(check.run(), 2);
            const QString report = QString::fromUtf8(check.process.readAllStandardOutput());
            QVERIFY2(report.startsWith(u"Проверить страницу в браузере не удалось: "_s), qPrintable(report));
            QCOMPARE(check.leftovers(), QStringList());
        }
    }

    void aPageThatIsMissingIsAFinding()
    {
        Check check(pages + u"missing.html"_s);
        QCOMPARE(check.run(), 1);
        QVERIFY(check.process.readAllStandardOutput().contains("Файла страницы нет"));
    }

private:
    QString makePage(const QString &name, const QString &text)
    {
        save(folder.filePath(name), document(text).toUtf8());
        return folder.filePath(name);
    }

    /// Until the check has a browser with a page in it.
    void waitForBrowser(Check &check) const
    {
        check.start();
        QVERIFY(processes.growTo(6));
    }

    QTemporaryDir folder;
    TaggedProcesses processes;
    Checks checks;
    QTcpServer otherComputer; ///< On an address of this one that is not loopback.
    QTcpServer silent; ///< On loopback; takes connections and never answers.
    QString outwards;
    QString never;
    QString longName;
    QString linked;
    QString mail;
};

// Outside of the class, since moc does not get over the raw text.
void BrowserCheckTest::initTestCase()
{
    if (QStandardPaths::findExecutable(u"node"_s).isEmpty())
        QSKIP("there is no node");
    if (browserProgram().isEmpty())
        QSKIP("there is no browser");

    otherComputer.listen(outerAddress());
    const QString outer
        = u"%1:%2"_s.arg(otherComputer.serverAddress().toString(), QString::number(otherComputer.serverPort()));
    outwards = makePage(u"outwards.html"_s, uR"html(
        <link rel="preconnect" href="http://%1"><link rel="prefetch" href="http://%1/next.html">
        <img src="http://%1/picture.png" alt=""><iframe src="http://%1/frame.html"></iframe>
        <script>
        const quiet = () => {};
        fetch('http://%1/data').catch(quiet);
        navigator.sendBeacon('http://%1/beacon', 'x');
        new WebSocket('ws://%1/').onerror = quiet;
        new RTCPeerConnection({iceServers: [{urls: 'turn:%1?transport=tcp', username: 'a', credential: 'b'}]})
            .createDataChannel('x');
        new Worker(URL.createObjectURL(new Blob(["fetch('http://%1/worker').catch(() => {})"])));
        </script>)html"_s.arg(outer));
    QVERIFY(silent.listen(QHostAddress::LocalHost));
    never = makePage(u"never.html"_s, u"<img src='http://127.0.0.1:%1/never.png' alt=''>"_s.arg(silent.serverPort()));
    longName = makePage(u"Мой сайт №1 (100%)/глав #1?.html"_s, u"<script src='скрипт и всё.js'></script>"_s);
    save(QFileInfo(longName).path() + u"/скрипт и всё.js"_s, "document.title = 'готово'");
    save(folder.filePath(u"secret.js"_s), "for (;;) alert('Секрет прочитан');");
    linked = makePage(
        u"linked/index.html"_s,
        u"<script src='link.js'></script><script src='file:///%1'></script>"_s.arg(folder.filePath(u"secret.js"_s)));
    QVERIFY(QFile::link(folder.filePath(u"secret.js"_s), folder.filePath(u"linked/link.js"_s)));
    mail = makePage(u"mail.html"_s, u"<script>setTimeout(() => { location = 'mailto:a@b.example'; }, 300)</script>"_s);
    // A browser starts this command for an address that is not its own.
    const QString command = folder.filePath(u"bin/xdg-open"_s);
    save(command, u"#!/bin/sh\ntouch '%1'\n"_s.arg(folder.filePath(u"started"_s)).toUtf8());
    QVERIFY(QFile::setPermissions(command, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

    for (const Verdict &verdict : verdicts)
        checks.add(pages + verdict.page);
    for (const QString &page : {outwards, linked, never})
        checks.add(page);
    checks.add(mail).change(u"PATH"_s, folder.filePath(u"bin:"_s) + qEnvironmentVariable("PATH"));
    // A browser makes sockets in the folder for temporary files, and their paths must be short.
    Check &check = checks.add(longName);
    const QString longPath = check.temporary.filePath(u"long"_s.repeated(20));
    QVERIFY(QDir().mkdir(longPath));
    check.change(u"TMPDIR"_s, longPath);
}

QTEST_GUILESS_MAIN(BrowserCheckTest)
#include "tst_browser_check.moc"
