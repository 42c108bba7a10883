// Files that go with a message.

#include "attachments.h"

#include "helpers.h"
#include "process_containment.h"
#include "store.h"
#include "workspace.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QUrl>

#include <algorithm>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxUsage = 120;
constexpr qsizetype maxAttachments = 8;

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

} // namespace

Attachments::Attachments(Store &store, const Workspace &workspace)
    : store(store)
    , workspace(workspace)
{
}

QStringList Attachments::vetted(const QStringList &addresses) const
{
    require(waiting.size() + addresses.size() + imports.size() <= maxAttachments, u"До 8 вложений в одном сообщении"_s);
    QStringList files;
    for (const QString &address : addresses)
        files.append(localFile(address));
    return files;
}

void Attachments::attach(const QStringList &files, const QString &ffmpeg)
{
    for (const QString &file : files)
        importFile(file, ffmpeg);
}

void Attachments::importFile(const QString &file, const QString &ffmpeg)
{
    const QString folder = id();
    const QJsonObject job{{u"operation"_s, u"import"_s},
                          {u"root"_s, workspace.root()},
                          {u"source"_s, file},
                          {u"ffmpeg"_s, ffmpeg},
                          {u"folder"_s, folder}};
    auto process = std::make_unique<QProcess>(this);
    const auto containment = std::make_shared<ProcessContainment>();
    const QString problem
        = containment->prepare(*process, QCoreApplication::applicationFilePath(), {u"--media-job"_s, json(job)});
    require(problem.isEmpty(), problem);
    QProcess *worker = process.release();
    imports.insert(worker, workspace.root() + u"/assets/"_s + folder);
    const QString project = workspace.project();
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

void Attachments::takeImport(QProcess *worker, const QString &project, int exitCode)
{
    if (!imports.contains(worker))
        return;
    const QString folder = imports.take(worker);
    QJsonObject medium = QJsonDocument::fromJson(worker->readAllStandardOutput()).object();
    worker->deleteLater();
    if (exitCode != 0 || !std::as_const(medium)["success"_L1].toBool()) {
        dropCopy(folder);
        const QString error = std::as_const(medium)["error"_L1].toString();
        Q_EMIT failed(error.isEmpty() ? u"Не удалось добавить вложение"_s : error);
        return;
    }
    try {
        keepImport(project, medium);
    } catch (const std::exception &failure) {
        dropCopy(folder);
        Q_EMIT failed(textOf(failure));
    }
    Q_EMIT changed();
}

/// The file is in the folder of the project that it was added to, whichever is open by now; only there it waits for the
/// next message.
void Attachments::keepImport(const QString &project, QJsonObject medium)
{
    medium["type"_L1] = u"media"_s;
    medium["time"_L1] = now();
    medium["status"_L1] = u"IMPORTED"_s;
    store.put(u"artifacts"_s, std::as_const(medium)["id"_L1].toString(), project, medium);
    if (project != workspace.project())
        return;
    const QString preview = std::as_const(medium)["preview"_L1].toString();
    if (!preview.isEmpty())
        medium["url"_L1] = QUrl::fromLocalFile(workspace.root() + u'/' + preview).toString();
    waiting.append(medium);
}

void Attachments::remove(const QString &id)
{
    QJsonArray kept;
    for (const QJsonValue &attachment : std::as_const(waiting)) {
        if (attachment["id"_L1].toString() != id)
            kept.append(attachment);
    }
    waiting = kept;
    Q_EMIT changed();
}

void Attachments::clear()
{
    waiting = {};
}

void Attachments::stop()
{
    const QHash<QProcess *, QString> running = std::exchange(imports, {});
    for (const auto &[process, folder] : running.asKeyValueRange()) {
        process->disconnect(this);
        // Destroying it sooner would wait for its end here.
        connect(process, &QProcess::finished, process, [process, folder] {
            process->deleteLater();
            dropCopy(folder);
        });
        ProcessContainment::end(*process);
    }
}

/// Of an import that came to nothing; its worker may have been killed before it could clear up.
void Attachments::dropCopy(const QString &folder)
{
    if (!QFileInfo(QFileInfo(folder).path()).isSymLink())
        QDir(folder).removeRecursively();
}

void Attachments::pinAsset(const QString &path, const QString &usage)
{
    const QString project = workspace.project();
    const QJsonArray rows = project.isEmpty() ? QJsonArray() : store.list(u"artifacts"_s, project);
    const auto row = std::ranges::find_if(rows, [&](const QJsonValue &artifact) {
        return artifact["type"_L1].toString() == "media"_L1 && artifact["path"_L1].toString() == path;
    });
    require(row != rows.end(), u"Ресурс не найден в проекте"_s);
    QJsonObject medium = row->toObject();
    medium["usage"_L1] = usage.trimmed().left(maxUsage);
    medium["pinned"_L1] = !usage.trimmed().isEmpty();
    store.put(u"artifacts"_s, std::as_const(medium)["id"_L1].toString(), project, medium);
}

} // namespace vesk
