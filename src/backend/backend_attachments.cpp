// Files that go with a message.

#include "backend.h"

#include "credential_store.h"
#include "endpoints.h"
#include "helpers.h"
#include "process_containment.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUrl>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxUsage = 120;
constexpr qsizetype maxAttachments = 8;
constexpr qsizetype maxRequestMedia = 12;
constexpr int searchedTurns = 10;
constexpr qsizetype maxGuidance = 16000;
constexpr qsizetype maxRules = 8000;

/// The local file that a URL or a plain absolute path names.
QString localFile(const QString &address)
{
    const bool plain = QDir::isAbsolutePath(address) && !address.startsWith("file:"_L1);
    const QUrl url = plain ? QUrl::fromLocalFile(address) : QUrl(address);
    const QString path = url.isLocalFile() ? url.toLocalFile() : QString();
    require(!path.isEmpty() && QFileInfo(path).isFile(),
            u"Не удалось прочитать путь вложения. Выберите файл повторно или перетащите его в чат."_s);
    return path;
}

bool isVisual(const QJsonValue &medium)
{
    const QString kind = medium["kind"_L1].toString();
    return kind == "image"_L1 || kind == "video"_L1;
}

/// Whether an agent with this "media_analysis" looks at all that there is to see.
bool covers(const QString &analysis, const QJsonArray &media)
{
    return std::ranges::all_of(media, [&](const QJsonValue &medium) {
        const QString kind = medium["kind"_L1].toString();
        return analysis == "both"_L1 || !isVisual(medium) || analysis == (kind == "image"_L1 ? "photo"_L1 : "video"_L1);
    });
}

/// The key of an agent's own connection; empty when there is none, or no way to it.
QString agentKey(const QString &agent)
{
    try {
        return CredentialStore::read(agentTarget(agent));
    } catch (const std::exception &) {
        return {};
    }
}

} // namespace

void Backend::pinAsset(const QString &path, const QString &usage)
{
    guard([&] {
        const QString project = core.workspace.project();
        const QJsonArray rows = project.isEmpty() ? QJsonArray() : core.store.list(u"artifacts"_s, project);
        const auto row = std::ranges::find_if(rows, [&](const QJsonValue &artifact) {
            return artifact["type"_L1].toString() == "media"_L1 && artifact["path"_L1].toString() == path;
        });
        require(row != rows.end(), u"Ресурс не найден в проекте"_s);
        QJsonObject medium = row->toObject();
        medium["usage"_L1] = usage.trimmed().left(maxUsage);
        medium["pinned"_L1] = !usage.trimmed().isEmpty();
        core.store.put(u"artifacts"_s, std::as_const(medium)["id"_L1].toString(), project, medium);
    });
}

void Backend::attachFiles(const QVariantList &urls)
{
    guard([&] {
        require(!chatBusy, u"Дождитесь текущего ответа"_s);
        require(attachments.size() + urls.size() + importProcesses.size() <= maxAttachments,
                u"До 8 вложений в одном сообщении"_s);
        QStringList files;
        for (const QVariant &url : urls)
            files.append(localFile(url.toString()));
        for (const QString &file : std::as_const(files))
            importFile(file);
    });
}

/// Gives a file to a worker process: whatever is wrong with it, this process never opens it.
void Backend::importFile(const QString &file)
{
    const QJsonObject job{{u"operation"_s, u"import"_s},
                          {u"root"_s, core.workspace.root()},
                          {u"source"_s, file},
                          {u"ffmpeg"_s, mediaCapabilities()["ffmpeg"_L1]}};
    auto process = std::make_unique<QProcess>(this);
    const auto containment = std::make_shared<ProcessContainment>();
    const QString problem
        = containment->prepare(*process, QCoreApplication::applicationFilePath(), {u"--media-job"_s, json(job)});
    require(problem.isEmpty(), problem);
    QProcess *worker = process.release();
    importProcesses.insert(worker);
    const QString project = core.workspace.project();
    connect(worker, &QProcess::finished, this, [this, worker, project](int code, QProcess::ExitStatus status) {
        takeImport(worker, project, status == QProcess::NormalExit ? code : -1);
    });
    connect(worker, &QProcess::errorOccurred, this, [this, worker, project](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            takeImport(worker, project, -1);
    });
    worker->setStandardInputFile(QProcess::nullDevice());
    worker->setStandardErrorFile(QProcess::nullDevice());
    worker->start();
}

void Backend::takeImport(QProcess *worker, const QString &project, int exitCode)
{
    if (!importProcesses.remove(worker))
        return;
    QJsonObject medium = QJsonDocument::fromJson(worker->readAllStandardOutput()).object();
    worker->deleteLater();
    if (exitCode != 0 || !std::as_const(medium)["success"_L1].toBool()) {
        const QString error = std::as_const(medium)["error"_L1].toString();
        message = error.isEmpty() ? u"Не удалось добавить вложение"_s : error;
        notifyUi();
        return;
    }
    attempt([&] { keepImport(project, medium); });
    notifyUi();
}

