// The backend with a model behind a real server: what becomes of each answer to a typed line, whole runs, the queue,
// and stopping at any moment.

#include "backend_desk.h"
#include "files.h"
#include "helpers.h"
#include "model_server.h"
#include "process_containment.h"

#include <QDir>
#include <QHash>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const auto key = u"sekret-0123456789"_s;
const auto forRouter = u"Посоветуй игру"_s;
const auto forChat = u"что ты умеешь?"_s;

WireReply says(const QString &content)
{
    return WireReply::document(200, WireReply::completion(content));
}

/// A model that asks nothing of the user and does what a request says, unless a reply is set for a role.
class Model : public WireServer {
    Q_OBJECT
public:
    Model()
        : WireServer([this](const WireRequest &request) { return reply(ModelServer::requestOf(request.json())); })
    {
    }
    QHash<QString, WireReply> replies;
    QStringList asked; ///< The roles, in order.
    QJsonObject lastInput;
    QHash<QString, QJsonObject> inputs; ///< The last of each role.

private:
    WireReply reply(const LLMRequest &request)
    {
        asked.append(request.role);
        lastInput = request.input;
        inputs[request.role] = request.input;
        if (replies.contains(request.role))
            return replies.value(request.role);
        return says(ModelServer::unasking(request));
    }
};

/// A desk with a project and that model.
class ConnectedDesk : public Desk {
public:
    explicit ConnectedDesk(const Model &model)
    {
        connectTo(model.url(), key);
        createProject();
    }
};

const WireReply silence{{}, WireReply::End::Silence};

} // namespace

class BackendModelTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // No browser is found on this path: checking pages is not the matter here.
    void initTestCase()
    {
        qputenv("PATH", "/nowhere");
        ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
    }

    void anAnswerBecomesLines_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<WireReply>("reply");
        QTest::addColumn<QStringList>("lines"); // Behind the user's own.
        const auto row = [](const QString &line, const char *name, const WireReply &reply, const QStringList &lines) {
            QTest::addRow("%s: %s", line == forChat ? "chat" : "router", name) << line << reply << lines;
        };
        const QString error = u"error: Не удалось получить ответ. "_s;
        row(forRouter, "an answer", says(u"{\"action\":\"CHAT\",\"summary\":\"Змейка\"}"_s), {u"message: Змейка"_s});
        row(forRouter, "in prose", says(u"Вот: ```{\"action\":\"CHAT\",\"summary\":\"Тетрис\"}```"_s),
            {u"message: Тетрис"_s});
        row(forRouter, "a number", says(u"{\"action\":\"CHAT\",\"summary\":5}"_s), {error + u"Пустой ответ."_s});
        row(forRouter, "an empty text", says(u"{\"action\":\"CHAT\",\"summary\":\"\"}"_s), {});
        row(forRouter, "another action", says(u"{\"action\":\"task\"}"_s),
            {error + u"Модель не определила действие."_s});
        row(forRouter, "stopped", silence, {u"progress: Ответ остановлен."_s});
        row(forRouter, "a wrong key", WireReply::document(401, QByteArray("{}")), {error + u"*"_s});

        const QString untouched = u"\nФайлы этим сообщением не изменялись."_s;
        row(forChat, "an answer", says(u"{\"summary\":\"Всё\"}"_s), {u"message: Всё"_s});
        row(forChat, "no text", says(u"{\"summary\":5}"_s), {error + u"Модель не вернула текст ответа."_s + untouched});
        row(forChat, "a missing model", WireReply::document(404, QByteArray("{}")), {error + u"*"_s + untouched});
        row(forChat, "no HTTP", WireReply{{{"SSH-2.0\r\n\r\n"}}, WireReply::End::Close},
            {u"progress: Ответ остановлен."_s});
    }

    void anAnswerBecomesLines()
    {
        QFETCH(QString, line);
        QFETCH(WireReply, reply);
        QFETCH(QStringList, lines);
        const bool routed = line == forRouter;
        const bool stopped = lines.value(0) == u"progress: Ответ остановлен."_s;
        Model model;
        model.replies = {{u"chat"_s, reply}, {u"chat_router"_s, reply}};
        ConnectedDesk desk(model);

        desk.call("sendMessage", {line});
        QCOMPARE(desk.message(), QString());
        QVERIFY(desk.busy());
        QCOMPARE(desk.chat(), QStringList{(routed ? u"pending: "_s : u"message: "_s) + line});
        QCOMPARE(desk.sql(u"SELECT count(*) FROM messages"_s).toInt(), routed ? 0 : 1);
        desk.call("sendMessage", {line});
        QCOMPARE(desk.message(), routed ? u"Дождитесь ответа."_s : u"Дождитесь предыдущего ответа."_s);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        QCOMPARE(desk.message(), u"Дождитесь ответа."_s);

        QVERIFY(Desk::waitFor([&] { return !model.asked.isEmpty(); }));
        if (stopped)
            desk.call("stop");
        QVERIFY(Desk::waitFor([&] { return !desk.busy(); }));
        QStringList shown = desk.chat();
        QCOMPARE(shown.takeFirst(), u"message: "_s + line);
        if (lines.value(0).contains(u'*')) {
            // Whatever the provider says.
            const QStringList parts = lines[0].split(u'*');
            QVERIFY2(shown.value(0).startsWith(parts[0]) && shown[0].endsWith(parts[1]), qPrintable(shown[0]));
            QVERIFY(shown[0].size() > parts[0].size() + parts[1].size() + 10);
        } else {
            QCOMPARE(shown, lines);
        }
        QCOMPARE(desk.read("queuePaused").toBool(), stopped);
        QCOMPARE(model.asked, QStringList{routed ? u"chat_router"_s : u"chat"_s});
        QCOMPARE(model.requests[0].header("Authorization"), "Bearer " + key.toUtf8());
        QCOMPARE(model.requests[0].json()["max_tokens"_L1].toInt(), 2048);
        QVERIFY(model.requests[0].json()["stream"_L1].toBool()); // a server of one's own may be slow
        QCOMPARE(model.lastInput[routed ? "message"_L1 : "question"_L1].toString(), line);

        const QStringList kept = desk.chat();
        desk.reopen();
        QCOMPARE(desk.chat(), kept);
        QCOMPARE(desk.read("tasks").toList().size(), 0);
    }

    void aLineThatIsWorkBecomesATask()
    {
        Model model;
        model.replies[u"chat_router"_s] = says(u"{\"action\":\"TASK\",\"summary\":\"Делаю\"}"_s);
        ConnectedDesk desk(model);
        desk.call("sendMessage", {forRouter});
        QVERIFY(desk.waitForPhase(u"COMPLETED"_s));
        QVERIFY(Desk::waitFor([&] { return !desk.chat(u"report"_s).isEmpty(); }));
        QCOMPARE(desk.chat().count(u": "_s + forRouter), 1); // As the engine stores it.
        QCOMPARE(desk.chat(u"pending"_s) + desk.chat(u"message"_s) + desk.chat(u"error"_s), QStringList());
        QCOMPARE(desk.chat(u"report"_s).size(), 1);
        QVERIFY(desk.backend->fileContent(u"calculator.html"_s).contains(u"b===0"_s));
        // The key is in its file and nowhere else.
        const QStringList names = QDir(desk.data()).entryList(QDir::Files | QDir::Hidden);
        QVERIFY(names.contains(u"credentials"_s));
        for (const QString &name : names) {
            const QByteArray bytes = contentOf(desk.data() + u'/' + name);
            QVERIFY2(name == "credentials"_L1 || !bytes.contains(key.toUtf8()), qPrintable(name));
        }
    }

    void aModelIsGivenWhatTheUserHasSetAndSaid()
    {
        Model model;
        model.replies[u"chat"_s] = says(u"{\"summary\":\"Всё\"}"_s);
        model.replies[u"chat_router"_s] = says(u"{\"action\":\"CHAT\",\"summary\":\"Да\"}"_s);
        Desk desk;
        desk.sql(
            u"INSERT INTO settings VALUES('workspace-ui','','{\"ffmpeg_path\":\"/usr/bin/env\",\"computer_access\":false,\"disabled_agents\":"
            "[\"observer\"],\"role_skills\":{\"orchestrator\":{\"instructions\":\"НАВЫК\"}},\"custom_agents\":"
            "[{\"id\":\"a\",\"name\":\"Художник\",\"enabled\":true,\"parent\":\"coding\"}]}','')"_s);
        desk.connectTo(model.url(), key);
        desk.createProject();
        desk.call("addMemory", {u"Note"_s, u"ПАМЯТЬ"_s});
        desk.call("sendMessage", {forChat});
        QVERIFY(Desk::waitFor([&] { return !desk.busy(); }));
        desk.call("start", {u"Создай калькулятор"_s, false, 1000000, u"/usr/bin/true"_s, u"[]"_s});
        QVERIFY(Desk::waitFor([&] { return !desk.read("state").toMap()[u"pending"_s].toList().isEmpty(); }));
        const QJsonObject asked = model.inputs.value(u"orchestrator"_s);
        QCOMPARE(asked["role_skill_instructions"_L1].toString(), u"НАВЫК"_s);
        QCOMPARE(asked["task"_L1]["disabled_agents"_L1], (QJsonArray{u"observer"_s}));
        QCOMPARE(asked["task"_L1]["media_tools"_L1]["ffmpeg"_L1].toString(), u"/usr/bin/env"_s);
        QCOMPARE(asked["task"_L1]["available_specialists"_L1][0]["name"_L1].toString(), u"Художник"_s);
        QCOMPARE(asked["task"_L1]["conversation_history"_L1][1]["content"_L1].toString(), u"Всё"_s);
        QCOMPARE(asked["memory"_L1][1]["text"_L1].toString(), u"ПАМЯТЬ"_s);
        desk.call("stop");

        desk.call("sendMessage", {forChat});
        QVERIFY(Desk::waitFor([&] { return !desk.busy(); }));
        const QJsonObject talk = model.inputs.value(u"chat"_s);
        QVERIFY(json(talk["memory"_L1].toArray().first().toObject()).contains(u"ПАМЯТЬ"_s));
        QVERIFY(talk["history"_L1].toArray().size() > 1);
        QVERIFY(talk["task_report"_L1].toString().size() > 60);
        QCOMPARE(talk["role_skill_instructions"_L1].toString(), u"НАВЫК"_s);
        desk.call("sendMessage", {forRouter});
        QVERIFY(Desk::waitFor([&] { return !desk.busy(); }));
        QVERIFY(model.inputs.value(u"chat_router"_s)["history"_L1].toArray().size() > 1);

        // What the task in view was to fulfil goes on with the next one, which then is the one in view.
        const QJsonValue wanted = QJsonObject::fromVariantMap(desk.read("state").toMap())["spec"_L1]["requirements"_L1];
        QVERIFY(!wanted.toArray().isEmpty());
        const QString before = desk.read("state").toMap()[u"id"_s].toString();
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        QVERIFY(Desk::waitFor([&] { return model.asked.count(u"orchestrator"_s) == 2; }));
        QCOMPARE(model.inputs.value(u"orchestrator"_s)["task"_L1]["previous_requirements"_L1], wanted);
        QVERIFY(desk.read("state").toMap()[u"id"_s].toString() != before);
        desk.call("stop");
        desk.call("setPreference", {u"computer_access"_s, true});
        desk.call("newConversation");
        desk.call("start", {u"Создай калькулятор"_s, false, 1000000, u"/usr/bin/true"_s, u"[]"_s});
        QVERIFY(desk.waitForPhase(u"COMPLETED"_s)); // in view, and asks for nothing

        desk.sql(
            u"INSERT INTO artifacts SELECT 'm', id, '{\"type\":\"media\",\"path\":\"a.txt\"}', '' FROM projects"_s);
        for (const auto &[line, media] : {std::pair{u"что в a.txt?"_s, 1}, {u"спасибо"_s, 0}}) {
            desk.call("sendMessage", {line});
            QVERIFY(Desk::waitFor([&] { return !desk.busy(); }));
            QCOMPARE(model.inputs.value(u"chat"_s)["media"_L1].toArray().size(), media);
        }
        desk.call("newConversation");
        QCOMPARE(desk.chat().filter(u"Создай"_s), QStringList());
    }

    void anAnswerLandsWhereItWasAsked()
    {
        Model model;
        model.replies[u"chat_router"_s]
            = WireReply{{{says(u"{\"action\":\"CHAT\",\"summary\":\"Змейка\"}"_s).steps[0].bytes, 200}}};
        ConnectedDesk desk(model);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        desk.call("stop");
        const QString task = desk.read("state").toMap().value(u"id"_s).toString();
        const QStringList lines = desk.chat();
        desk.call("newConversation");
        QCOMPARE(desk.chat(), QStringList());
        desk.call("sendMessage", {forRouter});
        desk.call("selectTask", {task});
        QCOMPARE(desk.message(), QString());
        QCOMPARE(desk.chat(), lines); // Without what is pending elsewhere.
        QVERIFY(Desk::waitFor([&] { return !desk.busy(); }));
        QCOMPARE(desk.chat(), lines);
        desk.call("newConversation");
        QCOMPARE(desk.chat(), (QStringList{u"message: "_s + forRouter, u"message: Змейка"_s}));
    }

    void waitingRequestsRunOneAfterTheOther()
    {
        Model model;
        ConnectedDesk desk(model);
        // How many wait on disk when a task is stored: its own request leaves the queue only after that, for a crash
        // between the two loses it otherwise.
        desk.sql(u"CREATE TABLE seen (waiting)"_s);
        desk.sql(u"CREATE TRIGGER look AFTER INSERT ON tasks BEGIN INSERT INTO seen VALUES(coalesce((SELECT "
                 "json_array_length(body, '$.items') FROM settings WHERE id LIKE 'queue:%'), 0)); END"_s);
        const QStringList wanted{u"Создай калькулятор 1"_s, u"Создай калькулятор 2"_s, u"Создай калькулятор 3"_s};
        for (const QString &request : wanted)
            desk.call("sendMessage", {request});
        QCOMPARE(desk.message(), QString());
        QCOMPARE(desk.chat(u"queued"_s).size(), 2);
        QVERIFY(desk.chat(u"queued"_s)[1].startsWith(u"Запрос добавлен в очередь, позиция 2."_s));

        const auto done = [&] {
            QStringList requests;
            const QVariantList tasks = desk.read("tasks").toList();
            for (const QVariant &task : tasks) {
                if (task.toMap().value(u"phase"_s).toString() == "COMPLETED"_L1)
                    requests.append(task.toMap().value(u"spec"_s).toMap().value(u"original_request"_s).toString());
            }
            return requests;
        };
        QVERIFY2(Desk::waitFor([&] { return done().size() == 3; }), qPrintable(desk.phase() + desk.message()));
        QCOMPARE(done(), wanted);
        QCOMPARE(desk.sql(u"SELECT group_concat(waiting, ' ') FROM seen"_s).toString(), u"0 2 1"_s);
        QCOMPARE(desk.read("queue").toList(), QVariantList());
        QVERIFY(!desk.read("queuePaused").toBool());
        QCOMPARE(desk.sql(u"SELECT count(*) FROM messages WHERE body->>'kind'='report'"_s).toInt(), 3);
        QCOMPARE(desk.chat().filter(wanted[2]).size(), 1); // The last is in view.
    }

    void aFailedRunLeavesTheQueueToTheUser()
    {
        Model model;
        model.replies[u"planner"_s] = WireReply::document(401, QByteArray("{}"));
        ConnectedDesk desk(model);
        desk.call("sendMessage", {u"Создай калькулятор 1"_s});
        desk.call("sendMessage", {u"Создай калькулятор 2"_s});
        QVERIFY(desk.waitForPhase(u"FAILED"_s));
        QVERIFY(desk.read("queuePaused").toBool());
        QCOMPARE(desk.chat(u"report"_s).size(), 1);
        // Behind what waits, without waking it.
        desk.call("sendMessage", {u"Создай калькулятор 3"_s});
        QCOMPARE(desk.read("queue").toList().size(), 2);
        model.replies.clear();
        desk.call("sendMessage", {u"Продолжай"_s});
        QVERIFY(desk.waitForPhase(u"COMPLETED"_s));
        QVERIFY(Desk::waitFor([&] { return desk.read("queue").toList().isEmpty() && desk.phase() == "COMPLETED"_L1; }));
        QCOMPARE(desk.read("tasks").toList().size(), 3);
    }

    // In other phases it is the engine that ends it.
    void stopEndsARunWhileAnAnswerComes()
    {
        Model model;
        model.replies[u"coding"_s] = silence;
        ConnectedDesk desk(model);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        QVERIFY(Desk::waitFor([&] { return model.asked.contains(u"coding"_s); }));
        QVERIFY(desk.read("streamNote").toString().startsWith(u"Разработчик · "_s));
        desk.call("stop");
        QCOMPARE(desk.phase(), u"CANCELLED"_s);
        QCOMPARE(desk.read("streamNote").toString(), QString());
        QCOMPARE(desk.chat(u"report"_s).size(), 1);
    }

    void aRemoteModelWithoutItsKeyIsNotAsked()
    {
        Desk desk;
        desk.connectTo(u"https://127.0.0.1:9/v1"_s);
        QVERIFY(desk.read("settings").toMap().value(u"mock"_s).toBool());
        QVERIFY(!desk.read("hasApiKey").toBool());
        desk.connectTo(u"https://127.0.0.1:9/v1"_s, key);
        QVERIFY(!desk.read("settings").toMap().value(u"mock"_s).toBool());
        QVERIFY(desk.read("hasApiKey").toBool());
        desk.connectTo(u"http://127.0.0.1:9/v1"_s);
        QVERIFY(!desk.read("settings").toMap().value(u"mock"_s).toBool());
    }
};

QTEST_GUILESS_MAIN(BackendModelTest)
#include "tst_backend_model.moc"
