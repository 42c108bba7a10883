// The program with its window, as a process of its own: its options, its exit codes, and what it leaves behind.

#include "stored_records.h"
#include "vesk_run.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QImage>
#include <QJsonDocument>
#include <QRect>
#include <QSettings>
#include <QStandardPaths>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

const QStringList pictures{u"network-active"_s, u"question"_s,     u"chat"_s,         u"cycle"_s,
                           u"files"_s,          u"history"_s,      u"settings"_s,     u"agent-settings"_s,
                           u"agent-report"_s,   u"project-menu"_s, u"rename-inline"_s};

/// A real X server for one test; none where Xvfb isn't installed.
class Screen {
public:
    Screen()
    {
        server.start(u"Xvfb"_s,
                     {u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s, u"1600x1000x24"_s, u"-nolisten"_s, u"tcp"_s});
        if (server.waitForStarted() && server.waitForReadyRead(20000))
            number = QString::fromLatin1(server.readAllStandardOutput()).trimmed();
    }
    ~Screen()
    {
        server.terminate();
        server.waitForFinished();
    }
    Q_DISABLE_COPY_MOVE(Screen)
    QString display() const { return number.isEmpty() ? QString() : u':' + number; }

private:
    QProcess server;
    QString number;
};

/// Whether the process has got so far that it ends in order when it is asked to.
bool takesRequestsToEnd(const QProcess &process)
{
    QFile status(u"/proc/%1/status"_s.arg(process.processId()));
    if (!status.open(QIODevice::ReadOnly))
        return false;
    const QByteArray text = status.readAll();
    const QByteArray caught = text.mid(text.indexOf("SigCgt:") + 7).trimmed();
    return caught.first(16).toULongLong(nullptr, 16) & (1ULL << (SIGTERM - 1));
}

} // namespace

class InterfaceTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aSmokeTestEndsByItself();
    void aScreenshotIsTaken_data();
    void aScreenshotIsTaken();
    void theSelfTestWorksTheWholeWindow_data();
    void theSelfTestWorksTheWholeWindow();
    void whatCannotBeStartedSaysSo_data();
    void whatCannotBeStartedSaysSo();
    void aDataFolderInUseIsLeftAlone();
    void theWindowComesBackAsLargeAsItWas();
    void aRunIsStoppedInOrderWhenTheProgramIsEnded();

private:
    Ended window(const VeskRun &vesk, const QStringList &options, const QString &platform = {}) const;
    void prepare(const VeskRun &vesk, QProcess &process, const QString &platform = {}) const;
};

/// Homes of its own, so that nothing of the user's is read or written.
void InterfaceTest::prepare(const VeskRun &vesk, QProcess &process, const QString &platform) const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"HOME"_s, vesk.path(u"home"_s));
    for (const QString &name : {u"XDG_DATA_HOME"_s, u"XDG_CONFIG_HOME"_s, u"XDG_CACHE_HOME"_s})
        environment.remove(name);
    if (platform.startsWith(u':')) {
        environment.insert(u"DISPLAY"_s, platform);
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
    } else if (!platform.isEmpty()) {
        environment.insert(u"QT_QPA_PLATFORM"_s, platform);
    }
    process.setProcessEnvironment(environment);
}

Ended InterfaceTest::window(const VeskRun &vesk, const QStringList &options, const QString &platform) const
{
    return vesk.run(options, [&](QProcess &process) { prepare(vesk, process, platform); });
}

void InterfaceTest::aSmokeTestEndsByItself()
{
    const VeskRun vesk;
    QElapsedTimer time;
    time.start();
    const Ended ended = window(vesk, {u"--smoke-test"_s, u"--data-dir"_s, vesk.data()});
    QCOMPARE(ended.code, 0);
    QVERIFY(time.elapsed() >= 2000);
    QVERIFY2(!ended.err.contains(u"qrc:"_s), qPrintable(ended.err));
    QVERIFY(QFileInfo::exists(vesk.data() + u"/vesk.sqlite"_s));
    QVERIFY(!QFileInfo::exists(vesk.data() + u"/window.ini"_s));
}

