// What a finished task can show for its claims.

#include "planned_run.h"

#include "evidence.h"
#include "evidence_text.h"
#include "narrator.h"

#include <QElapsedTimer>
#include <QTest>
#include <QThreadPool>

using namespace vesk;

namespace {

QStringList gapsOf(const PlannedRun &run)
{
    return strings(run.state(u"evidence"_s)[u"gaps"_s].toArray());
}

QJsonObject rowOf(const PlannedRun &run, const QString &list, const QString &key, const QString &value)
{
    const QJsonArray rows = run.state(u"evidence"_s)[list].toArray();
    const auto row
        = std::ranges::find_if(rows, [&](const QJsonValue &entry) { return entry[key].toString() == value; });
    return row == rows.end() ? QJsonObject() : row->toObject();
}

QJsonObject command(const QString &id, const QString &program, const QStringList &arguments,
                    const QStringList &after = {})
{
    return ScriptedProvider::node(
        id, u"tool"_s,
        {{u"program"_s, program}, {u"arguments"_s, QJsonArray::fromStringList(arguments)}, {u"verification"_s, true}},
        after);
}

/// Records written down: files of one revision, checks that passed behind all of them.
struct Records {
    Records()
    {
        sources.root = u"/p"_s;
        sources.exists = [this](const QString &path) { return there.contains(path); };
        sources.spec = {{u"title"_s, u"Сад"_s}, {u"original_request"_s, u"Сад"_s}};
    }
    Q_DISABLE_COPY_MOVE(Records)
    void file(const QString &path, const QString &text = u"let a = 1;"_s)
    {
        Node node = Node::fromJson(code(path));
        node.output = {{u"path"_s, path},    {u"revision"_s, 1},       {u"hash"_s, u"h"_s},
                       {u"content"_s, text}, {u"timestamp"_s, u"2"_s}, {u"success"_s, true}};
        sources.nodes.append(node);
    }
    void check(const QStringList &line)
    {
        QStringList after;
        for (const Node &node : std::as_const(sources.nodes))
            after.append(node.id);
        Node node = Node::fromJson(command(u"t%1"_s.arg(after.size()), line.first(), line.mid(1), after));
        node.output = {{u"success"_s, true}, {u"started_at"_s, u"3"_s}};
        sources.nodes.append(node);
    }
    void review(const QString &role, const QJsonObject &answer, int of = 0)
    {
        const QJsonObject artifact{{u"file"_s, sources.nodes.at(of).output}};
        sources.runs.append({{u"id"_s, QString::number(sources.runs.size())},
                             {u"role"_s, role},
                             {u"status"_s, u"COMPLETED"_s},
                             {u"context"_s, QJsonObject{{u"artifact"_s, artifact}}},
                             {u"output"_s, answer}});
    }
    QString markOf(const QString &list, int row) const { return evidenceOf(sources)[list][row][u"mark"_s].toString(); }
    QString criterion(const QString &text)
    {
        sources.spec[u"acceptance_criteria"_s] = QJsonArray{text};
        return markOf(u"criteria"_s, 0);
    }
    QStringList gaps() const { return strings(evidenceOf(sources)[u"gaps"_s].toArray()); }

    EvidenceSources sources;
    QStringList there; ///< Paths of files of the folder.
};

} // namespace

class EvidenceTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void namesAreFoundInSentences()
    {
        const QHash<QString, QStringList> files{
            {u"Файл src/app.js и README.md рядом"_s, {u"src/app.js"_s, u"README.md"_s}},
            {u"На Node.js и three.js, версия 1.2, сайт example.com"_s, {}},
            {u"Открыть https://x.org/index.html или ./index.html."_s, {u"index.html"_s}},
            {u"отчёт.csv (не .csv)"_s, {u"отчёт.csv"_s}},
        };
        for (const auto &[sentence, names] : files.asKeyValueRange())
            QCOMPARE(namedFiles(sentence), names);

        const QHash<QString, QString> commands{
            {u"Команда `npm run build -- --fast` проходит"_s, u"npm run build -- --fast"_s},
            {u"npm test проходит без ошибок"_s, u"npm test"_s},
            {u"python3 main.py печатает 4"_s, u"python main.py"_s},
            {u"Запуск pytest успешен"_s, u"pytest"_s},
            {u"Please make it go fast"_s, {}},
            {u"«./run.sh --check»"_s, u"run.sh --check"_s},
        };
        for (const auto &[sentence, line] : commands.asKeyValueRange()) {
            const QList<QStringList> found = namedCommands(sentence);
            QCOMPARE(found.isEmpty() ? QString() : found.first().join(u' '), line);
        }
        QVERIFY(isWithin({u"npm"_s, u"test"_s}, commandWords(u"/usr/bin/node"_s, {u"/x/npm-cli.js"_s, u"test"_s})));
        QVERIFY(
            isWithin({u"python"_s, u"a.py"_s}, commandWords(u"/bin/sh"_s, {u"-ec"_s, u"cd x; python3 src/a.py"_s})));
        QVERIFY(!isWithin({u"npm"_s, u"test"_s}, {u"test"_s, u"npm"_s}));
    }

    void aCommandThatCannotFailProvesNothing()
    {
        const QJsonObject package{{u"scripts"_s, QJsonObject{{u"test"_s, u"jest || true"_s}, {u"build"_s, u"vite"_s}}}};
        const QString shell = u"/bin/sh"_s;
        const QList<std::tuple<QString, QStringList, bool>> rows{
            {shell, {u"-c"_s, u"pytest || true"_s}, true},
            {shell, {u"-c"_s, u"make; exit 0"_s}, true},
            {shell, {u"-c"_s, u"exit 0"_s}, true},
            {shell, {u"-c"_s, u"echo готово"_s}, true},
            {shell, {u"-c"_s, u"pytest | tee log"_s}, true},
            {shell, {u"-c"_s, u"set -o pipefail; pytest | tee log"_s}, false},
            {shell, {u"-c"_s, u"a || exit 1"_s}, false},
            {shell, {u"-c"_s, u"./main | grep hi"_s}, false},
            {u"/bin/true"_s, {}, true},
            {u"/usr/bin/node"_s, {u"--version"_s}, true},
            {u"/usr/bin/node"_s, {u"--help"_s}, true},
            {u"/usr/bin/node"_s, {u"/x/npm-cli.js"_s, u"test"_s}, true},
            {u"/usr/bin/node"_s, {u"/x/npm-cli.js"_s, u"run"_s, u"build"_s}, false},
            {u"/usr/bin/node"_s, {u"test.js"_s}, false},
        };
        for (const auto &[program, arguments, isEmpty] : rows)
            QVERIFY2(emptyProof(program, arguments, package).isEmpty() != isEmpty, qPrintable(arguments.join(u' ')));
    }

    void aFileThatHoldsNothingIsNamed()
    {
        const QList<std::tuple<QString, QString, bool>> rows{
            {u"a.txt"_s, u" \n"_s, true},
            {u"a.js"_s, u"// позже\n/* и это */\n"_s, true},
            {u"a.py"_s, u"# TODO\n"_s, true},
            {u"a.html"_s, u"<!doctype html><!-- здесь будет страница -->"_s, true},
            {u"a.md"_s, u"TODO: описание"_s, true},
            {u"a.md"_s, u"TODO: описание"_s.repeated(40), false},
            {u"a.js"_s, u"let a;\nfunction sum(a, b) { // TODO реализовать\n}\n"_s, true},
            {u"a.js"_s, u"const sum = (a, b) => { throw new Error('not implemented'); }"_s, true},
            {u"a.py"_s, u"def f(x):\n    # TODO\n    pass\n\nprint(1)\n"_s, true},
            {u"a.py"_s, u"def f(x):\n    # TODO: быстрее\n    return x\n"_s, false},
            {u"a.js"_s, u"function f() {} // TODO: имя\n"_s, false},
            {u"a.js"_s, u"// about\nlet a = 1; // TODO\n"_s, false},
            {u"a.txt"_s, u"# не код"_s, false},
        };
        for (const auto &[path, text, isHollow] : rows)
            QVERIFY2(hollowness(path, text).isEmpty() != isHollow, qPrintable(text));
        QVERIFY(!disguise(u"logo.png"_s, u"картинка"_s).isEmpty());
        QVERIFY(disguise(u"logo.svg"_s, u"<svg/>"_s).isEmpty());
        QVERIFY(isTestPath(u"tests/a.py"_s) && isTestPath(u"src/a.test.js"_s) && isTestPath(u"test_a.py"_s));
        QVERIFY(!isTestPath(u"src/latest.js"_s) && !isTestPath(u"contest/a.py"_s));
    }

    void aCheckThatReadsAFileProvesIt()
    {
        PlannedRun run(
            {code(u"main.py"_s), code(u"README.md"_s), code(u"lib/CMakeLists.txt"_s),
             command(u"t"_s, u"/bin/sh"_s, {u"-c"_s, u"test -s main.py"_s}, {u"main.py"_s, u"README.md"_s}),
             command(u"e"_s, u"/bin/sh"_s, {u"-c"_s, u"false || true"_s}, {u"README.md"_s, u"lib/CMakeLists.txt"_s})});
        run.engine.computerAccess = true;
        QJsonObject spec = ScriptedProvider::taskSpec();
        spec[u"acceptance_criteria"_s] = QJsonArray{u"Файл main.py не пуст"_s};
        run.model.forget(u"orchestrator"_s);
        run.model.answer(u"orchestrator"_s, spec);
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QCOMPARE(rowOf(run, u"files"_s, u"path"_s, u"main.py"_s)[u"mark"_s], u"check"_s);
        const QJsonObject readme = rowOf(run, u"files"_s, u"path"_s, u"README.md"_s);
        QCOMPARE(readme[u"mark"_s], u"reviews"_s);
        QCOMPARE(readme[u"reviews"_s].toArray().size(), 2);
        QCOMPARE(rowOf(run, u"criteria"_s, u"kind"_s, u"criterion"_s)[u"mark"_s], u"check"_s);
        QVERIFY(!rowOf(run, u"checks"_s, u"node"_s, u"e"_s)[u"empty"_s].toString().isEmpty());
        const QString report = Narrator::report(run.engine.snapshot());
        QVERIFY2(report.startsWith(u"Задача завершена. 1 из 1 критерия подтверждён проверками.\n\n"_s),
                 qPrintable(report));
        QVERIFY(report.contains(u"» — подтверждено: sh -c test -s main.py"_s));
        QVERIFY(gapsOf(run).contains(u"Смотрели только проверяющие, запуском не проверены: lib/CMakeLists.txt."_s));
        QCOMPARE(gapsOf(run).filter(u"ничего не доказывает"_s).size(), 1);
    }

    void whatIsOfAnotherVersionProvesNothing()
    {
        PlannedRun run({code(u"a.md"_s), command(u"t"_s, u"/bin/sh"_s, {u"-c"_s, u"test -s a.md"_s}, {})});
        run.engine.computerAccess = true;
        QCOMPARE(run.ending(), u"COMPLETED"_s);
        QList<Node> nodes;
        const QJsonArray graph = run.nodes();
        for (const QJsonValue &node : graph)
            nodes.append(Node::fromJson(node.toObject()));
        QList<QJsonObject> runs;
        const QJsonArray made = run.state(u"runs"_s).toArray();
        for (const QJsonValue &one : made)
            runs.append(one.toObject());
        const auto markWith = [&](int node, const QString &key, const QJsonValue &value) {
            EvidenceSources sources{run.state(u"spec"_s).toObject(),      nodes, runs, run.workspace.root(),
                                    [](const QString &) { return true; }, {}};
            sources.nodes[node].output[key] = value;
            return evidenceOf(sources)[u"files"_s][0][u"mark"_s].toString();
        };
        QCOMPARE(markWith(1, u"success"_s, true), u"check"_s);
        QCOMPARE(markWith(1, u"success"_s, false), u"reviews"_s);
        QCOMPARE(markWith(0, u"timestamp"_s, u"2999-01-01T00:00:00.000Z"_s), u"reviews"_s);
        nodes[1].output[u"success"_s] = false;
        QCOMPARE(markWith(0, u"revision"_s, 2), u"none"_s);
        QCOMPARE(markWith(0, u"hash"_s, u"other"_s), u"none"_s);
    }

    void aCheckAnswersWhatItReads()
    {
        const QString node = u"/usr/bin/node"_s;
        const QStringList page{node, u"/x/browser-check.mjs"_s, u"/b"_s, u"/p/index.html"_s, u"/p"_s};
        Records records;
        records.file(u"index.html"_s, u"<script src=a.js></script>"_s);
        records.file(u"a.js"_s);
        records.file(u"about.html"_s);
        records.check({node, u"--check"_s, u"a.js"_s});
        QCOMPARE(records.markOf(u"files"_s, 1), u"none"_s); // Its syntax is no proof without reviews,
        QCOMPARE(records.criterion(u"Файл a.js верен"_s), u"opinion"_s); // and answers nothing,
        QVERIFY(evidenceOf(records.sources)[u"files"_s][0][u"checks"_s].toArray().isEmpty()); // nor reads others.
        records.check(page);
        QCOMPARE(records.markOf(u"files"_s, 1), u"check"_s); // The page loads it.
        QCOMPARE(records.markOf(u"files"_s, 2), u"none"_s);
        QCOMPARE(records.criterion(u"Страница index.html открывается без ошибок"_s), u"check"_s);
        QCOMPARE(records.criterion(u"Страницы index.html и about.html открываются без ошибок"_s), u"opinion"_s);
        QCOMPARE(records.criterion(u"Тесты проходят"_s), u"opinion"_s);
        records.check({u"/usr/bin/pytest"_s});
        QCOMPARE(records.criterion(u"Тесты проходят"_s), u"check"_s);
        QCOMPARE(records.criterion(u"Тестовые данные на месте"_s), u"opinion"_s);
        QCOMPARE(records.criterion(u"Страница открывается без ошибок, `npm run x` тоже"_s), u"none"_s);
        QCOMPARE(records.criterion(u"Рядом есть old.csv"_s), u"none"_s);
        records.there = QStringList{u"old.csv"_s};
        QCOMPARE(records.criterion(u"Рядом есть old.csv"_s), u"opinion"_s);
        records.sources.strays.paths = QStringList{u"sub/made.csv"_s};
        QCOMPARE(records.criterion(u"Рядом есть made.csv"_s), u"opinion"_s);
        records.sources.strays = {};
        QCOMPARE(records.criterion(u"Рядом есть made.csv"_s), u"none"_s);
    }

    void requirementsCountWhereThereAreNoCriteria()
    {
        Records records;
        records.file(u"a.md"_s);
        records.sources.spec[u"requirements"_s] = QJsonArray{u"Цветёт"_s, u"Пахнет"_s};
        QCOMPARE(evidenceOf(records.sources)[u"believed"_s].toInt(), 2);
        (void)records.criterion(u"Растёт"_s);
        QCOMPARE(evidenceOf(records.sources)[u"believed"_s].toInt(), 1);

        const auto headline = [](int proved, int believed, int open) {
            return evidenceHeadline({{u"proved"_s, proved}, {u"believed"_s, believed}, {u"open"_s, open}});
        };
        QCOMPARE(headline(0, 0, 2), u"Проверками не подтверждён ни один критерий."_s);
        QCOMPARE(headline(1, 1, 19),
                 u"1 из 21 критерия подтверждён проверками, 1 — только мнением агентов, 19 — не подтверждены."_s);
    }

    void theLastWordOfAReviewerCounts()
    {
        const QString correctness = u"correctness_reviewer"_s;
        Records records;
        records.file(u"a.md"_s);
        records.review(correctness, ScriptedProvider::approval());
        QCOMPARE(records.markOf(u"files"_s, 0), u"opinion"_s);
        records.review(correctness, ScriptedProvider::verdict(u"REVISE"_s, u"Нет роз"_s));
        QCOMPARE(records.markOf(u"files"_s, 0), u"none"_s);
        QVERIFY(records.gaps().filter(u"Нет роз"_s).isEmpty()); // Only beside an approval it is a remark.
        QJsonObject hesitant = ScriptedProvider::approval();
        hesitant[u"issues"_s] = QJsonArray{u"Мало роз"_s};
        records.review(u"integration_reviewer"_s, hesitant);
        QCOMPARE(records.gaps().filter(u"Мало роз"_s).size(), 1);
        hesitant.remove(u"issues"_s);
        hesitant.remove(u"confidence"_s);
        records.review(u"integration_reviewer"_s, hesitant);
        QVERIFY(records.gaps().filter(u"Проверка совместимости"_s).isEmpty());

        const QJsonObject file{{u"path"_s, u"src/a.js"_s}, {u"revision"_s, 2}, {u"hash"_s, u"h"_s}};
        for (const auto &[said, isForeign] :
             {std::pair{QJsonObject{{u"path"_s, u"./src/a.js"_s}, {u"revision"_s, 2}, {u"hash"_s, u"h"_s}}, false},
              {QJsonObject{{u"file"_s, u"b.js"_s}}, true},
              {QJsonObject{{u"revision"_s, 1}}, true},
              {QJsonObject{{u"hash"_s, u"x"_s}}, true}})
            QCOMPARE(isForeignReview(said, {{u"file"_s, file}}), isForeign);
    }

    void whatAnAgentDidNotSeeAndWhoIsOffIsTold()
    {
        Records records;
        records.file(u"a.md"_s);
        records.sources.nodes[0].output[u"content_chars_omitted"_s] = 70;
        records.review(u"correctness_reviewer"_s, ScriptedProvider::approval());
        QVERIFY(!records.gaps().filter(u"a.md: файл показан не целиком, без 70 знаков"_s).isEmpty());
        records.sources.spec[u"disabled_agents"_s] = QJsonArray{u"risk_judge"_s};
        const QJsonArray opinions = evidenceOf(records.sources)[u"opinions"_s].toArray();
        QCOMPARE(opinions.last()[u"text"_s], u"отключён пользователем"_s);
        records.sources.spec[u"requirements"_s] = QJsonArray::fromStringList(QStringList(60, u"Есть b.csv"_s));
        QCOMPARE(records.gaps().size(), 41);
    }

    void aReviewOfAnotherFileIsAskedForAgainAndNotCounted()
    {
        for (const bool stubborn : {false, true}) {
            PlannedRun run({code(u"a.md"_s)});
            QJsonObject foreign = ScriptedProvider::approval();
            foreign[u"path"_s] = u"b.md"_s;
            run.model.answer(u"integration_reviewer"_s, foreign);
            run.model.answer(u"integration_reviewer"_s, stubborn ? foreign : ScriptedProvider::approval());
            QCOMPARE(run.ending(), u"COMPLETED"_s);
            QCOMPARE(run.model.count(u"integration_reviewer"_s), 2);
            QCOMPARE(rowOf(run, u"files"_s, u"path"_s, u"a.md"_s)[u"mark"_s], stubborn ? u"opinion"_s : u"reviews"_s);
            QCOMPARE(gapsOf(run).contains(u"a.md: рецензия дана другому файлу или другой версии."_s), stubborn);
        }
    }

    void aTestIsTriedOnlyWithFullAccessAndWhileTheRunGoesOn()
    {
        for (const auto &[access, stops, tries] : {std::tuple{true, false, 1}, {false, false, 0}, {true, true, 0}}) {
            PlannedRun run({code(u"main.py"_s), code(u"test_a.py"_s), check(u"t"_s, u"grep -q . test_a.py"_s)});
            run.engine.computerAccess = access;
            run.answerPermissions(true);
            if (stops)
                run.when(u"AutomaticCorrection"_s, u"сами тесты"_s, [&] { run.engine.cancel(); });
            (void)run.ending();
            QThreadPool::globalInstance()->waitForDone();
            QCoreApplication::processEvents();
            const QJsonArray runs = run.rows(u"agent_runs"_s);
            QCOMPARE(
                std::ranges::count_if(
                    runs, [](const QJsonValue &one) { return one[u"context"_s].toObject().contains(u"folder"_s); }),
                tries);
            QCOMPARE(gapsOf(run).filter(u"проходит и с пустыми файлами"_s).size(), tries);
            QThreadPool::globalInstance()->waitForDone();
            QVERIFY(!QFileInfo::exists(run.engine.copiesFolder));
        }
    }

    void theLedgerOfALargeTaskIsCheap()
    {
        Records records;
        QStringList criteria;
        for (int i = 0; i < 56; ++i) {
            const QString path = u"src/module%1.js"_s.arg(i);
            records.file(path, QString(6000, u'x').replace(u"xxxxxxxxxx"_s, u"let a = 1;\n"_s));
            for (const QString &role : {u"correctness_reviewer"_s, u"integration_reviewer"_s})
                records.review(role, ScriptedProvider::approval(), i);
            criteria.append(u"Файл %1 печатает результат"_s.arg(path));
        }
        for (int i = 0; i < 8; ++i)
            records.check({u"/bin/sh"_s, u"-c"_s, u"node src/module%1.js"_s.arg(i)});
        records.sources.spec[u"acceptance_criteria"_s] = QJsonArray::fromStringList(criteria.mid(0, 5));
        QElapsedTimer timer;
        timer.start();
        const QJsonObject ledger = evidenceOf(records.sources);
        const qint64 spent = timer.nsecsElapsed() / 1000;
        QCOMPARE(ledger[u"proved"_s].toInt(), 5);
        qInfo("%lld us", spent);
        QVERIFY(spent < 100000); // 25 times what it takes: for a machine under load
    }
};

QTEST_GUILESS_MAIN(EvidenceTest)
#include "tst_evidence.moc"
