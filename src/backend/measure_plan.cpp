// What to ask a server to learn what it can do, and what its answers say.

#include "measure_plan.h"

#include "chat_reply.h"
#include "helpers.h"
#include "server_connection.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

// Common words of one token each: a line makes five tokens with nearly every tokenizer, the sample tells exactly.
constexpr auto line = "apple river stone cloud\n"_L1;
constexpr int sampleLines = 400;
constexpr double usualTokensPerLine = 5;
constexpr int middleTokens = 5200;
constexpr int planTokens = leastWindow + 500;
constexpr int mostLines = 20000;
constexpr double uncutShare = 0.85;
constexpr double slowTokensPerSecond = 5;
constexpr int fewTokens = 8;

const ProbeAnswer *answerTo(Probe probe, const QList<ProbeAnswer> &answers)
{
    const auto found = std::ranges::find_if(answers, [&](const ProbeAnswer &answer) { return answer.probe == probe; });
    return found == answers.end() ? nullptr : &*found;
}

QString password(Probe probe)
{
    return probe == Probe::WindowSample ? u"kestrel-4817"_s
        : probe == Probe::WindowMiddle  ? u"walnut-2963"_s
                                        : u"harbor-7350"_s;
}

bool isJson(const ProbeAnswer &answer)
{
    try {
        return answer.isAccepted() && parseObject(withoutThinking(answer.content))["summary"_L1].isString();
    } catch (const std::exception &) {
        return false;
    }
}

double tokensPerLine(const QList<ProbeAnswer> &answers)
{
    const ProbeAnswer *sample = answerTo(Probe::WindowSample, answers);
    return sample && sample->promptTokens > 0 ? double(sample->promptTokens) / sampleLines : usualTokensPerLine;
}

/// Whether the front of a prompt has got lost behind a success. A server that doesn't count can only be asked for what
/// stood there.
bool isCut(const ProbeAnswer &answer, const QList<ProbeAnswer> &answers)
{
    if (answer.promptTokens == 0)
        return !answer.content.contains(password(answer.probe));
    return answer.promptTokens < uncutShare * tokensPerLine(answers) * answer.lines;
}

bool isWholeWindow(const ProbeAnswer &answer, const QList<ProbeAnswer> &answers)
{
    return answer.isAccepted() && !isCut(answer, answers);
}

/// The size that a refusal names: "context size (4096)", "maximum context length is 4096 tokens", "n_ctx = 4096".
int windowIn(const QString &said)
{
    static const QRegularExpression size(u"(?:context (?:length|size|window)|n_ctx)\\D{0,40}?(\\d{3,7})"_s,
                                         QRegularExpression::CaseInsensitiveOption);
    return size.match(said).captured(1).toInt();
}

void addWindow(const QList<ProbeAnswer> &answers, QJsonObject &facts)
{
    int whole = 0;
    for (const Probe probe : {Probe::WindowSample, Probe::WindowMiddle, Probe::WindowPlan}) {
        const ProbeAnswer *answer = answerTo(probe, answers);
        if (!answer)
            return;
        if (!answer->isAccepted()) {
            const int named = windowIn(answer->said);
            if (answer->status != 0)
                facts["window"_L1] = named > 0 ? named : whole;
            return;
        }
        if (isCut(*answer, answers)) {
            // Without a count, a wrong word may also be the model's weakness.
            facts["window"_L1] = answer->promptTokens;
            facts["window_cut"_L1] = answer->promptTokens > 0;
            return;
        }
        whole = answer->promptTokens;
    }
    facts["window"_L1] = std::max(whole, leastWindow);
}

void addStream(const ProbeAnswer &answer, QJsonObject &facts)
{
    facts["streaming"_L1] = answer.isAccepted() && answer.streamed;
    const double tokens = answer.completionTokens > 0 ? answer.completionTokens
                                                      : double(answer.content.size() + answer.thoughts.size()) / 4;
    if (!answer.isAccepted() || tokens < fewTokens)
        return;
    const qint64 ms = answer.streamed ? answer.totalMs - answer.firstMs : answer.totalMs;
    facts["speed"_L1] = tokens * 1000 / double(std::max<qint64>(ms, 1));
}