void InterfaceTest::aScreenshotIsTaken_data()
{
    QTest::addColumn<QStringList>("more");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QSize>("size");
    QTest::newRow("usual") << QStringList() << u"shot.png"_s << QSize(1440, 900);
    QTest::newRow("compact") << QStringList{u"--compact-ui"_s} << u"shot.png"_s << QSize(1000, 720);
    QTest::newRow("settings") << QStringList{u"--settings"_s, u"--settings-agent"_s, u"planner"_s, u"--attach-file"_s}
                              << u"shot.png"_s << QSize(1440, 900);
    QTest::newRow("no such folder") << QStringList() << u"missing/shot.png"_s << QSize();
}

void InterfaceTest::aScreenshotIsTaken()
{
    QFETCH(QStringList, more);
    QFETCH(QString, file);
    QFETCH(QSize, size);
    const VeskRun vesk;
    const Ended ended
        = window(vesk, more + QStringList{u"--screenshot"_s, vesk.path(file), u"--data-dir"_s, vesk.data()});
    QCOMPARE(ended.code, size.isValid() ? 0 : 1);
    QCOMPARE(QImage(vesk.path(file)).size(), size.isValid() ? size : QSize(0, 0));
    QVERIFY2(!ended.err.contains(u"qrc:"_s), qPrintable(ended.err));
}

void InterfaceTest::theSelfTestWorksTheWholeWindow_data()
{
    QTest::addColumn<bool>("real");
    QTest::newRow("no screen") << false;
    QTest::newRow("X server") << true;
}

void InterfaceTest::theSelfTestWorksTheWholeWindow()
{
    QFETCH(bool, real);
    if (real && QStandardPaths::findExecutable(u"Xvfb"_s).isEmpty())
        QSKIP("Xvfb is not installed");
    std::unique_ptr<Screen> screen;
    if (real) {
        screen = std::make_unique<Screen>();
        QVERIFY2(!screen->display().isEmpty(), "Xvfb does not start");
    }
    const VeskRun vesk;
    const QString shots = vesk.path(u"shots/of the window"_s);
    const Ended ended = window(vesk, {u"--self-test-ui"_s, shots}, real ? screen->display() : QString());
    QVERIFY2(ended.code == 0, qPrintable(QString::number(ended.code) + ended.err));
    QVERIFY2(!ended.err.contains(u"qrc:"_s), qPrintable(ended.err));
    for (const QString &name : pictures)
        QVERIFY2(QImage(shots + u'/' + name + u".png"_s).size().width() >= 1000, qPrintable(name));
    QFile state(shots + u"/task-state.json"_s);
    QVERIFY(state.open(QIODevice::ReadOnly));
    const QJsonObject task = QJsonDocument::fromJson(state.readAll()).object();
    QCOMPARE(task["phase"_L1].toString(), u"COMPLETED"_s);
    QVERIFY(!QFileInfo::exists(vesk.path(u"home/.local/share/VESK"_s)));
}

void InterfaceTest::whatCannotBeStartedSaysSo_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("text");
    QTest::newRow("no folder for pictures") << QStringList{u"--self-test-ui"_s} << QString();
    QTest::newRow("an empty one") << QStringList{u"--self-test-ui"_s, u""_s} << QString();
    QTest::newRow("one that cannot be made") << QStringList{u"--self-test-ui"_s, u"/proc/shots"_s} << QString();
    QTest::newRow("no data folder") << QStringList{u"--smoke-test"_s, u"--data-dir"_s} << u"Не указана папка данных"_s;
    QTest::newRow("none for a self-test, either")
        << QStringList{u"--self-test-ui"_s, u"shots"_s, u"--data-dir"_s} << u"Не указана папка данных"_s;
    QTest::newRow("one that cannot be used")
        << QStringList{u"--smoke-test"_s, u"--data-dir"_s, u"/proc/data"_s} << u"Не удалось создать папку данных"_s;
}

