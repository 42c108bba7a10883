// What a run decides, as tables: no engine, no clock, no file.

#include "code_answer.h"
#include "data_syntax.h"
#include "json_text.h"
#include "llm_provider.h"
#include "media_command.h"
#include "node_kind.h"
#include "project_checks.h"
#include "questions.h"
#include "retry.h"
#include "rework.h"

#include <QTest>

#include <tuple>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// "code a.txt 2 COMPLETED after b.txt" and so on: kind, id, revision and status, and whom it waits for. The path of a
/// code node is its id; "check" is a tool whose failure counts.
Node node(const QString &text)
{
    const QStringList words = text.section(u" after "_s, 0, 0).split(u' ');
    Node node;
    node.kind = words[0] == "check"_L1 ? u"tool"_s : words[0];
    node.id = words[1];
    node.revision = words.value(2).toInt();
    node.status = words.value(3, NodeStatus::completed);
    node.dependencies = text.section(u" after "_s, 1).split(u' ', Qt::SkipEmptyParts);
    if (isCode(node))
        node.input[u"path"_s] = node.id;
    if (words[0] == "check"_L1)
        node.input[u"verification"_s] = true;
    return node;
}

QList<Node> nodes(const QStringList &texts)
{
    QList<Node> list;
    for (const QString &text : texts)
        list.append(node(text));
    return list;
}

QJsonArray files(const QStringList &paths, const QString &content = u"1"_s)
{
    QJsonArray list;
    for (const QString &path : paths)
        list.append(QJsonObject{{u"path"_s, path}, {u"content"_s, content}});
    return list;
}

QString inside(const QString &path)
{
    return path.startsWith(u"../"_s) ? u"Unsafe path component"_s : QString();
}

} // namespace

class RunDecisionsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aFailedRequestIsRepeatedWithinLimits()
    {
        // Retryable, cut off, asked to wait; after so many attempts: delay and tokens, none when it is not repeated.
        const QList<std::tuple<bool, bool, int, int, QList<int>>> rows{
            {false, false, 0, 1, {}},           {true, false, 0, 1, {500, 6000}},
            {true, false, 0, 2, {1000, 6000}},  {true, false, 0, 3, {}},
            {false, true, 0, 1, {500, 12000}},  {false, true, 0, 3, {}},
            {true, false, 700, 1, {700, 6000}}, {true, false, 700, 2, {1000, 6000}},
        };
        for (const auto &[retryable, truncated, waitMs, attempts, decided] : rows) {
            LLMResult result;
            result.retryable = retryable;
            result.truncated = truncated;
            result.waitMs = waitMs;
            const RetryDecision made = retryAfter(result, attempts, 6000);
            QCOMPARE(made.again ? QList<int>({made.delayMs, made.maxTokens}) : QList<int>(), decided);
            QVERIFY(!truncated || attempts > 2 || retryAfter(result, attempts, 9000).maxTokens == 16384);
        }
    }

    void onlyWhatIsNewIsAsked()
    {
        const QJsonArray decisions = array(u"[{'question':'Старый вопрос?'}]"_s);
        const QString answer = u"{'question':'%1','needs_user':%2}"_s;
        const auto asks = [&](const QString &topic, const QString &question, const QString &needsUser = u"true"_s) {
            return isForUser(topic, object(answer.arg(question, needsUser)), decisions);
        };
        for (const QString &needsUser : {u"true"_s, u"null"_s, u"0"_s})
            QVERIFY(asks(u"code"_s, u"Какой цвет?"_s, needsUser));
        QVERIFY(!asks(u"code"_s, u"Какой цвет?"_s, u"false"_s));
        const QString longEnough = u"продолжить, исправить "_s + QString(157, u'я');
        for (const auto &[topic, question] : {std::pair{u"code"_s, u"Исправить?"_s},
                                              {u"plan"_s, u"Продолжить?"_s},
                                              {u"structure"_s, u"Продолжить исправление?"_s},
                                              {u"code"_s, longEnough + u'я'}})
            QVERIFY2(asks(topic, question), qPrintable(question));
        for (const auto &[topic, question] : {std::pair{u"plan"_s, u" "_s},
                                              {u"plan"_s, u" СТАРЫЙ   вопрос? "_s},
                                              {u"code"_s, u"Стоит ли  Продолжить и Исправить это?"_s},
                                              {u"final"_s, u" ПРОДОЛЖИТЬ? "_s},
                                              {u"code"_s, longEnough}})
            QVERIFY2(!asks(topic, question), qPrintable(question));
    }

    void whatCanBeAskedIsAText()
    {
        QCOMPARE(
            askableQuestions(array(u"[' Какой? ','',' ',{'question':'Где?'},{'text':'Когда?'},{'q':'x'},5,null]"_s)),
            (QStringList{u"Какой?"_s, u"Где?"_s, u"Когда?"_s}));
    }

    void whatLiesBetweenAFileAndItsCheckIsRepeated()
    {
        QList<Node> plan = nodes({u"code a 1"_s, u"code package.json 1"_s, u"tool copy after a"_s,
                                  u"tool other after a"_s, u"tool npm after a package.json"_s,
                                  u"tool late 1 QUEUED after a"_s, u"check c after copy npm late"_s});
        plan[4].input = object(u"{'arguments':['/x/npm-cli.js','install']}"_s);
        QCOMPARE(stepsToRepeat(plan, u"a"_s), QList<int>{2});
        QCOMPARE(stepsToRepeat(plan, u"package.json"_s), QList<int>{4});
        for (const auto &[status, rewritten] :
             std::initializer_list<std::pair<QLatin1StringView, bool>>{{NodeStatus::completed, false},
                                                                       {NodeStatus::queued, false},
                                                                       {NodeStatus::running, true},
                                                                       {NodeStatus::reviewing, true},
                                                                       {NodeStatus::revisionRequired, true}}) {
            plan[0].status = status;
            QCOMPARE(isBeingRewritten(plan, 6), rewritten);
        }
    }

    void aLooseCheckWaitsForTheCodeItChecks()
    {
        QList<Node> plan = nodes({u"code a.py"_s, u"code b.py"_s, u"code c.py after named"_s, u"check named"_s,
                                  u"check all"_s, u"check tied after a.py"_s, u"tool step"_s});
        plan[3].input["arguments"_L1] = QJsonArray{u"py_compile"_s, u"b.py"_s};
        tieLooseChecks(plan);
        QCOMPARE(plan[3].dependencies, QStringList{u"b.py"_s});
        QCOMPARE(plan[4].dependencies, (QStringList{u"a.py"_s, u"b.py"_s, u"c.py"_s}));
        QCOMPARE(plan[5].dependencies, QStringList{u"a.py"_s});
        QCOMPARE(plan[6].dependencies, QStringList());
        plan[3].input["arguments"_L1] = QJsonArray{u"-m"_s, u"pytest"_s, u"b.py"_s};
        plan[3].dependencies.clear();
        tieLooseChecks(plan); // not for code that waits for it
        QCOMPARE(plan[3].dependencies, (QStringList{u"a.py"_s, u"b.py"_s}));
    }

    void thePlansOwnBuildIsACheck()
    {
        const CheckTools tools{u"/node"_s, u"n"_s, {}};
        const QList<QStringList> commands{{u"n"_s, u"run"_s, u"build"_s}, {u"n"_s, u"test"_s}, {u"n"_s, u"install"_s}};
        QList<Node> plan = nodes({u"tool a"_s, u"tool b"_s, u"tool c"_s});
        for (int i = 0; i < plan.size(); ++i)
            plan[i].input = {{u"program"_s, u"/node"_s}, {u"arguments"_s, QJsonArray::fromStringList(commands.at(i))}};
        markOwnChecks(plan, tools);
        QVERIFY(isCheck(plan[0]) && isCheck(plan[1]) && !isCheck(plan[2]));
    }

    void aQuestionOffersUpToThreeAnswers()
    {
        QCOMPARE(offeredOptions({u"1"_s, u" \t"_s, u"3"_s, u"4"_s, u"5"_s}), (QJsonArray{u"1"_s, u"3"_s, u"4"_s}));
        QCOMPARE(offeredOptions({1, true, QJsonObject(), u" Да "_s}), QJsonArray{u" Да "_s});
        QCOMPARE(offeredOptions({QString(200, u'я')}), QJsonArray{QString(180, u'я')});
    }

    void aMediaJobOfThisProjectIsSafe()
    {
        const MediaBounds bounds{u"/vesk"_s, u"/p"_s, u"/usr/bin/ffmpeg"_s,
                                 [](const QString &path) { return !path.isEmpty() && inside(path).isEmpty(); }};
        const auto isSafe = [&](const QString &changes, const QStringList &front = {u"--media-job"_s},
                                const QString &program = u"/vesk"_s) {
            QJsonObject job = object(u"{'operation':'image','root':'/p','input':'in.png','output':'art/out.png'}"_s);
            const QJsonObject changed = object(changes);
            for (const QString &key : changed.keys())
                job[key] = changed[key];
            const QJsonArray arguments = QJsonArray::fromStringList(front + QStringList{json(job)});
            return isSafeMediaJob({{u"program"_s, program}, {u"arguments"_s, arguments}}, bounds);
        };
        for (const QString &safe :
             {u"{}"_s, u"{'operation':'obj_transform'}"_s, u"{'operation':'video','ffmpeg':'/usr/bin/ffmpeg'}"_s,
              u"{'operation':'frame','ffmpeg':''}"_s})
            QVERIFY2(isSafe(safe), qPrintable(safe));
        for (const QString &unsafe :
             {u"{'operation':'find_files'}"_s, u"{'operation':'Image'}"_s, u"{'ffmpeg':'/tmp/ffmpeg'}"_s,
              u"{'output':'../x.png'}"_s, u"{'input':'../x.png'}"_s, u"{'root':'/tmp'}"_s, u"{'root':null}"_s})
            QVERIFY2(!isSafe(unsafe), qPrintable(unsafe));
        QVERIFY(!isSafe(u"{}"_s, {u"--media-job"_s, u"x"_s}));
        QVERIFY(!isSafe(u"{}"_s, {u"--other"_s}));
        QVERIFY(!isSafe(u"{}"_s, {u"--media-job"_s}, u"/bin/echo"_s));
    }

    void theChecksFollowFromThePackage()
    {
        struct Row {
            QString package;
            QStringList checks; ///< The arguments of each.
            QString installed = {};
        };
        const QString build = u"n run build"_s;
        const QString install = u"n install --no-audit --no-fund"_s;
        const QList<Row> rows{
            {u"{}"_s, {}},
            {u"{'scripts':{'build':1},'dependencies':{'x':'1'}}"_s, {}},
            {u"{'scripts':{'build':'x'},'dependencies':{}}"_s, {build}},
            {u"{'scripts':{'build':'x'},'devDependencies':{'x':'1'}}"_s, {install, build}},
            {u"{'scripts':{'build':'x'},'dependencies':{'x':'1'}}"_s, {install, build}},
            {u"{'scripts':{'build':'x'},'dependencies':{'x':'1'}}"_s, {build}, u"x"_s},
            {u"{'scripts':{'build':'x'},'dependencies':{'x':'1','y':'1'}}"_s, {install, build}, u"x"_s},
        };
        const QStringList ids{u"a"_s, u"b"_s};
        for (const auto &[package, checks, installed] : rows) {
            const BuildChecks needed = buildChecks(
                object(package), ids, {u"/node"_s, u"n"_s, [&](const QString &name) { return name == installed; }});
            QCOMPARE(needed.limitation, QString());
            QStringList commands;
            for (const ProjectCheck &check : needed.checks) {
                commands.append(strings(check.arguments).join(u' '));
                QCOMPARE(check.after, ids);
                QCOMPARE(check.verification, commands.last() == build);
            }
            QCOMPARE(commands, checks);
        }
        for (const CheckTools &missing : {CheckTools{{}, u"n"_s, {}}, CheckTools{u"/node"_s, {}, {}}}) {
            QVERIFY(buildChecks({}, ids, missing).limitation.isEmpty());
            QVERIFY(!buildChecks(object(u"{'scripts':{'build':'x'}}"_s), ids, missing).limitation.isEmpty());
        }
    }

    void eachScriptHasItsSyntaxChecked()
    {
        const QList<ProjectCheck> checks = syntaxChecks(
            nodes({u"code a.js"_s, u"tool b.js"_s, u"code c.ts"_s, u"code d.mjs"_s, u"code e.cjs"_s, u"code f.JS"_s}));
        QCOMPARE(checks.size(), 3);
        QCOMPARE(checks[0],
                 (ProjectCheck{u"Проверить синтаксис a.js"_s, {u"--check"_s, u"a.js"_s}, true, {u"a.js"_s}}));
        QCOMPARE(checks[1].after + checks[2].after, (QStringList{u"d.mjs"_s, u"e.cjs"_s}));
    }

    void filesOfOneKindShareASyntaxCheck()
    {
        const QList<Node> list
            = nodes({u"code a.py"_s, u"code d/b.py"_s, u"code run.sh"_s, u"code z.sh"_s, u"code c.xml"_s,
                     u"code i.svg"_s, u"code tests/broken.xml"_s, u"tool t.py"_s, u"code -x.py"_s});
        const auto textOf = [](const QString &path) { return path == "z.sh"_L1 ? u"#!/bin/zsh\n"_s : QString(); };
        const QList<ProjectCheck> checks = sharedSyntaxChecks(list, textOf, {u"/python"_s, u"/bash"_s});
        QCOMPARE(checks.size(), 3);
        QCOMPARE(checks[0].after, (QStringList{u"a.py"_s, u"d/b.py"_s, u"-x.py"_s}));
        QCOMPARE(checks[0].arguments.last(), u"./-x.py"_s);
        QCOMPARE(checks[1].after, QStringList{u"run.sh"_s});
        QCOMPARE(checks[2].arguments, (QJsonArray{u"c.xml"_s, u"i.svg"_s}));
        QCOMPARE(sharedSyntaxChecks(list, textOf, {}), QList<ProjectCheck>{checks[2]});
    }

    void dataThatCannotBeReadIsTold()
    {
        QVERIFY(isData(u"a.xml"_s) && !isData(u"a.json"_s));
        QVERIFY(!isData(u"tests/a.xml"_s) && !isData(u"broken.svg"_s) && !isData(u"fixtures/a.xml"_s));
        const QList<std::tuple<QString, QString, QString>> rows{
            {u"a.geojson"_s, u"{\n\"a\": 1,\n}"_s, u"строка 3: "_s},
            {u"a.json"_s, u"[1, 2"_s, u"строка 1: "_s},
            {u"a.json"_s, u"\"text\""_s, {}},
            {u"a.json"_s, u"1, 2"_s, u"строка 1: "_s},
            {u"a.json"_s, u"{\"a\": {{ value }}}"_s, {}},
            {u"a.jsonc"_s, u"{ // a\n /* , */ \"a\": [1, /* ] */ ], // b\n}"_s, {}},
            {u"a.jsonc"_s, u"{\"a\": \"//\",,}"_s, u"строка 1: "_s},
            {u"a.jsonc"_s, u"{\"a\": \"\\\"/*\"\n \"*/\": 1}"_s, u"строка 2: "_s},
            {u"a.jsonc"_s, u"{/*\n*/\n}}"_s, u"строка 3: "_s},
            {u"a.geojson"_s, u"{ // a\n}"_s, u"строка 1: "_s},
            {u"a.svg"_s, u"<svg>\n<g></svg>"_s, u"строка 2: "_s},
            {u"a.xml"_s, u"<?xml version=\"1.0\"?><a b='1'>&amp;</a>"_s, {}},
            {u"a.xml"_s, u"<!DOCTYPE a SYSTEM 'a.dtd'><a>&own;</a>"_s, {}},
            {u"a.svg"_s, u"просто текст"_s, u"строка 1: "_s},
        };
        for (const auto &[path, text, fault] : rows) {
            const QString found = dataFault(path, text);
            QVERIFY2(fault.isEmpty() ? found.isEmpty() : found.startsWith(fault), qPrintable(found));
        }
    }

    void thePagesOfAProjectAreOpened()
    {
        struct Row {
            QStringList plan; ///< "name.part" is no whole document, "name.jinja" a template.
            QStringList pages;
            QStringList left = {};
            QStringList built = {};
            qsizetype room = 64;
        };
        const auto html = [](int from, int to) {
            QStringList list;
            for (int i = from; i <= to; ++i)
                list.append(u"p%1.html"_s.arg(i));
            return list;
        };
        const QStringList two{u"sub/p.html"_s, u"b.html"_s};
        const QString index = u"index.html"_s;
        const QString dist = u"dist/index.html"_s;
        const QList<Row> rows{
            {{u"a.HTML"_s, u"a.txt"_s}, {}, {}, {dist}},
            {two, two},
            {two + QStringList{index}, QStringList{index} + two},
            {{u"part/a.html"_s, index, u"part/b.html"_s, u"jinja/c.html"_s},
             {index, u"part/a.html"_s},
             {u"jinja/c.html"_s}},
            {{u"jinja/index.html"_s}, {}, {u"jinja/index.html"_s}},
            {html(1, 9), html(1, 8), {u"p9.html"_s}},
            {html(1, 3), html(1, 1), html(2, 3), {}, 1},
            {html(1, 20), html(1, 8), html(9, 18) + QStringList{u"и ещё 2"_s}},
            {two, two, {}, {u"dist/b.html"_s}},
            {two, {u"out/index.html"_s, u"out/b.html"_s}, {}, {u"out/index.html"_s, u"out/b.html"_s}},
            {two + QStringList{u"src/c.html"_s}, {dist, u"dist/c.html"_s}, {u"b.html"_s}, {dist, u"dist/c.html"_s}},
            {{index, dist, u"b.html"_s}, {dist, u"dist/b.html"_s}, {}, {dist, u"dist/b.html"_s}},
        };
        for (const auto &[plan, pages, left, built, room] : rows) {
            const ProjectFiles files{[](const QString &path) {
                                         if (path.contains(u"jinja"_s))
                                             return u"<!DOCTYPE html>{% block a %}"_s;
                                         return path.contains(u"part"_s) ? u"<p>{{ a }}"_s : u"<HTML>{{ a }}"_s;
                                     },
                                     [&built](const QString &path) { return built.contains(path); }};
            QList<Node> list = nodes({u"tool x.html"_s});
            for (const QString &path : plan)
                list.append(node(u"code "_s + path));
            const PageChecks checks = pagesToCheck(list, files, room);
            QCOMPARE(checks.pages, pages);
            QCOMPARE(checks.limitation,
                     left.isEmpty() ? QString() : u"В браузере не проверены страницы: "_s + left.join(u", "_s) + u'.');
        }
    }

    void whatABrowserCouldNotCheckIsNoFault()
    {
        struct Row {
            QString result;
            bool opened;
            QString limitation;
        };
        const QList<Row> rows{
            {u"{'success':true,'exit_code':0,'stdout':'Хорошо.\\n'}"_s, true, {}},
            {u"{'success':true,'exit_code':0,'stdout':'Не всё.\\n\\nЗамечания:\\n- x\\n\\nНе проверено:\\n- a\\n- b\\n'}"_s,
             true, u"Страница p.html проверена в браузере не полностью: a; b."_s},
            {u"{'success':false,'exit_code':1,'stdout':'1. Ошибка\\n\\nНе проверено:\\n- a\\n'}"_s, true, {}},
            {u"{'success':false,'exit_code':2,'stdout':'Нет браузера\\n'}"_s, false, u"Нет браузера."_s},
            {u"{'success':false,'exit_code':2,'stdout':''}"_s, false, u"Страница p.html не проверена в браузере."_s},
            {u"{'success':false,'exit_code':9,'timed_out':true}"_s, false,
             u"Страница p.html не проверена в браузере: проверка не уложилась в отведённое время."_s},
            {u"{'success':false,'error':'x'}"_s, true, {}},
        };
        for (const auto &[result, opened, limitation] : rows) {
            const BrowserVerdict verdict = browserVerdict(u"p.html"_s, object(result));
            QCOMPARE(verdict.opened, opened);
            QCOMPARE(verdict.limitation, limitation);
        }
    }

    void whatIsWrongWithTheFilesOfAnAnswer()
    {
        struct Row {
            QJsonArray files;
            QString fault;
            qsizetype nodes = 2;
        };
        const QString a = u"a.txt"_s;
        const QList<Row> rows{
            {files({a}), {}},
            {files({u"b.txt"_s, a}), {}},
            {files({u"b.txt"_s}), u"В ответе отсутствует ожидаемый файл: a.txt"_s},
            {files({u"A.TXT"_s, a}), u"Повторяющийся путь файла: a.txt"_s},
            {files({a, u"SUB\\other.txt"_s}), u"Файл уже поручен другому узлу: SUB\\other.txt"_s},
            {files({u"b.Json"_s, a}, u"{\"a\":"_s), u"Ошибка JSON в b.Json: unterminated object"_s},
            {files({u"b.json"_s, a}, u"[]"_s), {}},
            {files({u"b.json"_s, a}, u" \"text\"\n"_s), {}},
            {files({u"web/tsconfig.app.json"_s, a}, u"{ // b\n}"_s), {}},
            {files({u".vscode/tasks.json"_s, a}, u"{\"a\": [1,],}"_s), {}},
            {files({u"vscode/package.json"_s, a}, u"{}//"_s),
             u"Ошибка JSON в vscode/package.json: garbage at the end of the document"_s},
            {files({a, u"../b.txt"_s}), u"Unsafe path component"_s},
            {files({a, u"../b.json"_s}, u"{"_s), u"Unsafe path component"_s},
            {files({a, u"b.txt"_s}), {}, 63},
            {files({a, u"../b.txt"_s}), u"Слишком много файлов в одном этапе"_s, 64}, // whatever else is wrong
        };
        for (const auto &[answer, fault, count] : rows)
            QCOMPARE(filesFault(answer, {a, {u"sub/other.txt"_s}, count, inside}), fault);
        QCOMPARE(fileAt(a, files({u"b.txt"_s, a}))[u"path"_s].toString(), a);
        QVERIFY(fileAt(a, files({u"b.txt"_s})).isEmpty());
    }

    void aListOfPathsBecomesTheFirstFile()
    {
        const QJsonArray both = files({u"a.txt"_s, u"b.txt"_s});
        for (const QString &planned : {u"a.txt, b.txt"_s, u"b.txt;a.txt"_s, u"a.txt\nb.txt"_s, QString()})
            QCOMPARE(expectedPath(planned, both), u"a.txt"_s);
        for (const QString &planned : {u"b.txt"_s, u"c.txt, b.txt"_s})
            QCOMPARE(expectedPath(planned, both), planned);
        QCOMPARE(expectedPath(u"a.txt, b.txt"_s, files({u"a.txt"_s})), u"a.txt, b.txt"_s);
    }

    void aRejectionGoesToTheFileThatItNames()
    {
        const QList<Node> plan = nodes({u"research r"_s, u"code a.txt"_s, u"tool src/b"_s, u"code src/b.txt"_s});
        for (const auto &[issue, target] :
             {std::pair{u"В src/b.txt ошибка"_s, 3}, {u"src/b.txt и a.txt"_s, 1}, {u"Плохо"_s, 1}})
            QCOMPARE(reworkTarget(plan, {{u"issues"_s, QJsonArray{issue}}}), target);
        QCOMPARE(reworkTarget(plan.first(1), {}), -1);
    }

    void aFailedCheckSendsBackTheCodeBehindIt()
    {
        QList<Node> plan
            = nodes({u"code base 1"_s, u"code top 2 after mid"_s, u"research mid 0 after base"_s, u"code other 3"_s,
                     u"code busy 1 RUNNING"_s, u"code late 0 QUEUED"_s, u"check t 0 FAILED after top busy late"_s,
                     u"check u"_s, u"check v 0 COMPLETED after mid"_s, u"tool w 0 COMPLETED after base"_s});
        QCOMPARE(testedRevisions(plan, 6),
                 (QHash<QString, int>{{u"base"_s, 1}, {u"top"_s, 2}, {u"busy"_s, 1}, {u"late"_s, 0}}));

        const QJsonObject fix{{u"error"_s, u"1"_s}};
        QVERIFY(sendBack(plan, 6, fix));
        const auto ordered = [&] {
            QStringList list;
            for (const Node &node : std::as_const(plan)) {
                const qsizetype fixes = node.input[u"recovery_fixes"_s].toArray().size();
                if (fixes > 0)
                    list.append(node.id + node.status + QString::number(fixes));
            }
            return list;
        };
        QCOMPARE(ordered(), (QStringList{u"baseQUEUED1"_s, u"topQUEUED1"_s, u"lateQUEUED1"_s}));
        QVERIFY(sendBack(plan, 8, fix)); // the repair has not begun: it gets both reports
        QCOMPARE(ordered(), (QStringList{u"baseQUEUED2"_s, u"topQUEUED1"_s, u"lateQUEUED1"_s}));
        QVERIFY(!sendBack(plan, 7, fix));

        rearmChecksOf(plan, u"base"_s);
        QCOMPARE(plan[8].status, u"QUEUED"_s);
        QCOMPARE(plan[6].status + plan[7].status + plan[9].status, u"FAILEDCOMPLETEDCOMPLETED"_s);
    }

    void theCoderIsToldTheEndOfWhatACheckPrinted()
    {
        const QJsonObject command{{u"program"_s, u"/bin/sh"_s}};
        const QString printed(16000, u'x');
        const QJsonObject fix
            = recoveryFix(command, {{u"stdout"_s, u'y' + printed}, {u"stderr"_s, u"no"_s}, {u"error"_s, u"e"_s}});
        QCOMPARE(fields(fix, u"stdout stderr error command.program"_s), printed + u" no e /bin/sh"_s);
    }
};

QTEST_APPLESS_MAIN(RunDecisionsTest)
#include "tst_run_decisions.moc"