void addThoughts(const QList<ProbeAnswer> &answers, QJsonObject &facts)
{
    static const QRegularExpression block(u"</?think(?:ing)?>"_s);
    const auto anywhere = [&](auto &&has) { return std::ranges::any_of(answers, has); };
    const bool inField = anywhere([](const ProbeAnswer &answer) { return !answer.thoughts.isEmpty(); });
    const bool inText = anywhere([](const ProbeAnswer &answer) { return answer.content.contains(block); });
    const bool spoke = anywhere([](const ProbeAnswer &answer) { return !answer.content.isEmpty(); });
    if (spoke || inField)
        facts["thoughts"_L1] = inField ? u"field"_s : inText ? u"text"_s : u"none"_s;
}

void addJson(const QList<ProbeAnswer> &answers, QJsonObject &facts)
{
    static const std::pair<Probe, QString> ways[]{
        {Probe::JsonObject, u"json_object"_s}, {Probe::JsonSchema, u"json_schema"_s}, {Probe::JsonPrompt, u"prompt"_s}};
    for (const auto &[probe, name] : ways) {
        const ProbeAnswer *answer = answerTo(probe, answers);
        if (answer && (isJson(*answer) || probe == Probe::JsonPrompt)) {
            facts["json"_L1] = name;
            facts["json_works"_L1] = isJson(*answer);
        }
    }
}

void addImages(const ProbeAnswer &answer, QJsonObject &facts)
{
    static const QRegularExpression red(u"\\bred\\b|красн"_s, QRegularExpression::CaseInsensitiveOption);
    facts["images"_L1] = answer.isAccepted() && answer.content.contains(red);
}

QJsonObject message(const QString &role, const QJsonValue &content)
{
    return {{u"role"_s, role}, {u"content"_s, content}};
}

QJsonObject bodyOf(const QString &model, const QString &system, const QJsonValue &user, int maxTokens)
{
    return {{u"model"_s, model},
            {u"messages"_s, QJsonArray{message(u"system"_s, system), message(u"user"_s, user)}},
            {u"temperature"_s, 0.2},
            {u"max_tokens"_s, maxTokens}};
}

QJsonObject streamBody(const QString &model)
{
    QJsonObject body = bodyOf(model, u"Answer briefly."_s,
                              u"Write the numbers from one to sixty as English words, separated by commas."_s, 256);
    body["stream"_L1] = true;
    body["stream_options"_L1] = QJsonObject{{u"include_usage"_s, true}};
    return body;
}

QJsonObject jsonBody(Probe probe, const QString &model)
{
    QJsonObject body = bodyOf(model, u"Return JSON only: {\"summary\":\"ok\"}."_s,
                              json({{u"message"_s, u"Connection test"_s}}), 1024);
    if (probe == Probe::JsonObject)
        body["response_format"_L1] = responseFormat(JsonMode::Object);
    else if (probe == Probe::JsonSchema)
        body["response_format"_L1] = responseFormat(JsonMode::Schema);
    return body;
}

QJsonObject windowBody(Probe probe, const QString &model, int lines)
{
    const QString text = u"The password is "_s + password(probe) + u".\n"_s + QString(line).repeated(lines)
        + u"Reply with the password that stands at the very beginning, and nothing else."_s;
    return bodyOf(model, u"You remember passwords."_s, text, 64);
}

QJsonObject imageBody(const QString &model)
{
    // 64 × 64 points, all of them red.
    const QString picture
        = u"data:image/png;base64,iVBORw0KGgoAAAANSUhEUgAAAEAAAABACAIAAAAlC+aJAAAAS0lEQVR42u3PQQkAAAgAsetf"
          "WiP4FgYrsKZeS0BAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEDgsqnc8OJg6Ln3AAAAAElFTkSuQmCC"_s;
    const QJsonArray parts{
        QJsonObject{{u"type"_s, u"text"_s}, {u"text"_s, u"Which colour is this picture? Answer with one word."_s}},
        QJsonObject{{u"type"_s, u"image_url"_s}, {u"image_url"_s, QJsonObject{{u"url"_s, picture}}}}};
    return bodyOf(model, u"Answer briefly."_s, parts, 256);
}

