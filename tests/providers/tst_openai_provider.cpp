#include "chat_reply.h"
#include "helpers.h"
#include "openai_provider.h"
#include "wire_server.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSslConfiguration>
#include <QTest>
#include <QTimer>

#include <sys/resource.h>

using namespace Qt::StringLiterals;
using namespace vesk;
using End = WireReply::End;

namespace {

LLMRequest requestOf(const QString &role, const QJsonObject &input = {{u"a"_s, 1}}, int maxTokens = 2048)
{
    return {id(), role, u"Система"_s, input, maxTokens};
}

QByteArray delta(const QByteArray &text, const QByteArray &finish = "null")
{
    return "data: {\"choices\":[{\"delta\":{\"content\":\"" + text + "\"},\"finish_reason\":" + finish + "}]}";
}

WireReply answer(const QString &content)
{
    return WireReply::document(200, WireReply::completion(content));
}

/// A provider, and what came of its requests.
struct Client {
    OpenAICompatibleProvider provider;
    QList<LLMResult> results;

    explicit Client(const QString &url)
    {
        provider.url = url;
        provider.model = u"any"_s;
        provider.key = u"my-secret-key"_s;
    }
    void ask(const QString &role = u"coding"_s, const QJsonObject &input = {{u"a"_s, 1}}, int maxTokens = 2048)
    {
        provider.request(requestOf(role, input, maxTokens), [this](const LLMResult &result) {
            results.append(result);
            loop.quit();
        });
    }
    /// Not by polling, which would hide what is measured here.
    bool waitFor(qsizetype count, int timeoutMs = 60000)
    {
        QTimer::singleShot(timeoutMs, &loop, [this] { loop.exit(1); });
        while (results.size() < count) {
            if (loop.exec() != 0)
                break;
        }
        return results.size() >= count;
    }
    QEventLoop loop;
};

long peakKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

class OpenAIProviderTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aRequestIsOnePostWithTheKey()
    {
        WireServer server([](const WireRequest &) {
            return WireReply::document(200, WireReply::text(WireReply::completion(u"{\"x\":\"да\"}"_s)),
                                       "Set-Cookie: who=me; Path=/\r\n");
        });
        Client client(server.url());
        client.ask(u"planner"_s);
        QCOMPARE(client.results.size(), 0);
        QVERIFY(client.waitFor(1));

        QCOMPARE(client.results[0].content, u"{\"x\":\"да\"}"_s);
        QCOMPARE(client.results[0].error, QString());
        QCOMPARE(client.results[0].promptTokens, 11);
        QCOMPARE(client.results[0].completionTokens, 7);
        const WireRequest request = server.requests.value(0);
        QVERIFY(request.line.startsWith("POST /v1/chat/completions "));
        QCOMPARE(request.header("Content-Type"), "application/json");
        QCOMPARE(request.header("Authorization"), "Bearer my-secret-key");
        QCOMPARE(request.json()["messages"_L1][1]["content"_L1].toString(), u"{\"a\":1}"_s);
        client.provider.key.clear();
        client.ask();
        QVERIFY(client.waitFor(2));
        QCOMPARE(server.requests[1].header("Authorization"), QByteArray());
        QCOMPARE(server.requests[1].header("Cookie"), QByteArray());
        client.provider.url = u"http://10.0.0.1/v1"_s; // is refused, and answered later all the same
        client.ask();
        QCOMPARE(client.results.size(), 2);
        QVERIFY(client.waitFor(3));
    }

