// Models are connected through the backend, at real servers: what is kept, what is refused, where a key must never be
// found, and servers that do what they like.

#include "backend_desk.h"
#include "credential_store.h"
#include "files.h"
#include "json_text.h"
#include "model_server.h"
#include "server_finder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMetaProperty>
#include <QSslConfiguration>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const auto key = u"sekret-0123456789"_s;
const auto refusedAddress
    = u"Укажите полный адрес API: HTTPS или HTTP для локальной модели. Замените шаблон WorkspaceId своим значением."_s;

WireReply says(const QString &content)
{
    return WireReply::document(200, WireReply::completion(content));
}

WireReply lists(const QStringList &ids)
{
    QJsonArray data;
    for (const QString &id : ids)
        data.append(QJsonObject{{u"id"_s, id}});
    return WireReply::document(200, QJsonObject{{u"data"_s, data}});
}

const WireReply silence{{}, WireReply::End::Silence};

/// A server whose reply to everything can be changed.
class Server : public WireServer {
    Q_OBJECT
public:
    Server()
        : WireServer([this](const WireRequest &request) { return answer ? answer(request) : reply; })
    {
    }
    WireReply reply = says(u"{\"summary\":\"ok\"}"_s);
    Handler answer; ///< In place of it.
    QByteArray lastKey() const { return requests.isEmpty() ? QByteArray() : requests.last().header("Authorization"); }
};

/// A server that stands for a published provider as long as this lives.
class Published : public Server {
    Q_OBJECT
public:
    Published() { qputenv("VESK_ALEM_URL", url().toUtf8()); }
    ~Published() override { qunsetenv("VESK_ALEM_URL"); }
};

const auto alem = u"Alem Plus"_s;

class ModelDesk : public Desk {
public:
    using Desk::Desk;
    QString status() const { return read("apiStatus").toString(); }
    QJsonObject settings() const { return QJsonObject::fromVariantMap(read("settings").toMap()); }
    QJsonObject agentApi() const
    {
        return QJsonObject::fromVariantMap(read("preferences").toMap().value(u"agent_api"_s).toMap());
    }
    bool quiet() const
    {
        return !read("apiTesting").toBool() && !read("modelsLoading").toBool() && !read("serversSearching").toBool()
            && !read("measuring").toBool();
    }
    /// What became of an operation, when all is quiet again: the refusal, or the line of its end.
    QString outcome(const QByteArray &operation, const QVariantList &arguments = {})
    {
        call(operation, arguments);
        waitFor([this] { return quiet(); });
        return message().isEmpty() ? status() : message();
    }
    QStringList models() const
    {
        QStringList ids;
        const QVariantList all = read("models").toList();
        for (const QVariant &model : all)
            ids.append(model.toMap().value(u"id"_s).toString());
        return ids;
    }
    /// Where the key stands though it must not: a file or a property.
    QString leak() const
    {
        const QStringList names = QDir(data()).entryList(QDir::Files | QDir::Hidden);
        for (const QString &name : names) {
            if (name != "credentials"_L1 && contentOf(data() + u'/' + name).contains(key.toUtf8()))
                return name;
        }
        const QMetaObject *meta = backend->metaObject();
        for (int i = 0; i < meta->propertyCount(); ++i) {
            const QVariant value = meta->property(i).read(backend.get());
            const QByteArray text = QJsonDocument(QJsonArray{QJsonValue::fromVariant(value)}).toJson();
            if (text.contains(key.toUtf8()))
                return QString::fromLatin1(meta->property(i).name());
        }
        return {};
    }
};

QStringList logged; ///< By any part of the program.

void keepLog(QtMsgType, const QMessageLogContext &, const QString &text)
{
    logged.append(text);
}

} // namespace

class ModelConnectionTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void settingsAreCheckedAndKept()
    {
        ModelDesk desk;
        const auto save = [&](bool mock, const QString &url, const QString &model = u" any "_s) {
            desk.call("saveSettings", {mock, url, model, u""_s, 3});
            return desk.message();
        };
        for (const QString &url : {u"http://192.168.1.5/v1"_s, u"https://{WorkspaceId}.example/v1"_s, u"nonsense"_s,
                                   u"https://example/v1?a=b"_s, u"https://me:pw@example/v1"_s, u"https://"_s, u""_s,
                                   u"https://example/v1#a"_s, u"ftp://localhost/v1"_s})
            QCOMPARE(save(false, url), refusedAddress);
        QCOMPARE(save(false, u"http://localhost:1/v1"_s, u"  "_s), u"Укажите идентификатор модели."_s);
        QCOMPARE(save(true, u"http://me@localhost"_s), u"Логин и пароль нельзя указывать в адресе API."_s);
        QVERIFY(desk.settings()["mock"_L1].toBool() && desk.settings()["base_url"_L1].toString().isEmpty());
        QCOMPARE(save(true, u"https://example/v1?a=b"_s), QString());
        QCOMPARE(save(false, u" http://localhost:1/v1 "_s), QString());
        const QJsonObject kept
            = object(u"{'mock':false,'base_url':'http://localhost:1/v1','model':'any','parallel':8}"_s);
        QCOMPARE(desk.settings(), kept);
        QCOMPARE(desk.status(), u"Настройки сохранены. Подключение можно проверить кнопкой ниже."_s);
        desk.reopen();
        QCOMPARE(desk.settings(), kept);
    }

    void aKeyFollowsItsAddress()
    {
        ModelDesk desk;
        const auto save = [&](const QString &url, const QString &itsKey) {
            desk.call("saveSettings", {false, url, u"any"_s, itsKey, 8});
            return desk.read("hasApiKey").toBool();
        };
        QVERIFY(save(u"https://a.example/v1"_s, key));
        QVERIFY(!save(u"https://b.example/v1"_s, u""_s));
        QVERIFY(save(u"https://a.example/v1"_s, u""_s));
        desk.call("useDemonstration");
        QVERIFY(desk.settings()["mock"_L1].toBool());
        QCOMPARE(CredentialStore::read(connectionTarget(u"https://a.example/v1"_s)), key);
        desk.call("saveSettings", {false, u"https://c.example/v1"_s, u"any"_s, u"a\nb"_s, 8});
        QVERIFY(desk.message().contains(u"управляющие"_s));
    }

    void aProviderIsConnectedOnceItHasAnswered()
    {
        Published server;
        ModelDesk desk(u"Проект"_s);
        QCOMPARE(desk.outcome("connectProvider", {u"openai"_s, u"m"_s, key}), u"Неизвестный провайдер"_s);
        QCOMPARE(desk.outcome("connectProvider", {alem, u" "_s, key}), u"Выберите модель"_s);
        QCOMPARE(desk.outcome("connectProvider", {alem, u"m"_s, u" "_s}), u"Добавьте ключ этого провайдера"_s);
        const QString failed = u"Модель не подключена. Модель не поддерживает формат ответов агентов."_s;
        for (const QString &content : {u"{\"summary\":5}"_s, u"Hello"_s, u"{}"_s}) {
            server.reply = says(content);
            QCOMPARE(desk.outcome("connectProvider", {alem, u"m"_s, key}), failed);
        }
        QVERIFY(desk.settings()["mock"_L1].toBool() && !desk.read("hasApiKey").toBool());
        QCOMPARE(CredentialStore::read(connectionTarget(server.url())), QString());

        server.reply = says(u"{\"summary\":\"ok\"}"_s);
        QCOMPARE(desk.outcome("connectProvider", {alem, u" m "_s, u' ' + key + u"\r\n"_s}), u"Подключено: m"_s);
        const QJsonObject connected = object(
            u"{'mock':false,'base_url':'%1','model':'m','parallel':8,'provider':'Alem Plus'}"_s.arg(server.url()));
        QCOMPARE(desk.settings(), connected);
        QCOMPARE(server.lastKey(), "Bearer " + key.toUtf8());
        QCOMPARE(server.requests.last().json()["max_tokens"_L1].toInt(), 2048);
        QVERIFY(server.requests.last().body.contains("Connection test"));
        desk.reopen();
        QCOMPARE(desk.settings(), connected);
        QCOMPARE(desk.outcome("testConnection"), u"Подключено: m. Модель ответила корректно."_s);
        QCOMPARE(server.requests.last().json()["max_tokens"_L1].toInt(), 64);
        server.reply = says(u"Hello"_s);
        QCOMPARE(desk.outcome("testConnection"), u"Не удалось подключиться. Ответ не соответствует JSON-формату."_s);
        QCOMPARE(desk.outcome("forgetProvider", {alem}), u"Ключ удалён"_s);
        QVERIFY(desk.settings()["mock"_L1].toBool() && !desk.read("hasApiKey").toBool());
        QCOMPARE(CredentialStore::read(connectionTarget(server.url())), QString());
        QCOMPARE(desk.outcome("testConnection"), u"Добавьте подключение в настройках API."_s);
        QCOMPARE(desk.outcome("connectProvider", {alem, u"m"_s, u""_s}), u"Добавьте ключ этого провайдера"_s);
    }

    void oneCheckAtATimeAndAnyCanBeStopped()
    {
        Published server;
        server.reply = silence;
        ModelDesk desk(u"Проект"_s);
        desk.call("saveSettings", {false, u"http://127.0.0.1:9/v1"_s, u"any"_s, u""_s, 8});
        desk.call("connectProvider", {alem, u"m"_s, key});
        QVERIFY(desk.read("apiTesting").toBool());
        const QList<std::pair<QByteArray, QVariantList>> others{{"testConnection", {}},
                                                                {"measureConnection", {}},
                                                                {"connectProvider", {alem, u"m"_s, key}},
                                                                {"setAgentApi", {u"coding"_s, alem, u"m"_s, key}},
                                                                {"sendMessage", {u"Создай калькулятор"_s}}};
        for (const auto &[operation, arguments] : others) {
            desk.call(operation, arguments);
            QVERIFY2(!desk.message().isEmpty(), operation);
        }
        QCOMPARE(desk.outcome("forgetProvider", {alem}), u"Ключ удалён"_s);
        const QList<std::pair<QByteArray, QVariantList>> stoppable{
            {"connectProvider", {alem, u"m"_s, key}},
            {"connectQwen", {key}},
            {"setAgentApi", {u"coding"_s, alem, u"m"_s, key}},
            {"loadModels", {alem, key}},
            {"loadServerModels", {server.url(), key}},
            {"connectServer", {server.url(), u"m"_s, key}},
            {"connectServer", {server.url(), u"m"_s, key, u"coding"_s}}};
        for (const QByteArray &stop : {QByteArray("stopCheck"), QByteArray("stop")}) {
            for (const auto &[operation, arguments] : stoppable) {
                const qsizetype before = server.requests.size();
                desk.call(operation, arguments);
                QVERIFY2(!desk.quiet() && desk.message().isEmpty(), operation);
                QVERIFY(Desk::waitFor([&] { return server.requests.size() > before; }));
                QCOMPARE(desk.outcome(stop), stop == "stop" ? u"Остановлено"_s : u"Проверка остановлена."_s);
            }
        }
        QCOMPARE(desk.settings()["base_url"_L1].toString(), u"http://127.0.0.1:9/v1"_s);
        QCOMPARE(desk.agentApi(), QJsonObject());
    }

    void workThatBeganMeanwhileKeepsItsModel()
    {
        Published server;
        server.reply = {{{says(u"{\"summary\":\"ok\"}"_s).steps[0].bytes, 300}}};
        ModelDesk desk(u"Проект"_s);
        const QString wait = u"Дождитесь завершения текущей работы перед сменой модели."_s;
        desk.call("connectProvider", {alem, u"m"_s, key});
        desk.call("start", {u"Создай калькулятор"_s, false, 1000000, u""_s, u"[]"_s});
        QVERIFY(Desk::waitFor([&] { return !desk.read("apiTesting").toBool(); }));
        QCOMPARE(desk.status(), wait);
        QVERIFY(desk.settings()["mock"_L1].toBool());
        desk.call("saveSettings", {true, u""_s, u""_s, u""_s, 8});
        QCOMPARE(desk.message(), wait);
        desk.call("setAgentApi", {u"coding"_s, u""_s, u""_s, u""_s});
        QCOMPARE(desk.message(), u"Остановите задачу перед удалением используемого ключа агента"_s);
    }

    void anAgentHasAModelOfItsOwn()
    {
        Published server;
        ModelDesk desk;
        const auto connect = [&](const QString &agent, const QString &provider, const QString &model,
                                 const QString &k) { return desk.outcome("setAgentApi", {agent, provider, model, k}); };
        QCOMPARE(connect(u"nobody"_s, alem, u"m"_s, key), u"Агент не найден"_s);
        QCOMPARE(connect(u"coding"_s, alem, u" "_s, key), u"Введите ID модели"_s);
        QCOMPARE(connect(u"coding"_s, alem, u"m"_s, u""_s), u"Введите ключ для этого агента"_s);
        QCOMPARE(connect(u"coding"_s, u""_s, u""_s, u""_s), u"Агент использует общую модель"_s);
        server.reply = says(u"{\"summary\":5}"_s);
        QCOMPARE(connect(u"coding"_s, alem, u"m"_s, key), u"Модель не вернула корректный ответ"_s);
        QCOMPARE(desk.status(), desk.message());
        QCOMPARE(CredentialStore::read(agentTarget(u"coding"_s)), QString());

        server.reply = says(u"{\"summary\":\"ok\"}"_s);
        QCOMPARE(connect(u"coding"_s, alem, u"m"_s, key), u"API агента подключён: m"_s);
        const QString entry = u"{'coding':{'provider':'%1','url':'%2','model':'%3'}}"_s;
        QCOMPARE(desk.agentApi(), object(entry.arg(alem, server.url(), u"m"_s)));
        QCOMPARE(connect(u"coding"_s, alem, u"n"_s, u""_s), u"API агента подключён: n"_s); // with the key it has
        QCOMPARE(server.lastKey(), "Bearer " + key.toUtf8());
        server.reply = lists({u"qwen-a"_s});
        desk.outcome("loadModels", {alem, u""_s, u"coding"_s});
        QCOMPARE(desk.read("modelCatalogOwner").toString(), u"Alem Plus/coding"_s);
        QCOMPARE(server.lastKey(), "Bearer " + key.toUtf8());

        // The key of one address goes to no other one.
        Server own;
        QCOMPARE(desk.outcome("connectServer", {own.url(), u"o"_s, u""_s, u"coding"_s}), u"API агента подключён: o"_s);
        QCOMPARE(desk.agentApi(), object(entry.arg(u"Свой сервер"_s, own.url(), u"o"_s)));
        QCOMPARE(own.lastKey(), QByteArray());
        QCOMPARE(CredentialStore::read(agentTarget(u"coding"_s)), QString());
        QVERIFY(desk.settings()["mock"_L1].toBool()); // the team's own is another matter
        Server other;
        for (const auto &[to, given, sent] :
             {std::tuple{&own, key, true}, {&own, QString(), true}, {&other, QString(), false}}) {
            desk.outcome("connectServer", {to->url(), u"o"_s, given, u"coding"_s});
            QCOMPARE(to->lastKey(), sent ? "Bearer " + key.toUtf8() : QByteArray());
        }
        QCOMPARE(connect(u"coding"_s, u""_s, u""_s, u""_s), u"Агент использует общую модель"_s);
        QCOMPARE(desk.agentApi(), QJsonObject());
    }

    void onlyTheLatestCatalogueCounts()
    {
        Published server;
        server.answer = [](const WireRequest &request) {
            const bool first = request.header("Authorization") == "Bearer first";
            return WireReply{{{lists({first ? u"qwen-old"_s : u"qwen-new"_s}).steps[0].bytes, first ? 300 : 0}}};
        };
        ModelDesk desk;
        desk.call("loadModels", {alem, u"first"_s});
        QVERIFY(Desk::waitFor([&] { return server.requests.size() == 1; }));
        QCOMPARE(desk.outcome("loadModels", {alem, key}), u"Список моделей обновлён. Выберите модель для проверки."_s);
        QCOMPARE(desk.models(), QStringList{u"qwen-new"_s});
        server.answer = {};
        server.reply = WireReply::document(401, QByteArray());
        QCOMPARE(desk.outcome("loadModels", {alem, key}), u"Не удалось получить модели: HTTP 401"_s);
        QCOMPARE(desk.models(), QStringList());
        server.reply = lists({u"llama"_s});
        QCOMPARE(desk.outcome("loadModels", {alem, key}),
                 u"Для этого ключа не найдено подходящих моделей. Проверьте провайдера и доступ к моделям."_s);
    }

    void aServerMayAnswerWithAnything_data()
    {
        QTest::addColumn<WireReply>("reply");
        QTest::addColumn<QString>("status"); ///< Its part of the line about the catalogue.
        QStringList many;
        for (int i = 0; i < 100000; ++i)
            many.append(u"model-"_s + QString::number(i));
        const QByteArray page = "<html>" + key.toUtf8() + "</html>";
        const auto row = [](const char *name, const WireReply &reply, const QString &status) {
            QTest::newRow(name) << reply << status;
        };
        const auto text = [](int status, const QByteArray &body, const QByteArray &headers = {}) {
            return WireReply::document(status, body, headers);
        };
        using End = WireReply::End;
        const QString foreign = u"отвечает не сервер моделей"_s;
        row("many models", lists(many), u"Показаны первые 5000"_s);
        row("endless", {{{WireReply::head(200, "") + QByteArray(100000, ' ')}}, End::Flood}, u"слишком велик"_s);
        row("a page", text(200, page), foreign);
        row("a missing page", text(404, page), foreign);
        row("elsewhere", text(302, {}, "Location: " + elsewhere.url().toUtf8() + "/models\r\n"), u"пересылает"_s);
        row("the key back", lists({key, u"a"_s}), u"Список моделей обновлён"_s);
        row("a wrong key", text(401, "{\"error\":\"bad " + key.toUtf8() + "\"}"), u"Сервер не принял ключ"_s);
        row("cut", {{{"HTTP/1.1 200 OK\r\n"}}, End::Reset}, u"оборвал соединение"_s);
        row("no HTTP", {{{"SSH-2.0\r\n\r\n"}}, End::Close}, u"оборвал соединение"_s);
    }

    void aServerMayAnswerWithAnything()
    {
        QFETCH(WireReply, reply);
        QFETCH(QString, status);
        logged.clear();
        const auto previous = qInstallMessageHandler(keepLog);
        Server server;
        server.reply = reply;
        ModelDesk desk(u"Проект"_s);
        const QString loaded = desk.outcome("loadServerModels", {server.url(), key});
        const qsizetype count = desk.models().size();
        QString leak = desk.leak();
        const QList<std::pair<QByteArray, QVariantList>> operations{
            {"connectServer", {server.url(), u"m"_s, key}},
            {"connectServer", {server.url(), u"m"_s, key, u"coding"_s}},
            {"loadModels", {alem, key}},
            {"connectProvider", {alem, u"m"_s, key}}};
        QStringList outcomes;
        for (const auto &[operation, arguments] : operations) {
            if (operation == "loadModels")
                qputenv("VESK_ALEM_URL", server.url().toUtf8());
            outcomes.append(desk.outcome(operation, arguments));
            leak += desk.leak();
        }
        qunsetenv("VESK_ALEM_URL");
        qInstallMessageHandler(previous);
        QVERIFY2(loaded.contains(status), qPrintable(loaded));
        QVERIFY(count == (loaded.contains("5000"_L1) ? 5000 : loaded.contains(u"обновлён"_s) ? 1 : 0));
        QCOMPARE(leak, QString());
        QVERIFY(!logged.join(u' ').contains(key));
        QVERIFY(elsewhere.requests.isEmpty());
        for (const QString &outcome : outcomes)
            QVERIFY2(!outcome.startsWith(u"Подключено"_s) && !outcome.isEmpty(), qPrintable(outcome));
        QVERIFY(desk.settings()["mock"_L1].toBool());
        server.reply = says(u"{\"summary\":\"ok\"}"_s); // the desk is as usable as before
        QCOMPARE(desk.outcome("connectServer", {server.url(), u"m"_s, key}), u"Подключено: m"_s);
        QCOMPARE(desk.outcome("forgetServer", {server.url() + u'/'}), u"Ключ удалён"_s);
        QVERIFY(desk.settings()["mock"_L1].toBool());
        QCOMPARE(CredentialStore::read(connectionTarget(server.url())), QString());
    }

