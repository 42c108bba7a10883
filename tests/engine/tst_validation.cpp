#include "files.h"
#include "json_text.h"
#include "page_pictures.h"
#include "planned_run.h"

#include <QDir>
#include <QTest>

#include <array>

using namespace vesk;

namespace {

/// Lets runs find programs in this folder first, and, when there is no system, nowhere else.
class Programs {
public:
    explicit Programs(bool withSystem = true)
    {
        qputenv("PATH", QFile::encodeName(folder.path()) + (withSystem ? ":/usr/bin:/bin" : ""));
    }
    ~Programs() { qputenv("PATH", before); }
    Q_DISABLE_COPY_MOVE(Programs)

    QString add(const QString &name, const QByteArray &text) const
    {
        const QString path = folder.filePath(name);
        save(path, text);
        QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner);
        return path;
    }
    /// A node that approves of everything, and its npm.
    void addNode() const
    {
        add(u"node"_s, "#!/bin/sh\n");
        add(u"node_modules/npm/bin/npm-cli.js"_s, {});
    }
    QString path(const QString &name) const { return folder.filePath(name); }

private:
    QByteArray before = qgetenv("PATH");
    QTemporaryDir folder;
};

QStringList titlesOfChecks(const PlannedRun &run)
{
    QStringList titles;
    const QJsonArray nodes = run.nodes();
    for (const QJsonValue &node : nodes) {
        if (node[u"kind"_s] == u"tool"_s)
            titles.append(node[u"title"_s].toString());
    }
    return titles;
}

QJsonObject nodeTitled(const PlannedRun &run, const QString &title)
{
    const QJsonArray nodes = run.nodes();
    for (const QJsonValue &node : nodes) {
        if (node[u"title"_s] == title)
            return node.toObject();
    }
    return {};
}

/// The validator objects to these one after the other and then approves.
void objectWith(PlannedRun &run, const QStringList &issues)
{
    for (const QString &issue : issues)
        run.model.answer(u"validator"_s, ScriptedProvider::verdict(u"REVISE"_s, issue));
    run.model.answer(u"validator"_s, ScriptedProvider::approval());
}

/// A page checker beside this program, a browser, and a node that objects to pages with an error in them, cannot open
/// those that are "closed", and does not look at what an "outer" one would do.
class BrowserCheck {
public:
    BrowserCheck()
    {
        programs.add(u"node"_s, R"(#!/bin/sh
            [ -f "$1" ] && [ -x "$2" ] && [ "${3#"$4/"}" != "$3" ] || exit 1
            grep -q closed "$3" && echo 'Не открыта' && exit 2
            grep -q outer "$3" && printf '\n\nНе проверено:\n- скрипт\n'
            ! grep error "$3")");
        programs.add(u"microsoft-edge"_s, {});
        save(script, {});
    }
    ~BrowserCheck() { QFile::remove(script); }
    Q_DISABLE_COPY_MOVE(BrowserCheck)

    Programs programs;
    const QString script = QCoreApplication::applicationDirPath() + u"/tools/browser-check.mjs"_s;
};

} // namespace

class ValidationTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aFinishedGraphIsObservedValidatedAndReported()
    {
        PlannedRun run({code(u"a.txt"_s), ScriptedProvider::node(u"r"_s, u"research"_s, {})});
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        const QJsonObject observed = run.artifact(u"observer"_s);
        QVERIFY(observed[u"tokens"_s].toInt() > 0);
        QCOMPARE(fields(observed, u"graph.0.output.content_chars graph.0.output.content"_s), u"6 "_s);
        const QJsonObject validated = run.artifact(u"validator"_s);
        QCOMPARE(validated.keys(), QStringList({u"graph"_s, u"open_fixes"_s, u"project_files"_s}));
        QCOMPARE(validated[u"graph"_s], observed[u"graph"_s]);
        QCOMPARE(validated[u"project_files"_s].toArray(),
                 array(u"[{'path':'a.txt','content':'a.txt\\n','truncated':false,'revision':1}]"_s));

        QCOMPARE(run.messages(u"TaskCompleted"_s),
                 QStringList{u"Acceptance review and core completion gates passed"_s});
        const QJsonObject report = run.rows(u"artifacts"_s).last().toObject();
        QCOMPARE(report.keys(), (QStringList{u"nodes"_s, u"runs"_s, u"tokens"_s, u"type"_s, u"version"_s}));
        QCOMPARE(fields(report, u"type version runs tokens"_s),
                 u"FinalReport 1 %1 "_s.arg(run.state(u"runs"_s).toArray().size())
                     + fields(run.engine.snapshot(), u"tokens"_s));
        QCOMPARE(report[u"nodes"_s].toArray(), run.nodes());
        QVERIFY(run.permissions.grants.isEmpty());
    }

    void theValidatorSeesTheStartOfEachFile()
    {
        const QList<int> lengths{12001, 12000, 12000, 12000, 12000, 5000, 5, 0};
        const QList<int> shown{12000, 12000, 12000, 12000, 12000, 4000, 0, 0};
        QJsonArray plan;
        for (int i = 0; i < lengths.size(); ++i)
            plan.append(code(u"f%1.txt"_s.arg(i)));
        PlannedRun run(plan);
        for (int i = 0; i < lengths.size(); ++i)
            run.texts[u"f%1.txt"_s.arg(i)] = {QString(lengths[i], u'ы')};
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        const QJsonArray files = run.artifact(u"validator"_s)[u"project_files"_s].toArray();
        for (int i = 0; i < lengths.size(); ++i) {
            QCOMPARE(files[i][u"content"_s].toString(), QString(shown[i], u'ы'));
            QCOMPARE(files[i][u"truncated"_s].toBool(), shown[i] < lengths[i]);
        }
    }

    void whatAProgramPrintedNeverKeepsARunFromItsEnd()
    {
        PlannedRun run({code(u"a.txt"_s), shell(u"t"_s, u"head -c 300000 /dev/zero | tr '\\0' x; echo end"_s)});
        run.engine.computerAccess = true;

        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.node(u"t"_s)[u"output"_s][u"stdout"_s].toString().size(), 300004);
        const QJsonObject validated = run.artifact(u"validator"_s);
        QVERIFY(validated[u"graph"_s][1][u"output"_s][u"stdout"_s].toString().endsWith(u"xend\n"_s));
        QCOMPARE(validated[u"project_files"_s][0][u"content"_s].toString(), u"a.txt\n"_s);
    }

    void scriptsAreCheckedByNodeAndRepaired()
    {
        const Programs programs;
        programs.add(u"node"_s, "#!/bin/sh\n[ $1 = --check ] && ! grep wrong $2 >&2\n");
        PlannedRun run({code(u"a.js"_s), code(u"b.mjs"_s), code(u"e.txt"_s)});
        run.engine.computerAccess = true;
        run.texts = {{u"a.js"_s, {u"wrong"_s, u"let a;"_s}}};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(titlesOfChecks(run), (QStringList{u"Проверить синтаксис a.js"_s, u"Проверить синтаксис b.mjs"_s}));
        QCOMPARE(run.state(u"plan"_s)[u"nodes"_s].toArray().size(), 5);
        QCOMPARE(fields(run.orders(u"a.js"_s).last(), u"fixes.0.stderr"_s), u"wrong\n"_s);
        QCOMPARE(run.orders(u"a.js"_s).size() + run.orders(u"b.mjs"_s).size(), 3);
    }

    void aPackageIsInstalledAndBuilt()
    {
        const Programs programs;
        programs.addNode();
        for (const bool installed : {false, true}) {
            PlannedRun run({code(u"package.json"_s), code(u"a.js"_s)});
            run.engine.computerAccess = true;
            run.texts = {{u"package.json"_s, {u"{\"scripts\":{\"build\":\"x\"},\"dependencies\":{\"x\":\"1\"}}"_s}}};
            QVERIFY(QDir().mkpath(run.projectFile(installed ? u"node_modules/x"_s : u"node_modules/y"_s)));
            QCOMPARE(run.ending(), u"COMPLETED"_s);

            QStringList titles{u"Установить зависимости проекта"_s, u"Проверить сборку проекта"_s};
            QCOMPARE(titlesOfChecks(run), titles.sliced(installed ? 1 : 0));
            const QJsonObject build = run.nodes().last().toObject();
            const QString before = installed ? QString() : u",'%1'"_s.arg(run.nodes()[2][u"id"_s].toString());
            QCOMPARE(fields(build, u"input.program input.arguments input.verification input.timeout_ms dependencies"_s),
                     u"%1 ['%2','run','build'] true 120000 ['package.json','a.js'%3]"_s.arg(
                         programs.path(u"node"_s), programs.path(u"node_modules/npm/bin/npm-cli.js"_s), before));
        }
    }

    void anEmptyBuildDoesNotReplaceTheSyntaxChecks()
    {
        const Programs programs;
        programs.addNode();
        PlannedRun run({code(u"package.json"_s), code(u"a.js"_s)});
        run.engine.computerAccess = true;
        run.texts[u"package.json"_s] = {u"{\"scripts\":{\"build\":\"echo ok\"}}"_s};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.nodes().last()[u"title"_s].toString(), u"Проверить синтаксис a.js"_s);
        QCOMPARE(run.state(u"evidence"_s)[u"files"_s][1][u"mark"_s], u"syntax"_s);
    }

    void theSourcesOfAProjectThatCannotBeBuiltAreNotJudged()
    {
        const BrowserCheck tools; // without npm
        PlannedRun run({code(u"package.json"_s), code(u"index.html"_s)});
        run.engine.computerAccess = true;
        run.texts = {{u"package.json"_s, {u"{\"scripts\":{\"build\":\"x\"}}"_s}}, {u"index.html"_s, {u"error"_s}}};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QVERIFY(run.state(u"spec"_s)[u"verification_limitation"_s].toString().endsWith(
            u"Страница index.html не проверена в браузере: проект не собран."_s));
    }

    void withoutNodeTheReportTellsWhatWasNotChecked()
    {
        const Programs none(false);
        PlannedRun run({code(u"package.json"_s), code(u"a.js"_s)});
        run.texts = {{u"package.json"_s, {u"{\"scripts\":{\"build\":\"x\"}}"_s}}};

        const QString told = u"Node.js/npm не найдены: сборка package.json не выполнена."_s;
        for (int task = 1; task <= 2; ++task) {
            QCOMPARE(run.ending(), u"COMPLETED"_s);
            QCOMPARE(run.messages(u"VerificationUnavailable"_s), QStringList(task, told));
            QCOMPARE(run.state(u"spec"_s)[u"verification_limitation"_s].toString(), told);
            QCOMPARE(run.nodes().size(), 2);
        }
    }

    void aFullGraphHasNoRoomForChecks()
    {
        const Programs programs;
        programs.addNode();
        QJsonArray plan{code(u"a.js"_s)};
        while (plan.size() < 64)
            plan.append(ScriptedProvider::node(u"r%1"_s.arg(plan.size()), u"research"_s, {}));
        QCOMPARE(PlannedRun(plan).ending(), u"Для проверок не осталось места в плане; разделите проект на этапы"_s);
    }

    void aPageIsOpenedInABrowserAndRepaired()
    {
        struct Row {
            QStringList paths;
            QString page;
            QString build; ///< A check in the plan that writes a page of its own.
        };
        const QString dist = u"dist/index.html"_s;
        const QList<Row> rows{{{u"a.txt"_s, u"sub/p.html"_s}, u"sub/p.html"_s, u"true"_s},
                              {{u"index.html"_s}, u"index.html"_s, u"touch -d 2020-01-01 dist/index.html"_s},
                              {{u"index.html"_s}, dist, u"echo well > dist/index.html"_s}};
        for (const auto &[paths, page, build] : rows) {
            const BrowserCheck tools;
            QJsonArray plan{check(u"build"_s, build, paths)};
            for (const QString &path : paths)
                plan.append(code(path));
            PlannedRun run(plan);
            run.engine.computerAccess = true;
            const bool built = page == dist;
            QVERIFY(QDir().mkpath(run.projectFile(u"dist"_s)));
            run.texts = {{paths.last(), {built ? u"well"_s : u"error"_s, u"well"_s}}};
            QCOMPARE(run.ending(), u"COMPLETED"_s);

            const QJsonObject check = nodeTitled(run, u"Проверить сайт в браузере"_s);
            QCOMPARE(fields(check, u"input.arguments input.timeout_ms dependencies"_s),
                     u"['%1','%2','%3/%4','%3','%6'] 35000 ['%5']"_s.arg(
                         tools.script, tools.programs.path(u"microsoft-edge"_s), run.workspace.root(), page,
                         paths.join(u"','"_s), pictureStem(run.engine.picturesFolder, run.task(), page)));
            QCOMPARE(run.calls(check[u"id"_s].toString()), built ? 1 : 2);
        }
    }

    void whatABrowserCouldNotCheckIsToldAndHoldsNothingUp()
    {
        const BrowserCheck tools;
        PlannedRun run({code(u"a.html"_s), code(u"b.html"_s)});
        run.engine.computerAccess = true;
        run.texts = {{u"a.html"_s, {u"closed"_s}}, {u"b.html"_s, {u"<html>outer"_s, u"<html>"_s}}};
        objectWith(run, {u"В b.html чужой скрипт"_s});
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        QCOMPARE(titlesOfChecks(run),
                 (QStringList{u"Проверить сайт в браузере"_s, u"Проверить сайт в браузере: b.html"_s}));
        const QJsonObject closed = nodeTitled(run, u"Проверить сайт в браузере"_s);
        QVERIFY(nodeTitled(run, u"Проверить сайт в браузере: b.html"_s)[u"dependencies"_s].toArray().contains(
            closed[u"id"_s]));
        QCOMPARE(fields(closed, u"status output.success output.limitation"_s), u"COMPLETED false Не открыта."_s);
        QCOMPARE(run.messages(u"VerificationUnavailable"_s),
                 (QStringList{u"Не открыта."_s, u"Страница b.html проверена в браузере не полностью: скрипт."_s}));
        // What the second version of a page leaves out counts, and that is nothing.
        QCOMPARE(run.state(u"spec"_s)[u"verification_limitation"_s].toString(), u"Не открыта."_s);
        QVERIFY(run.messages(u"AutomaticCorrection"_s).filter(u"Исправляю код"_s).isEmpty());
    }

    void aPlanIsOfferedWhatIsInstalled()
    {
        struct Row {
            QStringList installed;
            QString python;
        };
        const QList<Row> rows{{{u"python3"_s, u"sh"_s}, u"python3"_s},
                              {{u"python3"_s, u"python"_s, u"bash"_s}, u"python"_s}};
        for (const auto &[installed, python] : rows) {
            const Programs programs(false);
            QJsonObject offered{{u"python"_s, programs.path(python)}};
            for (const QString &name : installed) {
                programs.add(name, {});
                if (!name.startsWith(u"python"_s))
                    offered[name] = programs.path(name);
            }
            PlannedRun run({code(u"a.txt"_s)});
            QCOMPARE(run.ending(), u"COMPLETED"_s);
            QCOMPARE(run.state(u"spec"_s)[u"available_executables"_s].toObject(), offered);
        }
    }

    void noBrowserCheckWhereItCannotRun()
    {
        for (const QString &missing : {u"model"_s, u"node"_s, u"script"_s}) {
            const BrowserCheck tools;
            const Programs few(false);
            for (const QString &name : {u"node"_s, u"microsoft-edge"_s}) {
                if (name != missing)
                    few.add(name, "#!/bin/sh\n");
            }
            if (missing == u"script"_s)
                QVERIFY(QFile::remove(tools.script));
            PlannedRun run({code(u"a.html"_s)});
            if (missing == u"model"_s)
                run.model.displayName = u"Mock / deterministic"_s;
            run.engine.computerAccess = true;
            QCOMPARE(run.ending(), u"COMPLETED"_s);
            QCOMPARE(run.nodes().size(), 1);
        }
    }

    void aFailedCheckSendsItsOutputToAllCodeBehindIt()
    {
        PlannedRun run({code(u"base.txt"_s), code(u"top.txt"_s, {u"base.txt"_s}), code(u"other.txt"_s),
                        check(u"t"_s, u"echo no >&2; grep -q new base.txt"_s, {u"top.txt"_s})});
        run.engine.computerAccess = true;
        run.texts = {{u"base.txt"_s, {u"old"_s, u"new"_s}}};
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        const QJsonArray fixes = run.orders(u"base.txt"_s).last()[u"fixes"_s].toArray();
        QCOMPARE(fields(fixes, u"0.command.arguments 0.stderr"_s),
                 u"['-c','echo no >&2; grep -q new base.txt'] no\n"_s);
        QCOMPARE(run.orders(u"top.txt"_s).last()[u"fixes"_s].toArray(), fixes);
        QCOMPARE(run.orders(u"top.txt"_s).size() + run.orders(u"other.txt"_s).size(), 3);
        QVERIFY(!run.node(u"base.txt"_s)[u"input"_s].toObject().contains(u"recovery_fixes"_s));
    }

    void theStepsToAFailedCheckAreDoneAgain()
    {
        PlannedRun run({code(u"a.txt"_s), shell(u"copy"_s, u"cp a.txt b.txt"_s, {u"a.txt"_s}),
                        check(u"t"_s, u"grep new b.txt"_s, {u"copy"_s})});
        run.texts[u"a.txt"_s] = {u"old"_s, u"new"_s};
        run.answerPermissions(true);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.calls(u"copy"_s), 2);
        // The consent to the copy covers its repetition.
        QCOMPARE(run.eventsOf(u"PermissionRequested"_s).size(), 3);
    }

    void aPageThatARepairBringsIsOpenedToo()
    {
        const BrowserCheck tools;
        PlannedRun run({code(u"a.html"_s)});
        run.engine.computerAccess = true;
        run.coder = [](const QJsonObject &, int nth) {
            QJsonArray files{ScriptedProvider::file(u"a.html"_s, u"<html>"_s)[u"files"_s][0]};
            if (nth == 1)
                files.append(ScriptedProvider::file(u"c.html"_s, u"<html>"_s)[u"files"_s][0]);
            return QJsonObject{{u"files"_s, files}};
        };
        objectWith(run, {u"В a.html нет второй страницы"_s});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(titlesOfChecks(run),
                 (QStringList{u"Проверить сайт в браузере"_s, u"Проверить сайт в браузере: c.html"_s}));
    }

    void aPackageThatGetsItsFirstDependencyIsInstalled()
    {
        const Programs programs;
        programs.add(u"node"_s,
                     "#!/bin/sh\necho \"$*\" >>log\ncase \"$*\" in *build) [ -e node_modules ];; "
                     "*install*) mkdir node_modules;; esac\n");
        programs.add(u"node_modules/npm/bin/npm-cli.js"_s, {});
        PlannedRun run({code(u"package.json"_s)});
        run.engine.computerAccess = true;
        run.texts[u"package.json"_s] = {u"{\"scripts\":{\"build\":\"x\"}}"_s,
                                        u"{\"scripts\":{\"build\":\"x\"},\"dependencies\":{\"y\":\"1\"}}"_s};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(titlesOfChecks(run),
                 (QStringList{u"Проверить сборку проекта"_s, u"Установить зависимости проекта"_s}));
    }

    void theFourthFailureOfACheckEndsTheRun()
    {
        PlannedRun run({code(u"a.txt"_s), check(u"t"_s, u"grep v4 a.txt"_s, {u"a.txt"_s})});
        run.engine.computerAccess = true;
        QCOMPARE(run.ending(), u"Проверка не прошла после трёх циклов исправления. Файлы и журнал сохранены."_s);
        QCOMPARE(run.calls(u"t"_s), 4);
        QCOMPARE(run.orders(u"a.txt"_s).size(), 4);
    }

    void aCheckThatSawTheOldTextRunsAgain_data()
    {
        QTest::addColumn<bool>("endsBeforeTheRewrite");
        QTest::addColumn<QString>("end");
        QTest::newRow("passed while the rewrite was ordered") << true << u"true"_s;
        QTest::newRow("failed while the rewrite was ordered") << true << u"grep -q new a.txt"_s;
        QTest::newRow("passed after the rewrite") << false << u"true"_s;
    }

    void aCheckThatSawTheOldTextRunsAgain()
    {
        QFETCH(bool, endsBeforeTheRewrite);
        QFETCH(QString, end);
        PlannedRun run({code(u"a.txt"_s),
                        check(u"quick"_s, u"until [ -e begun ]; do sleep 0.01; done; grep new a.txt"_s, {u"a.txt"_s}),
                        check(u"slow"_s, u"cat a.txt; touch begun; until [ -e go ]; do sleep 0.01; done; "_s + end,
                              {u"a.txt"_s})});
        run.engine.computerAccess = true;
        run.texts = {{u"a.txt"_s, {u"old"_s, u"new"_s}}};
        run.when(u"AutomaticCorrection"_s, u"Проверка не прошла"_s, [&] { run.model.holding = endsBeforeTheRewrite; });
        run.start();
        if (endsBeforeTheRewrite) {
            QVERIFY(run.runToHeld(1));
            QVERIFY(run.save(u"go"_s, {}));
            QVERIFY(run.runUntil([&] { return run.calls(u"slow"_s) == 1; }));
            run.model.holding = false;
            QVERIFY(run.model.release());
        } else {
            QVERIFY(run.runUntil([&] { return run.calls(u"quick"_s) == 2; }));
            QVERIFY(run.save(u"go"_s, {}));
        }

        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        QCOMPARE(run.calls(u"slow"_s), 2);
        QCOMPARE(run.node(u"slow"_s)[u"output"_s][u"stdout"_s].toString(), u"new"_s);
        QCOMPARE(run.node(u"a.txt"_s)[u"revision"_s].toInt(), 2);
        QCOMPARE(run.messages(u"AutomaticCorrection"_s),
                 QStringList{u"Проверка не прошла. Исправляю код, цикл 1 из 3."_s});
    }

    void aRejectionGoesToTheFileThatItNames()
    {
        const QString issue = u"В src/b.txt ошибка"_s;
        PlannedRun run({code(u"a.txt"_s), code(u"src/b.txt"_s), check(u"t"_s, u"true"_s)});
        run.engine.computerAccess = true;
        objectWith(run, {issue});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.orders(u"a.txt"_s).size(), 1);
        QCOMPARE(run.orders(u"src/b.txt"_s).last()[u"fixes"_s].toArray(),
                 QJsonArray{ScriptedProvider::verdict(u"REVISE"_s, issue)});
        QCOMPARE(run.artifact(u"coordinator"_s)[u"topic"_s].toString(), u"final"_s);
        QCOMPARE(run.model.count(u"correctness_reviewer"_s), 3);
        QCOMPARE(run.calls(u"t"_s), 2);
    }

    void reworkHasALimit()
    {
        const QString over = u"Финальная проверка не пройдена после исправлений. Файлы сохранены. Причина: "_s;
        const QString a = u"a.txt"_s;
        const QString b = u"b.txt"_s;
        for (const QStringList &issues : {QStringList{a, b, a, b, a, b, b}, {a, a, a, a, a, QString(2000, u'ы')}}) {
            PlannedRun run({code(a), code(b)});
            objectWith(run, issues);
            QCOMPARE(run.ending(), over + issues.last().left(1800));
            QCOMPARE(run.model.count(u"validator"_s), issues.size());
            QCOMPARE(run.fileContent(a), "a.txt\n");
        }
    }

    void aRejectedRunWithoutCodeIsPlannedAnew()
    {
        PlannedRun run({ScriptedProvider::node(u"r"_s, u"research"_s, {})});
        objectWith(run, QStringList(3, u"Плохо"_s));
        QCOMPARE(run.ending(), u"Plan revision limit reached"_s);
        QCOMPARE(run.model.count(u"planner"_s), 3);
        QCOMPARE(fields(run.artifact(u"planner"_s, 1), u"previous_plan.revision"_s), u"1"_s);
        QCOMPARE(fields(run.artifact(u"structure"_s, 2), u"previous_structure.revision"_s), u"2"_s);
    }

    void noModelDecidesOnTheGates()
    {
        const QString a = u"a.txt"_s;
        const QStringList gates{u"Final gate: external file change"_s, u"Cannot read a.txt"_s,
                                u"Final gate: stale file revision"_s, u"Final gate: graph incomplete"_s,
                                u"Final gate: unresolved fixes"_s};
        for (int gate = 0; gate < gates.size(); ++gate) {
            PlannedRun run({code(a)});
            run.when(u"ObserverReport"_s, {}, [&] { run.model.holding = true; });
            run.start();
            QVERIFY(run.runToHeld(1));
            const std::array<std::function<void()>, 5> meanwhile{
                [&] { run.save(a, "mine"); }, [&] { QFile::remove(run.projectFile(a)); },
                [&] { run.workspace.write(a, "newer", u"somebody"_s, 1); }, [&] { run.engine.codeNode(0, {}); },
                [&] { run.store.put(u"fix_requests"_s, u"f"_s, run.task(), {{u"status"_s, u"OPEN"_s}}); }};
            meanwhile[size_t(gate)]();
            QVERIFY(run.model.release(u"validator"_s));
            QCOMPARE(run.outcome(), gates[gate]);
            QVERIFY(run.rows(u"artifacts"_s).last()[u"type"_s] != u"FinalReport"_s);
        }
    }
};

QTEST_GUILESS_MAIN(ValidationTest)
#include "tst_validation.moc"