    void aReplyEndsExactlyOnce_data()
    {
        QTest::addColumn<WireReply>("reply");
        QTest::addColumn<QString>("start");
        QTest::addColumn<bool>("retryable");
        const auto row = [](const char *name, const WireReply &reply, const QString &start, bool retryable) {
            QTest::newRow(name) << reply << start << retryable;
        };
        const QByteArray good = WireReply::text(WireReply::completion(u"{}"_s));
        const QString cut = u"Передача ответа прервалась"_s;
        row("connection reset at once", {{}, End::Reset}, cut, true);
        row("closed without an answer", {{}, End::Close}, cut, true);
        row("closed in the body", {{{WireReply::head(200, "Content-Length: 500\r\n") + good}}, End::Close}, cut, true);
        row("no length, closed at the end", {{{WireReply::head(200, "Connection: close\r\n") + good}}, End::Close}, {},
            false);
        row("a redirect", WireReply::document(307, QByteArray("{}"), "Location: /elsewhere\r\n"),
            u"Провайдер отклонил параметры запроса. (HTTP 307"_s, false);
        row("500 that quotes the key",
            WireReply::document(500, QByteArray("{\"error\":{\"message\":\"my-secret-key is bad\"}}")),
            u"Ошибка на стороне провайдера. (HTTP 500, сеть 401)\n[ключ скрыт] is bad"_s, true);
        row("chunked",
            {{{WireReply::head(200, "Transfer-Encoding: chunked\r\n") + WireReply::chunk(good) + "0\r\n\r\n"}}}, {},
            false);
        // Whether the network or the missing end is seen first is a matter of chance.
        row("a stream closed half-way", WireReply::events({delta("a")}, End::Reset), u"П"_s, true);
    }

    void aReplyEndsExactlyOnce()
    {
        QFETCH(WireReply, reply);
        QFETCH(QString, start);
        QFETCH(bool, retryable);
        WireServer server([&](const WireRequest &) { return reply; });
        Client client(server.url());
        client.ask();
        QVERIFY(client.waitFor(1));
        QTest::qWait(20);
        QCOMPARE(client.results.size(), 1);
        const LLMResult result = client.results[0];
        QVERIFY2(start.isEmpty() ? result.error.isEmpty() : result.error.startsWith(start), qPrintable(result.error));
        QCOMPARE(result.retryable, retryable);
        for (const WireRequest &request : server.requests)
            QVERIFY(request.line.startsWith("POST /v1/chat/completions "));
    }

    void silenceIsGivenUpAndTextKeepsAReplyAlive()
    {
        WireReply dripping
            = WireReply::events({delta("a"), delta("b"), delta("c"), delta("d", "\"stop\""), "data: [DONE]"});
        for (WireReply::Step &step : dripping.steps)
            step.afterMs = 250;
        QList<WireReply> replies{
            {{}, End::Silence}, {{{WireReply::head(200, "Content-Length: 10\r\n")}}, End::Silence}, dripping};
        WireServer server([&](const WireRequest &) { return replies.takeFirst(); });
        Client client(server.url());
        client.provider.timeoutMs = 1000;
        for (int i = 0; i < 2; ++i) {
            client.ask();
            QVERIFY(client.waitFor(i + 1));
            QVERIFY(client.results[i].error.startsWith(u"Передача ответа прервалась или превысила время ожидания."_s));
            QVERIFY(client.results[i].retryable);
        }
        // Longer in all than the limit, but never silent that long.
        client.provider.model = u"qwen3-8"_s;
        client.ask();
        QVERIFY(client.waitFor(3));
        QCOMPARE(client.results[2].content, u"abcd"_s);
    }

    void theTerminatorIsNotWaitedBehind()
    {
        WireServer server([](const WireRequest &) {
            return WireReply::events({": hello", delta("{}", "\"stop\""), "data: [DONE]"}, End::Silence);
        });
        Client client(server.url());
        client.provider.model = u"qwen3-8"_s;
        client.ask();
        QVERIFY(client.waitFor(1));
        QCOMPARE(client.results[0].content, u"{}"_s);
        QCOMPARE(client.results[0].error, QString());
        QCOMPARE(server.requests[0].json()["stream"_L1], true);
    }

