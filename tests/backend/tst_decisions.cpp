// What the backend decides from plain data: where a line goes, which files it is about and who can look at them, what a
// run is given, and what the interface is shown.

#include "commit_plan.h"
#include "conversation.h"
#include "error_of.h"
#include "files.h"
#include "growing_list.h"
#include "json_text.h"
#include "media_choice.h"
#include "message_kind.h"
#include "page_pictures.h"
#include "preferences.h"
#include "proof_view.h"
#include "read_models.h"
#include "report_markdown.h"
#include "request_queue.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QString files(const QString &text)
{
    return withAttachments(text, {u"media/создай.png"_s});
}

QStringList pathsIn(const QJsonArray &items)
{
    QStringList paths;
    for (const QJsonValue &item : items)
        paths.append(item["path"_L1].toString());
    return paths;
}

} // namespace

class DecisionsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aCommitTakesWhatCanGoAlong()
    {
        const QByteArray status = "?? d/new\n?? x\n M d/changed\nM  d/staged\nMM d/half\nD  d/kept\n?? d/kept\n"
                                  " D d/gone\nUU d/both\n!! d/out/\n?? d/sub/\nA  d/added\n";
        const QStringList paths{u"new"_s,  u"changed"_s, u"staged"_s, u"half"_s,  u"kept"_s, u"gone"_s,
                                u"both"_s, u"out/a"_s,   u"sub/b"_s,  u"added"_s, u"x"_s,    u"done"_s};
        const CommitPlan plan = commitPlan(paths, QByteArray(status).replace('\n', '\0'), u"d/"_s);
        QStringList taken;
        for (const CommitPlan::File &file : plan.files)
            taken.append(file.path + QString::number(int(file.change)) + (file.isNew ? u"!"_s : QString()));
        QCOMPARE(taken.join(u' '), u"new0! changed1 staged1 gone2 added0"_s);
        QStringList left;
        for (const CommitPlan::Left &file : plan.left)
            left.append(file.path + u": "_s + file.reason.section(u' ', 0, 1));
        QCOMPARE(left.join(u", "_s),
                 u"half: подготовлен в, kept: подготовлен в, both: конфликт слияния, out/a: исключён .gitignore, "
                 "sub/b: лежит в"_s);
        QCOMPARE(commitPlan({u"a"_s}, "!! d/"_ba, u"d/e/"_s).left.first().reason, u"исключён .gitignore"_s);
        const QStringList passedOver = unwatched({u"a"_s, u"b"_s, u"c"_s, u"d"_s}, "H a\0S b\0h c\0"_ba);
        QCOMPARE(passedOver, (QStringList{u"b"_s, u"c"_s, u"d"_s}));
        QCOMPARE(commitPlan({u"a"_s, u"b"_s}, {}, {}, passedOver).left.size(), 1);
        QVERIFY(gitFault(u"Please tell me who you are"_s + u"х"_s.repeated(3000) + u"конец"_s).endsWith(u"конец"_s));
        QCOMPARE(commitMessage(u"раз\nдва "_s + u"х"_s.repeated(80), u"итог\n"_s).section(u'\n', 1), u"\nитог"_s);
        QCOMPARE(commitMessage(u"раз\nдва "_s + u"х"_s.repeated(80), {}).section(u'\n', 0, 0).size(), 72);
    }

    void aLineGoesOneWay()
    {
        struct Row {
            QString line;
            LineKind kind;
            LineFacts facts{};
        };
        const LineFacts question{.questionOpen = true};
        const LineFacts demo{.demo = true};
        const QList<Row> rows{
            {u"Подключи Roblox и создай игру"_s, LineKind::Connect, question},
            {u"не подключи"_s, LineKind::Undecided},
            {u"создай сайт"_s, LineKind::Work},
            {u"как создать файл"_s, LineKind::Work},
            {u"Пожалуйста,Создай!"_s, LineKind::Work},
            {u"пересоздай сайт"_s, LineKind::Undecided},
            {u"создайте сайт"_s, LineKind::Undecided},
            {u"обновляй часы"_s, LineKind::Work}, // by its beginning
            {u"напиши сайт о котах"_s, LineKind::Work},
            {u"создай сайт"_s, LineKind::Undecided, {.chatBusy = true}},
            {u"что ты умеешь?"_s, LineKind::Talk},
            {u"чтобы было красиво"_s, LineKind::Undecided},
            {u"прочитай файл"_s, LineKind::Talk},
            {u"Привет"_s, LineKind::Talk, question},
            {u"да, локально"_s, LineKind::Answer, question},
            {u"создай сайт"_s, LineKind::Answer, question},
            {u"да"_s, LineKind::Answer, {.hasMedia = true, .questionOpen = true}},
            {u"сравни"_s, LineKind::Talk, {.hasMedia = true}},
            {files(u"сравни"_s), LineKind::Talk, {.attached = true, .questionOpen = true}},
            {files(u"обрежь"_s), LineKind::Work, {.attached = true, .hasMedia = true}},
            {files(u"сравни"_s), LineKind::Undecided}, // the name of a file is no word of the line
            {u"Продолжай"_s, LineKind::ResumeQueue, {.queueWaits = true}},
            {u"продолжай"_s, LineKind::Answer, {.questionOpen = true, .queueWaits = true}},
            {u"Продолжай"_s, LineKind::Work},
            {u"объясни план"_s, LineKind::Undecided},
            {u"объясни план"_s, LineKind::Talk, demo},
            {u"хочу змейку"_s, LineKind::Work, demo},
        };
        for (const auto &[line, kind, facts] : rows)
            QVERIFY2(kindOf(line, facts) == kind, qPrintable(line + u" -> "_s + QString::number(int(kind))));
    }

    void aWordCountsWhole()
    {
        QVERIFY(asksForAction(u"и создай."_s) && !asksForAction(u"создайх"_s));
        QVERIFY(isSmallTalk(u"Привет!"_s) && isSmallTalk(u"что вы сделали?"_s) && isSmallTalk(u"Что сделал"_s));
        QVERIFY(!isSmallTalk(u"привет, как дела"_s) && !isSmallTalk(u"что на фото"_s));
        QCOMPARE(assetUsage(u"Фоновый БАННЕР с иконкой"_s), u"Баннер"_s);
        QCOMPARE(assetUsage(u"иконка на фон"_s), u"Иконка"_s);
        QCOMPARE(assetUsage(u"телефон"_s) + assetUsage(u"кнопка"_s), u"Фон"_s);
        QVERIFY(suitsDemo(u"КАЛЬКулятор"_s) && suitsDemo(u"run Build"_s) && !suitsDemo(u"письмо"_s));
    }

    void aRequestTakesTheMediaInQuestion()
    {
        const QJsonArray known = array(u"[{'path':'a.png'},{'path':'b.png'},{'path':''},{'path':'c.png'}]"_s);
        const QJsonArray ofTask = array(u"[{'path':'c.png'}]"_s);
        QCOMPARE(mediaInQuestion(array(u"[{'path':'b.png'}]"_s), {u"a.png"_s}, ofTask, known), QStringList{u"b.png"_s});
        QCOMPARE(mediaInQuestion({}, {u"да"_s, u"a.png и b.png"_s, u"c.png"_s}, ofTask, known),
                 (QStringList{u"a.png"_s, u"b.png"_s}));
        QCOMPARE(mediaInQuestion({}, {u"да"_s}, ofTask, known), QStringList{u"c.png"_s});

        const QJsonArray found = requestMedia(u"и b.png"_s, known, {u"c.png"_s}, u"/p"_s);
        QCOMPARE(pathsIn(found), (QStringList{u"b.png"_s, u"c.png"_s}));
        QCOMPARE(found[0]["absolute_path"_L1].toString(), u"/p/b.png"_s);
        QJsonArray many;
        QStringList all;
        for (int i = 0; i < 13; ++i) {
            all.append(u"%1.png"_s.arg(i));
            many.append(QJsonObject{{u"path"_s, all.last()}});
        }
        QCOMPARE(pathsIn(requestMedia({}, many, all, {})), all.sliced(1));
    }

    void aVisualAgentSeesAllThatThereIs()
    {
        const QString agent = u"{'id':'%1','enabled':%2,'media_analysis':'%3','instructions':'I%1','rules':'R'}"_s;
        const auto preferences = [&](const QStringList &agents) {
            return object(
                u"{'custom_agents':["_s + agents.join(u',')
                + u"],'agent_api':{'a':{'provider':'OpenAI','url':'ua','model':'ma'},'b':{'provider':'Gemini',"
                  "'url':'ub','model':'mb'},'c':{'provider':'Alem Plus','url':'uc'},'orchestrator':{"
                  "'provider':'Gemini','url':'uo'}}}"_s);
        };
        const QString photo = u"[{'kind':'image'},{'kind':'text'}]"_s;
        const QString both = u"[{'kind':'image'},{'kind':'video'}]"_s;
        struct Row {
            QStringList agents;
            QString media;
            QString keys;
            QString url;
        };
        const QString a = agent.arg(u"a"_s, u"true"_s, u"photo"_s);
        const QString b = agent.arg(u"b"_s, u"true"_s, u"both"_s);
        const QList<Row> rows{
            {{a, b}, photo, u"ab"_s, u"ua"_s},
            {{a, b}, photo, u"b"_s, u"ub"_s}, // the first one has no key
            {{a, b}, both, u"ab"_s, u"ub"_s},
            {{agent.arg(u"a"_s, u"true"_s, u"video"_s), b}, photo, u"ab"_s, u"ub"_s},
            {{agent.arg(u"a"_s, u"false"_s, u"photo"_s)}, photo, u"ao"_s, u"uo"_s},
            {{agent.arg(u"a"_s, u"true"_s, QString())}, photo, u"ao"_s, u"uo"_s},
            {{agent.arg(u"c"_s, u"true"_s, u"both"_s)}, photo, u"co"_s, u"uo"_s}, // its provider sees nothing
            {{a}, photo, QString(), QString()},
        };
        for (const auto &[agents, items, keys, url] : rows) {
            const auto found = visualAgent(preferences(agents), array(items), [&](const QString &name) {
                return keys.contains(name[0]) ? u"key-"_s + name : QString();
            });
            QCOMPARE(found ? found->url : QString(), url);
            if (!found)
                continue;
            QCOMPARE(found->useResponses, url == "ua"_L1);
            QCOMPARE(found->guidance, url == "uo"_L1 ? QString() : u"I%1\nR"_s.arg(url[1]));
            QVERIFY(found->key.startsWith(u"key-"_s + url[1]));
        }
        QVERIFY(hasVisuals(array(both)) && !hasVisuals(array(u"[{'kind':'text'},{}]"_s)));
    }

    void aRunSeesTheTurnsWithoutItsNarration()
    {
        const QList<QJsonObject> rows{object(u"{'role':'user','content':'12345','kind':'message','id':'x'}"_s),
                                      object(u"{'role':'assistant','content':'a','kind':'progress'}"_s),
                                      object(u"{'role':'assistant','content':'b','kind':'file'}"_s),
                                      object(u"{'role':'assistant','content':'c','kind':'report'}"_s)};
        QCOMPARE(turnsOf(rows, 3, true),
                 array(u"[{'role':'user','content':'123'},{'role':'assistant','content':'c'}]"_s));
        QCOMPARE(turnsOf(rows, 9, false).size(), 4);
    }

    void aRunGoesByThePreferences()
    {
        const RunPreferences none = runPreferences({});
        QVERIFY(!none.computerAccess && none.automaticRouting);
        const RunPreferences all = runPreferences(object(u"{'computer_access':true,'automatic_routing':false}"_s));
        QVERIFY(all.computerAccess && !all.automaticRouting);

        const QTemporaryDir folder;
        Store store(folder.filePath(u"x.sqlite"_s));
        Preferences preferences(store);
        preferences.savePreferences(
            object(u"{'role_skills':{'orchestrator':{'instructions':'%1'}}}"_s.arg(QString(16001, u'я'))));
        QCOMPARE(preferences.skillOf(u"orchestrator"_s).size(), 16000);
    }

    void whatOneTaskShows()
    {
        const QJsonObject state = object(
            u"{'id':'t','phase':'FAILED','error':'e','graph':[1],'runs':[{'id':'r','name':'n','context':'secret',"
            "'output':{'summary':'%1','issues':['i'],'files':[1]}}]}"_s.arg(QString(2001, u'x')));
        const QVariantMap shown = uiStateOf(state);
        QVERIFY(!shown.contains(u"graph"_s));
        QCOMPARE(shown[u"error"_s].toString(), u"e"_s);
        const QVariantMap run = shown[u"runs"_s].toList()[0].toMap();
        QVERIFY(!run.contains(u"context"_s));
        const QVariantMap output = run[u"output"_s].toMap();
        QCOMPARE(output.keys(), (QStringList{u"issues"_s, u"summary"_s}));
        QCOMPARE(output[u"summary"_s].toString().size(), 2000);

        QCOMPARE(shownEvent(object(u"{'type':'x','data':{'path':'p','content':'long'}}"_s)),
                 object(u"{'type':'x','data':{'path':'p'}}"_s));
    }

    void anAnswerStandsBelowItsQuestion()
    {
        QVariantList rows;
        for (const QString &line : {u"Да"_s, u"Да"_s, u"Нет"_s, u"Да"_s})
            rows.append(QVariantMap{{u"role"_s, u"user"_s}, {u"content"_s, line}});
        // The first question is of the task before; its answer isn't said here.
        const QJsonObject state
            = object(u"{'phase':'PLANNING','spec':{'decisions':[{'id':'0','question':'0?','answer':'Да'},"
                     "{'id':'1','question':'1?','answer':'Да'},{'id':'2','question':'2?','answer':'Да'}]}}"_s);
        QStringList said;
        for (const QVariant &row : conversationOf(rows, state, {}, {}, {}))
            said.append(row.toMap()[u"content"_s].toString());
        QCOMPARE(said.join(u' '), u"Да 1? Да Нет 2? Да"_s);
    }

    void aTaskTellsHowFarItIs()
    {
        const QString nodes = u"'graph':[{'status':'COMPLETED'},{'status':'QUEUED','title':'a'},"
                              "{'status':'REVIEWING','title':'b'}],'runs':[{'created_at':'10:00'}],'updated':'11:00'"_s;
        const auto told = [&](const QString &phase) {
            const QVariantMap far = progressOf(object(u"{'phase':'%1',%2}"_s.arg(phase, nodes)));
            QStringList all;
            for (const QString &key : {u"began"_s, u"ended"_s, u"done"_s, u"steps"_s, u"step"_s})
                all.append(far[key].toString());
            return all.join(u'|');
        };
        QCOMPARE(told(u"EXECUTION"_s), u"10:00||1|3|b"_s);
        QCOMPARE(told(u"FAILED"_s), u"10:00|11:00|1|3|"_s);
        QVERIFY(progressOf(emptyState()).isEmpty());
    }

    void aReportBecomesMarkdown()
    {
        const QString report
            = u"Задача завершена. 1 из 1 критерия подтверждён.\n\nЧто сделано\n• Файл my_file\n• <b>\n\n"
              "Файлы\n• a_b.js — версия 2; проверка принята\n\n"
              "Что проверено\n• «Считает *всё*» — подтверждено: sh -c `x`\n\nСледующий шаг: 1. открыть"_s;
        const QVariantMap file{
            {u"path"_s, u"a_b.js"_s}, {u"change"_s, u"изменён"_s}, {u"added"_s, 3}, {u"removed"_s, 1}};
        QCOMPARE(reportAsMarkdown(u"Создай\n#1"_s, report, {file}),
                 u"# Создай #1\n\n**Задача завершена. 1 из 1 критерия подтверждён.**\n\n"
                 "## Что сделано\n\n- Файл my\\_file\n- \\<b\\>\n\n"
                 "## Файлы\n\n- `a_b.js` — версия 2; проверка принята\n\n"
                 "## Что проверено\n\n- «Считает \\*всё\\*» — подтверждено: `` sh -c `x` ``\n\n"
                 "Следующий шаг: 1. открыть\n\n## Изменения с запроса\n\n- `a_b.js` — изменён, +3 −1\n"_s);
    }

    void aConversationShowsReportPendingAndMedia()
    {
        const QJsonArray known = array(u"[{'path':'a.png','preview':'v.png','url':'http://x'},{'path':'b.png'}]"_s);
        const QVariantMap line{{u"role"_s, u"user"_s}, {u"content"_s, withAttachments(u"Смотри"_s, {u"a.png"_s})}};
        const auto kinds = [](const QVariantList &rows) {
            QStringList list;
            for (const QVariant &row : rows)
                list.append(row.toMap().value(u"kind"_s).toString());
            return list;
        };
        const QJsonObject running = object(u"{'phase':'PLANNING'}"_s);
        const QVariantList rows = conversationOf({line}, running, u"b.png?"_s, known, u"/p"_s);
        QCOMPARE(kinds(rows), (QStringList{QString(), u"pending"_s}));
        const QVariantMap first = rows[0].toMap();
        QCOMPARE(first[u"display_content"_s].toString(), u"Смотри"_s);
        const QVariantList attached = first[u"attachments"_s].toList();
        QCOMPARE(attached.size(), 1);
        QCOMPARE(attached[0].toMap()[u"url"_s].toString(), u"file:///p/v.png"_s); // not what a tool said of itself
        const QVariantMap pending = rows[1].toMap();
        QVERIFY(!pending[u"attachments"_s].toList()[0].toMap().contains(u"url"_s));

        const QVariantMap report{{u"role"_s, u"assistant"_s}, {u"kind"_s, u"report"_s}};
        for (const QString &phase : {u"COMPLETED"_s, u"FAILED"_s, u"CANCELLED"_s, u"INTERRUPTED"_s}) {
            const QJsonObject ended{{u"phase"_s, phase}};
            QCOMPARE(kinds(conversationOf({}, ended, {}, {}, {})), QStringList{u"report"_s});
            QCOMPARE(kinds(conversationOf({report}, ended, {}, {}, {})), QStringList{u"report"_s});
        }
    }

    void listsLeaveOutWhatIsLargeOrGone()
    {
        const QJsonArray kept
            = mediaOf(array(u"[{'type':'media','excerpt':'%1'},{'type':'FinalReport'}]"_s.arg(QString(1501, u'x'))));
        QCOMPARE(kept.size(), 1);
        QCOMPARE(kept[0]["excerpt"_L1].toString().size(), 1500);
        const QVariantList shown = filesOf(array(u"[{'path':'f','content':'c'}]"_s), kept);
        QCOMPARE(shown[0].toMap().keys(), QStringList{u"path"_s});
        QCOMPARE(shown[1].toMap().keys(), QStringList{u"type"_s});
        const QVariantList tasks = tasksOf(array(u"[{'id':'a','archived':true},{'id':'b','phase':'FAILED'}]"_s));
        QCOMPARE(tasks.size(), 1);
        QCOMPARE(tasks[0].toMap()[u"id"_s].toString(), u"b"_s);
        const QVariantList roles = agentProfilesOf(object(u"{'disabled_agents':['observer']}"_s));
        for (const QVariant &role : roles)
            QCOMPARE(role.toMap()[u"enabled"_s].toBool(), role.toMap()[u"id"_s].toString() != "observer"_L1);
    }

    void aGrowingListReadsOnlyWhatIsNew()
    {
        const QTemporaryDir folder;
        Store store(folder.filePath(u"x.sqlite"_s));
        int read = 0;
        GrowingList list(
            u"events"_s,
            [&](const QJsonObject &record) {
                ++read;
                return record;
            },
            3);
        const auto ids = [&](const QString &owner) {
            QString text;
            for (const QVariant &item : list.of(store, owner))
                text += item.toMap().value(u"n"_s).toString();
            return text;
        };
        for (const QString &n : u"1 2 3 4 5"_s.split(u' '))
            store.put(u"events"_s, n, u"t"_s, {{u"n"_s, n}});
        QCOMPARE(ids(u"t"_s), u"345"_s);
        store.put(u"events"_s, u"6"_s, u"t"_s, {{u"n"_s, u"6"_s}});
        QCOMPARE(ids(u"t"_s) + ids(u"t"_s), u"456456"_s);
        QCOMPARE(read, 4);
        QCOMPARE(ids(u"other"_s) + ids(u"t"_s), u"456"_s);
    }

    void theQueueLosesNothing()
    {
        const QTemporaryDir folder;
        Store store(folder.filePath(u"x.sqlite"_s));
        RequestQueue queue(store);
        queue.open(u"p"_s, {});
        for (const QString &name : {u"a"_s, u"b"_s})
            queue.add({name, true, 5000, u"make"_s, u"[1]"_s});
        QString started;
        queue.take([&](const StartRequest &request) {
            QCOMPARE(queue.stored(u"p"_s).size(), 2); // a crash here would find it
            QVERIFY(request.preview);
            started = request.request + request.program + request.arguments + QString::number(request.budget);
        });
        QCOMPARE(started, u"amake[1]5000"_s);
        QCOMPARE(queue.stored(u"p"_s).size(), 1);
        QCOMPARE(errorOf([&] { queue.take([](const StartRequest &) { throw std::runtime_error("no"); }); }), u"no"_s);
        QVERIFY(queue.isPaused());
        QCOMPARE(queue.items().size(), 1);
        queue.resume();
        RequestQueue later(store);
        later.open(u"p"_s, later.stored(u"p"_s));
        QVERIFY(later.isPaused()); // what is found waiting never starts by itself
        const StartRequest other{u"c"_s, false, 1, {}, {}};
        queue.add(other);
        queue.add(other);
        const QJsonArray three = queue.items();
        queue.remove(three[1]["id"_L1].toString());
        QCOMPARE(queue.items().size(), 2);
        queue.undo();
        QCOMPARE(queue.items(), three);
        queue.clear();
        QVERIFY(queue.stored(u"p"_s).isEmpty());
        for (int i = 0; i < 48; ++i)
            queue.add(other);
        QCOMPARE(errorOf([&] { queue.undo(); }), u"В очереди уже 50 задач."_s);
        queue.remove(queue.items()[0]["id"_L1].toString());
        QCOMPARE(queue.removed().size(), 1);

        QJsonObject old = later.items()[0].toObject();
        old.remove("budget"_L1);
        later.open(u"p"_s, {old});
        later.take([&](const StartRequest &request) { QCOMPARE(request.budget, 1000000); });
    }

    void theRowsOfAProofBeginWithWhatIsOpen()
    {
        const QJsonObject state{
            {u"evidence"_s, object(uR"({"proved":1,"believed":0,"open":1,"gaps":["g"],
                "criteria":[{"text":"A","mark":"check","checks":["n"]},{"text":"B","mark":"none","notes":["нет b.js"]}],
                "files":[{"path":"a.js","mark":"reviews","reviews":["r","s"]},{"path":"b.js","mark":"opinion"}],
                "checks":[{"node":"n","title":"T","command":"make all","folder":"/p","exit_code":0}]})"_s)},
            {u"graph"_s, QJsonArray{object(uR"({"id":"n","output":{"stdout":"собрано\n"}})"_s)}},
        };
        const QVariantList rows = proofsOf(state)[u"rows"_s].toList();
        QStringList shown;
        for (const QVariant &row : rows)
            shown.append(row.toMap()[u"text"_s].toString() + u':' + row.toMap()[u"level"_s].toString() + u':'
                         + row.toMap()[u"marks"_s].toStringList().join(u'+'));
        QCOMPARE(shown,
                 (QStringList{u"B:unproved:не проверено"_s, u"A:proved:проверка"_s, u"b.js:unproved:только мнение"_s,
                              u"a.js:seen:две рецензии"_s}));
        const auto runOf = [](const QString &id) {
            return QJsonObject{{u"role"_s, id}, {u"output"_s, QJsonObject{{u"verdict"_s, u"APPROVE"_s}}}};
        };
        const QString check = proofBehind(state, u"criteria"_s, 0, runOf);
        QVERIFY(check.contains(u"Команда: make all"_s) && check.contains(u"собрано"_s));
        QVERIFY(proofBehind(state, u"criteria"_s, 1, runOf).contains(u"Открыто: нет b.js"_s));
        QCOMPARE(proofBehind(state, u"files"_s, 0, runOf).count(u"Решение: одобрено"_s), 2);
        QVERIFY(proofBehind(state, u"files"_s, 1, runOf).contains(u"только мнение агентов"_s));
        QVERIFY(proofsOf({})[u"rows"_s].toList().isEmpty());
    }

    void thePicturesOfAPageStandBehindItsRow()
    {
        QTemporaryDir folder;
        const QString pictures = folder.filePath(u"pages"_s);
        const QString stem = pictureStem(pictures, u"task"_s, u"index.html"_s);
        const auto behind = [&](const QString &place) {
            QJsonObject node = object(uR"({"id":"n","input":{"arguments":["s","b","p","r"]}})"_s);
            QJsonObject input = node[u"input"_s].toObject();
            QJsonArray arguments = input[u"arguments"_s].toArray();
            arguments.append(place);
            input[u"arguments"_s] = arguments;
            node[u"input"_s] = input;
            const QJsonObject state{{u"evidence"_s, object(uR"({"files":[{"checks":["n"]}]})"_s)},
                                    {u"graph"_s, QJsonArray{node}}};
            return picturesBehind(state, u"files"_s, 0, pictures);
        };
        QVERIFY(behind(stem).isEmpty());
        save(stem + u"-390.png"_s, "x");
        save(stem + u"-1280.png"_s, "x");
        save(folder.filePath(u"own-390.png"_s), "x");
        QCOMPARE(behind(stem), (QStringList{stem + u"-1280.png"_s, stem + u"-390.png"_s}));
        QVERIFY(behind(folder.filePath(u"own"_s)).isEmpty() && behind(pictures + u"/../own"_s).isEmpty());
    }
};

QTEST_GUILESS_MAIN(DecisionsTest)
#include "tst_decisions.moc"
