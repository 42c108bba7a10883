// One model endpoint over HTTP.

#include "openai_provider.h"

#include "chat_reply.h"
#include "helpers.h"
#include "low_delay.h"

#include <QElapsedTimer>
#include <QHttp1Configuration>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxTransferSilenceMs = 45000;
constexpr int maxRepeats = 2;
constexpr int repeatBaseMs = 500;
constexpr int maxOutputTokens = 16384;
constexpr qint64 progressIntervalMs = 499;

bool isChat(const QString &role)
{
    return role == "chat"_L1 || role == "chat_router"_L1;
}

} // namespace

/// One try of a request, kept alive by the slots that use it.
struct OpenAICompatibleProvider::Attempt {
    LLMRequest request;
    std::function<void(LLMResult)> callback;
    int number = 0;
    int generation = 0;
    ChatSettings settings;
    ServerTraits measured; ///< What was known of the server by then,
    ServerTraits known; ///< and what had been learned beside.
    QString key;
    StreamState stream;
    QElapsedTimer sinceProgress;
    QNetworkReply *reply = nullptr;
    QTimer *watchdog = nullptr; ///< Child of the reply.
    int silenceMs = 0;
    bool anyByteCounts = false; ///< Also what is no text ends a silence.
};

OpenAICompatibleProvider::~OpenAICompatibleProvider()
{
    cancelAll();
}

void OpenAICompatibleProvider::request(const LLMRequest &request, std::function<void(LLMResult)> callback)
{
    requestAttempt(request, std::move(callback), 0, generation);
}

void OpenAICompatibleProvider::cancelAll()
{
    ++generation;
    const QSet<QNetworkReply *> replies = std::exchange(active, {});
    for (QNetworkReply *reply : replies) {
        reply->disconnect();
        reply->abort();
        reply->deleteLater();
    }
}

ChatSettings OpenAICompatibleProvider::settings() const
{
    const ServerTraits server = known();
    return {url, model, root, useResponses, server.json, ownServer && server.stream, server.images, temperature};
}

void OpenAICompatibleProvider::requestAttempt(LLMRequest request, std::function<void(LLMResult)> callback, int number,
                                              int noted)
{
    auto attempt = std::make_shared<Attempt>();
    attempt->request = std::move(request);
    attempt->callback = std::move(callback);
    attempt->number = number;
    attempt->generation = noted;
    attempt->settings = settings();
    attempt->measured = traits;
    attempt->known = known();
    attempt->key = key;
    attempt->silenceMs = timeoutMs;
    attempt->anyByteCounts = ownServer;

    if (!mayBeSent(chatAddress(attempt->settings), model)) {
        LLMResult refused;
        refused.error = u"Проверьте модель и адрес API. Нужен HTTPS, либо HTTP для localhost."_s;
        QTimer::singleShot(0, this, [this, attempt, refused] { end(attempt, refused); });
        return;
    }
    post(attempt);
}

void OpenAICompatibleProvider::post(const std::shared_ptr<Attempt> &attempt)
{
    QNetworkRequest http(chatAddress(attempt->settings));
    http.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    http.setTransferTimeout(attempt->anyByteCounts ? attempt->silenceMs
                                                   : std::min(attempt->silenceMs, maxTransferSilenceMs));
    // As many as the engine has in flight: a request that waits for a connection would run into its time limit.
    QHttp1Configuration connections;
    connections.setNumberOfConnectionsPerHost(maxParallelRequests);
    http.setHttp1Configuration(connections);
    if (!attempt->key.isEmpty())
        http.setRawHeader("Authorization", "Bearer " + attempt->key.toUtf8());

    attempt->stream = {};
    attempt->reply = network.post(http, jsonBytes(chatBody(attempt->request, attempt->settings)));
    sendWithoutDelay(attempt->reply);
    active.insert(attempt->reply);
    Q_EMIT responseProgress(attempt->request.role, 0);

    attempt->watchdog = new QTimer(attempt->reply);
    attempt->watchdog->setSingleShot(true);
    connect(attempt->watchdog, &QTimer::timeout, attempt->reply, &QNetworkReply::abort);
    attempt->watchdog->start(attempt->silenceMs);
    attempt->sinceProgress.start();
    connect(attempt->reply, &QNetworkReply::readyRead, this, [this, attempt] { read(attempt); });
    connect(attempt->reply, &QNetworkReply::finished, this, [this, attempt] { complete(attempt); });
}

