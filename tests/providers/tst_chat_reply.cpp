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

/// One event; its text is written with ' for ".
QByteArray line(QByteArray text)
{
    return "data: " + text.replace('\'', '"') + "\n";
}

ReplyFacts ok(bool useResponses = false)
{
    return {200, 0, useResponses, u"my-key"_s};
}

} // namespace

class ChatReplyTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aServerSaysHowLongToWait()
    {
        const QDateTime now = QDateTime::fromString(u"2026-01-01T00:00:00Z"_s, Qt::ISODate);
        for (const auto &[header, ms] :
             std::initializer_list<std::pair<QByteArray, int>>{{"2", 2000},
                                                               {" 0.5 ", 500},
                                                               {"3600", 60000},
                                                               {"-5", 0},
                                                               {"nan", 0},
                                                               {"soon", 0},
                                                               {"", 0},
                                                               {"Thu, 01 Jan 2026 00:00:07 GMT", 7000},
                                                               {"Thu, 01 Jan 2025 00:00:07 GMT", 0}})
            QVERIFY2(retryAfterMs(header, now) == ms, header.constData());
        StreamState state;
        state.feed("{}");
        QCOMPARE(resultOf(state, {429, 0, false, {}, "3"}).waitMs, 3000);
        QCOMPARE(resultOf(state, {503, 0, false, {}, "3"}).waitMs, 0);
    }

    void aReasonAtTheEndPromisesNothing()
    {
        QCOMPARE(withoutPromise(u"Модель вернула пустой ответ. Повторяю запрос."_s), u"Модель вернула пустой ответ."_s);
        QCOMPARE(withoutPromise(brokenStream), u"Поток ответа оборвался."_s);
    }

    void aStreamIsFoldedIntoOneAnswer()
    {
        struct Row {
            QByteArray stream;
            QString content;
            QString error{};
            bool retryable = false;
            bool truncated = false;
        };
        const QByteArray done = "data: [DONE]\n\n";
        const QByteArray more = line("{'type':'response.output_text.delta','delta':'x'}");
        const QList<Row> rows{
            {delta("Привет") + delta(", мир", "\"stop\"") + done, u"Привет, мир"_s},
            {": alive\r\nevent: x\r\n" + delta("a", "\"stop\"").replace('\n', "\r\n") + "data:[DONE]  \r\n", u"a"_s},
            {delta("a", "\"stop\""), u"a"_s}, // without the terminator
            {more + line("{'type':'response.completed','response':{'usage':{'input_tokens':3}}}"), u"x"_s},
            // Broken in several ways: no finish reason, a bad line, an error, a last line that does not end.
            {delta("a") + done, u"a"_s, brokenStream, true},
            {delta("a") + "data: {oops\n" + delta("b", "\"stop\"") + done, u"ab"_s, brokenStream, true},
            {delta("a") + line("{'error':{'message':'out of memory for my-key'}}"), u"a"_s,
             u"Провайдер прервал ответ: out of memory for [ключ скрыт]"_s, true},
            {delta("a") + delta("b", "\"stop\"").trimmed(), u"a"_s, brokenStream, true},
            // Cut by the limit of tokens.
            {delta("a", "\"length\"") + done, {}, truncatedText, false, true},
            {more + line("{'type':'response.incomplete'}"), {}, truncatedText, false, true},
            {delta("", "\"stop\"") + done, {}, u"Модель вернула пустой ответ. Повторяю запрос."_s, true},
        };
        for (const Row &row : rows) {
            StreamState state;
            state.feed(row.stream);
            const LLMResult result = resultOf(state, ok());
            QVERIFY2(result.content == row.content && result.error == row.error, row.stream.constData());
            QCOMPARE(result.retryable, row.retryable);
            QCOMPARE(result.truncated, row.truncated);
        }
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

    void aDocumentIsReadInItsDialect()
    {
        struct Row {
            QByteArray body;
            bool responses;
            QString content;
            QString error{};
            bool retryable = false;
        };
        const QList<Row> rows{
            {"{'choices':[{'message':{'content':'x'},'finish_reason':'stop'}]}", false, u"x"_s},
            {"{'choices':[{'message':{'content':null}}]}",
             false,
             {},
             u"Модель вернула пустой ответ. Повторяю запрос."_s,
             true},
            {{}, false, {}, u"Модель вернула пустой ответ."_s, true},
            {"{'status':'completed','output':[{'content':[{'type':'output_text','text':'a'},{'type':'refusal','text':'"
             "no'}]},"
             "{'content':[{'type':'output_text','text':'b'}]}]}",
             true, u"ab"_s},
            {"{'status':'in_progress','output':[{'content':[{'type':'output_text','text':'a'}]}]}", true, u"a"_s,
             u"Провайдер не завершил ответ."_s},
            {"{'status':'incomplete','incomplete_details':{'reason':'max_output_tokens'}}", true, {}, truncatedText},
        };
        for (const Row &row : rows) {
            StreamState state;
            state.feed(QByteArray(row.body).replace('\'', '"'));
            const LLMResult result = resultOf(state, ok(row.responses));
            QVERIFY2(result.content == row.content && result.error == row.error, row.body.constData());
            QCOMPARE(result.retryable, row.retryable);
        }
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
        QCOMPARE(withoutSecrets(u"key a \n b!"_s, u"a  b"_s), u"key [ключ скрыт]!"_s);
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
            {u"x <thinking>{</thinking>{\"a\":1}"_s, u"{\"a\":1}"_s},
            {u"{</think>{</think>{\"a\":1}"_s, u"{\"a\":1}"_s},
        };
        for (const auto &[reply, answer] : replies)
            QCOMPARE(withoutThinking(reply), answer);
    }
};

QTEST_APPLESS_MAIN(ChatReplyTest)
#include "tst_chat_reply.moc"
