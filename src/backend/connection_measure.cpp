// A server is asked what it can do.

#include "connection_measure.h"

#include "chat_request.h"
#include "helpers.h"
#include "low_delay.h"

#include <QNetworkReply>
#include <QNetworkRequest>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int probeSilenceMs = 180000;
constexpr auto longestProbe = std::chrono::seconds(240);
constexpr qsizetype maxProbeBytes = 1024 * 1024;

QNetworkRequest probeRequest(const QString &url, const QString &key)
{
    QNetworkRequest request(chatAddress({.url = url, .model = {}, .root = {}}));
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    request.setTransferTimeout(probeSilenceMs);
    if (!key.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + key.toUtf8());
    return request;
}

} // namespace

void ConnectionMeasure::start(const QString &url, const QString &model, const QString &itsKey)
{
    stop();
    answers.clear();
    address = url;
    asked = model;
    key = itsKey;
    running = true;
    askNext();
}

void ConnectionMeasure::stop()
{
    ++generation;
    running = false;
    key.clear();
    const QPointer<QNetworkReply> old = std::exchange(reply, nullptr);
    if (old)
        old->abort();
}

void ConnectionMeasure::askNext()
{
    const std::optional<Probe> next = nextProbe(answers);
    if (next)
        return ask(*next, probeLines(*next, answers));
    stop();
    Q_EMIT finished();
}

void ConnectionMeasure::ask(Probe probe, int lines)
{
    reply = network.post(probeRequest(address, key), jsonBytes(probeBody(probe, asked, lines)));
    sendWithoutDelay(reply);
    clock.start();
    auto firstMs = std::make_shared<qint64>(-1);
    connect(reply, &QNetworkReply::readyRead, this, [this, firstMs] {
        if (*firstMs < 0)
            *firstMs = clock.elapsed();
    });
    collect(reply, maxProbeBytes, longestProbe,
            [this, probe, lines, firstMs, noted = generation](const ServerReply &received) {
                if (noted != generation)
                    return;
                reply = nullptr;
                ProbeAnswer answer = probeAnswer(probe, received);
                answer.lines = lines;
                answer.totalMs = clock.elapsed();
                answer.firstMs = *firstMs < 0 ? answer.totalMs : *firstMs;
                take(answer);
            });
}

void ConnectionMeasure::take(const ProbeAnswer &answer)
{
    answers.append(answer);
    Q_EMIT changed();
    // On a turn of its own: this runs inside the reply's last signal, and who listens may have stopped it.
    QMetaObject::invokeMethod(
        this,
        [this, noted = generation] {
            if (noted == generation)
                askNext();
        },
        Qt::QueuedConnection);
}

} // namespace vesk