private:
    Server elsewhere; ///< Where a server sends those on who ask it.

private Q_SLOTS:
    void aCertificateNobodyTrustsIsSaidToBeThat()
    {
        const QSslConfiguration tls = WireServer::selfSigned();
        if (tls.isNull())
            QSKIP("no openssl to make a certificate with");
        WireServer server([](const WireRequest &) { return says(u"{\"summary\":\"ok\"}"_s); }, tls);
        ModelDesk desk;
        QVERIFY(desk.outcome("connectServer", {server.url(), u"m"_s, key}).contains(u"сертификат не принят"_s));
        QVERIFY(desk.outcome("loadServerModels", {server.url(), key}).contains(u"сертификат не принят"_s));
        QVERIFY(server.requests.isEmpty());
        QVERIFY(desk.outcome("connectServer", {u"127.0.0.1:9/v1"_s, u"m"_s, u""_s}).contains(u"не запущен"_s));
        QCOMPARE(desk.outcome("connectServer", {u"models.example/v1?a"_s, u"m"_s, key}), refusedAddress);
    }

    void serversOfThisMachineAreFound()
    {
        Server open, locked, page, silent;
        open.reply = lists({u"b"_s, u"a"_s});
        locked.reply = WireReply::document(401, QByteArray());
        page.reply = WireReply::document(200, QByteArray("<html>"));
        silent.reply = silence;
        ServerFinder finder;
        QElapsedTimer clock;
        clock.start();
        finder.search({{u"Silent"_s, silent.url()},
                       {u"Open"_s, open.url()},
                       {u"Page"_s, page.url()},
                       {u"Nobody"_s, u"http://127.0.0.1:9/v1"_s},
                       {u"Locked"_s, locked.url()}});
        QVERIFY(finder.isSearching());
        QVERIFY(Desk::waitFor([&] { return !finder.isSearching(); }));
        QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
        const QString all = u"[{'name':'Open','url':'%1','models':[{'id':'a'},{'id':'b'}]},"
                            "{'name':'Locked','url':'%2','models':[]}]"_s;
        QCOMPARE(QJsonArray::fromVariantList(finder.found()), array(all.arg(open.url(), locked.url())));
        finder.search({{u"Silent"_s, silent.url()}});
        finder.stop();
        QVERIFY(!finder.isSearching() && finder.found().isEmpty());
    }

    void whatWasMeasuredIsKeptAndUsed()
    {
        Server server;
        bool isWorking = false;
        server.answer = [&](const WireRequest &request) {
            const QJsonObject body = request.json();
            if (isWorking)
                return says(ModelServer::unasking(ModelServer::requestOf(body)));
            if (body.contains("response_format"_L1))
                return WireReply::document(400, QByteArray("{\"error\":\"no response_format\"}"));
            QJsonObject answer = WireReply::completion(u"{\"summary\":\"ok\"}"_s);
            const int tokens = int(body["messages"_L1][1]["content"_L1].toString().size() * 5 / 24) + 30;
            answer["usage"_L1] = QJsonObject{{u"prompt_tokens"_s, std::min(tokens, 4096)}};
            return WireReply::document(200, answer);
        };
        ModelDesk desk(u"Проект"_s);
        QCOMPARE(desk.outcome("connectServer", {u"  "_s + server.url() + u"/ "_s, u"m"_s, key}), u"Подключено: m"_s);
        QCOMPARE(desk.settings()["base_url"_L1].toString(), server.url());
        desk.call("measureConnection");
        QVERIFY(desk.read("measuring").toBool());
        QVERIFY(desk.outcome("measureConnection").startsWith(u"Проверено: m. Длинный запрос сервер молча обрезает"_s));
        const QVariantList measures = desk.read("connectionMeasures").toList();
        QString marks;
        for (const QVariant &measure : measures)
            marks += measure.toMap().value(u"mark"_s).toString() + u' ';
        QCOMPARE(marks, u"warn warn ok bad warn warn "_s);
        QCOMPARE(desk.leak(), QString());

        // Nothing that the server would refuse is tried again, and the task begins with the warning.
        isWorking = true;
        server.requests.clear();
        for (const qsizetype asked : {3, 6}) {
            desk.call("start", {u"Создай калькулятор"_s, false, 1000000, u""_s, u"[]"_s});
            QVERIFY(Desk::waitFor([&] { return server.requests.size() > asked; }));
            QVERIFY(desk.chat(u"connection"_s).value(0).startsWith(u"Длинный запрос сервер молча обрезает"_s));
            desk.call("stop");
            desk.call("resumeQueue");
            desk.reopen();
            QCOMPARE(desk.read("connectionMeasures").toList(), measures);
        }
        for (const WireRequest &request : server.requests) {
            QVERIFY(!request.json().contains("response_format"_L1) && !request.json().contains("stream"_L1));
            QCOMPARE(request.header("Authorization"), "Bearer " + key.toUtf8());
        }
        desk.call("useDemonstration");
        QCOMPARE(desk.read("connectionMeasures").toList(), QVariantList());
        QVERIFY(desk.settings()["mock"_L1].toBool());
    }

    void measuringEndsWithTheServer()
    {
        Server server;
        ModelDesk desk;
        desk.outcome("connectServer", {server.url(), u"m"_s, u""_s});
        server.answer = [&](const WireRequest &) {
            return server.requests.size() % 4 == 0 ? silence : says(u"{\"summary\":\"ok\"}"_s);
        };
        desk.call("measureConnection"); // a test and two questions are answered, the next is not
        QVERIFY(Desk::waitFor([&] { return server.requests.size() % 4 == 0; }));
        QCOMPARE(desk.outcome("stopCheck"), u"Проверка остановлена."_s);
        QCOMPARE(desk.read("connectionMeasures").toList(), QVariantList());
        server.answer = {};
        server.reply = WireReply::document(404, QByteArray("{}"));
        QVERIFY(desk.outcome("measureConnection").startsWith(u"Не удалось подключиться. "_s));
        QVERIFY(desk.read("serverStatus").toString().contains(u"отвечает не сервер моделей"_s));
    }
};

QTEST_GUILESS_MAIN(ModelConnectionTest)
#include "tst_model_connection.moc"
