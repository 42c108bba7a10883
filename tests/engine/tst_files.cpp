#include "files.h"
#include "json_text.h"
#include "planned_run.h"

#include "prompt_notes.h"

#include <QTest>

using namespace vesk;

namespace {

QString askedChange(const QString &path)
{
    return u"Верни только полный файл "_s + path
        + u". Не изменяй пути других узлов. Дополнительные файлы должны иметь уникальные пути внутри проекта."_s;
}

/// Lets the node of a.txt answer with these files first, and well afterwards.
void answerFirst(PlannedRun &run, const QList<std::pair<QString, QString>> &files, int times = 1)
{
    run.coder = [files, times](const QJsonObject &order, int nth) {
        const bool first = order[u"node"_s][u"id"_s].toString() == u"a.txt"_s && nth < times;
        return first ? filesAnswer(files) : QJsonObject();
    };
}

/// Holds the answers back from the first review on.
void holdReviews(PlannedRun &run)
{
    run.when(u"FileModified"_s, {}, [&run] { run.model.holding = true; });
    run.start();
    QVERIFY(run.runToHeld(2));
}

} // namespace

class FilesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aBadListOfFilesGoesBackToTheCoder()
    {
        for (const auto &[path, fault] :
             {std::pair{u"sub\\other.txt"_s, u"Файл уже поручен другому узлу: sub\\other.txt"_s},
              {u"out/b.txt"_s, u"Symlink paths are not allowed"_s},
              {u"dir"_s, u"Этот путь занят папкой или другим объектом, который не является файлом: dir"_s},
              {u"plain/new/b.txt"_s, u"На пути стоит файл, в нём не может быть других файлов: plain/new/b.txt"_s},
              {u"б"_s.repeated(128), u"Слишком длинное имя файла: "_s + u"б"_s.repeated(128)}}) {
            const QTemporaryDir outside;
            PlannedRun run({code(u"sub/other.txt"_s), code(u"a.txt"_s)});
            QVERIFY(QDir(run.workspace.root()).mkdir(u"dir"_s) && run.save(u"plain"_s, "x"));
            QVERIFY(QFile::link(outside.path(), run.projectFile(u"out"_s)));
            answerFirst(run, {{u"a.txt"_s, u"1"_s}, {path, u"2"_s}});
            QCOMPARE(run.ending(), u"COMPLETED"_s);

            QCOMPARE(run.messages(u"AutomaticCorrection"_s), QStringList{u"Уточняю список файлов: "_s + fault});
            QCOMPARE(run.orders(u"a.txt"_s).last()[u"fixes"_s].toArray(),
                     QJsonArray({QJsonObject{{u"issues"_s, QJsonArray{fault}},
                                             {u"required_changes"_s, QJsonArray{askedChange(u"a.txt"_s)}}}}));
            QVERIFY(run.rows(u"fix_requests"_s).isEmpty());
            // Nothing of the bad answer was written.
            QCOMPARE(run.node(u"a.txt"_s)[u"revision"_s].toInt(), 1);
            QCOMPARE(run.workspace.files().size(), 2);
            QCOMPARE(QDir(outside.path()).count(), 2u); // but for . and ..
        }
    }

    void bothSlashesNameOneFile()
    {
        PlannedRun run({code(u"sub\\a.txt"_s)});
        run.coder = [](const QJsonObject &, int nth) {
            return filesAnswer({{u"sub\\a.txt"_s, QString::number(nth)}, {u"sub\\b.txt"_s, u"2"_s}});
        };
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QStringList paths;
        for (const auto files = run.workspace.files(); const QJsonValue &file : files)
            paths << file[u"path"_s].toString();
        QCOMPARE(paths, (QStringList{u"sub/b.txt"_s, u"sub/a.txt"_s}));
    }

    void aLongFileIsChangedByEdits()
    {
        QString text;
        for (int i = 0; i < 7000; ++i)
            text += u"const name%1 = 1;\n"_s.arg(i);
        const auto edit = [](const QString &old, const QString &path = u"a.txt"_s) {
            const QJsonArray edits{QJsonObject{{u"old"_s, old}, {u"new"_s, u"let name6000 = 2;"_s}}};
            return QJsonObject{{u"files"_s, QJsonArray{QJsonObject{{u"path"_s, path}, {u"edits"_s, edits}}}}};
        };
        PlannedRun run({code(u"a.txt"_s, {}, {{u"instructions"_s, u"Поправь name6000"_s}})});
        run.coder = [&](const QJsonObject &, int nth) {
            // Edits are no answer to an order that does not offer them.
            const QList<QJsonObject> answers{edit(u"x"_s), filesAnswer({{u"a.txt"_s, text}}), edit(u"const"_s),
                                             edit(u"1"_s, u"b.txt"_s), edit(u"const name6000 = 1;"_s)};
            return answers.value(nth);
        };
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QVERIFY(run.artifact(u"correctness_reviewer"_s)[u"file"_s][u"content"_s].toString().size() > 70000);
        QCOMPARE(run.fileContent(u"a.txt"_s), text.toUtf8());
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        QCOMPARE(run.fileContent(u"a.txt"_s),
                 QString(text).replace(u"const name6000 = 1;"_s, u"let name6000 = 2;"_s).toUtf8());
        QCOMPARE(run.node(u"a.txt"_s)[u"revision"_s].toInt(), 2);
        QCOMPARE(run.messages(u"AutomaticCorrection"_s),
                 (QStringList{u"Уточняю список файлов: Правка 1 файла a.txt неоднозначна, этот текст встречается в нём "
                              "несколько раз: «const»"_s,
                              u"Уточняю список файлов: Нет текста, в который можно внести правки: b.txt"_s}));
        const QJsonObject previous = run.orders(u"a.txt"_s).last()[u"previous_file"_s].toObject();
        QVERIFY(previous[u"content_truncated"_s].toBool());
        QVERIFY(previous[u"content"_s].toString().contains(u"\nconst name6000 = 1;\n"_s));
        QVERIFY(previous[u"content"_s].toString().size() < 30000);
        for (const LLMRequest &request : std::as_const(run.model.requests))
            QCOMPARE(request.system.endsWith(editsNote()),
                     request.input[u"artifact"_s].toObject().contains(u"previous_file"_s));
        const QJsonObject reviewed = run.artifact(u"integration_reviewer"_s, 1)[u"file"_s].toObject();
        QVERIFY(reviewed[u"content"_s].toString().contains(u"name5999 = 1;\nlet name6000 = 2;\nconst name6001"_s));
    }

    void theFourthBadListEndsTheRun()
    {
        PlannedRun run({code(u"a.txt"_s)});
        answerFirst(run, {{u"b.txt"_s, {}}}, 4);

        QCOMPARE(
            run.ending(),
            u"Не удалось исправить формат файлов после трёх попыток: В ответе отсутствует ожидаемый файл: a.txt"_s);
        QCOMPARE(run.orders(u"a.txt"_s).size(), 4);
        QCOMPARE(run.status(u"a.txt"_s), u"FAILED"_s);
    }

    void aFurtherFileGetsANodeOfItsOwn()
    {
        PlannedRun run({code(u"base.txt"_s), code(u"a.txt"_s, {u"base.txt"_s}, {{u"instructions"_s, u"Обе"_s}}),
                        code(u"after.txt"_s, {u"a.txt"_s}), code(u"beside.txt"_s, {u"base.txt"_s})});
        answerFirst(run, {{u"sub/b.txt"_s, u"B"_s}, {u"a.txt"_s, u"A"_s}, {u"c.json"_s, u"[]"_s}});
        QCOMPARE(run.ending(), u"COMPLETED"_s);

        QCOMPARE(fields(run.nodes(), u"4.title 4.dependencies 4.input 4.output.content 4.revision 5.title"_s),
                 u"Создать sub/b.txt ['base.txt'] {'instructions':'Обе','path':'sub/b.txt'} B 1 Создать c.json"_s);
        QCOMPARE(fields(run.nodes(), u"2.dependencies 3.dependencies"_s),
                 u"['a.txt','%1','%2'] ['base.txt']"_s.arg(run.nodes()[4][u"id"_s].toString(),
                                                           run.nodes()[5][u"id"_s].toString()));

        // Those that wait see the whole answer, each file was reviewed, and the plan knows the new nodes.
        QCOMPARE(run.orders(u"after.txt"_s).first()[u"dependencies"_s].toArray().size(), 3);
        QCOMPARE(run.model.count(u"correctness_reviewer"_s), 6);
        QCOMPARE(run.fileContent(u"c.json"_s), "[]");
        const QJsonArray planned = run.state(u"plan"_s)[u"nodes"_s].toArray();
        QCOMPARE(planned.size(), 6);
        QVERIFY(!planned[4].toObject().contains(u"output"_s));
    }

    void aListOfPathsBecomesTheFirstFile()
    {
        QJsonObject node = code(u"a.txt, b.txt"_s);
        node[u"id"_s] = u"both"_s;
        PlannedRun run({node});
        run.coder = [](const QJsonObject &, int) { return filesAnswer({{u"a.txt"_s, u"A"_s}, {u"b.txt"_s, u"B"_s}}); };
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(run.node(u"both"_s)[u"input"_s][u"path"_s].toString(), u"a.txt"_s);
        QCOMPARE(run.fileContent(u"a.txt"_s) + run.fileContent(u"b.txt"_s), "AB");
    }

    void anObjectionBecomesAFixBoundToItsRevision()
    {
        PlannedRun run({code(u"a.txt"_s)});
        run.objections = {{u"a.txt"_s, 1}};
        run.texts = {{u"a.txt"_s, {u"old"_s, u"new"_s}}};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(fields(run.artifact(u"integration_reviewer"_s), u"file.content"_s), u"old"_s);

        // Only the reviewer that objected orders anything.
        const QJsonArray fixes = run.orders(u"a.txt"_s).last()[u"fixes"_s].toArray();
        QCOMPARE(fixes.size(), 1);
        QJsonObject fix = fixes[0].toObject();
        const QJsonObject expected
            = object(u"{'node_id':'a.txt','file':'a.txt','revision':1,'severity':'ERROR','status':'OPEN',"
                     "'reviewer':'correctness_reviewer','description':['Плохо 1'],'proposed_solution':['Плохо 1']}"_s);
        QCOMPARE(fix, ScriptedProvider::with(expected, {{u"id"_s, fix[u"id"_s]}}));
        QCOMPARE(run.artifact(u"coordinator"_s)[u"topic"_s].toString(), u"code"_s);
        QCOMPARE(run.artifact(u"coordinator"_s)[u"fixes"_s].toArray(), fixes);

        fix[u"status"_s] = u"RESOLVED"_s;
        fix[u"resolved_revision"_s] = 2;
        QCOMPARE(run.rows(u"fix_requests"_s), QJsonArray{fix});
        QCOMPARE(run.messages(u"FileModified"_s), QStringList({u"a.txt rev1"_s, u"a.txt rev2"_s}));
    }

    void anApprovalResolvesTheFixesOfItsNodeOnly()
    {
        PlannedRun run({code(u"a.txt"_s)});
        run.objections = {{u"a.txt"_s, 2}};
        run.when(u"FixRequested"_s, {}, [&] {
            run.store.put(u"fix_requests"_s, u"f"_s, run.task(),
                          {{u"node_id"_s, u"b.txt"_s}, {u"status"_s, u"OPEN"_s}});
        });
        QCOMPARE(run.ending(), u"Final gate: unresolved fixes"_s);
        const QJsonArray fixes = run.rows(u"fix_requests"_s);
        QCOMPARE(fixes.size(), 3);
        for (const QJsonValue &fix : fixes)
            QCOMPARE(fix[u"status"_s] == u"OPEN"_s, fix[u"node_id"_s] == u"b.txt"_s);
    }

    void theSixthObjectionEndsTheRun()
    {
        PlannedRun run({code(u"a.txt"_s)});
        run.objections = {{u"a.txt"_s, 6}};
        QJsonObject noted = ScriptedProvider::approval();
        noted[u"issues"_s] = QJsonArray{7, QString(2000, u'ы')};
        run.model.answer(u"integration_reviewer"_s, noted);

        QCOMPARE(run.ending(),
                 u"Не удалось устранить замечания к a.txt после пяти исправлений. Файлы сохранены. Причина: Плохо 6; "_s
                     + QString(1791, u'ы'));
        QCOMPARE(run.orders(u"a.txt"_s).size(), 6);
        QCOMPARE(run.workspace.latest(u"a.txt"_s)[u"revision"_s].toInt(), 6);
        QCOMPARE(run.rows(u"fix_requests"_s).size(), 5);
    }

    void theUserDecidesOnAFixWhenTheCoordinatorAsks()
    {
        PlannedRun run({code(u"a.txt"_s)});
        run.objections = {{u"a.txt"_s, 1}};
        run.coordination
            = object(u"{'needs_user':true,'summary':'Спросим','question':'Как исправить?','options':['Коротко']}"_s);
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        QCOMPARE(run.status(u"a.txt"_s), u"REVISION_REQUIRED"_s);
        QCOMPARE(run.orders(u"a.txt"_s).size(), 1);

        run.engine.clarify(u"Коротко"_s);
        QCOMPARE(fields(run.engine.snapshot(), u"phase graph.0.status"_s), u"EXECUTION RUNNING"_s);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(fields(run.model.input(u"coding"_s, 1), u"task.clarification"_s), u"Коротко"_s);
    }

    void aReviewOfAnOldRevisionIsRejected()
    {
        PlannedRun run({code(u"a.txt"_s)});
        holdReviews(run);
        run.workspace.write(u"a.txt"_s, "newer", u"somebody"_s, 1);
        run.model.releaseAll();

        QCOMPARE(run.outcome(), u"Stale review rejected"_s);
        QCOMPARE(run.fileContent(u"a.txt"_s), "newer");
    }

    void anEditDuringARunWaitsForTheUser_data()
    {
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("mine"); // what the user leaves there; nothing for a deletion
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("history");
        const QString own = u"Взять мою версию"_s;
        const QString program = u"вернуть версию программы"_s;
        const QString event = u"PhaseChanged"_s;
        QTest::newRow("planning") << event << u"PLANNING"_s << u"mine"_s << own << u"one|user:mine|two"_s;
        QTest::newRow("planning, back") << event << u"PLANNING"_s << u"mine"_s << program
                                        << u"one|user:mine|rollback:one|two"_s;
        QTest::newRow("coding") << u"AgentStarted"_s << u"coding"_s << u"mine"_s << u"моя лучше"_s
                                << u"one|user:mine"_s;
        QTest::newRow("coding, back") << u"AgentStarted"_s << u"coding"_s << u"mine"_s << program
                                      << u"one|user:mine|rollback:one|two"_s;
        QTest::newRow("review") << u"FileModified"_s << u""_s << u"mine"_s << own << u"one|two|user:mine"_s;
        QTest::newRow("review, back") << u"FileModified"_s << u""_s << u"mine"_s << program
                                      << u"one|two|user:mine|rollback:two"_s;
        QTest::newRow("deleted, planning") << event << u"PLANNING"_s << QString() << own << u"one|user:"_s;
        QTest::newRow("deleted, coding") << u"AgentStarted"_s << u"coding"_s << QString() << own << u"one|user:"_s;
        QTest::newRow("deleted, review") << u"FileModified"_s << u""_s << QString() << own << u"one|two|user:"_s;
        QTest::newRow("deleted, review, back")
            << u"FileModified"_s << u""_s << QString() << program << u"one|two|user:|rollback:two"_s;
    }

    void anEditDuringARunWaitsForTheUser()
    {
        QFETCH(QString, event);
        QFETCH(QString, message);
        QFETCH(QString, mine);
        QFETCH(QString, answer);
        QFETCH(QString, history);
        PlannedRun run({code(u"a.txt"_s)});
        run.texts = {{u"a.txt"_s, {u"one"_s, u"two"_s}}};
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        run.when(event, message, [&] {
            QVERIFY(mine.isNull() ? QFile::remove(run.projectFile(u"a.txt"_s)) : run.save(u"a.txt"_s, mine.toUtf8()));
        });
        run.start();
        QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
        run.engine.clarify(answer);
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        QVERIFY(!run.state(u"spec"_s)[u"clarification"_s].isString());

        QStringList kept;
        for (const auto rows = run.store.list(u"file_revisions"_s, u"project"_s); const QJsonValue &row : rows) {
            const QString author = row[u"author_agent"_s].toString();
            const bool isCoder = author != u"user"_s && author != u"rollback"_s;
            kept << (isCoder ? QString() : author + u':') + row[u"content"_s].toString();
        }
        QCOMPARE(kept.join(u'|'), history);
        const QByteArray last = history.endsWith(u':') ? "(none)" : kept.last().section(u':', -1).toUtf8();
        QCOMPARE(contentOf(run.projectFile(u"a.txt"_s)), last);
        QCOMPARE(run.workspace.externalChanges(), QStringList());
        // What the user has written is reviewed like what a model has.
        const qsizetype reviews = run.model.count(u"correctness_reviewer"_s);
        QCOMPARE(reviews,
                 1 + history.count(u"two"_s) - history.count(u"rollback:two"_s)
                     + (history.endsWith(u":mine"_s) ? 1 : 0));
    }

    void twoEditsAreAskedAboutOneAfterTheOther()
    {
        PlannedRun run({code(u"a.txt"_s), code(u"b.txt"_s)});
        run.model.holding = true;
        run.start();
        while (run.model.count(u"coding"_s) < 2 && run.runUntil([&] { return run.model.held() > 0; }))
            run.model.release();
        QVERIFY(run.save(u"a.txt"_s, "my a") && run.save(u"b.txt"_s, "my b"));
        run.model.releaseAll();
        for (const QString &answer : {u"Взять мою версию"_s, u"Вернуть версию программы"_s}) {
            QVERIFY(run.runToPhase(u"CLARIFICATION"_s));
            run.engine.clarify(answer);
        }
        QCOMPARE(run.outcome(), u"COMPLETED"_s);
        const QByteArrayList texts{run.fileContent(u"a.txt"_s), run.fileContent(u"b.txt"_s)};
        QVERIFY2(texts == (QByteArrayList{"my a", "b.txt\n"}) || texts == (QByteArrayList{"a.txt\n", "my b"}),
                 texts.join(", ").constData());
    }

    void noFurtherFileIsWrittenOnceTheRunHasEnded()
    {
        PlannedRun run({code(u"a.txt"_s)});
        QVERIFY(run.save(u"c.txt"_s, "mine"));
        answerFirst(run, {{u"a.txt"_s, {}}, {u"b.txt"_s, {}}, {u"c.txt"_s, {}}, {u"d.txt"_s, {}}});
        run.when(u"PhaseChanged"_s, u"CLARIFICATION"_s, [&] { run.engine.cancel(); });

        QCOMPARE(run.ending(), u"CANCELLED"_s);
        QCOMPARE(run.messages(u"FileModified"_s), QStringList{u"b.txt rev1"_s}); // the expected file comes last
        QCOMPARE(run.fileContent(u"c.txt"_s), "mine");
    }
};

QTEST_GUILESS_MAIN(FilesTest)
#include "tst_files.moc"