    void aFloodIsCutWithBoundedMemory()
    {
        // Without end: lines of a stream, one line, a body, and a failure's body.
        const QByteArray lines = delta(QByteArray(1000, 'x')) + "\n\n";
        const QByteArray noise(64 * 1024, 'x');
        QList<WireReply> replies{
            {{{WireReply::head(200, "Content-Type: text/event-stream\r\n")}, {lines}}, End::Flood},
            {{{WireReply::head(200, {})}, {noise}}, End::Flood},
            {{{WireReply::head(500, "Content-Length: 9000000000\r\n")}, {noise}}, End::Flood},
        };
        WireServer server([&](const WireRequest &) { return replies.takeFirst(); });
        Client client(server.url());
        const long before = peakKilobytes();
        for (int i = 0; i < 3; ++i) {
            client.ask();
            QVERIFY(client.waitFor(i + 1));
            QVERIFY(client.results[i].retryable);
        }
        QCOMPARE(client.results[0].error, u"Поток ответа оборвался. Повторяю текущий запрос."_s);
        QVERIFY(client.results[2].error.startsWith(u"Передача ответа прервалась"_s));
        // The reply itself, its text in UTF-16, and copies on their way.
        QVERIFY2(peakKilobytes() - before < 400 * 1024, qPrintable(QString::number(peakKilobytes() - before)));
    }

    void chatIsRepeatedAndOthersAreNot()
    {
        QList<int> statuses{503, 429, 200, 503, 401};
        WireServer server([&](const WireRequest &) {
            return WireReply::document(statuses.takeFirst(), WireReply::completion(u"{}"_s));
        });
        Client client(server.url());
        QElapsedTimer clock;
        clock.start();
        client.ask(u"chat"_s);
        QVERIFY(client.waitFor(1));
        QVERIFY(clock.elapsed() >= 1450);
        QCOMPARE(client.results[0].error, QString());
        QCOMPARE(server.requests.size(), 3);

        client.ask(u"coding"_s);
        QVERIFY(client.waitFor(2));
        QVERIFY(client.results[1].retryable);
        client.ask(u"chat_router"_s);
        QVERIFY(client.waitFor(3));
        QCOMPARE(server.requests.size(), 5);
    }

    void aTruncatedChatGetsMoreRoom()
    {
        WireServer server(
            [](const WireRequest &) { return WireReply::document(200, WireReply::completion(u"{"_s, u"length"_s)); });
        Client client(server.url());
        client.ask(u"chat"_s, {}, 10000);
        QVERIFY(client.waitFor(1));
        QList<int> limits;
        for (const WireRequest &request : std::as_const(server.requests))
            limits.append(request.json()["max_tokens"_L1].toInt());
        QCOMPARE(limits, (QList<int>{10000, 16384, 16384}));
        QVERIFY(client.results[0].truncated);
    }

    void cancellingSilencesAllRequests()
    {
        QList<WireReply> replies{
            {{}, End::Silence}, WireReply::document(503, QByteArray("{}")), answer(u"{}"_s), answer(u"{}"_s)};
        WireServer server([&](const WireRequest &) { return replies.takeFirst(); });
        Client client(server.url());
        client.ask();
        QTRY_COMPARE(server.requests.size(), 1);
        client.ask(u"chat"_s);
        QTRY_COMPARE(server.requests.size(), 2);
        client.ask();
        QVERIFY(client.waitFor(1)); // Behind the 503: the repeat of the chat waits for its time now.
        client.provider.cancelAll();
        QTest::qWait(700);
        QCOMPARE(client.results.size(), 1);
        QCOMPARE(server.requests.size(), 3);

        client.ask();
        QVERIFY(client.waitFor(2));
        QCOMPARE(client.results[1].content, u"{}"_s);
    }

    void aCallbackMayDoAnything()
    {
        WireServer server([](const WireRequest &) { return answer(u"{}"_s); });
        auto client = std::make_unique<Client>(server.url());
        int answers = 0;
        const auto never = [&](const LLMResult &) { answers += 100; };
        client->provider.request(requestOf(u"coding"_s), [&](const LLMResult &) {
            ++answers;
            client->provider.request(requestOf(u"coding"_s), never);
            client->provider.cancelAll();
            client->provider.request(requestOf(u"coding"_s), [&](const LLMResult &) {
                ++answers;
                client.reset();
            });
        });
        QTRY_VERIFY(!client);
        QCOMPARE(answers, 2);
    }