void takeDocument(const QJsonObject &document, ProbeAnswer &answer)
{
    const QJsonValue choice = document["choices"_L1].toArray().first();
    const QJsonValue part = choice[answer.streamed ? "delta"_L1 : "message"_L1];
    answer.content += part["content"_L1].toString();
    answer.thoughts += part["reasoning_content"_L1].toString() + part["reasoning"_L1].toString();
    const QJsonValue usage = document["usage"_L1];
    answer.promptTokens = std::max(answer.promptTokens, usage["prompt_tokens"_L1].toInt());
    answer.completionTokens = std::max(answer.completionTokens, usage["completion_tokens"_L1].toInt());
}

QVariantMap row(const QString &id, const QString &name, const QString &text, const QString &mark)
{
    return {{u"id"_s, id}, {u"name"_s, name}, {u"text"_s, text}, {u"mark"_s, mark}};
}

struct Words {
    QString text;
    QString mark;
};

Words streamingWords(const QJsonObject &facts, const QString &)
{
    return facts["streaming"_L1].toBool()
        ? Words{u"Ответ приходит по частям"_s, u"ok"_s}
        : Words{u"Ответ приходит только целиком: у долгих ответов не видно, что модель работает"_s, u"warn"_s};
}

Words jsonWords(const QJsonObject &facts, const QString &)
{
    const QString way = facts["json"_L1].toString();
    if (!facts["json_works"_L1].toBool())
        return {u"Ответ не в формате JSON: агенты с этой моделью работать не смогут"_s, u"bad"_s};
    if (way == "prompt"_L1)
        return {u"Только по просьбе в тексте запроса: возможны ошибки формата"_s, u"warn"_s};
    return {u"Сервер держит формат ("_s + way + u")"_s, u"ok"_s};
}

Words thoughtsWords(const QJsonObject &facts, const QString &)
{
    const QString way = facts["thoughts"_L1].toString();
    if (way == "field"_L1)
        return {u"Приходят отдельно от ответа"_s, u"ok"_s};
    if (way == "text"_L1)
        return {u"Приходят в тексте ответа и отрезаются"_s, u"ok"_s};
    return {u"Модель отвечает без рассуждений"_s, u"ok"_s};
}

Words windowWords(const QJsonObject &facts, const QString &url)
{
    const int window = facts["window"_L1].toInt();
    if (window == 0)
        return {u"Размер окна не определён: сервер не сообщает, сколько токенов прочитал"_s, u"warn"_s};
    const QString advice = windowAdvice(facts, url);
    if (!advice.isEmpty())
        return {advice, u"bad"_s};
    return {u"Не меньше "_s + QLocale(QLocale::Russian).toString(leastWindow) + u" токенов: план поместится"_s,
            u"ok"_s};
}

Words speedWords(const QJsonObject &facts, const QString &)
{
    const double speed = facts["speed"_L1].toDouble();
    const QString text = QLocale(QLocale::Russian).toString(speed, 'f', speed < 10 ? 1 : 0) + u" токенов в секунду"_s;
    return speed < slowTokensPerSecond ? Words{text + u": задача займёт часы"_s, u"warn"_s} : Words{text, u"ok"_s};
}

Words imagesWords(const QJsonObject &facts, const QString &)
{
    return facts["images"_L1].toBool() ? Words{u"Модель видит картинки"_s, u"ok"_s}
                                       : Words{u"Картинки модель не видит: вложения она узнает по именам"_s, u"warn"_s};
}

struct Measure {
    QString id;
    QString name;
    QString fact;
    Words (*words)(const QJsonObject &, const QString &);
};

} // namespace

