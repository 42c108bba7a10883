#include "run_mode.h"

#include "files.h"
#include "process_containment.h"
#include "pseudo_terminal.h"
#include "scripted_provider.h"
#include "stored_records.h"
#include "tagged_processes.h"
#include "vesk_run.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QScopeGuard>
#include <QTest>
#include <QThread>

#include <csignal>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr uint somebodyElse = 54321;

/// Folders and files that a run is to be tried on.
struct Place {
    const VeskRun &run;
    QStringList dataFolder{u"--data-dir"_s, run.data()};
    QString watched{}; ///< A file that must stay as it is, with nothing new beside it.
    bool asOther = false; ///< By a user who owns nothing; root may do everything.

    void makeFile(const QString &name, const QByteArray &content)
    {
        watched = run.path(name);
        save(watched, content);
    }
    void makeFolder(const QString &name, mode_t mode)
    {
        QVERIFY(QDir().mkpath(run.path(name)));
        QCOMPARE(::chmod(qPrintable(run.path(name)), mode), 0);
    }
    void makeDatabase()
    {
        QCOMPARE(run.run(run.arguments(VeskRun::calculator, {u"--simulate"_s})).code, 0);
        watched = run.data() + u"/vesk.sqlite"_s;
    }
    void bindDataReadOnly()
    {
        const QByteArray name = QFile::encodeName(run.data());
        QCOMPARE(::mount(name, name, nullptr, MS_BIND, nullptr), 0);
        QCOMPARE(::mount(nullptr, name, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    }
    void mountSmall(const QString &path, const char *size)
    {
        QDir().mkpath(path);
        QCOMPARE(::mount("none", QFile::encodeName(path), "tmpfs", 0, size), 0);
    }
};

using Prepare = std::function<void(Place &)>;

/// Mounts of this process that nobody else sees and that end with it.
bool hasOwnMounts()
{
    static const bool own
        = ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return own;
}

/// Runs "x" in this process, with the terminal as its input and error output.
int runOn(const PseudoTerminal &terminal, const VeskRun &run, ScriptedProvider &model)
{
    RunOptions options;
    options.request = u"x"_s;
    options.projectFolder = run.project();
    QDir().mkpath(run.data());
    const int input = ::dup(STDIN_FILENO);
    const int errors = ::dup(STDERR_FILENO);
    ::dup2(terminal.descriptor(), STDIN_FILENO);
    ::dup2(terminal.descriptor(), STDERR_FILENO);
    const auto restore = qScopeGuard([&] {
        ::dup2(input, STDIN_FILENO);
        ::dup2(errors, STDERR_FILENO);
    });
    return RunMode(options, run.data(), model).exec();
}

/// Lets a process run as another user, from a copy of the program that he may read.
void becomeOther(QProcess &process, const VeskRun &run)
{
    if (::geteuid() != 0)
        return;
    ::chmod(QFile::encodeName(run.folder.path()), 0755);
    QFile::copy(VeskRun::program(), run.path(u"vesk"_s));
    process.setProgram(run.path(u"vesk"_s));
    process.setChildProcessModifier([] {
        if (::setresgid(somebodyElse, somebodyElse, somebodyElse) != 0
            || ::setresuid(somebodyElse, somebodyElse, somebodyElse) != 0)
            ::_exit(99);
    });
}

QStringList phases(const StoredRecords &stored)
{
    QStringList list;
    const QList<QJsonObject> tasks = stored.rows(u"tasks"_s);
    for (const QJsonObject &task : tasks)
        list.append(task["phase"_L1].toString());
    return list;
}

} // namespace

class RunModeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM)); }

    void aCommandLineThatIsNotUnderstoodIsRefused_data()
    {
        const auto row = [](const char *name, const QStringList &arguments, const QString &text) {
            QTest::newRow(name) << arguments << text;
        };
        const auto withRun = [&](const char *name, const QStringList &more, const QString &text) {
            row(name, QStringList{u"--run"_s, u"запрос"_s} + more, text);
        };
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("text");

        row("another mode", {u"--run"_s, u"x"_s, u"--probe-mcp"_s}, u"--probe-mcp: в этой версии ещё нет."_s);
        row("no request", {u"--run"_s}, u"--run: не указано значение"_s);
        row("an empty request", {u"--run"_s, u""_s}, u"--run: не указано значение"_s);
        row("only blanks", {u"--run"_s, u" \t\n "_s}, u"--run: не указано значение"_s);
        row("an option for a request", {u"--run"_s, u"--json"_s}, u"--run: не указано значение"_s);
        withRun("an unknown option", {u"--jsno"_s}, u"Неизвестный параметр: --jsno"_s);
        withRun("a stray word", {u"запрос"_s}, u"Неизвестный параметр: запрос"_s);
        for (const char *option : {"--project", "--budget", "--build-command", "--answer", "--mock-delay", "--endpoint",
                                   "--model", "--key-env"}) {
            const QString name = QString::fromLatin1(option);
            withRun(option, {name}, name + u": не указано значение"_s);
            QTest::addRow("%s empty", option)
                << QStringList{u"--run"_s, u"x"_s, name, u""_s} << name + u": не указано значение"_s;
        }
        const QString together = u"--endpoint и --model указываются вместе"_s;
        withRun("a server without a model", {u"--endpoint"_s, u"http://127.0.0.1:1/v1"_s}, together);
        withRun("a model without a server", {u"--model"_s, u"m"_s}, together);
        withRun("a key without a server", {u"--key-env"_s, u"HOME"_s}, u"--key-env: нужен и --endpoint"_s);
        withRun(
            "a key that is not there",
            {u"--endpoint"_s, u"http://127.0.0.1:1/v1"_s, u"--model"_s, u"m"_s, u"--key-env"_s, u"VESK_TEST_NO_KEY"_s},
            u"--key-env: переменная VESK_TEST_NO_KEY не задана"_s);
        withRun("an option for a folder", {u"--data-dir"_s, u"--json"_s}, u"--data-dir: не указано значение"_s);
        withRun("an option twice", {u"--project"_s, u"a"_s, u"--project"_s, u"b"_s}, u"--project: указан дважды"_s);
        withRun("a switch twice", {u"--json"_s, u"--json"_s}, u"--json: указан дважды"_s);
        withRun("a request twice", {u"--run"_s, u"другой"_s}, u"--run: указан дважды"_s);
        withRun("a blank answer", {u"--answer"_s, u" "_s}, u"--answer: не указано значение"_s);
        const QString budget = u"--budget: нужно целое число от 0 до 1000000000000"_s;
        for (const char *number : {"-1", "1000000000001", "99999999999999999999", "1e6", "много"})
            withRun(number, {u"--budget"_s, QString::fromUtf8(number)}, budget);
        withRun("a long delay", {u"--mock-delay"_s, u"60001"_s}, u"--mock-delay: нужно целое число от 0 до 60000"_s);
        for (const char *command : {"{", "[]", "{}", "{\"program\":\"\",\"arguments\":[]}",
                                    "{\"program\":\"/bin/true\"}", "{\"program\":\"/bin/true\",\"arguments\":[1]}"})
            withRun(command, {u"--build-command"_s, QString::fromUtf8(command)}, u"--build-command: нужен объект"_s);
        for (const char *option : {"--project", "--data-dir"}) {
            const QString name = QString::fromLatin1(option);
            QTest::addRow("%s not UTF-8", option) << QStringList{u"--run"_s, u"x"_s, name, u"p\uFFFD"_s}
                                                  << name + u": имя папки должно быть в кодировке UTF-8"_s;
        }
    }

    void aCommandLineThatIsNotUnderstoodIsRefused()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, text);
        const VeskRun run;
        const Ended ended = run.run(arguments);
        QCOMPARE(ended.code, 2);
        QVERIFY2(ended.err.startsWith(text), qPrintable(ended.err));
        QCOMPARE(ended.out, QString());
        QVERIFY(run.folder.isValid() && QDir(run.folder.path()).isEmpty());
    }

    void helpAndVersionArePrintedWithoutAnythingElse()
    {
        const VeskRun run;
        const Ended help = run.run({u"--run"_s, u"x"_s, u"--unknown"_s, u"--help"_s});
        QCOMPARE(help.code, 0);
        QVERIFY(help.out.contains(u"vesk --run ЗАПРОС"_s));
        const Ended version = run.run({u"--version"_s});
        QCOMPARE(version.code, 0);
        QVERIFY(version.out.startsWith(u"VESK "_s));
        QCOMPARE(help.err + version.err, QString());
    }

    void anyRequestEndsInOrder_data()
    {
        QTest::addColumn<QString>("request");
        QTest::addColumn<QStringList>("more");
        QTest::addColumn<int>("code");
        QTest::newRow("control characters") << u"a\u0001\u001b[31m\r\n\u007f\u0085\u202e"_s << QStringList() << 0;
        QTest::newRow("an option in words") << u"--unknown"_s << QStringList() << 0;
        QTest::newRow("as long as an argument may be") << QString(131071, u'x') << QStringList() << 1;
        QTest::newRow("no budget") << u"x"_s << QStringList{u"--budget"_s, u"0"_s} << 1;
        QTest::newRow("all budget") << u"x"_s << QStringList{u"--budget"_s, u"1000000000000"_s} << 0;
        QTest::newRow("a long answer") << u"x"_s << QStringList{u"--answer"_s, QString(50000, u'я')} << 1;
    }

    void anyRequestEndsInOrder()
    {
        QFETCH(QString, request);
        QFETCH(QStringList, more);
        QFETCH(int, code);
        const VeskRun run;
        const Ended ended = run.run(run.arguments(request, more));
        QVERIFY2(ended.code == code, qPrintable(ended.out + ended.err));
        const StoredRecords stored(run.data());
        QCOMPARE(stored.problem(), QString());
        QCOMPARE(stored.lastTask()["spec"_L1]["original_request"_L1].toString(), request);
        QCOMPARE(stored.lastTask()["phase"_L1].toString(), code == 0 ? "COMPLETED" : "FAILED");
        QCOMPARE(ended.out.contains(u"Почему работа остановилась"_s), code != 0);
    }

    void aPlaceThatCannotBeUsedIsNamedAndLeftAlone_data()
    {
        QTest::addColumn<Prepare>("prepare");
        QTest::addColumn<QString>("text");
        const auto row = [](const char *name, const QString &text, const Prepare &prepare) {
            QTest::newRow(name) << prepare << text;
        };
        const QString noProject = u"Cannot create workspace"_s;
        const QString noData = u"Не удалось создать папку данных: "_s;
        const QString readOnly = u"SQLite open failed: attempt to write a readonly database"_s;

        row("the project is a file", noProject, [](Place &place) { place.makeFile(u"project"_s, "mine"); });
        row("the project is a link to nothing", noProject,
            [](Place &place) { QFile::link(u"nowhere"_s, place.run.project()); });
        row("the project's folder belongs to another", noProject, [](Place &place) {
            place.makeFolder(u"data"_s, 0777);
            place.asOther = true;
        });
        row("the data folder is a file", noData, [](Place &place) { place.makeFile(u"data"_s, "mine"); });
        row("the data folder is a link to nothing", noData,
            [](Place &place) { QFile::link(u"nowhere"_s, place.run.data()); });
        row("the data folder belongs to another", noData, [](Place &place) { place.asOther = true; });
        row("the data folder may not be written to", u"SQLite open failed: unable to open database file"_s,
            [](Place &place) {
                place.makeFolder(u"data"_s, 0755);
                place.asOther = true;
            });
        row("the data folder may not be read", u"Не удалось занять папку данных: "_s, [](Place &place) {
            place.makeFolder(u"data"_s, 0733);
            place.asOther = true;
        });
        row("no data folder", u"Не указана папка данных"_s, [](Place &place) { place.dataFolder.removeLast(); });

        row("the database is none", u"SQLite: file is not a database"_s,
            [](Place &place) { place.makeFile(u"data/vesk.sqlite"_s, QByteArray(20000, 'x')); });
        row("the database is a folder", u"SQLite open failed: unable to open database file"_s,
            [](Place &place) { place.makeFolder(u"data/vesk.sqlite"_s, 0755); });
        row("the database is cut short", u"SQLite: database disk image is malformed"_s, [](Place &place) {
            place.makeDatabase();
            QVERIFY(QFile::resize(place.watched, QFileInfo(place.watched).size() / 2));
        });
        row("the database belongs to another", readOnly, [](Place &place) {
            place.makeDatabase();
            place.makeFolder(u"data"_s, 0777);
            place.asOther = true;
        });
        row("the database is on a disk to read", readOnly, [](Place &place) {
            place.makeDatabase();
            place.bindDataReadOnly();
        });
    }

    void aPlaceThatCannotBeUsedIsNamedAndLeftAlone()
    {
        QFETCH(Prepare, prepare);
        QFETCH(QString, text);
        if (QByteArrayView(QTest::currentDataTag()).endsWith("to read") && !hasOwnMounts())
            QSKIP("mounts need root");
        const VeskRun run;
        Place place{run};
        prepare(place);
        const QFileInfo watched(place.watched);
        const QByteArray before = watched.isFile() ? contentOf(place.watched) : QByteArray();
        const QStringList beside = watched.dir().entryList(QDir::AllEntries);
        const QStringList arguments{u"--run"_s, u"x"_s, u"--mock-delay"_s, u"0"_s, u"--project"_s, run.project()};

        const Ended ended = run.run(arguments + place.dataFolder, [&](QProcess &process) {
            if (place.asOther)
                becomeOther(process, run);
        });

        QCOMPARE(ended.code, 1);
        QVERIFY2(ended.err.startsWith(text), qPrintable(ended.err));
        if (watched.isFile()) {
            QCOMPARE(contentOf(place.watched), before);
            QVERIFY(watched.path() != run.data() || watched.dir().entryList(QDir::AllEntries) == beside);
        }
        ::umount2(QFile::encodeName(run.data()), MNT_DETACH);
    }

    void aFullDiskEndsTheRunWithItsReason_data()
    {
        QTest::addColumn<QString>("full");
        QTest::addColumn<QByteArray>("size");
        QTest::addColumn<QString>("text");
        const QString full = u"database or disk is full"_s;
        QTest::newRow("no place for a database") << u"data"_s << QByteArray("size=64k") << full;
        QTest::newRow("place for the beginning of a run") << u"data"_s << QByteArray("size=700k") << full;
        QTest::newRow("place for most of a run") << u"data"_s << QByteArray("size=1500k") << full;
        QTest::newRow("no place for the project") << u"project"_s << QByteArray("size=4k") << u"Short write"_s;
    }

    void aFullDiskEndsTheRunWithItsReason()
    {
        QFETCH(QString, full);
        QFETCH(QByteArray, size);
        QFETCH(QString, text);
        if (!hasOwnMounts())
            QSKIP("mounts need root");
        const VeskRun run;
        Place{run}.mountSmall(run.path(full), size);
        const auto unmount = qScopeGuard([&] { ::umount2(QFile::encodeName(run.path(full)), MNT_DETACH); });
        const Ended ended = run.run(run.arguments(VeskRun::calculator));
        QVERIFY2(ended.code == 1, qPrintable(ended.out + ended.err));
        QVERIFY2((ended.out + ended.err).contains(text), qPrintable(ended.out + ended.err));
        QCOMPARE(StoredRecords(run.data()).problem(), QString());
    }

    void foldersMayBeRelativeOrLinks()
    {
        const VeskRun run;
        QVERIFY(QDir().mkpath(run.path(u"real"_s)) && QFile::link(u"real"_s, run.path(u"link"_s)));
        const QStringList options{u"--run"_s, u"x"_s, u"--mock-delay"_s, u"0"_s, u"--data-dir"_s, u"link"_s};
        QCOMPARE(run.run(options + QStringList{u"--project"_s, u"link/../новый проект"_s}).code, 0);
        QVERIFY(QFile::exists(run.path(u"новый проект/calculator.html"_s)));
        QCOMPARE(run.run(options, [&](QProcess &process) { process.setWorkingDirectory(run.path(u"real"_s)); }).code,
                 0);
        QVERIFY(QFile::exists(run.path(u"real/link/vesk.sqlite"_s))
                && QFile::exists(run.path(u"real/calculator.html"_s)));
    }

    void aSecondProgramOnTheSameDataWaitsForNothing()
    {
        const VeskRun run;
        QProcess first;
        run.start(first, run.arguments(VeskRun::calculator, {u"--mock-delay"_s, u"60000"_s}));
        QByteArray said;
        QTRY_VERIFY((said += first.readAllStandardError()).contains(u"Разбираюсь"_s.toUtf8()));
        QVERIFY(QFile::link(run.data(), run.path(u"other name"_s)));

        const Ended second = run.run({u"--run"_s, u"x"_s, u"--data-dir"_s, run.path(u"other name"_s)});
        QCOMPARE(second.code, 2);
        QVERIFY2(second.err.startsWith(u"VESK уже работает с этой папкой данных: "_s), qPrintable(second.err));

        first.kill();
        QVERIFY(first.waitForFinished());
        QCOMPARE(run.run(run.arguments(VeskRun::calculator)).code, 0);
        QCOMPARE(phases(StoredRecords(run.data())), (QStringList{u"INTERRUPTED"_s, u"COMPLETED"_s}));
    }

    void aRunNeedsNeitherItsStreamsNorAHome_data()
    {
        QTest::addColumn<QList<int>>("closed");
        QTest::addColumn<QStringList>("unset");
        QTest::newRow("no output") << QList{1} << QStringList();
        QTest::newRow("no errors") << QList{2} << QStringList();
        QTest::newRow("no input") << QList{0} << QStringList();
        QTest::newRow("no streams") << QList{0, 1, 2} << QStringList();
        QTest::newRow("no home") << QList<int>() << QStringList{u"HOME"_s, u"USER"_s, u"XDG_RUNTIME_DIR"_s};
        QTest::newRow("plain locale") << QList<int>() << QStringList{u"LC_ALL"_s, u"LANG"_s, u"LC_CTYPE"_s};
    }

    void aRunNeedsNeitherItsStreamsNorAHome()
    {
        QFETCH(QList<int>, closed);
        QFETCH(QStringList, unset);
        const VeskRun run;
        const Ended ended = run.run(run.arguments(VeskRun::calculator), [&](QProcess &process) {
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            for (const QString &name : unset)
                environment.remove(name);
            process.setProcessEnvironment(environment);
            process.setChildProcessModifier([closed] {
                for (const int descriptor : closed)
                    ::close(descriptor);
            });
        });
        QCOMPARE(ended.code, 0);
        QCOMPARE(ended.out.startsWith(u"Задача завершена."_s), !closed.contains(1));
        const StoredRecords stored(run.data());
        QCOMPARE(stored.problem(), QString());
        QCOMPARE(phases(stored), QStringList{u"COMPLETED"_s});
    }

    void aReaderThatGoesAwayDoesNotStopTheRun()
    {
        const VeskRun run;
        QStringList quoted{VeskRun::program()};
        quoted += run.arguments(VeskRun::calculator, {u"--json"_s});
        const Ended ended = run.run({u"-c"_s, u"'"_s + quoted.join(u"' '"_s) + u"' 2>&1 | head -n 1"_s},
                                    [](QProcess &process) { process.setProgram(u"/bin/sh"_s); });
        QCOMPARE(ended.events().size(), 1);
        QCOMPARE(phases(StoredRecords(run.data())), QStringList{u"COMPLETED"_s});
    }

    void jsonIsOneEventALineAndTheStateLast()
    {
        const VeskRun run;
        const Ended ended = run.run(run.arguments(u"строка\nи \u2028 ещё"_s, {u"--json"_s}));
        QCOMPARE(ended.code, 0);
        QCOMPARE(ended.err, QString());
        const QList<QJsonObject> events = ended.events();
        QCOMPARE(events.size(), ended.out.count(u'\n'));
        for (const QJsonObject &event : events)
            QCOMPARE(event.keys(), (QStringList{u"data"_s, u"id"_s, u"message"_s, u"task_id"_s, u"time"_s, u"type"_s}));
        QCOMPARE(events.last()["type"_L1].toString(), "Result");
        QCOMPARE(events.last()["data"_L1]["phase"_L1].toString(), "COMPLETED");
        QCOMPARE(events.first(events.size() - 1), StoredRecords(run.data()).rows(u"events"_s));
    }

    void whatTheRunTellsStaysWithItsTask()
    {
        const VeskRun run;
        const Ended ended = run.run(run.arguments(VeskRun::calculator));
        const StoredRecords stored(run.data());
        QStringList kinds;
        const QList<QJsonObject> messages = stored.rows(u"messages"_s);
        for (const QJsonObject &message : messages) {
            kinds.append(message["kind"_L1].toString(message["role"_L1].toString()));
            QVERIFY((ended.err + ended.out + VeskRun::calculator).contains(message["content"_L1].toString()));
        }
        QCOMPARE(kinds.first(), "user");
        QCOMPARE(kinds.count(u"file"_s), 3);
        QCOMPARE(kinds.last(), "report");
        const QList<QJsonObject> memory = stored.rows(u"memory_entries"_s);
        QCOMPARE(memory.size(), 1);
        QCOMPARE(memory[0]["id"_L1].toString(), u"work-note:"_s + stored.lastTask()["id"_L1].toString());
        QVERIFY(memory[0]["text"_L1].toString().contains(u"\nЭтап: COMPLETED\nСоздать калькулятор: COMPLETED "
                                                         "calculator.html\n"_s));
    }

    void aSimulatedRunPrintsThePlanAndWritesNothing()
    {
        const VeskRun run;
        const Ended ended = run.run(run.arguments(VeskRun::calculator, {u"--simulate"_s}));
        QCOMPARE(ended.code, 0);
        QCOMPARE(
            ended.out,
            u"План\n\n1. Создать калькулятор — calculator.html\n2. Написать инструкцию — README-calculator.md\n"_s);
        QVERIFY(QDir(run.project()).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
        QCOMPARE(phases(StoredRecords(run.data())), QStringList{u"CANCELLED"_s});
    }

    void anAnswerIsTakenInsteadOfTheFirstOption()
    {
        const VeskRun run;
        const QStringList answers{u"--answer"_s, u"Да"_s, u"--answer"_s, u"Выводить отдельное предупреждение"_s};
        QCOMPARE(run.run(run.arguments(VeskRun::calculator, answers)).code, 0);
        QVERIFY(contentOf(run.project() + u"/calculator.html"_s).contains("alert('На ноль делить нельзя')"));
    }

    void aQuestionWithoutOptionsAndAnswerEndsTheRun()
    {
        const VeskRun run;
        ScriptedProvider model;
        QJsonObject taskSpec = ScriptedProvider::taskSpec({u"Какого цвета?"_s});
        taskSpec["clarification_options"_L1] = QJsonArray{u"  "_s};
        model.answer(u"orchestrator"_s, taskSpec);
        PseudoTerminal screen;
        QCOMPARE(runOn(screen, run, model), 4);
        QVERIFY(screen.shows(u"Нужен ответ на вопрос (--answer):"_s) && screen.shows(u"Какого цвета?"_s));
        QCOMPARE(phases(StoredRecords(run.data())), QStringList{u"CANCELLED"_s});
    }

    void aCommandIsAskedForOnATerminal_data()
    {
        QTest::addColumn<QStringList>("typed");
        QTest::addColumn<int>("code");
        QTest::newRow("yes") << QStringList{u"да\n"_s} << 0;
        QTest::newRow("yes in other letters") << QStringList{u"  ДА \n"_s} << 0;
        QTest::newRow("no") << QStringList{u"нет\n"_s} << 1;
        QTest::newRow("first something else") << QStringList{u"yes\n"_s, u"\n"_s, u"дада\n"_s, u"да\n"_s} << 0;
        QTest::newRow("two lines at once") << QStringList{u"что?\nда\n"_s} << 0;
        QTest::newRow("end of input") << QStringList{u"\u0004"_s} << 3;
    }

    void aCommandIsAskedForOnATerminal()
    {
        QFETCH(QStringList, typed);
        QFETCH(int, code);
        const VeskRun run;
        PseudoTerminal terminal;
        QProcess process;
        process.setStandardInputFile(terminal.device());
        process.setStandardErrorFile(terminal.device());
        run.start(process, run.arguments(VeskRun::build, VeskRun::shell(u"echo ran > ran # \u001b[8m\u202e \" \\"_s)));
        QVERIFY(terminal.shows(u"\"/bin/sh\" \"-c\" \"echo ran > ran # \\u{1b}[8m\\u{202e} \\\" \\\\\""_s));
        for (const QString &line : std::as_const(typed)) {
            QVERIFY(terminal.shows(line == typed.first() ? u"Выполнить? (да/нет)"_s : u"Введите «да» или «нет»."_s));
            terminal.type(line);
        }
        QCOMPARE(VeskRun::ended(process).code, code);
        QCOMPARE(QFile::exists(run.project() + u"/ran"_s), code == 0);
    }

    void twoCommandsAreAskedForOneAfterTheOther()
    {
        const VeskRun run;
        ScriptedProvider model;
        QJsonArray nodes;
        for (const QString &name : {u"one"_s, u"two"_s})
            nodes.append(ScriptedProvider::node(
                name, u"tool"_s, {{u"program"_s, u"/usr/bin/touch"_s}, {u"arguments"_s, QJsonArray{name}}}));
        model.answer(u"planner"_s, ScriptedProvider::plan(nodes));
        model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
        PseudoTerminal terminal;
        terminal.type(u"да\nнет\n"_s);
        QCOMPARE(runOn(terminal, run, model), 1);
        QVERIFY(terminal.shows(u"\"/usr/bin/touch\" \"one\""_s) && terminal.shows(u"\"/usr/bin/touch\" \"two\""_s));
        QVERIFY(!QFile::exists(run.project() + u"/two"_s));
    }

    void withoutATerminalTheExactCommandIsPrinted()
    {
        const VeskRun run;
        const QStringList arguments = run.arguments(VeskRun::build, VeskRun::shell(u"touch ran"_s));
        const QString shown = u"  \"/bin/sh\" \"-c\" \"touch ran\""_s + u"\nПапка:\n  "_s
            + QFileInfo(run.folder.path()).canonicalFilePath() + u"/project\n"_s;
        PseudoTerminal terminal;
        const Ended piped = run.run(arguments);
        // Who can't see the question is not asked either.
        const Ended unseen
            = run.run(arguments, [&](QProcess &process) { process.setStandardInputFile(terminal.device()); });
        for (const Ended &ended : {piped, unseen}) {
            QCOMPARE(ended.code, 3);
            QVERIFY2(ended.err.contains(shown), qPrintable(ended.err));
        }
        QVERIFY(!QFile::exists(run.project() + u"/ran"_s));
        QCOMPARE(run.run(arguments + QStringList{u"--allow-commands"_s}).code, 0);
        QVERIFY(QFile::exists(run.project() + u"/ran"_s));
    }

    void aSignalCancelsTheTaskAtAnyMoment_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<int>("delayMs"); // From the moment that the data folder is there.
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            for (const int delayMs : {0, 1, 2, 5, 10, 20, 40, 80, 150})
                QTest::addRow("%d after %d ms", number, delayMs) << number << delayMs;
        }
    }

    void aSignalCancelsTheTaskAtAnyMoment()
    {
        QFETCH(int, signal);
        QFETCH(int, delayMs);
        const VeskRun run;
        QProcess process;
        run.start(process, run.arguments(VeskRun::calculator, {u"--mock-delay"_s, u"50"_s}));
        for (const QDeadlineTimer deadline(10000); !QFileInfo::exists(run.data()) && !deadline.hasExpired();)
            QThread::usleep(100);
        QTest::qSleep(delayMs);
        ::kill(pid_t(process.processId()), signal);
        const Ended ended = VeskRun::ended(process);

        QVERIFY2(ended.code == 130, qPrintable(ended.out + ended.err));
        const StoredRecords stored(run.data());
        QCOMPARE(stored.problem(), QString());
        if (stored.rows(u"events"_s).isEmpty())
            QCOMPARE(phases(stored), QStringList());
        else
            QCOMPARE(phases(stored), QStringList{u"CANCELLED"_s});
    }

    void aSignalEndsTheProgramsOfTheTask()
    {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            const VeskRun run;
            const TaggedProcesses tagged;
            QProcess process;
            run.start(process,
                      run.arguments(VeskRun::build,
                                    VeskRun::shell(u"trap '' TERM INT HUP; sleep 60 & (setsid sleep 60 &); "
                                                   "touch started; sleep 60"_s)
                                        + QStringList{u"--allow-commands"_s}));
            QTRY_VERIFY(QFile::exists(run.project() + u"/started"_s));
            ::kill(pid_t(process.processId()), signal);
            QCOMPARE(VeskRun::ended(process).code, 130);
            QCOMPARE(tagged.alive(), 0);
            QCOMPARE(phases(StoredRecords(run.data())), QStringList{u"CANCELLED"_s});
        }
    }
};

QTEST_GUILESS_MAIN(RunModeTest)

#include "tst_run_mode.moc"