    void aServerWithoutJsonFormatIsAskedOnceMore()
    {
        WireServer server([](const WireRequest &request) {
            if (request.json().contains("response_format"_L1))
                return WireReply::document(
                    400, QByteArray("{\"error\":\"'response_format.type' must be 'json_schema' or 'text'\"}"));
            return answer(u"{}"_s);
        });
        Client client(server.url());
        for (int i = 0; i < 2; ++i) {
            client.ask();
            QVERIFY(client.waitFor(i + 1));
            QCOMPARE(client.results[i].error, QString());
        }
        QCOMPARE(server.requests.size(), 3);
        // Another address is asked the usual way.
        WireServer other(
            [](const WireRequest &) { return WireReply::document(400, QByteArray("{\"error\":\"no\"}")); });
        client.provider.url = other.url();
        client.ask();
        QVERIFY(client.waitFor(3));
        QVERIFY(other.requests.value(0).json().contains("response_format"_L1));
        QCOMPARE(other.requests.size(), 1);
    }

    void aPlainerRequestIsKeptToOnlyWhenItWasAnswered()
    {
        int refused = 0;
        WireServer server([&](const WireRequest &request) {
            const bool plain = !request.json().contains("response_format"_L1) && !request.json().contains("stream"_L1);
            if (!plain || ++refused == 1)
                return WireReply::document(422, QByteArray("{\"error\":\"no response_format, no stream\"}"));
            return answer(u"{}"_s);
        });
        Client client(server.url());
        client.provider.ownServer = true;
        for (const qsizetype requests : {3, 6, 7}) { // refused whatever it asks, then answered plainly, then known
            client.ask();
            QVERIFY(client.waitFor(client.results.size() + 1));
            QCOMPARE(server.requests.size(), requests);
        }
        QVERIFY(!client.results[0].error.isEmpty());
        QCOMPARE(client.results[1].error + client.results[2].error, QString());
    }

    void aServerOfOnesOwnMayBeSlowAndIsAskedForAStream()
    {
        // Comments keep the connection alive while the model reads; the whole takes longer than any silence may.
        WireServer server([](const WireRequest &) {
            WireReply reply{{}, End::Close};
            for (int i = 0; i < 6; ++i)
                reply.steps.append({": alive\n\n", 150});
            reply.steps[0].bytes.prepend("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n");
            reply.steps.append(
                {"data: {\"choices\":[{\"delta\":{\"content\":\"{}\"},\"finish_reason\":\"stop\"}]}\n\n"});
            return reply;
        });
        Client client(server.url());
        client.provider.timeoutMs = 600;
        for (const bool own : {true, false}) {
            client.provider.ownServer = own;
            client.ask();
            QVERIFY(client.waitFor(client.results.size() + 1));
            QCOMPARE(client.results.last().error.isEmpty(), own);
            QCOMPARE(server.requests.last().json()["stream"_L1].toBool(), own);
        }
    }

    void eightRequestsRunSideBySide()
    {
        WireServer server([](const WireRequest &) { return WireReply{{}, End::Silence}; });
        Client client(server.url());
        for (int i = 0; i < 8; ++i)
            client.ask();
        QTRY_COMPARE(server.requests.size(), 8);
    }

    void largeRequestsDoNotWaitForAcknowledgements()
    {
        WireServer server([](const WireRequest &) { return answer(u"{}"_s); });
        Client client(server.url());
        qint64 bestMs = 1000;
        for (int i = 1; i <= 15; ++i) {
            QElapsedTimer clock;
            clock.start();
            client.ask(u"coding"_s, {{u"text"_s, QString(60000, u'x')}});
            QVERIFY(client.waitFor(i));
            bestMs = std::min(bestMs, clock.elapsed());
        }
        QVERIFY2(bestMs < 25, qPrintable(QString::number(bestMs))); // A delayed acknowledgement takes 40 ms.
    }

    void tlsIsChecked()
    {
        const QSslConfiguration tls = WireServer::selfSigned();
        if (tls.isNull())
            QSKIP("no openssl to make a certificate with");
        WireServer server([](const WireRequest &) { return answer(u"{}"_s); }, tls);

        Client client(server.url());
        client.ask();
        QVERIFY(client.waitFor(1));
        QVERIFY2(client.results[0].error.endsWith(u"(HTTP 0, сеть 6)"_s), qPrintable(client.results[0].error));
        QCOMPARE(server.requests.size(), 0);
    }
};

QTEST_GUILESS_MAIN(OpenAIProviderTest)
#include "tst_openai_provider.moc"
