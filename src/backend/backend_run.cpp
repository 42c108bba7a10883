// Exactly one run lives in the engine. A request starts at once, waits in the queue, or is refused.

#include "backend.h"

#include "budget.h"
#include "helpers.h"
#include "message_kind.h"

#include <QJsonDocument>
#include <QScopeGuard>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int runTurns = 8;
constexpr qsizetype runTurnChars = 2500;

/// The build command as the engine takes it; empty without a program.
QJsonObject buildCommand(const StartRequest &request)
{
    if (request.program.trimmed().isEmpty())
        return {};
    const QJsonDocument list = QJsonDocument::fromJson(request.arguments.toUtf8());
    require(list.isArray(), u"Аргументы команды должны быть JSON-массивом строк."_s);
    return {{u"program"_s, request.program}, {u"arguments"_s, list.array()}};
}

} // namespace

void Backend::start(const QString &request, bool preview, int budget, const QString &program, const QString &arguments)
{
    guard([&] { submit({request, preview, budget, program, arguments}); });
}

void Backend::submit(const StartRequest &request)
{
    if (!admit(request))
        return;
    if (core.engine.busy() || !queue.isEmpty())
        enqueueRequest(request);
    else
        begin(request);
}

/// Whether there is anything to start; throws what is in the way. Demo mode has answers for a calculator and a build:
/// any other request is told so and changes nothing.
bool Backend::admit(const StartRequest &request)
{
    buildCommand(request);
    require(!conversation.isBusy(), u"Дождитесь ответа в чате."_s);
    require(!attachments.isImporting(), u"Дождитесь добавления вложений"_s);
    requireStill();
    try {
        requireProject(u"Мой проект"_s);
    } catch (const std::exception &) {
        require(!core.workspace.root().isEmpty(), u"Не удалось создать папку проекта."_s);
        throw;
    }
    if (!connection.isDemo() || suitsDemo(request.request))
        return true;

    const QString where = view.conversationId();
    say(where, u"user"_s, request.request, u"message"_s);
    say(where, u"assistant"_s,
        u"Сейчас включён деморежим. В нём можно создать калькулятор или запустить сборку проекта. Для своей задачи "
        "откройте настройки API и вставьте ключ. Ничего не запускал и файлы не изменял."_s,
        u"message"_s);
    attachments.clear();
    return false;
}

void Backend::enqueueRequest(const StartRequest &request)
{
    const qsizetype position = queue.add(request);
    attachments.clear();
    const QString where = view.conversationId();
    say(where, u"user"_s, request.request, u"message"_s);
    say(where, u"assistant"_s,
        u"Запрос добавлен в очередь, позиция "_s + QString::number(position)
            + u". Главный агент начнёт новый цикл после текущей задачи. Файлы по этому запросу пока не "
              "изменялись."_s,
        u"queued"_s);
    drainLater();
}

void Backend::begin(const StartRequest &request)
{
    Engine &engine = core.engine;
    engine.conversationHistory = conversation.history(view.conversationId(), runTurns, runTurnChars, true);
    engine.previousSpec = view.selected()["spec"_L1].toObject();
    engine.requestMedia = mediaForRequest(request.request);
    engine.mediaTools = mediaCapabilities();
    client.root = core.workspace.root();
    prepareRuntime(request.request);
    // A task that doesn't start takes nothing along: the line stays in the box, and its files with it.
    lookForEdits();
    engine.start(request.request, request.preview, request.budget, buildCommand(request));
    attachments.clear();
    view.followRun();
    // Said where the task is read, and before anything of it has been asked.
    if (const QString warning = connection.windowWarning(); !warning.isEmpty())
        attempt([&] { say(view.conversationId(), u"assistant"_s, warning, u"connection"_s); });
}

void Backend::drainQueue()
{
    if (core.engine.busy() || conversation.isBusy() || queue.isPaused() || queue.isEmpty())
        return;
    guard([this] {
        // What waits for the user's next line doesn't go with an older one, which names its own files.
        const auto putBack = qScopeGuard([this, aside = attachments.putAside()] { attachments.putBack(aside); });
        queue.take([this](const StartRequest &request) {
            if (admit(request))
                begin(request);
        });
        // One that demo mode has answered makes way for the next.
        if (!core.engine.busy() && !queue.isPaused())
            drainLater();
    });
}

void Backend::drainLater()
{
    QTimer::singleShot(0, this, &Backend::drainQueue);
}

void Backend::clarify(const QString &answer)
{
    guard([&] { core.engine.clarify(answer); });
}

void Backend::pause()
{
    guard([this] { core.engine.pause(); });
}

void Backend::resume()
{
    guard([this] { core.engine.resume(); });
}

void Backend::runPreview()
{
    guard([this] { core.engine.runPreview(); });
}

void Backend::approve(const QString &action, bool allow)
{
    guard([&] { core.engine.approve(action, allow); });
}

void Backend::setPriority(const QString &node, int priority)
{
    guard([&] {
        // Of a task that has ended nothing is scheduled any more, and storing it again would undo its new name, or
        // bring it into the project in view.
        if (core.engine.busy())
            core.engine.priority(node, priority);
    });
}

void Backend::cancelQueued(const QString &key)
{
    guard([&] { queue.remove(key); });
}

void Backend::clearQueue()
{
    guard([this] { queue.clear(); });
}

void Backend::undoQueue()
{
    guard([this] {
        queue.undo();
        drainLater();
    });
}

void Backend::resumeQueue()
{
    guard([this] {
        queue.resume();
        drainLater();
    });
}

void Backend::stop()
{
    guard([this] {
        committing.stop();
        connection.stopAll();
        attachments.stop();
        // A store that can't be written to doesn't keep the rest going.
        attempt([this] { queue.pause(); });
        if (conversation.isBusy())
            attempt([this] { stopChat(); });
        if (core.engine.busy())
            core.engine.cancel();
        mcp.cancelAll();
        clearProgress();
    });
}

void Backend::finish()
{
    stop();
    committing.finish();
}

void Backend::stopChat()
{
    clearProgress();
    conversation.stop();
    say(view.conversationId(), u"assistant"_s, u"Ответ остановлен."_s, u"progress"_s);
}

} // namespace vesk
