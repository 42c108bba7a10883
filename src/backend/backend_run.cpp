// Exactly one run lives in the core.engine. A request starts at once, waits in the queue, or is refused.

#include "backend.h"

#include "helpers.h"
#include "message_kind.h"
#include "process_containment.h"

#include <QJsonDocument>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxWaiting = 50;
constexpr int defaultBudget = 1000000;
constexpr qsizetype runTurns = 8;
constexpr qsizetype runTurnChars = 2500;

/// The build command as the engine takes it; empty without a program.
QJsonObject buildCommand(const QString &program, const QString &arguments)
{
    if (program.trimmed().isEmpty())
        return {};
    const QJsonDocument list = QJsonDocument::fromJson(arguments.toUtf8());
    require(list.isArray(), u"Аргументы команды должны быть JSON-массивом строк."_s);
    return {{u"program"_s, program}, {u"arguments"_s, list.array()}};
}

} // namespace

void Backend::start(const QString &request, bool preview, int budget, const QString &program, const QString &arguments)
{
    guard([&] {
        const QJsonObject command = buildCommand(program, arguments);
        require(!chatBusy, u"Дождитесь ответа в чате."_s);
        require(importProcesses.isEmpty(), u"Дождитесь добавления вложений"_s);
        if (core.workspace.root().isEmpty())
            createProject(u"Мой проект"_s, defaultFolder());
        require(!core.workspace.root().isEmpty(), u"Не удалось создать папку проекта."_s);
        if (answeredByDemo(request))
            return;
        if (core.engine.busy() || !queue.isEmpty())
            enqueueRequest(request, preview, budget, program, arguments);
        else
            startNow(request, preview, budget, command);
    });
}

/// Demo mode has answers for a calculator and a build; any other request is told so and changes nothing.
bool Backend::answeredByDemo(const QString &request)
{
    if (!std::as_const(settings)["mock"_L1].toBool() || suitsDemo(request))
        return false;
    const QString conversation = conversationId();
    addChat(conversation, u"user"_s, request, u"message"_s);
    addChat(conversation, u"assistant"_s,
            u"Сейчас включён деморежим. В нём можно создать калькулятор или запустить сборку проекта. Для своей задачи "
            "откройте настройки API и вставьте ключ. Ничего не запускал и файлы не изменял."_s,
            u"message"_s);
    attachments = {};
    return true;
}

void Backend::enqueueRequest(const QString &request, bool preview, int budget, const QString &program,
                             const QString &arguments)
{
    require(queue.size() < maxWaiting, u"В очереди уже 50 задач."_s);
    QJsonArray longer = queue;
    longer.append(QJsonObject{{u"id"_s, id()},
                              {u"request"_s, request},
                              {u"preview"_s, preview},
                              {u"budget"_s, budget},
                              {u"program"_s, program},
                              {u"arguments"_s, arguments},
                              {u"created_at"_s, now()}});
    changeQueue(longer);
    attachments = {};
    const QString conversation = conversationId();
    addChat(conversation, u"user"_s, request, u"message"_s);
    addChat(conversation, u"assistant"_s,
            u"Запрос добавлен в очередь, позиция "_s + QString::number(queue.size())
                + u". Главный агент начнёт новый цикл после текущей задачи. Файлы по этому запросу пока не "
                  "изменялись."_s,
            u"queued"_s);
    drainLater();
}