/// The file is in the folder of the project that it was added to, whichever is open by now; only there it waits for the
/// next message.
void Backend::keepImport(const QString &project, QJsonObject medium)
{
    medium["type"_L1] = u"media"_s;
    medium["time"_L1] = now();
    medium["status"_L1] = u"IMPORTED"_s;
    core.store.put(u"artifacts"_s, std::as_const(medium)["id"_L1].toString(), project, medium);
    if (project != core.workspace.project())
        return;
    const QString preview = std::as_const(medium)["preview"_L1].toString();
    if (!preview.isEmpty())
        medium["url"_L1] = QUrl::fromLocalFile(core.workspace.root() + u'/' + preview).toString();
    attachments.append(medium);
}

void Backend::removeAttachment(const QString &id)
{
    QJsonArray kept;
    for (const QJsonValue &attachment : std::as_const(attachments)) {
        if (attachment["id"_L1].toString() != id)
            kept.append(attachment);
    }
    attachments = kept;
    notifyUi();
}

/// The paths of the project's media that a request is about, apart from those that it names itself.
QSet<QString> Backend::mediaInQuestion(const QJsonArray &media) const
{
    QSet<QString> paths;
    for (const QJsonValue &attachment : attachments)
        paths.insert(attachment["path"_L1].toString());
    const QList<Store::Row> rows = paths.isEmpty()
        ? core.store.rowsAfter(u"messages"_s, conversationId(), 0, searchedTurns)
        : QList<Store::Row>();
    for (auto row = rows.crbegin(); row != rows.crend() && paths.isEmpty(); ++row) {
        const QString content = row->body["content"_L1].toString();
        for (const QJsonValue &medium : media) {
            const QString path = medium["path"_L1].toString();
            if (row->body["role"_L1].toString() == "user"_L1 && !path.isEmpty() && content.contains(path))
                paths.insert(path);
        }
    }
    if (!paths.isEmpty())
        return paths;
    const QJsonArray ofTask = selected()["spec"_L1]["media"_L1].toArray();
    for (const QJsonValue &medium : ofTask)
        paths.insert(medium["path"_L1].toString());
    return paths;
}

QJsonArray Backend::mediaForRequest(const QString &request) const
{
    const QJsonArray media = projectMedia();
    if (media.isEmpty())
        return {};
    const QSet<QString> paths = mediaInQuestion(media);
    QJsonArray found;
    for (const QJsonValue &value : media) {
        QJsonObject medium = value.toObject();
        const QString path = std::as_const(medium)["path"_L1].toString();
        if (path.isEmpty() || (!paths.contains(path) && !request.contains(path)))
            continue;
        medium["absolute_path"_L1] = QString(core.workspace.root() + u'/' + path);
        found.append(medium);
    }
    while (found.size() > maxRequestMedia)
        found.removeFirst();
    return found;
}

/// Whether the agent's own connection can see; then the chat uses it for this turn.
bool Backend::seesThrough(const QString &agent)
{
    const QJsonObject entry = std::as_const(preferences)["agent_api"_L1][agent].toObject();
    const QString provider = entry["provider"_L1].toString();
    const QString key = provider == "OpenAI"_L1 || provider == "Gemini"_L1 ? agentKey(agent) : QString();
    if (key.isEmpty())
        return false;
    chatClient.url = entry["url"_L1].toString();
    chatClient.model = entry["model"_L1].toString();
    chatClient.key = key;
    chatClient.useResponses = provider == "OpenAI"_L1;
    return true;
}

bool Backend::configureVisionChat(const QJsonArray &media, QJsonObject &input)
{
    if (std::ranges::none_of(media, isVisual))
        return false;
    const QJsonArray agents = std::as_const(preferences)["custom_agents"_L1].toArray();
    for (const QJsonValue &agent : agents) {
        const QString analysis = agent["media_analysis"_L1].toString();
        if (!agent["enabled"_L1].toBool() || analysis.isEmpty() || !covers(analysis, media)
            || !seesThrough(agent["id"_L1].toString()))
            continue;
        input["visual_agent_guidance"_L1] = QString(agent["instructions"_L1].toString().left(maxGuidance) + u'\n'
                                                    + agent["rules"_L1].toString().left(maxRules));
        return true;
    }
    if (seesThrough(u"orchestrator"_s))
        return true;
    require(!std::as_const(settings)["mock"_L1].toBool()
                && (chatClient.useResponses || QUrl(chatClient.url).host() == geminiHost()),
            u"Для чтения фото нужна модель с поддержкой изображений. Откройте Настройки → Агенты и skills → Анализ "
            "фото и задайте OpenAI или Gemini с ключом и визуальной моделью. Текущее подключение не передаёт "
            "изображения."_s);
    return true;
}

} // namespace vesk
