#include "files.h"
#include "json_text.h"
#include "mcp_client.h"
#include "mcp_config.h"
#include "mcp_script.h"
#include "mcp_server.h"
#include "tagged_processes.h"
#include "wire_server.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// A client in a home and a project of its own.
struct Desk {
    Desk()
    {
        qputenv("HOME", folder.filePath(u"home"_s).toUtf8());
        qputenv("XDG_CONFIG_HOME", folder.filePath(u"config"_s).toUtf8());
        qputenv("SHELL", "/bin/sh");
        QDir().mkpath(root);
        QObject::connect(&client, &McpClient::statusMessage, &client,
                         [this](const QString &text) { said.append(text); });
    }

    QString connectTo(const QJsonObject &config, const QString &wanted = u"Подключён"_s)
    {
        client.scan(root);
        client.add(u"Проба"_s, config, u"/etc/mcp.json"_s);
        id = mcpServerId(u"/etc/mcp.json"_s, u"Проба"_s);
        client.connectServer(id);
        (void)QTest::qWaitFor([&] { return status() == wanted; }, 30000);
        return status();
    }
    QString status() const { return client.server(id)->status; }
    QString ending() const { return status() + u'|' + client.server(id)->error + u'|' + client.details(id); }

    /// What a call of "t" gives, with ' for ".
    QString call()
    {
        QJsonObject answer;
        client.call(id, u"t"_s, {{u"a"_s, 1}}, [&](const QJsonObject &result) { answer = result; });
        (void)QTest::qWaitFor([&] { return !answer.isEmpty(); }, 30000);
        return json(answer).replace(u'"', u'\'');
    }

    QTemporaryDir folder;
    QString root = folder.filePath(u"project"_s);
    QString id;
    QStringList said;
    McpClient client;
};

/// An HTTP server that shakes hands under a session, and answers calls with `reply`.
WireServer::Handler httpServer(const WireReply &reply)
{
    return [reply](const WireRequest &request) {
        const QString method = request.json()["method"_L1].toString();
        const QByteArray id = R"({"id":)" + QByteArray::number(request.json()["id"_L1].toInt());
        if (method == "initialize"_L1)
            return WireReply::document(200, id + R"(,"result":{}})", "Mcp-Session-Id: s1\r\n");
        if (method == "tools/list"_L1)
            return WireReply::document(200, id + R"(,"result":{"tools":[{"name":"t"}]}})");
        return method == "tools/call"_L1 ? reply : WireReply::document(202, QByteArray());
    };
}

WireReply stream(const QList<QByteArray> &pieces)
{
    WireReply reply;
    reply.steps.append({WireReply::head(200, "Content-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n")});
    for (const QByteArray &piece : pieces)
        reply.steps.append({WireReply::chunk(piece), 20});
    reply.steps.append({"0\r\n\r\n"});
    return reply;
}

} // namespace

class McpClientTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM)); }

    void aServerIsTakenAsItComes_data()
    {
        QTest::addColumn<QJsonObject>("config");
        QTest::addColumn<QString>("result"); // Of a call.
        QTest::addColumn<QString>("ending"); // Status, error and details afterwards.
        const auto row = [](const char *name, const char *script, const char *result,
                            const char *ending = "Подключён||", bool handshake = true) {
            QTest::newRow(name) << mcpProgram(QString::fromUtf8(script), handshake, {{u"API_KEY"_s, u"sesam-1234"_s}})
                                << u"{%1'success':%2}"_s.arg(QString::fromUtf8(result),
                                                             QByteArray(result).contains("да") ? u"true"_s : u"false"_s)
                                << QString::fromUtf8(ending);
        };
        const char *good = "'content':['да'],";
        const char *gone = "'error':'MCP-сервер отключился',";
        const char *none = "'error':'MCP-сервер не подключён',";
        row("plain", "reply '\"result\":{\"content\":[\"да\"]}'; cat", good);
        row("a batch",
            "yes '{\"method\":\"n\"}' | head -2000; echo '{'; reply '\"result\":{\"content\":[\"да\"]}'; cat", good);
        row("requests", "reply '\"method\":\"ping\"'; reply '\"result\":{\"content\":[\"да\"]}'; cat", good);
        row("ids as text", "echo '{\"id\":\"3\"}'; reply '\"result\":{\"content\":[\"да\"]}'; cat", good);
        row("CRLF", "reply '\"result\":{\"content\":[\"да\"]}' | tr '\\n' '\\r'; echo; cat", good);
        row("a failure", "reply '\"result\":{\"isError\":true,\"error\":\"x\"}'; cat", "'isError':true,");
        row("no words", "reply '\"error\":{}'; cat", "'error':'Ошибка MCP',");
        row("its key", "reply '\"error\":{\"message\":\"bad sesam-1234!\"}'; cat", "'error':'bad •••!',");
        row("its key in a result", "reply \"\\\"result\\\":{\\\"content\\\":[\\\"да $API_KEY\\\"]}\"; cat",
            "'content':['да •••'],");
        row("death in mid-line", "reply '\"resu' | tr -d '\\n'; echo oops $API_KEY >&2; kill -9 $$", gone,
            "Отключён||oops •••");
        row("a line without end", "yes | tr -d '\\n'", gone, "Отключён|Слишком большой ответ MCP|");
        row("death at once", "echo kaputt >&2; exit 3", none, "Ошибка|MCP-сервер отключился|kaputt", false);
        row("refusal", "ask; reply '\"error\":{\"message\":\"нет\"}'; cat", none, "Ошибка|нет|", false);
        row("no list", "ask; reply '\"result\":{}'; ask; ask; reply '\"result\":{}'; cat", none,
            "Ошибка|Некорректный список инструментов|", false);
        const auto fails = [&](const char *name, const QString &config, const QString &ending) {
            QTest::newRow(name) << object(config) << u"{%1'success':false}"_s.arg(QString::fromUtf8(none)) << ending;
        };
        fails("unfilled", u"{'command':'${input:key}'}"_s,
              u"Ошибка|Заполните переменные MCP в исходной конфигурации|"_s);
        fails("plain http", u"{'url':'http://a.example/','command':'sh'}"_s,
              u"Ошибка|MCP требует HTTPS или локальный HTTP|"_s);
        fails("no such path", u"{'command':'/no/such'}"_s, u"Отключён||Программа «/no/such» не найдена."_s);
    }
    void aServerIsTakenAsItComes()
    {
        QFETCH(QJsonObject, config);
        QFETCH(QString, ending);
        const TaggedProcesses started;
        Desk desk;
        const QString first = desk.connectTo(config,
                                             ending.startsWith(u"Отключён||Про") ? u"Отключён"_s
                                                 : ending.contains(u"Ошибка"_s)  ? u"Ошибка"_s
                                                                                 : u"Подключён"_s);
        QTEST(desk.call(), "result");
        QTRY_COMPARE(desk.ending(), ending);
        QCOMPARE(desk.connectTo(config, first), first); // Nothing of a connection that has ended is in the way.
        desk.client.disconnectServer(desk.id);
        QVERIFY(started.vanish());
    }

    void aProgramThatCannotBeExecutedSaysSo()
    {
        Desk desk;
        const QString text = desk.folder.filePath(u"text"_s);
        save(text, "#!/no/such/interpreter\n");
        QFile::setPermissions(text, QFile::ReadOwner | QFile::ExeOwner);
        desk.connectTo({{u"command"_s, text}}, u"Отключён"_s);
        QCOMPARE(desk.ending(), u"Отключён||"_s + text + u": No such file or directory"_s);
    }

    void anHttpServerAnswersInItsOwnWay_data()
    {
        QTest::addColumn<WireReply>("reply");
        QTest::addColumn<QString>("result");
        const QByteArray answer = R"({"id":3,"result":{"content":["да"]}})";
        const QString good = u"{'content':['да'],'success':true}"_s;
        const QString none = u"{'error':'MCP не вернул ответ: HTTP %1','success':false}"_s;
        const qsizetype letter = answer.indexOf("д") + 1;
        QTest::newRow("json") << WireReply::document(200, answer) << good;
        QTest::newRow("events cut in a letter")
            << stream({"event: m\r\ndata: {\"method\":\"n\"}\r\n\r\ndata: " + answer.first(letter),
                       answer.sliced(letter) + "\r\n\r\n"})
            << good;
        QTest::newRow("a stream that goes on") << [&] {
            WireReply reply
                = stream({"data:{\"id\":3,\"method\":\"ping\"}\ndata:{\"id\":\"3\"}\ndata:" + answer + "\n"});
            reply.steps.removeLast();
            reply.end = WireReply::End::Silence;
            return reply;
        }() << good;
        QTest::newRow("a last line without end") << stream({"data: " + answer}) << none.arg(200);
        QTest::newRow("a session that has ended") << WireReply::document(404, QByteArray("gone")) << none.arg(404);
        QTest::newRow("a redirect") << WireReply::document(302, QByteArray(), "Location: /v2\r\n") << none.arg(302);
        QTest::newRow("202 without a body") << WireReply::document(202, QByteArray()) << none.arg(202);
        QTest::newRow("too much") << WireReply::document(200, answer + QByteArray(maxMcpMessageBytes, ' '))
                                  << none.arg(200);
    }
    void anHttpServerAnswersInItsOwnWay()
    {
        QFETCH(WireReply, reply);
        WireServer http(httpServer(reply));
        Desk desk;
        QCOMPARE(desk.connectTo({{u"url"_s, http.url()}, {u"headers"_s, object(u"{'X-Key':'k','Accept':'*/*'}"_s)}}),
                 u"Подключён"_s);
        QTEST(desk.call(), "result");
        QCOMPARE(desk.status(), u"Подключён"_s);
        QStringList seen;
        for (const WireRequest &request : std::as_const(http.requests))
            seen.append(QString::fromUtf8(request.header("Mcp-Session-Id") + request.header("X-Key")
                                          + request.header("Accept") + request.header("MCP-Protocol-Version")));
        QCOMPARE(seen.mid(0, 2), (QStringList{u"k*/*2025-03-26"_s, u"s1k*/*2025-03-26"_s}));
        QCOMPARE(http.requests.first().json(),
                 object(u"{'id':1,'jsonrpc':'2.0','method':'initialize','params':{'capabilities':{},'clientInfo':"
                        "{'name':'VESK','version':'1.1'},'protocolVersion':'2025-03-26'}}"_s));
    }

    void anAnswerThatComesTooLateIsDropped()
    {
        Desk desk;
        desk.connectTo(mcpProgram(u"late=$line; ask; now=$line; line=$late; reply '\"result\":{\"n\":3}'; line=$now; "
                                  "reply '\"result\":{\"n\":4}'; cat"_s));
        QStringList got;
        const auto note = [&](const QJsonObject &result, const QString &error) { got.append(error + json(result)); };
        desk.client.rpc(desk.client.server(desk.id), u"slow"_s, {}, note, 1);
        QTRY_COMPARE(got, QStringList{u"MCP не ответил вовремя{}"_s});
        desk.client.rpc(desk.client.server(desk.id), u"quick"_s, {}, note, 30000);
        QTRY_COMPARE(got, (QStringList{u"MCP не ответил вовремя{}"_s, u"{\"n\":4}"_s}));
    }

    void streamsThatNobodyWaitsForMakeRoom()
    {
        WireReply endless = stream({": still here\n"});
        endless.steps.removeLast();
        endless.end = WireReply::End::Silence;
        const WireServer::Handler usual = httpServer(WireReply::document(200, R"({"id":14,"result":{"n":1}})"_ba));
        WireServer http([&](const WireRequest &request) {
            const QString method = request.json()["method"_L1].toString();
            return method == "slow"_L1 || method == "notifications/initialized"_L1 ? endless : usual(request);
        });
        Desk desk;
        desk.connectTo({{u"url"_s, http.url()}});
        int late = 0;
        const auto note = [&](const QJsonObject &, const QString &error) { late += error.isEmpty() ? 0 : 1; };
        for (const int limitMs : {60000, 60000, 60000, 60000, 60000, 60000, 60000, 100, 100, 100, 100})
            desk.client.rpc(desk.client.server(desk.id), u"slow"_s, {}, note, limitMs);
        QTRY_COMPARE(late, 4);
        QCOMPARE(desk.call(), u"{'n':1,'success':true}"_s);
    }

    void aHandshakeBeginsASessionOfItsOwn()
    {
        WireServer http([](const WireRequest &request) {
            return WireReply::document(
                200, "{\"result\":{},\"id\":" + QByteArray::number(request.json()["id"_L1].toInt()) + '}',
                "Mcp-Session-Id: old\r\n");
        });
        Desk desk;
        for (int i = 0; i < 2; ++i)
            QCOMPARE(desk.connectTo({{u"url"_s, http.url()}}, u"Ошибка"_s), u"Ошибка"_s);
        for (const WireRequest &request : std::as_const(http.requests))
            QCOMPARE(request.header("Mcp-Session-Id").isEmpty(), request.json()["method"_L1] == "initialize"_L1);
    }

    void aStopTellsTheServersAndEndsThem()
    {
        const TaggedProcesses started;
        Desk desk;
        const QString log = desk.folder.filePath(u"log"_s);
        desk.connectTo(mcpProgram(u"sleep 1000 & setsid sleep 1000 & cat > "_s + log + u"; exec sleep 1000"_s));
        WireServer http(httpServer({{}, WireReply::End::Silence}));
        desk.client.add(u"Сеть"_s, {{u"url"_s, http.url()}}, {});
        const QString web = mcpServerId({}, u"Сеть"_s);
        desk.client.connectServer(web);
        QTRY_COMPARE(desk.client.server(web)->status, u"Подключён"_s);
        QStringList got;
        for (const QString &id : {desk.id, desk.id, web})
            desk.client.call(id, u"t"_s, {},
                             [&](const QJsonObject &result) { got.append(result["error"_L1].toString()); });
        QTRY_COMPARE(http.requests.size(), 4);
        desk.client.cancelAll();
        QCOMPARE(got, QStringList(3, u"Подключение закрыто пользователем"_s));
        QCOMPARE(desk.status(), u"Отключён"_s);
        QTRY_COMPARE(http.requests.size(), 5);
        const QString cancelled = u"{'requestId':%1,'reason':'User stopped task'}"_s;
        QCOMPARE(http.requests.last().json()["params"_L1].toObject(), object(cancelled.arg(7)));
        QTRY_COMPARE(contentOf(log).count("notifications/cancelled"), 2);
        QVERIFY(started.vanish());
    }

    void aServerThatReadsNothingIsNotFilledUp()
    {
        Desk desk;
        desk.connectTo(mcpProgram(u"exec sleep 1000"_s));
        QStringList got;
        for (int i = 0; i < 3; ++i)
            desk.client.call(desk.id, u"t"_s, {{u"a"_s, QString(2000000, u'x')}},
                             [&](const QJsonObject &result) { got.append(result["error"_L1].toString()); });
        QCOMPARE(got, QStringList{u"MCP-сервер не принимает данные: запрос не отправлен"_s});
    }

    void serversAreFoundInTheFilesOfOtherTools()
    {
        Desk desk;
        const QString home = desk.folder.filePath(u"home/"_s);
        save(home + u".cursor/mcp.json"_s, R"({"mcpServers":{},"servers":{"a":{"command":"x"},"none":{"args":[]}}})");
        save(home + u".mcp.json"_s, R"({"mcpServers":{"b":{"url":"u"}},"servers":{"not":{"command":"x"}}})");
        save(home + u".lmstudio/mcp.json"_s, R"({"servers":{"big":{"command":"x"}}})" + QByteArray(1048576, ' '));
        save(desk.folder.filePath(u"config/Code/User/mcp.json"_s), R"({"servers":{"c":{"command":"x"}}})");
        save(desk.root + u"/.mcp.json"_s, R"({"mcpServers":{"b":{"command":"y"}}})");
        const auto names = [&] {
            QStringList found;
            for (const QJsonValue &server : desk.client.list())
                found.append(server["name"_L1].toString() + server["status"_L1].toString());
            found.sort();
            return found.join(u' ');
        };
        desk.client.scan(desk.root);
        QCOMPARE(names(), u"aДоступен bДоступен bДоступен cДоступен"_s);
        save(home + u".mcp.json"_s, R"({"mcpServers":{"b":{"command":"changed"},"d":{"command":"x"}}})");
        desk.client.scan(desk.root);
        QCOMPARE(names(), u"aДоступен bДоступен bДоступен cДоступен dДоступен"_s);
        QVERIFY(desk.client.server(mcpServerId(home + u".mcp.json"_s, u"b"_s))->config.contains("url"_L1));

        // One of a project waits for a word in another one, too; and one of the user's own, as soon as it lies in one.
        desk.client.scan({});
        desk.client.connectServer(mcpServerId(desk.root + u"/.mcp.json"_s, u"b"_s));
        QCOMPARE(desk.client.requests().size(), 1);
        desk.client.scan(QDir::homePath());
        desk.client.connectServer(mcpServerId(home + u".mcp.json"_s, u"d"_s));
        QCOMPARE(desk.client.requests().size(), 2);
    }

    void programsAreFoundAsTheShellFindsThem()
    {
        Desk desk;
        const QString bin = desk.folder.filePath(u"bin"_s);
        save(bin + u"/mcp-tool"_s, "#!/bin/sh\n" + mcpProgram(u"cat"_s)["args"_L1][1].toString().toUtf8());
        save(bin + u"/shell"_s, "#!/bin/sh\necho Привет; PATH=" + bin.toUtf8() + ":$PATH; eval \"$4\"\n");
        for (const QString &name : {u"/mcp-tool"_s, u"/shell"_s})
            QFile::setPermissions(bin + name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("SHELL", (bin + u"/shell"_s).toUtf8());
        QCOMPARE(desk.connectTo({{u"command"_s, u"mcp-tool"_s}}), u"Подключён"_s);

        // A shell that hangs is waited for a while, and the error says where was looked.
        save(bin + u"/shell"_s, "#!/bin/sh\nexec sleep 1000\n");
        Desk other;
        qputenv("SHELL", (bin + u"/shell"_s).toUtf8());
        QCOMPARE(other.connectTo({{u"command"_s, u"mcp-tool"_s}}, u"Отключён"_s), u"Отключён"_s);
        const QString told = other.client.details(other.id);
        QVERIFY2(told.startsWith(u"Программа «mcp-tool» не найдена. Где искали: /"_s), qPrintable(told));
        QVERIFY(!told.contains(bin) && other.said.contains(u"Проба: "_s + told));
    }

    void onlySoManyToolsAreTaken()
    {
        Desk desk;
        desk.connectTo(mcpProgram(
            u"ask; reply '\"result\":{}'; ask; ask; reply \"\\\"result\\\":{\\\"tools\\\":[$(yes "
            "'{\"name\":\"n\"},' | head -600){\\\"name\\\":\\\"$(yes | head -35000 | tr -d "
            "'\\n')\\\"},{\\\"name\\\":\\\"$(yes | head -70000 | tr -d '\\n')\\\"}]}\" | tr -d '\\n'; echo; cat"_s,
            false));
        QCOMPARE(desk.client.availableTools().size(), 512);
        QCOMPARE(desk.said.join(u'|'),
                 u"Проба: Подключён · инструментов: 512|Проба: не взято инструментов: 90. "
                 "Предел — 512, по 64 КиБ каждый."_s);
        QCOMPARE(json(desk.client.availableTools().first().toObject()),
                 u"{\"name\":\"n\",\"server_id\":\"%1\",\"server_name\":\"Проба\"}"_s.arg(desk.id));
    }

    void aResultIsBoundedAndSaysWhoseItIs()
    {
        const QString text(150000, u'я');
        const QJsonObject result{{u"content"_s,
                                  QJsonArray{QJsonObject{{u"type"_s, u"image"_s}, {u"data"_s, QString(4000, u'A')}},
                                             QJsonObject{{u"text"_s, text}}, QJsonObject{{u"text"_s, text}}}},
                                 {u"structuredContent"_s, QJsonObject{{u"x"_s, text}}},
                                 {u"success"_s, true}};
        const QJsonObject bounded = boundedResult(result, u"Сервер"_s, u"t"_s);
        QCOMPARE(bounded["content"_L1][0].toObject().keys(), (QStringList{u"data"_s, u"type"_s}));
        QCOMPARE(fields(bounded, u"server tool success truncated structuredContent content.0.data"_s),
                 u"Сервер t true true  не передано, байт: 3000"_s);
        QCOMPARE(bounded["content"_L1][1]["text"_L1].toString(), text);
        const qsizetype rest = bounded["content"_L1][2]["text"_L1].toString().size();
        QVERIFY(rest > 40000 && rest < 50000);
        const QJsonObject liar{{u"server"_s, u"x"_s}, {u"tool"_s, u"y"_s}, {u"content"_s, u"text"_s}};
        QCOMPARE(fields(boundedResult(liar, u"Сервер"_s, u"t"_s), u"server tool truncated"_s), u"Сервер t true"_s);
        const auto nested
            = [](int depth) { return "{\"id\":1,\"result\":" + QByteArray(depth, '[') + QByteArray(depth, ']') + '}'; };
        QVERIFY(!mcpMessage(nested(500)).isEmpty() && mcpMessage(nested(600)).isEmpty());
        QCOMPARE(boundedTools({1, QJsonObject{{u"name"_s, u"a"_s}}, QJsonObject()}).taken.size(), 1);
    }

    void variablesAreFilledIn()
    {
        QProcessEnvironment environment;
        environment.insert(u"Name"_s, u"wert"_s);
        QCOMPARE(expanded(u"${workspaceFolder}|${env:Name}|${env:NAME}|%nAmE%|%x%|${userHome}"_s, u"/w"_s, environment),
                 u"/w|wert|${env:NAME}|wert|%x%|"_s + QDir::homePath());
    }

    void aRequestStartsWhatItNames_data()
    {
        QTest::addColumn<QString>("request");
        QTest::addColumn<QString>("started");
        QTest::newRow("all, but eight") << u"Через MCP"_s << u"1 3 4 5 6 7 8 9"_s;
        QTest::newRow("all, in Russian") << u"по Мпс"_s << u"1 3 4 5 6 7 8 9"_s;
        QTest::newRow("one by its name") << u"возьми СЕРВЕР-3"_s << u"3"_s;
        QTest::newRow("one in the other script") << u"Открой Блендер"_s << u"1"_s;
        QTest::newRow("none") << u"Калькулятор"_s << u""_s;
    }
    void aRequestStartsWhatItNames()
    {
        QFETCH(QString, request);
        QJsonArray list{object(u"{'id':'1','name':'My Blender','status':'Ошибка'}"_s),
                        object(u"{'id':'2','name':'Сервер-2','status':'Подключён'}"_s)};
        for (int i = 3; i < 12; ++i)
            list.append(object(u"{'id':'%1','name':'Сервер-%1','status':'Доступен'}"_s.arg(i)));
        QTEST(serversToStart(list, request).join(u' '), "started");
    }
};

QTEST_GUILESS_MAIN(McpClientTest)
#include "tst_mcp_client.moc"