void Backend::startNow(const QString &request, bool preview, int budget, const QJsonObject &command)
{
    core.engine.conversationHistory = historyOf(conversationId(), runTurns, runTurnChars, true);
    core.engine.previousSpec = selected()["spec"_L1].toObject();
    core.engine.requestMedia = mediaForRequest(request);
    core.engine.mediaTools = mediaCapabilities();
    client.root = core.workspace.root();
    attachments = {};
    selectedTask.clear();
    prepareRuntime(request);
    core.engine.start(request, preview, budget, command);
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

void Backend::stop()
{
    guard([this] {
        stopChecks();
        stopImports();
        queuePaused = true;
        // A store that can't be written to doesn't keep the rest going.
        attempt([this] { saveQueue(); });
        if (chatBusy)
            attempt([this] { stopChat(); });
        if (core.engine.busy())
            core.engine.cancel();
        mcp.cancelAll();
        streamNote.clear();
        Q_EMIT streamChanged();
    });
}

void Backend::stopChecks()
{
    ++catalogGeneration;
    if (modelsReply)
        modelsReply->abort();
    modelsReply.clear();
    probeClient.cancelAll();
    if (agentProbe) {
        agentProbe->cancelAll();
        agentProbe->deleteLater();
    }
    agentProbe.clear();
    apiTesting = false;
    apiStatus = u"Остановлено"_s;
}

void Backend::stopImports()
{
    const QSet<QProcess *> imports = std::exchange(importProcesses, {});
    for (QProcess *process : imports) {
        process->disconnect(this);
        // Destroying it sooner would wait for its end here.
        connect(process, &QProcess::finished, process, &QObject::deleteLater);
        ProcessContainment::end(*process);
    }
}

void Backend::stopChat()
{
    chatClient.cancelAll();
    chatMock.cancelAll();
    const QString asked = std::exchange(pendingChatText, {});
    const QString conversation = std::exchange(pendingChatConversation, {});
    chatBusy = false;
    streamNote.clear();
    Q_EMIT streamChanged();
    queuePaused = true;
    addChat(conversation, u"user"_s, asked, u"message"_s);
    saveQueue();
    addChat(conversationId(), u"assistant"_s, u"Ответ остановлен."_s, u"progress"_s);
}

void Backend::cancelQueued(const QString &key)
{
    guard([&] {
        QJsonArray shorter = queue;
        const auto item = std::ranges::find_if(
            std::as_const(shorter), [&](const QJsonValue &waiting) { return waiting["id"_L1].toString() == key; });
        if (item == std::as_const(shorter).end())
            return;
        shorter.removeAt(item - std::as_const(shorter).begin());
        changeQueue(shorter);
    });
}

void Backend::resumeQueue()
{
    guard([this] {
        queuePaused = false;
        saveQueue();
        drainLater();
    });
}

/// A change that can't be stored is none: the request is typed again, or cancelled again.
void Backend::changeQueue(QJsonArray next)
{
    queue.swap(next);
    try {
        saveQueue();
    } catch (...) {
        queue.swap(next);
        throw;
    }
}

void Backend::saveQueue()
{
    const QString project = core.workspace.project();
    if (!project.isEmpty() && !draining)
        core.store.put(u"settings"_s, u"queue:"_s + project, project,
                       {{u"items"_s, queue}, {u"paused"_s, queuePaused}});
    notifyUi();
}

void Backend::drainQueue()
{
    if (core.engine.busy() || chatBusy || queuePaused || queue.isEmpty())
        return;
    try {
        const QJsonObject item = std::as_const(queue).first().toObject();
        QJsonArray rest = queue;
        rest.removeFirst();
        // Empty for the moment: what lets start() go the direct way instead of queuing the item again. On disk the
        // queue stays as it is meanwhile, whatever the start leads to, so that a crash loses none of it.
        queue = {};
        draining = true;
        start(item["request"_L1].toString(), item["preview"_L1].toBool(), item["budget"_L1].toInt(defaultBudget),
              item["program"_L1].toString(), item["arguments"_L1].toString());
        draining = false;
        queue = rest;
        if (!message.isEmpty()) {
            queue.prepend(item);
            queuePaused = true;
        }
        saveQueue();
        if (!core.engine.busy() && !queuePaused)
            drainLater();
    } catch (const std::exception &failure) {
        message = textOf(failure);
        queuePaused = true;
        notifyUi();
    }
}

} // namespace vesk
