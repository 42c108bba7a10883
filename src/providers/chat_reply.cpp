// How the bytes of a reply become a result.

#include "chat_reply.h"

#include "helpers.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QTimeZone>

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype readLinesKept = 256 * 1024;
constexpr qsizetype maxProviderMessage = 800;
constexpr qint64 longestWaitMs = 60000;

QJsonObject parsed(const QByteArray &bytes)
{
    return QJsonDocument::fromJson(bytes).object();
}

bool isInterruption(int networkError)
{
    static constexpr std::array errors{QNetworkReply::OperationCanceledError, QNetworkReply::TimeoutError,
                                       QNetworkReply::RemoteHostClosedError,
                                       QNetworkReply::TemporaryNetworkFailureError};
    return std::ranges::any_of(errors, [&](auto error) { return int(error) == networkError; });
}

/// What a document says went wrong: {"error": {"message": "..."}}, or the text itself.
QString providerMessage(const QJsonValue &error, const QString &key)
{
    const QString said = error.isString() ? error.toString() : error["message"_L1].toString();
    return withoutSecrets(said, key).simplified().left(maxProviderMessage);
}

QString failureSentence(const ReplyFacts &facts)
{
    if (isInterruption(facts.networkError))
        return u"Передача ответа прервалась или превысила время ожидания."_s;
    if (facts.status == 404)
        return u"Модель или адрес API не найдены."_s;
    if (facts.status == 401)
        return u"API-ключ не принят. Проверьте ключ и регион endpoint."_s;
    if (facts.status == 403)
        return u"Нет доступа к модели. Проверьте разрешения ключа."_s;
    if (facts.status == 429)
        return u"Достигнут лимит запросов провайдера."_s;
    if (facts.status >= 500)
        return u"Ошибка на стороне провайдера."_s;
    if (facts.status == 0)
        return u"Нет ответа сервера: проверьте соединение и адрес API."_s;
    return u"Провайдер отклонил параметры запроса."_s;
}

LLMResult failureOf(const StreamState &state, const ReplyFacts &facts)
{
    LLMResult result;
    result.error = u"%1 (HTTP %2, сеть %3)"_s.arg(failureSentence(facts)).arg(facts.status).arg(facts.networkError);
    const QString said = providerMessage(parsed(state.raw())["error"_L1], facts.key);
    if (!said.isEmpty())
        result.error += u'\n' + said;
    if (facts.status == 429)
        result.waitMs = retryAfterMs(facts.retryAfter, QDateTime::currentDateTimeUtc());
    result.retryable
        = isInterruption(facts.networkError) || facts.status == 429 || facts.status >= 500 || facts.status == 0;
    return result;
}

/// The one form into which every answer is brought: that of a plain chat completion.
QJsonObject fold(const QString &text, const QString &finishReason, const QJsonObject &usage)
{
    const QJsonObject choice{{u"message"_s, QJsonObject{{u"content"_s, text}}}, {u"finish_reason"_s, finishReason}};
    return {{u"choices"_s, QJsonArray{choice}}, {u"usage"_s, usage}};
}

QJsonObject foldedUsage(const QJsonValue &usage)
{
    return {{u"prompt_tokens"_s, usage["input_tokens"_L1].toInt()},
            {u"completion_tokens"_s, usage["output_tokens"_L1].toInt()}};
}

QString outputText(const QJsonArray &output)
{
    QString text;
    for (const QJsonValue &element : output) {
        const QJsonArray parts = element["content"_L1].toArray();
        for (const QJsonValue &part : parts) {
            if (part["type"_L1].toString() == "output_text"_L1)
                text += part["text"_L1].toString();
        }
    }
    return text;
}

QJsonObject foldStream(const StreamState &state, const QString &key, LLMResult &result)
{
    if (state.finishReason.isEmpty() || state.streamError) {
        result.error = state.failure.isEmpty() ? u"Поток ответа оборвался. Повторяю текущий запрос."_s
                                               : u"Провайдер прервал ответ: "_s + providerMessage(state.failure, key);
        result.retryable = true;
    }
    return fold(state.content, state.finishReason, state.usage);
}