ProbeAnswer probeAnswer(Probe probe, const ServerReply &reply)
{
    ProbeAnswer answer{.probe = probe, .status = reply.status, .networkError = reply.networkError};
    const QList<QByteArray> lines = reply.body.split('\n');
    for (const QByteArray &bytes : lines) {
        const QByteArray data = bytes.trimmed();
        if (!data.startsWith("data:"))
            continue;
        answer.streamed = true;
        takeDocument(QJsonDocument::fromJson(data.sliced(5)).object(), answer);
    }
    if (answer.streamed)
        return answer;
    takeDocument(QJsonDocument::fromJson(reply.body).object(), answer);
    if (!answer.isAccepted())
        answer.said = QString::fromUtf8(reply.body.left(4000));
    return answer;
}

std::optional<Probe> nextProbe(const QList<ProbeAnswer> &answers)
{
    if (answers.isEmpty())
        return Probe::Stream;
    const ProbeAnswer &last = answers.last();
    // A server that no longer answers is not asked for everything else as well.
    if (last.status == 0)
        return {};
    switch (last.probe) {
    case Probe::Stream:
        return Probe::JsonObject;
    case Probe::JsonObject:
        return isJson(last) ? Probe::WindowSample : Probe::JsonSchema;
    case Probe::JsonSchema:
        return isJson(last) ? Probe::WindowSample : Probe::JsonPrompt;
    case Probe::JsonPrompt:
        return Probe::WindowSample;
    case Probe::WindowSample:
        return isWholeWindow(last, answers) ? Probe::WindowMiddle : Probe::Images;
    case Probe::WindowMiddle:
        return isWholeWindow(last, answers) ? Probe::WindowPlan : Probe::Images;
    case Probe::WindowPlan:
        return Probe::Images;
    case Probe::Images:
        break;
    }
    return {};
}

int probeLines(Probe probe, const QList<ProbeAnswer> &answers)
{
    if (probe == Probe::WindowSample)
        return sampleLines;
    if (probe != Probe::WindowMiddle && probe != Probe::WindowPlan)
        return 0;
    const int tokens = probe == Probe::WindowMiddle ? middleTokens : planTokens;
    return std::min(int(tokens / tokensPerLine(answers)) + 1, mostLines);
}

QJsonObject probeBody(Probe probe, const QString &model, int lines)
{
    switch (probe) {
    case Probe::Stream:
        return streamBody(model);
    case Probe::JsonObject:
    case Probe::JsonSchema:
    case Probe::JsonPrompt:
        return jsonBody(probe, model);
    case Probe::WindowSample:
    case Probe::WindowMiddle:
    case Probe::WindowPlan:
        return windowBody(probe, model, lines);
    case Probe::Images:
        break;
    }
    return imageBody(model);
}

QJsonObject factsOf(const QList<ProbeAnswer> &answers)
{
    QJsonObject facts;
    if (const ProbeAnswer *answer = answerTo(Probe::Stream, answers))
        addStream(*answer, facts);
    addThoughts(answers, facts);
    addJson(answers, facts);
    addWindow(answers, facts);
    if (const ProbeAnswer *answer = answerTo(Probe::Images, answers))
        addImages(*answer, facts);
    return facts;
}

QVariantList measureRows(const QJsonObject &facts, const QString &url, bool measuring)
{
    static const QList<Measure> measures{
        {u"streaming"_s, u"Поток"_s, u"streaming"_s, streamingWords},
        {u"json"_s, u"Формат JSON"_s, u"json"_s, jsonWords},
        {u"thoughts"_s, u"Рассуждения"_s, u"thoughts"_s, thoughtsWords},
        {u"window"_s, u"Окно контекста"_s, u"window"_s, windowWords},
        {u"speed"_s, u"Скорость"_s, u"speed"_s, speedWords},
        {u"images"_s, u"Картинки"_s, u"images"_s, imagesWords},
    };
    if (facts.isEmpty() && !measuring)
        return {};
    QVariantList rows;
    for (const Measure &measure : measures) {
        const Words words = facts.contains(measure.fact) ? measure.words(facts, url)
            : measuring                                  ? Words{u"Проверяю…"_s, u"wait"_s}
                                                         : Words{u"Не удалось измерить"_s, u"warn"_s};
        rows.append(row(measure.id, measure.name, words.text, words.mark));
    }
    return rows;
}

} // namespace vesk
