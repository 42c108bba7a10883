#include "chat_reply.h"

#include <QNetworkReply>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const auto brokenStream = u"Поток ответа оборвался. Повторяю текущий запрос."_s;
const auto truncatedText = u"Ответ усечён лимитом токенов. Повторяю с большим запасом."_s;

QByteArray delta(const QByteArray &text, const QByteArray &finish = "null")
{
    return "data: {\"choices\":[{\"delta\":{\"content\":\"" + text + "\"},\"finish_reason\":" + finish + "}]}\n\n";
}

ReplyFacts ok(bool useResponses = false)
{
    return {200, 0, useResponses, u"my-key"_s};
}

} // namespace

class ChatReplyTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aStreamIsFoldedIntoOneAnswer_data()
    {
        QTest::addColumn<QByteArray>("stream");
        QTest::addColumn<QString>("content");
        QTest::addColumn<QString>("error");
        QTest::addColumn<bool>("retryable");
        QTest::addColumn<bool>("truncated");
        const QByteArray done = "data: [DONE]\n\n";
        const auto row = [](const char *name, const QByteArray &stream, const QString &content,
                            const QString &error = {}, bool retryable = false, bool truncated = false) {
            QTest::newRow(name) << stream << content << error << retryable << truncated;
        };
        row("chat chunks", delta("Привет") + delta(", мир", "\"stop\"") + done, u"Привет, мир"_s);
        row("CRLF, comments, event names",
            ": keep-alive\r\nevent: x\r\n" + delta("a", "\"stop\"").replace('\n', "\r\n") + "data:[DONE]  \r\n",
            u"a"_s);
        row("no terminator", delta("a", "\"stop\""), u"a"_s);
        row("no finish reason", delta("a") + done, u"a"_s, brokenStream, true);
        row("one broken line", delta("a") + "data: {oops\n" + delta("b", "\"stop\"") + done, u"ab"_s, brokenStream,
            true);
        row("an error object", delta("a") + "data: {\"error\":{\"message\":\"out of memory\"}}\n", u"a"_s, brokenStream,
            true);
        row("last line without its end", delta("a") + delta("b", "\"stop\"").trimmed(), u"a"_s, brokenStream, true);
        row("cut by the limit", delta("a", "\"length\"") + done, {}, truncatedText, false, true);
        row("no text", "data: {\"choices\":[{\"delta\":{\"content\":\"\"},\"finish_reason\":\"stop\"}]}\n" + done, {},
            u"Модель вернула пустой ответ. Повторяю запрос."_s, true);
        row("responses",
            "data: {\"type\":\"response.output_text.delta\",\"delta\":\"x\"}\n"
            "data: "
            "{\"type\":\"response.completed\",\"response\":{\"usage\":{\"input_tokens\":3,\"output_tokens\":4}}}\n",
            u"x"_s);
        row("responses cut",
            "data: {\"type\":\"response.output_text.delta\",\"delta\":\"x\"}\ndata: "
            "{\"type\":\"response.incomplete\"}\n",
            {}, truncatedText, false, true);
    }

    void aStreamIsFoldedIntoOneAnswer()
    {
        QFETCH(QByteArray, stream);
        QFETCH(QString, content);
        QFETCH(QString, error);
        QFETCH(bool, retryable);
        QFETCH(bool, truncated);
        StreamState state;
        state.feed(stream);
        const LLMResult result = resultOf(state, ok());
        QCOMPARE(result.content, content);
        QCOMPARE(result.error, error);
        QCOMPARE(result.retryable, retryable);
        QCOMPARE(result.truncated, truncated);
    }

    void aStreamMayArriveInAnyPieces()
    {
        const QByteArray stream = delta("Ж") + delta("ёлтый 🙂")
            + "data: {\"usage\":{\"prompt_tokens\":9,\"completion_tokens\":2},\"choices\":[]}\n" + delta("", "\"stop\"")
            + "data: [DONE]\n";
        for (qsizetype size = 1; size < 40; ++size) {
            StreamState state;
            bool terminated = false;
            for (qsizetype at = 0; at < stream.size(); at += size)
                terminated = state.feed(stream.mid(at, size)).terminator || terminated;
            QVERIFY(terminated);
            // Left after its terminator, the reply ends with an error that counts for nothing.
            const LLMResult result = resultOf(state, {200, QNetworkReply::OperationCanceledError, false, {}});
            QCOMPARE(result.content, u"Жёлтый 🙂"_s);
            QCOMPARE(result.error, QString());
            QCOMPARE(result.promptTokens, 9);
            QCOMPARE(result.completionTokens, 2);
        }
    }

    void aDocumentIsReadInItsDialect_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("responses");
        QTest::addColumn<QString>("content");
        QTest::addColumn<QString>("error");
        QTest::addColumn<bool>("retryable");
        QTest::newRow("completion") << QByteArray(
            "{\"choices\":[{\"message\":{\"content\":\"x\"},\"finish_reason\":\"stop\"}]}")
                                    << false << u"x"_s << QString() << false;
        QTest::newRow("null content") << QByteArray("{\"choices\":[{\"message\":{\"content\":null}}]}") << false
                                      << QString() << u"Модель вернула пустой ответ. Повторяю запрос."_s << true;
        QTest::newRow("empty") << QByteArray() << false << QString() << u"Модель вернула пустой ответ."_s << true;
        QTest::newRow("response") << QByteArray(
            "{\"status\":\"completed\",\"output\":[{\"content\":[{\"type\":\"output_text\",\"text\":\"a\"},"
            "{\"type\":\"refusal\",\"text\":\"no\"}]},{\"content\":[{\"type\":\"output_text\",\"text\":\"b\"}]}]}")
                                  << true << u"ab"_s << QString() << false;
        QTest::newRow("unfinished response") << QByteArray(
            "{\"status\":\"in_progress\",\"output\":[{\"content\":[{\"type\":\"output_text\",\"text\":\"a\"}]}]}")
                                             << true << u"a"_s << u"Провайдер не завершил ответ."_s << false;
        QTest::newRow("response cut") << QByteArray(
            "{\"status\":\"incomplete\",\"incomplete_details\":{\"reason\":\"max_output_tokens\"}}")
                                      << true << QString() << truncatedText << false;
    }

    void aDocumentIsReadInItsDialect()
    {
        QFETCH(QByteArray, body);
        QFETCH(bool, responses);
        QFETCH(QString, content);
        QFETCH(QString, error);
        QFETCH(bool, retryable);
        StreamState state;
        state.feed(body);
        const LLMResult result = resultOf(state, ok(responses));
        QCOMPARE(result.content, content);
        QCOMPARE(result.error, error);
        QCOMPARE(result.retryable, retryable);
    }

    void aFailureSaysWhatAUserCanQuote()
    {
        struct Row {
            int status;
            int networkError;
            QString error;
            bool retryable;
        };
        const QString cut = u"Передача ответа прервалась или превысила время ожидания."_s;
        const QList<Row> rows{
            {404, 203, u"Модель или адрес API не найдены."_s, false},
            {401, 204, u"API-ключ не принят. Проверьте ключ и регион endpoint."_s, false},
            {403, 201, u"Нет доступа к модели. Проверьте разрешения ключа."_s, false},
            {429, 299, u"Достигнут лимит запросов провайдера."_s, true},
            {500, 401, u"Ошибка на стороне провайдера."_s, true},
            {0, 1, u"Нет ответа сервера: проверьте соединение и адрес API."_s, true},
            {302, 0, u"Провайдер отклонил параметры запроса."_s, false},
            {200, 5, cut, true},
            {0, 4, cut, true},
        };
        for (const auto &[status, networkError, error, retryable] : rows) {
            StreamState state;
            state.feed("not json");
            const LLMResult result = resultOf(state, {status, networkError, false, {}});
            QCOMPARE(result.error, error + u" (HTTP %1, сеть %2)"_s.arg(status).arg(networkError));
            QCOMPARE(result.retryable, retryable);
            QCOMPARE(result.content, QString());
        }
    }

    void keysAreCutOutOfWhatTheProviderSays()
    {
        StreamState state;
        state.feed("{\"error\":{\"message\":\"  Key my-key\\n and   sk-abc_D-9. " + QByteArray(2000, 'x') + "\"}}");
        const QString error = resultOf(state, {401, 204, false, u"my-key"_s}).error;
        const QString said = error.section(u'\n', 1);
        QVERIFY(said.startsWith(u"Key [ключ скрыт] and [ключ скрыт]. xxx"_s));
        QCOMPARE(said.size(), 800);
        QCOMPARE(withoutSecrets(u"MY-KEY"_s, u"my-key"_s), u"MY-KEY"_s);
        QCOMPARE(withoutSecrets(u"sk-1 sk-"_s, {}), u"[ключ скрыт] sk-"_s);
    }

    void thinkingIsLeftOut()
    {
        const QString fence = u"```json\n{\"a\":\"</think>\"}\n```"_s;
        const QList<std::pair<QString, QString>> replies{
            {u"<think>\nmaybe {\"a\":0}?\n</think>\n\n{\"a\":1}"_s, u"{\"a\":1}"_s},
            {u"hm {x}\n</think>{\"a\":1}"_s, u"{\"a\":1}"_s}, // opened by the template
            {u"{\"a\":\"</think>\"}"_s, u"{\"a\":\"</think>\"}"_s},
            {fence, fence},
            {u"<think>x</think>"_s, u""_s},
        };
        for (const auto &[reply, answer] : replies)
            QCOMPARE(withoutThinking(reply), answer);
    }

    void aReplyWithoutEndIsCut()
    {
        // One line of many megabytes in small pieces: each byte is looked at once.
        StreamState state;
        const QByteArray piece(1024 * 1024, 'x');
        int pieces = 0;
        while (!state.feed(piece).overflow)
            QVERIFY(++pieces <= 64);
        QCOMPARE(state.raw().size(), maxReplyBytes);
        const LLMResult result = resultOf(state, {200, QNetworkReply::OperationCanceledError, false, {}});
        QCOMPARE(result.error, brokenStream);
        QVERIFY(result.retryable);
    }
};

QTEST_APPLESS_MAIN(ChatReplyTest)
#include "tst_chat_reply.moc"