QJsonObject foldResponse(const QJsonObject &document, LLMResult &result)
{
    bool cut = false;
    if (document["status"_L1].toString() != "completed"_L1) {
        result.error = u"Провайдер не завершил ответ."_s;
        cut = document["incomplete_details"_L1]["reason"_L1].toString() == "max_output_tokens"_L1;
    }
    return fold(outputText(document["output"_L1].toArray()), cut ? u"length"_s : u"stop"_s,
                foldedUsage(document["usage"_L1]));
}

void readFold(const QJsonObject &folded, LLMResult &result)
{
    const QJsonArray choices = folded["choices"_L1].toArray();
    if (choices.isEmpty()) {
        result.error = u"Модель вернула пустой ответ."_s;
        result.retryable = true;
    } else {
        const QJsonValue choice = choices.first();
        result.content = withoutThinking(choice["message"_L1]["content"_L1].toString());
        result.truncated = choice["finish_reason"_L1].toString() == "length"_L1;
    }
    if (result.truncated) {
        // Half an answer is no use as JSON.
        result.content.clear();
        result.error = u"Ответ усечён лимитом токенов. Повторяю с большим запасом."_s;
    }
    if (result.content.isEmpty() && result.error.isEmpty()) {
        result.error = u"Модель вернула пустой ответ. Повторяю запрос."_s;
        result.retryable = true;
    }
    result.promptTokens = folded["usage"_L1]["prompt_tokens"_L1].toInt();
    result.completionTokens = folded["usage"_L1]["completion_tokens"_L1].toInt();
}

/// Whether a document is none that a model server sends.
bool isForeign(const QJsonObject &document)
{
    return !document.contains("choices"_L1) && !document.contains("output"_L1) && !document.contains("error"_L1);
}

LLMResult acceptedResult(const StreamState &state, const ReplyFacts &facts)
{
    LLMResult result;
    QJsonObject folded;
    if (state.sawData || state.isEndless()) {
        folded = foldStream(state, facts.key, result);
    } else {
        const QJsonObject document = parsed(state.raw());
        result.foreign = isForeign(document);
        folded = facts.useResponses ? foldResponse(document, result) : document;
    }
    const QString refused = state.sawData ? QString() : providerMessage(folded["error"_L1], facts.key);
    readFold(folded, result);
    if (!refused.isEmpty() && result.content.isEmpty())
        result.error = u"Провайдер прервал ответ: "_s + refused;
    result.error = withoutSecrets(result.error, facts.key);
    return result;
}

} // namespace

StreamState::Progress StreamState::feed(const QByteArray &chunk)
{
    Progress progress;
    const qsizetype room = maxReplyBytes - received;
    bytes.append(QByteArrayView(chunk).first(std::min(room, chunk.size())));
    received += std::min(room, chunk.size());
    if (chunk.size() > room) {
        streamError = true;
        progress.overflow = true;
    }
    // The search goes on where it stopped: a line of many megabytes is looked through once.
    for (qsizetype end = bytes.indexOf('\n', scanned); end >= 0; end = bytes.indexOf('\n', lineStart)) {
        const QByteArrayView line = QByteArrayView(bytes).sliced(lineStart, end - lineStart);
        lineStart = end + 1;
        takeLine(line.trimmed(), progress);
    }
    scanned = bytes.size();
    forgetReadLines();
    return progress;
}

/// The lines of a stream are of no use once they are read; a document is needed whole.
void StreamState::forgetReadLines()
{
    if (!sawData || lineStart < readLinesKept)
        return;
    bytes.remove(0, lineStart);
    scanned -= lineStart;
    lineStart = 0;
}

void StreamState::takeLine(QByteArrayView line, Progress &progress)
{
    if (!line.startsWith("data:"))
        return; // Event names, comments that keep the connection alive, blank lines.
    sawData = true;
    const QByteArrayView payload = line.sliced(5).trimmed();
    if (payload == "[DONE]") {
        completed = true;
        progress.terminator = true;
        return;
    }
    const QJsonDocument document = QJsonDocument::fromJson(payload.toByteArray());
    if (document.isObject())
        takeEvent(document.object(), progress);
    else
        streamError = true;
}