void InterfaceTest::whatCannotBeStartedSaysSo()
{
    QFETCH(QStringList, options);
    QFETCH(QString, text);
    const VeskRun vesk;
    const Ended ended = window(vesk, options);
    QCOMPARE(ended.code, 1);
    QVERIFY2(ended.err.contains(text), qPrintable(ended.err));
}

void InterfaceTest::aDataFolderInUseIsLeftAlone()
{
    const VeskRun vesk;
    QProcess first;
    prepare(vesk, first);
    vesk.start(first, vesk.arguments(VeskRun::calculator, {u"--mock-delay"_s, u"60000"_s}));
    const auto rows = [&] {
        const StoredRecords records(vesk.data());
        QList<QJsonObject> all;
        for (const QString &table : {u"tasks"_s, u"events"_s, u"messages"_s, u"projects"_s, u"settings"_s})
            all += records.rows(table);
        return all;
    };
    QTRY_VERIFY(!StoredRecords(vesk.data()).lastTask().isEmpty());
    QList<QJsonObject> before;
    QTRY_VERIFY(std::exchange(before, rows()) == rows());
    const Ended second = window(vesk, {u"--smoke-test"_s, u"--data-dir"_s, vesk.data()});
    QCOMPARE(second.code, 2);
    QVERIFY2(second.err.contains(u"VESK уже работает с этой папкой данных"_s), qPrintable(second.err));
    QCOMPARE(rows(), before);
    QCOMPARE(first.state(), QProcess::Running);
    first.terminate();
    QCOMPARE(VeskRun::ended(first).code, 130);
}

void InterfaceTest::theWindowComesBackAsLargeAsItWas()
{
    const VeskRun vesk;
    QFile screens(vesk.path(u"screens.json"_s));
    QVERIFY(screens.open(QIODevice::WriteOnly));
    screens.write(R"({"screens": [{"name": "one", "x": 0, "y": 0, "width": 1920, "height": 1080,
                       "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}]})");
    screens.close();
    const QString ini = vesk.data() + u"/window.ini"_s;
    const auto placeAfterStart = [&](const QRect &stored) {
        if (stored.isValid())
            QSettings(ini, QSettings::IniFormat).setValue("place", stored);
        QProcess process;
        prepare(vesk, process, u"offscreen:configfile="_s + screens.fileName());
        vesk.start(process, {u"--data-dir"_s, vesk.data()});
        if (!QTest::qWaitFor([&] { return takesRequestsToEnd(process); }, 20000))
            return QRect();
        process.terminate();
        const Ended ended = VeskRun::ended(process);
        return ended.code == 0 ? QSettings(ini, QSettings::IniFormat).value("place").toRect() : QRect();
    };
    QCOMPARE(placeAfterStart({}).size(), QSize(1440, 900));
    QCOMPARE(placeAfterStart(QRect(120, 90, 1300, 750)), QRect(120, 90, 1300, 750));
    // On a screen that is gone: as large as it was, where it can be seen.
    const QRect moved = placeAfterStart(QRect(5000, 90, 1200, 720));
    QCOMPARE(moved.size(), QSize(1200, 720));
    QVERIFY(moved.left() < 1920);
    QCOMPARE(placeAfterStart(QRect(0, 0, 400, 300)).size(), QSize(1000, 700));
}

void InterfaceTest::aRunIsStoppedInOrderWhenTheProgramIsEnded()
{
    const VeskRun vesk;
    QProcess process;
    prepare(vesk, process);
    vesk.start(process, {u"--self-test-ui"_s, vesk.path(u"shots"_s), u"--data-dir"_s, vesk.data()});
    QTRY_VERIFY_WITH_TIMEOUT(!StoredRecords(vesk.data()).lastTask().isEmpty(), 20000);
    process.terminate();
    const Ended ended = VeskRun::ended(process);
    QCOMPARE(ended.code, 0);
    const StoredRecords records(vesk.data());
    QCOMPARE(records.problem(), QString());
    QCOMPARE(records.lastTask()["phase"_L1].toString(), u"CANCELLED"_s);
}

QTEST_GUILESS_MAIN(InterfaceTest)
#include "tst_interface.moc"
