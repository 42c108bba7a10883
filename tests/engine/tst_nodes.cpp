#include "planned_run.h"

#include <QFile>
#include <QTest>

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
    void theBuildCommandBecomesACheckBehindAllCode()
    {
        const QJsonObject a = code(u"a.txt"_s);
        const QJsonObject b = code(u"b.txt"_s);
        const QJsonObject same = shell(u"same"_s, u"make"_s, {u"b.txt"_s});
        struct Row {
            QJsonArray plan;
            qsizetype size;
            qsizetype check; ///< its place
            QStringList dependencies;
        };
        const QList<Row> rows{
            {{a, shell(u"other"_s, u"make all"_s), b}, 4, 3, {u"a.txt"_s, u"b.txt"_s}},
            {{ScriptedProvider::node(u"r"_s, u"research"_s, {})}, 2, 1, {}},
            {{shell(u"again"_s, u"make"_s), a, same, b}, 4, 2, {u"b.txt"_s, u"a.txt"_s}}, // the last of the plan's own
        };
        for (const auto &[plan, size, check, dependencies] : rows) {
            PlannedRun run(plan);
            QJsonObject build = command(u"/bin/sh"_s, {u"-c"_s, u"make"_s});
            build[u"timeout_ms"_s] = 5000;
            run.start(u"Собери"_s, true, build);
            QVERIFY(run.runToPhase(u"PREVIEW"_s));

            const QJsonArray nodes = run.nodes();
            QCOMPARE(nodes.size(), size);
            for (qsizetype i = 0; i < size; ++i)
                QCOMPARE(nodes[i][u"input"_s][u"verification"_s].toBool(), i == check);
            QCOMPARE(strings(nodes[check][u"dependencies"_s].toArray()), dependencies);
            if (size > plan.size())
                QCOMPARE(nodes[check][u"input"_s][u"timeout_ms"_s].toInt(), 5000);
        }
    }

    void anActivatedPlanStartsFresh()
    {
        QJsonObject node = code(u"a.txt"_s, {},
                                {{u"fix_attempts"_s, -40},
                                 {u"output_repairs"_s, -40},
                                 {u"recovery_attempts"_s, -40},
                                 {u"recovery_fixes"_s, QJsonArray{1}}});
        node[u"status"_s] = u"COMPLETED"_s;
        node[u"revision"_s] = 7;
        node[u"output"_s] = QJsonObject{{u"content"_s, u"old"_s}};
        PlannedRun run({node});

        run.start(u"Сделай"_s, true);
        QVERIFY(run.runToPhase(u"PREVIEW"_s));

        QCOMPARE(run.status(u"a.txt"_s), u"QUEUED"_s);
        QCOMPARE(run.node(u"a.txt"_s)[u"revision"_s].toInt(), 0);
        QVERIFY(run.node(u"a.txt"_s)[u"output"_s].toObject().isEmpty());
        QCOMPARE(run.node(u"a.txt"_s)[u"input"_s].toObject().keys(), QStringList{u"path"_s});
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
        QCOMPARE(run.ending(), u"Checkpoint conflict: external changes"_s);
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
        QVERIFY(!order[u"node"_s].toObject().contains(u"output"_s));
        QCOMPARE(order[u"node"_s][u"input"_s][u"instructions"_s].toString(), u"Третий"_s);
        QCOMPARE(order[u"structure"_s], run.state(u"structure"_s));
        const QJsonArray dependencies = order[u"dependencies"_s].toArray(); // in the order of the plan
        QCOMPARE(dependencies.size(), 2);
        QCOMPARE(dependencies[0][u"content"_s].toString(), u"b.txt\n"_s);
        QCOMPARE(dependencies[1], run.node(u"a.txt"_s)[u"output"_s]);
        QVERIFY(run.orders(u"a.txt"_s).first()[u"dependencies"_s].isArray());

        QCOMPARE(run.ending(), u"COMPLETED"_s);
        const QJsonObject previous = run.orders(u"c.txt"_s).last()[u"previous_file"_s].toObject();
        QVERIFY(!previous.contains(u"deleted"_s));
        QCOMPARE(previous[u"content"_s].toString(), u"первый"_s);
        QCOMPARE(previous[u"revision"_s].toInt(), 1);
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
        struct Row {
            QString path;
            int chars;
            bool inParts;
        };
        for (const auto &[path, chars, inParts] : {Row{u"a.md"_s, 11999, false}, Row{u"a.md"_s, 12000, true},
                                                   Row{u"READ.Txt"_s, 12000, true}, Row{u"a.html"_s, 12000, false}}) {
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
        QCOMPARE(orders.size(), 3);
        const auto segment = [](int index, int current, int wanted, const QString &tail) {
            return QJsonValue(QJsonObject{{u"index"_s, index},
                                          {u"current_chars"_s, current},
                                          {u"target_chars"_s, 20000},
                                          {u"minimum_new_chars"_s, wanted},
                                          {u"previous_tail"_s, tail},
                                          {u"final_segment"_s, index > 1}});
        };
        QCOMPARE(orders[0][u"segment"_s], segment(1, 0, 6000, {}));
        QCOMPARE(orders[1][u"segment"_s], segment(2, 15000, 5000, parts[0].right(6000)));
        QCOMPARE(orders[2][u"segment"_s], segment(3, 19900, 100, (parts[0] + parts[1]).right(6000)));
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
        const QJsonObject found{{u"summary"_s, u"Вот что"_s}, {u"sources"_s, QJsonArray{u"x"_s}}};
        run.model.answer(u"specialist"_s, found);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.node(u"r"_s)[u"output"_s].toObject(), found);
        QCOMPARE(run.orders(u"a.txt"_s).first()[u"dependencies"_s], QJsonValue(QJsonArray{found}));
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
        PlannedRun run({code(u"a.txt"_s), ScriptedProvider::node(u"refused"_s, u"tool"_s, input, {u"a.txt"_s}),
                        check(u"check"_s, u"cat a.txt"_s, {u"a.txt"_s}), code(u"b.txt"_s, {u"a.txt"_s})});
        run.engine.computerAccess = true;
        run.texts = {{u"a.txt"_s, {u"old"_s, u"new"_s}}};
        run.when(u"AutomaticCorrection"_s, u"Проверка не прошла"_s,
                 [&] { QVERIFY(QFile::link(u"/bin/sh"_s, program)); });

        QCOMPARE(run.ending(), u"COMPLETED"_s);

        QCOMPARE(run.calls(u"refused"_s), 2);
        QCOMPARE(run.calls(u"check"_s), 1);
        QCOMPARE(run.node(u"check"_s)[u"output"_s][u"stdout"_s].toString(), u"new"_s);
        QCOMPARE(run.orders(u"b.txt"_s).size(), 1);
        QCOMPARE(run.orders(u"b.txt"_s).first()[u"dependencies"_s][0][u"content"_s].toString(), u"new"_s);
    }
};

QTEST_GUILESS_MAIN(NodesTest)
#include "tst_nodes.moc"