void StreamState::takeEvent(const QJsonObject &event, Progress &progress)
{
    const QString type = event["type"_L1].toString();
    if (type == "response.output_text.delta"_L1) {
        addText(event["delta"_L1].toString(), progress);
    } else if (type == "response.completed"_L1 || type == "response.incomplete"_L1) {
        usage = foldedUsage(event["response"_L1]["usage"_L1]);
        finishReason = type == "response.completed"_L1 ? u"stop"_s : u"length"_s;
        completed = true;
    } else if (type == "response.failed"_L1 || type == "error"_L1) {
        takeFailure(type == "error"_L1 ? event : event["response"_L1].toObject());
    } else if (event["error"_L1].isObject() || event["error"_L1].isString()) {
        takeFailure(event);
    } else {
        takeChunk(event, progress);
    }
}

void StreamState::takeFailure(const QJsonObject &event)
{
    streamError = true;
    const QJsonValue error = event.contains("error"_L1) ? event["error"_L1] : QJsonValue(event);
    failure = error.isString() ? error.toString() : error["message"_L1].toString();
}

void StreamState::takeChunk(const QJsonObject &chunk, Progress &progress)
{
    if (chunk["usage"_L1].isObject())
        usage = chunk["usage"_L1].toObject();
    const QJsonArray choices = chunk["choices"_L1].toArray();
    if (choices.isEmpty())
        return;
    const QString text = choices.first()["delta"_L1]["content"_L1].toString();
    if (!text.isEmpty())
        addText(text, progress);
    const QJsonValue reason = choices.first()["finish_reason"_L1];
    if (reason.isString())
        finishReason = reason.toString();
}

void StreamState::addText(const QString &text, Progress &progress)
{
    content += text;
    progress.text = true;
}

LLMResult resultOf(const StreamState &state, const ReplyFacts &facts)
{
    // A stream that was left after its terminator ends with a network error, and is whole all the same.
    // So does one that was left because it sent without end; that one has broken off.
    const bool accepted = facts.status >= 200 && facts.status <= 299;
    const bool isWhole = accepted && (state.completed || state.isEndless() || facts.networkError == 0);
    LLMResult result = isWhole ? acceptedResult(state, facts) : failureOf(state, facts);
    result.httpStatus = facts.status;
    result.networkError = facts.networkError;
    return result;
}

QString withoutSecrets(QString message, const QString &key)
{
    static const QRegularExpression keyLike(u"sk-[A-Za-z0-9_-]+"_s);
    const QString hidden = u"[ключ скрыт]"_s;
    // A server may quote a key with its blanks changed.
    const QStringList parts = key.split(QRegularExpression(u"\\s+"_s), Qt::SkipEmptyParts);
    if (!parts.isEmpty()) {
        QStringList escaped;
        for (const QString &part : parts)
            escaped.append(QRegularExpression::escape(part));
        message.replace(QRegularExpression(escaped.join(u"\\s+"_s)), hidden);
    }
    return message.replace(keyLike, hidden);
}

QString withoutThinking(const QString &content)
{
    // An answer may speak of such blocks itself.
    const QString text = content.trimmed();
    try {
        parseObject(text);
        return content;
    } catch (const std::exception &) {
        // A template may have opened the block itself, so that the reply holds only its end.
        static const QRegularExpression end(u"</think(?:ing)?>"_s);
        QRegularExpressionMatch last;
        const qsizetype at = text.lastIndexOf(end, -1, &last);
        return at < 0 ? content : text.sliced(last.capturedEnd()).trimmed();
    }
}

QString withoutPromise(QString error)
{
    static const QRegularExpression promise(u" Повторяю (?:текущий запрос|с большим запасом|запрос)\\."_s);
    return error.remove(promise);
}

int retryAfterMs(const QByteArray &header, const QDateTime &now)
{
    bool isNumber = false;
    const double seconds = header.trimmed().toDouble(&isNumber);
    if (isNumber && qIsFinite(seconds))
        return int(std::clamp(seconds * 1000, 0.0, double(longestWaitMs)));
    QDateTime date
        = QLocale::c().toDateTime(QString::fromLatin1(header.trimmed()), u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s);
    date.setTimeZone(QTimeZone::UTC);
    return date.isValid() ? int(std::clamp<qint64>(now.msecsTo(date), 0, longestWaitMs)) : 0;
}

} // namespace vesk