void OpenAICompatibleProvider::read(const std::shared_ptr<Attempt> &attempt)
{
    QNetworkReply *reply = attempt->reply;
    const QByteArray chunk = reply->isOpen() ? reply->readAll() : QByteArray();
    const StreamState::Progress progress = attempt->stream.feed(chunk);
    if (progress.text || (attempt->anyByteCounts && !chunk.isEmpty()))
        attempt->watchdog->start(attempt->silenceMs);
    if (progress.terminator || progress.overflow) {
        // A server may keep the connection open after the terminator; waiting for it to close would hold the answer
        // back for its whole keep-alive. On a turn of its own: this may be running inside the reply's last signal.
        QTimer::singleShot(0, reply, [reply] {
            if (!reply->isFinished())
                reply->abort();
        });
    }
    if (!chunk.isEmpty() && attempt->sinceProgress.elapsed() > progressIntervalMs) {
        Q_EMIT responseProgress(attempt->request.role, int(attempt->stream.content.size()));
        attempt->sinceProgress.start();
    }
}

void OpenAICompatibleProvider::complete(const std::shared_ptr<Attempt> &attempt)
{
    QNetworkReply *reply = attempt->reply;
    read(attempt);
    active.remove(reply);
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const ReplyFacts facts{status, int(reply->error()), attempt->settings.useResponses, attempt->key,
                           reply->rawHeader("Retry-After")};
    reply->disconnect(this);
    reply->deleteLater();

    if (repeatsPlainer(attempt, status))
        return;
    noteAccepted(attempt, status);
    // On a turn of its own: the callback may delete this provider, and the replies with it, which must not happen in
    // the middle of a reply's signal.
    QTimer::singleShot(0, this, [this, attempt, result = resultOf(attempt->stream, facts)] { end(attempt, result); });
}

/// Some servers know no "response_format" and say so by name, some don't stream: they are asked once more without.
bool OpenAICompatibleProvider::repeatsPlainer(const std::shared_ptr<Attempt> &attempt, int status)
{
    ChatSettings &asked = attempt->settings;
    if (attempt->generation != generation || asked.useResponses)
        return false;
    const bool refused = status == 400 || status == 422;
    if (refused && asked.json != JsonMode::Prompt && attempt->stream.raw().contains("response_format"))
        asked.json = JsonMode::Prompt;
    else if (asked.stream && (refused || status == 405 || status == 415 || status == 501))
        asked.stream = false;
    else
        return false;
    post(attempt);
    return true;
}

/// What a server has answered without is left out from then on. A refusal alone says nothing: it may have had other
/// reasons, and named the key only as part of what was sent.
void OpenAICompatibleProvider::noteAccepted(const std::shared_ptr<Attempt> &attempt, int status)
{
    if (status < 200 || status > 299 || attempt->settings.useResponses)
        return;
    const ChatSettings &answered = attempt->settings;
    const bool streams = attempt->known.stream && (answered.stream || !attempt->anyByteCounts);
    if (answered.json == attempt->known.json && streams == attempt->known.stream)
        return;
    // Another request may have learned something meanwhile.
    const bool more = learnedUrl == answered.url && learnedFrom == attempt->measured;
    const ServerTraits before = more ? learned : attempt->known;
    learnedUrl = answered.url;
    learnedFrom = attempt->measured;
    learned = {std::max(before.json, answered.json), before.stream && streams, before.images};
}

void OpenAICompatibleProvider::end(const std::shared_ptr<Attempt> &attempt, const LLMResult &result)
{
    if (generation != attempt->generation)
        return;
    if (!isChat(attempt->request.role) || !(result.retryable || result.truncated) || attempt->number >= maxRepeats) {
        attempt->callback(result);
        return;
    }

    LLMRequest again = attempt->request;
    if (result.truncated)
        again.maxTokens = std::min(again.maxTokens, maxOutputTokens / 2) * 2;
    QTimer::singleShot(std::max(repeatBaseMs << attempt->number, result.waitMs), this, [this, attempt, again] {
        if (generation == attempt->generation)
            requestAttempt(again, attempt->callback, attempt->number + 1, attempt->generation);
    });
}

} // namespace vesk
