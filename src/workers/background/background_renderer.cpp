// The worker's other end: one line there and back for each frame, under a limit of time.

#include "background_renderer.h"

#include "process_tie.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <chrono>
#include <utility>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vesk {

namespace {

constexpr auto frameTime = 120ms;
constexpr auto firstFrameTime = 3000ms;
constexpr int endsWithinMs = 100;
constexpr int endsAtLastWithinMs = 1000;
constexpr qsizetype maxReplyBytes = 256000;

} // namespace

BackgroundRenderer::BackgroundRenderer(QObject *parent)
    : QObject(parent)
{
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    endWithThisProcess(worker);
    connect(&timer, &QTimer::timeout, this, [this] {
        shapes.clear();
        fail(u"Фон остановлен: слишком долго выполняется JavaScript"_s);
    });
    connect(&worker, &QProcess::readyReadStandardOutput, this, &BackgroundRenderer::readReply);
    connect(&worker, &QProcess::readyReadStandardError, this, [this] { worker.readAllStandardError(); });
    connect(&worker, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        // One that never ran does not finish either.
        if (error == QProcess::FailedToStart)
            workerEnded();
        else
            workerFailed();
    });
    connect(&worker, &QProcess::finished, this, &BackgroundRenderer::workerEnded);
}

BackgroundRenderer::~BackgroundRenderer()
{
    worker.disconnect(this);
    worker.kill();
    worker.waitForFinished(endsAtLastWithinMs);
}

void BackgroundRenderer::render(const QString &text, double time, int width, int height)
{
    postponed.reset();
    if (text != code)
        restart(text);
    if (text.trimmed().isEmpty()) {
        endWorker();
        busy = false;
        timer.stop();
    } else if (ending && !stopped) {
        postponed = {time, width, height};
    } else if (!busy && !stopped) {
        send({time, width, height});
    }
}

void BackgroundRenderer::restart(const QString &text)
{
    ++generation;
    timer.stop();
    endWorker();
    if (ending)
        worker.waitForFinished(endsWithinMs);
    if (worker.isOpen())
        worker.readAllStandardOutput();
    buffer.clear();
    busy = false;
    stopped = false;
    code = text;
    problem.clear();
    problemLine = 0;
    shapes.clear();
    Q_EMIT changed();
}

void BackgroundRenderer::send(const Request &request)
{
    if (worker.state() == QProcess::NotRunning)
        worker.start(QCoreApplication::applicationFilePath(), {u"--background-worker"_s});
    if (stopped) // It could not be started, and has said so.
        return;
    const QJsonObject line{{u"generation"_s, generation},
                           {u"code"_s, code},
                           {u"t"_s, request.time},
                           {u"w"_s, request.width},
                           {u"h"_s, request.height}};
    busy = true;
    timer.start(worker.state() == QProcess::Starting ? firstFrameTime : frameTime);
    worker.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
}

void BackgroundRenderer::endWorker()
{
    if (worker.state() == QProcess::NotRunning)
        return;
    ending = true;
    worker.kill();
}

void BackgroundRenderer::fail(const QString &text)
{
    timer.stop();
    busy = false;
    stopped = true;
    endWorker();
    problem = text;
    Q_EMIT changed();
}

void BackgroundRenderer::readReply()
{
    buffer += worker.readAllStandardOutput();
    if (ending)
        return;
    if (buffer.size() > maxReplyBytes)
        return fail(u"Слишком большой кадр фона"_s);
    const qsizetype end = buffer.indexOf('\n');
    if (end < 0)
        return;
    const QJsonObject reply = QJsonDocument::fromJson(buffer.first(end)).object();
    buffer.remove(0, end + 1);
    if (reply["generation"_L1].toInt() == generation)
        take(reply);
}

void BackgroundRenderer::take(const QJsonObject &reply)
{
    timer.stop();
    busy = false;
    shapes = reply["shapes"_L1].toArray().toVariantList();
    problem = reply["error"_L1].toString();
    problemLine = reply["line"_L1].toInt();
    if (!problem.isEmpty()) {
        stopped = true;
        endWorker();
    }
    Q_EMIT changed();
}

void BackgroundRenderer::workerFailed()
{
    if (!ending && !stopped)
        fail(u"Не удалось запустить фон"_s);
}

/// Also a worker that ends in an orderly manner without having been told to has failed.
void BackgroundRenderer::workerEnded()
{
    if (!std::exchange(ending, false))
        workerFailed();
    buffer.clear();
    if (const auto request = std::exchange(postponed, std::nullopt))
        render(code, request->time, request->width, request->height);
}

} // namespace vesk
