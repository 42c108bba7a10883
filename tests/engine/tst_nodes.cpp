#include "json_text.h"
#include "planned_run.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <tuple>

using namespace vesk;

namespace {

QJsonObject document(const QString &path, int chars)
{
    return code(path, {}, {{u"min_chars"_s, chars}});
}

QString text(qsizetype chars)
{
    return QString(chars, u'ы');
}

QJsonObject draftOf(const PlannedRun &run, const QString &path)
{
    return run.store.get(u"artifacts"_s, run.task() + u':' + path + u":draft"_s);
}

} // namespace

class NodesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aLargeProjectIsMappedWithinItsRoom()
    {
        PlannedRun run({code(u"d7/f77.txt"_s)});
        QStringList paths{u"AGENTS.md"_s};
        QVERIFY(run.save(u"AGENTS.md"_s, "Пиши тесты"));
        for (int i = 0; i < 1500; ++i) {
            paths << u"d%1/f%2.txt"_s.arg(i % 50).arg(i);
            QDir(run.workspace.root()).mkpath(u"d%1"_s.arg(i % 50));
            QVERIFY(run.save(paths.last(), "x"));
        }
        run.workspace.takeNew(paths);
        run.start(u"Поправь d27/f77.txt"_s);
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        const QJsonObject task = run.model.input(u"planner"_s)[u"task"_s].toObject();
        QCOMPARE(task[u"project_notes"_s].toString(), u"Пиши тесты"_s);
        QCOMPARE(task[u"existing_files"_s].toArray().size(), 1); // what the request names
        const QString map = task[u"project_map"_s].toString();
        QVERIFY2(map.size() <= 12000 && map.contains(u"d7/ (30): f7.txt, "_s) && map.contains(u"d49/ (30):"_s),
                 qPrintable(map));
        QCOMPARE(run.orders(u"d7/f77.txt"_s).size(), 1);
    }

    void aLargeFolderIsKnownBeforeItIsTouched()
    {
        PlannedRun run({code(u"d7/f77.txt"_s)});
        QVERIFY(run.save(u"AGENTS.md"_s, "Пиши тесты"));
        QDir(run.workspace.root()).mkpath(u"d7"_s);
        QVERIFY(run.save(u"d7/f77.txt"_s, "theirs"));
        QVERIFY(run.save(u"d7/main.py"_s, "#!\n\n  # Считает всё\nimport os"));
        run.workspace.takeLazily();
        QList<MappedFile> files;
        for (int i = 0; i < 1500; ++i)
            files.append({u"d%1/f%2.txt"_s.arg(i % 50).arg(i), 100});
        files.append({u"d7/main.py"_s, 100});
        files.append({u"d7/gone.py"_s, 100});
        run.engine.projectTreeMap = projectMap(files, maxMapChars);
        for (const MappedFile &file : files)
            run.engine.projectTree.append(file.path);
        run.start(u"Поправь d27/f77.txt"_s);
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        const QJsonObject task = run.model.input(u"planner"_s)[u"task"_s].toObject();
        QCOMPARE(task[u"project_notes"_s].toString(), u"Пиши тесты"_s);
        QCOMPARE(task[u"existing_files"_s].toArray(),
                 (QJsonArray{QJsonObject{{u"path"_s, u"d27/f77.txt"_s}, {u"revision"_s, 0}}}));
        const QString map = task[u"project_map"_s].toString();
        QVERIFY(map.contains(u"d7/ (32, 4 KiB): f7.txt, "_s) && map.endsWith(u"\n\nd7/main.py: # Считает всё"_s));
        QCOMPARE(run.workspace.revision(u"d7/f77.txt"_s, 1)[u"content"_s].toString(), u"theirs"_s);
    }

    void theBuildCommandBecomesACheckBehindAllCode()
    {
        const QJsonObject a = code(u"a.txt"_s);
        const QJsonObject b = code(u"b.txt"_s);
        const QJsonObject same = shell(u"same"_s, u"make"_s, {u"b.txt"_s});
        const QList<std::tuple<QJsonArray, qsizetype, QString>> rows{
            // the plan, the place of the check, what it awaits
            {{a, shell(u"other"_s, u"make all"_s), b}, 3, u"a.txt b.txt"_s},
            {{ScriptedProvider::node(u"r"_s, u"research"_s, {})}, 1, {}},
            {{shell(u"again"_s, u"make"_s), a, same, b}, 2, u"b.txt a.txt"_s}, // the last of the plan's own
        };
        for (const auto &[plan, check, dependencies] : rows) {
            PlannedRun run(plan);
            QJsonObject build = command(u"/bin/sh"_s, {u"-c"_s, u"make"_s});
            build[u"timeout_ms"_s] = 5000;
            run.start(u"Собери"_s, true, build);
            QVERIFY(run.runToPhase(u"PREVIEW"_s));
            const QJsonArray nodes = run.nodes();
            QCOMPARE(nodes.size(), std::max(plan.size(), check + 1));
            for (qsizetype i = 0; i < nodes.size(); ++i)
                QCOMPARE(nodes[i][u"input"_s][u"verification"_s].toBool(), i == check);
            QCOMPARE(strings(nodes[check][u"dependencies"_s].toArray()).join(u' '), dependencies);
            QCOMPARE(nodes[check][u"input"_s][u"timeout_ms"_s].toInt(), check == plan.size() ? 5000 : 0);
        }
    }

    void anActivatedPlanStartsFresh()
    {
        const QJsonObject done = object(u"{'status':'COMPLETED','revision':7,'output':{'content':'old'}}"_s);
        const QJsonObject counters = object(u"{'fix_attempts':-40,'output_repairs':-40,'recovery_attempts':-40,"
                                            "'recovery_fixes':[1]}"_s);
        PlannedRun run({ScriptedProvider::with(code(u"a.txt"_s, {}, counters), done)});
        run.start(u"Сделай"_s, true);
        QVERIFY(run.runToPhase(u"PREVIEW"_s));
        QCOMPARE(fields(run.node(u"a.txt"_s), u"status revision output input"_s), u"QUEUED 0 {} {'path':'a.txt'}"_s);
    }

    void thereIsACheckpointBeforeTheFirstFile()
    {
        PlannedRun run({code(u"a.txt"_s)});
        run.when(u"CheckpointCreated"_s, {}, [&] { QVERIFY(!QFile::exists(run.projectFile(u"a.txt"_s))); });
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.messages(u"CheckpointCreated"_s), QStringList{u"Before execution"_s});
        const QJsonObject told = run.eventsOf(u"CheckpointCreated"_s).first()[u"data"_s].toObject();
        QCOMPARE(run.store.get(u"checkpoints"_s, told[u"id"_s].toString()), told);
    }

    void anEditFromOutsideKeepsTheNextTaskFromEveryFile()
    {
        PlannedRun run({code(u"a.txt"_s), code(u"b.txt"_s)});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QVERIFY(run.save(u"b.txt"_s, "mine"));
        const QString refusal = errorOf([&] { run.start(); });
        QVERIFY2(refusal.contains(u"изменены вне программы: изменён b.txt"_s), qPrintable(refusal));
        QCOMPARE(run.endings.size(), 1);

        QVERIFY(run.save(u"b.txt"_s, "b.txt\n"));
        run.when(u"PhaseChanged"_s, u"STRUCTURING"_s, [&] { QVERIFY(run.save(u"b.txt"_s, "mine")); });
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        QCOMPARE(run.model.count(u"coding"_s), 2);
        QCOMPARE(run.fileContent(u"b.txt"_s), "mine");
    }

    void aCoderIsToldWhatItsNodeNeeds()
    {
        PlannedRun run({code(u"b.txt"_s), code(u"a.txt"_s),
                        code(u"c.txt"_s, {u"a.txt"_s, u"b.txt"_s}, {{u"instructions"_s, u"Третий"_s}})});
        run.texts = {{u"c.txt"_s, {u"первый"_s, u"второй"_s}}};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QJsonObject order = run.orders(u"c.txt"_s).first();
        QCOMPARE(order.keys(), QStringList({u"dependencies"_s, u"node"_s, u"structure"_s}));
        // Its dependencies are in the order of the plan.
        QCOMPARE(fields(order, u"node.output node.input.instructions dependencies.0.content dependencies.2"_s),
                 u" Третий b.txt\n "_s);
        QCOMPARE(order[u"structure"_s], run.state(u"structure"_s));
        QCOMPARE(order[u"dependencies"_s][1], run.node(u"a.txt"_s)[u"output"_s]);
        QVERIFY(run.orders(u"a.txt"_s).first()[u"dependencies"_s].isArray());

        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QJsonObject again = run.orders(u"c.txt"_s).last();
        QVERIFY(!again[u"previous_file"_s].toObject().contains(u"deleted"_s));
        QCOMPARE(fields(again, u"previous_file.content previous_file.revision"_s), u"первый 1"_s);
        QCOMPARE(run.node(u"c.txt"_s)[u"revision"_s].toInt(), 2);
        QCOMPARE(run.fileContent(u"c.txt"_s), "второй");
    }

    void aLongDependencyIsCut()
    {
        for (const int chars : {12000, 12001}) {
            PlannedRun run({code(u"a.txt"_s), code(u"b.txt"_s, {u"a.txt"_s})});
            run.texts = {{u"a.txt"_s, {text(chars)}}};
            QCOMPARE(run.ending(), u"COMPLETED"_s);

            const QJsonValue seen = run.orders(u"b.txt"_s).first()[u"dependencies"_s][0];
            QCOMPARE(seen[u"content"_s].toString(), text(12000));
            QCOMPARE(seen[u"content_truncated"_s].toBool(), chars > 12000);
            QCOMPARE(run.node(u"a.txt"_s)[u"output"_s][u"content"_s].toString().size(), chars);
        }
    }

    void noAmountOfResultsKeepsANodeFromItsRequest()
    {
        QJsonArray plan{shell(u"t"_s, u"head -c 100000 /dev/zero | tr '\\0' x; echo end"_s)};
        QStringList all{u"t"_s};
        for (int i = 0; i < 9; ++i) {
            all.append(u"f%1.txt"_s.arg(i));
            plan.append(code(all.constLast()));
        }
        plan.append(code(u"last.txt"_s, all));
        PlannedRun run(plan);
        run.engine.computerAccess = true;
        for (const QString &path : std::as_const(all))
            run.texts.insert(path, {text(12000)});
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QJsonObject order = run.orders(u"last.txt"_s).first();
        QVERIFY(json(order).size() > 90000);
        QVERIFY(order[u"dependencies"_s][0][u"stdout"_s].toString().endsWith(u"xend\n"_s));
    }

    void onlyLongTextsAreWrittenInParts()
    {
        for (const auto &[path, chars, inParts] :
             std::initializer_list<std::tuple<QString, int, bool>>{{u"a.md"_s, 11999, false},
                                                                   {u"a.md"_s, 12000, true},
                                                                   {u"A.Txt"_s, 12000, true},
                                                                   {u"a.h"_s, 12000, false}}) {
            PlannedRun run({document(path, chars)});
            run.texts = {{path, {text(12000)}}};
            QCOMPARE(run.ending(), u"COMPLETED"_s);
            QCOMPARE(run.orders(path).first().contains(u"segment"_s), inParts);
            QCOMPARE(draftOf(run, path).isEmpty(), !inParts);
        }
    }

    void aDocumentGrowsPartByPart()
    {
        PlannedRun run({document(u"book.md"_s, 20000)});
        const QStringList parts{text(14998) + u" \n"_s, text(4900), u' ' + text(100) + u'\n'};
        run.coder
            = [&](const QJsonObject &, int nth) { return ScriptedProvider::file(u"book.md"_s, parts.at(nth % 3)); };
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        const QList<QJsonObject> orders = run.orders(u"book.md"_s);
        const QString keys = u"index current_chars target_chars minimum_new_chars final_segment previous_tail"_s;
        QCOMPARE(orders.size(), 3);
        QCOMPARE(fields(orders[0][u"segment"_s], keys), u"1 0 20000 6000 false "_s);
        QCOMPARE(fields(orders[1][u"segment"_s], keys), u"2 15000 20000 5000 true "_s + parts[0].right(6000));
        QCOMPARE(fields(orders[2][u"segment"_s], keys),
                 u"3 19900 20000 100 true "_s + (parts[0] + parts[1]).right(6000));
        QCOMPARE(run.fileContent(u"book.md"_s), parts.join(QString()).toUtf8());
        QCOMPARE(draftOf(run, u"book.md"_s)[u"content"_s].toString(), parts.join(QString()));

        // However much stands there, a document is produced afresh.
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QVERIFY(!run.orders(u"book.md"_s).last().contains(u"previous_file"_s));
    }

    void aPartThatDoesNotFitEndsTheRunAndTheDraftStays()
    {
        const QString tooLittle = u"Модель не добавила содержательную часть документа"_s;
        const auto part = [](const QString &content) { return ScriptedProvider::file(u"a.md"_s, content); };
        const QList<std::tuple<int, QJsonObject, QString>> bad{
            {20000, filesAnswer({{u"a.md"_s, text(5000)}, {u"b.md"_s, text(5000)}}),
             u"Для части документа нужен один файл"_s},
            {20000, ScriptedProvider::file(u"A.md"_s, text(5000)), u"Часть документа изменила путь файла"_s},
            {20000, part(u"   "_s.repeated(200) + text(299)), tooLittle},
            {15100, part(text(99)), tooLittle},
        };
        for (const auto &[target, answer, error] : bad) {
            PlannedRun run({document(u"a.md"_s, target)});
            run.coder = [&](const QJsonObject &, int nth) { return nth == 0 ? part(text(15000)) : answer; };
            QCOMPARE(run.ending(), error);
            QCOMPARE(draftOf(run, u"a.md"_s)[u"content"_s].toString(), text(15000));
            QVERIFY(!QFile::exists(run.projectFile(u"a.md"_s)));
        }
    }

    void aDocumentHasAtMostFiftyParts()
    {
        PlannedRun run({document(u"a.txt"_s, 15001)});
        run.texts = {{u"a.txt"_s, {text(300)}}};
        QCOMPARE(run.ending(), u"Документ сохранён в черновиках: достигнут предел частей"_s);
        QCOMPARE(run.model.count(u"coding"_s), 50);
        QCOMPARE(draftOf(run, u"a.txt"_s)[u"content"_s].toString().size(), 15000);
    }

    void researchIsPassedOnToWhatDependsOnIt()
    {
        PlannedRun run({ScriptedProvider::node(u"r"_s, u"research"_s, {}), code(u"a.txt"_s, {u"r"_s})});
        const QJsonObject found = object(u"{'summary':'Вот что','sources':['x']}"_s);
        run.model.answer(u"specialist"_s, found);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.node(u"r"_s)[u"output"_s].toObject(), found);
        QCOMPARE(run.orders(u"a.txt"_s).first()[u"dependencies"_s].toArray(), QJsonArray{found});
    }

    void aFixRunsThePassedChecksAgainAndNoOthers()
    {
        PlannedRun run({code(u"a.txt"_s), check(u"ta"_s, u"cat a.txt"_s, {u"a.txt"_s}),
                        shell(u"setup"_s, u"echo setup"_s, {u"a.txt"_s}), code(u"b.txt"_s, {u"ta"_s, u"setup"_s}),
                        check(u"tb"_s, u"touch go"_s, {u"b.txt"_s}),
                        check(u"running"_s, u"until [ -e go ]; do sleep 0.01; done"_s)});
        run.engine.computerAccess = true;
        run.objections = {{u"b.txt"_s, 1}};
        run.when(u"FixRequested"_s, {}, [&] { QCOMPARE(run.status(u"ta"_s), u"COMPLETED"_s); });

        QCOMPARE(run.ending(), u"COMPLETED"_s);

        QCOMPARE(run.calls(u"ta"_s), 2);
        QCOMPARE(run.calls(u"setup"_s), 1);
        QCOMPARE(run.calls(u"tb"_s), 1);
        QCOMPARE(run.messages(u"ToolCalled"_s).count(u"run_command"_s), 5);
    }

    void aNodeThatMustWaitAgainIsNotStarted()
    {
        const QTemporaryDir programs;
        const QString program = programs.filePath(u"sh"_s);
        QJsonObject input = command(program, {u"-c"_s, u"true"_s});
        input[u"verification"_s] = true;
        const QJsonObject refused = ScriptedProvider::node(u"refused"_s, u"tool"_s, input, {u"a.txt"_s});
        PlannedRun run({code(u"a.txt"_s), refused, check(u"check"_s, u"cat a.txt"_s, {u"a.txt"_s}),
                        code(u"b.txt"_s, {u"a.txt"_s})});
        run.engine.computerAccess = true;
        run.texts = {{u"a.txt"_s, {u"old"_s, u"new"_s}}};
        run.when(u"AutomaticCorrection"_s, u"Проверка не прошла"_s,
                 [&] { QVERIFY(QFile::link(u"/bin/sh"_s, program)); });
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.calls(u"refused"_s), 2);
        QCOMPARE(run.calls(u"check"_s), 1);
        QCOMPARE(fields(run.node(u"check"_s), u"output.stdout"_s), u"new"_s);
        QCOMPARE(run.orders(u"b.txt"_s).size(), 1);
        QCOMPARE(fields(run.orders(u"b.txt"_s).first(), u"dependencies.0.content"_s), u"new"_s);
    }
};

QTEST_GUILESS_MAIN(NodesTest)
#include "tst_nodes.moc"
