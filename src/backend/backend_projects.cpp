#include "backend.h"

#include "helpers.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxFolderName = 60;
constexpr qsizetype maxTitle = 100;
constexpr qsizetype maxBackgroundScript = 32000;

/// A value as JSON. A script's object or array arrives wrapped in a type of the script engine, which converts to the
/// plain ones but isn't known to QJsonValue.
QJsonValue jsonOf(const QVariant &value)
{
    if (value.metaType().id() < QMetaType::User)
        return QJsonValue::fromVariant(value);
    const QVariantList list = value.toList();
    return list.isEmpty() ? QJsonValue(QJsonObject::fromVariantMap(value.toMap()))
                          : QJsonValue(QJsonArray::fromVariantList(list));
}

/// A folder name that every file system takes.
QString safeFolderName(const QString &name)
{
    static const QRegularExpression forbidden(u"[<>:\"/\\\\|?*\\x00-\\x1f]"_s);
    QString safe = name.trimmed().replace(forbidden, u"_"_s).left(maxFolderName);
    // Half a letter, which no file system takes, may be left of one that the limit has cut.
    while (!safe.isEmpty() && (safe.endsWith(u'.') || safe.endsWith(u' ') || safe.back().isHighSurrogate()))
        safe.chop(1);
    return safe.isEmpty() ? u"project"_s : safe;
}

const QStringList &settablePreferences()
{
    static const QStringList keys{u"glass"_s,         u"animations"_s,         u"computer_access"_s,
                                  u"sidebar_width"_s, u"inspector_width"_s,    u"background_js"_s,
                                  u"team_left"_s,     u"background_opacity"_s, u"agent_positions"_s,
                                  u"ffmpeg_path"_s,   u"blender_path"_s,       u"automatic_routing"_s};
    return keys;
}

} // namespace

void Backend::requireQuiet() const
{
    require(!core.engine.busy() && !chatBusy, u"Сначала остановите текущую работу и дождитесь ответа в чате."_s);
}

/// A project to work in, made in the usual place when there is none; throws what kept it from being made.
void Backend::requireProject(const QString &name)
{
    if (core.workspace.root().isEmpty())
        createProject(name, defaultFolder());
    require(!core.workspace.root().isEmpty(), message);
}

void Backend::createProject(const QString &name, const QString &folder)
{
    guard([&] {
        requireQuiet();
        require(!name.trimmed().isEmpty(), u"Укажите название проекта."_s);
        const QString projectId = id();
        core.workspace.open(projectFolder(name, folder, projectId), projectId);
        writeProjectFile(name, projectId);
        queue = {};
        queuePaused = false;
        projectName = name;
        core.store.put(
            u"projects"_s, projectId, {},
            {{u"id"_s, projectId}, {u"name"_s, name}, {u"root"_s, core.workspace.root()}, {u"created_at"_s, now()}});
        selectedTask.clear();
    });
}

QString Backend::projectFolder(const QString &name, const QString &folder, const QString &projectId) const
{
    const QString parent = folder.startsWith("file:"_L1) ? QUrl(folder).toLocalFile() : folder;
    // Without a folder the name stays relative, which the workspace refuses.
    return QDir(parent).filePath(safeFolderName(name) + u'-' + projectId.left(8));
}

void Backend::writeProjectFile(const QString &name, const QString &projectId) const
{
    const QJsonObject document{{u"name"_s, name}, {u"project_id"_s, projectId}, {u"created_at"_s, now()}};
    QSaveFile file(core.workspace.root() + u"/VESK-project.json"_s);
    const QByteArray text = QJsonDocument(document).toJson(QJsonDocument::Indented);
    require(file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit(),
            u"Не удалось сохранить описание проекта."_s);
}

void Backend::selectProject(const QString &projectId)
{
    guard([&] {
        requireQuiet();
        const QJsonObject project = core.store.get(u"projects"_s, projectId);
        require(!project.isEmpty(), u"Проект не найден."_s);
        // All that may fail comes before anything changes: the queue of one project must not become another's.
        const QJsonArray waiting = core.store.get(u"settings"_s, u"queue:"_s + projectId)["items"_L1].toArray();
        const QJsonArray outlines = core.store.taskOutlines(projectId);
        core.workspace.open(project["root"_L1].toString(), projectId);
        projectName = project["name"_L1].toString();
        attachments = {};
        queue = waiting;
        queuePaused = !queue.isEmpty(); // A queue found on disk never starts by itself.
        selectedTask = outlines.isEmpty() ? QString() : outlines.last()["id"_L1].toString();
    });
}

void Backend::selectTask(const QString &task)
{
    guard([&] {
        require(!core.engine.busy() || task == engineTask(), u"Остановите текущую задачу перед открытием другой."_s);
        require(core.store.get(u"tasks"_s, task)["project_id"_L1].toString() == core.workspace.project()
                    && !core.workspace.project().isEmpty(),
                u"Эта задача относится к другому проекту."_s);
        selectedTask = task;
    });
}

/// The row of a task of this project; throws "Диалог не найден.".
QJsonObject Backend::ownTask(const QString &task) const
{
    const QJsonObject row = core.store.get(u"tasks"_s, task);
    require(!row.isEmpty() && row["project_id"_L1].toString() == core.workspace.project(), u"Диалог не найден."_s);
    return row;
}

void Backend::renameTask(const QString &task, const QString &title)
{
    guard([&] {
        require(!core.engine.busy() || task != engineTask(), u"Переименовать можно после завершения."_s);
        QJsonObject row = ownTask(task);
        const QString trimmed = title.trimmed();
        require(!trimmed.isEmpty(), u"Введите название."_s);
        QJsonObject spec = std::as_const(row)["spec"_L1].toObject();
        spec["title"_L1] = trimmed.left(maxTitle);
        row["spec"_L1] = spec;
        core.store.put(u"tasks"_s, task, core.workspace.project(), row);
    });
}

void Backend::archiveTask(const QString &task)
{
    guard([&] {
        require(!core.engine.busy() || task != engineTask(), u"Сначала остановите задачу."_s);
        QJsonObject row = ownTask(task);
        const bool inView = selectedId() == task;
        row["archived"_L1] = true;
        core.store.put(u"tasks"_s, task, core.workspace.project(), row);
        if (inView)
            selectedTask = u"new"_s;
    });
}

void Backend::rollback(const QString &checkpoint)
{
    guard([&] {
        require(!core.engine.busy(), u"Остановите задачу перед восстановлением файлов."_s);
        core.workspace.rollback(checkpoint);
        core.events.publish(core.store.get(u"checkpoints"_s, checkpoint)["task_id"_L1].toString(),
                            u"RollbackCompleted"_s, u"Controlled workspace restored"_s, {});
    });
}

void Backend::openFile(const QString &path)
{
    guard([&] {
        require(QDesktopServices::openUrl(QUrl::fromLocalFile(core.workspace.resolve(path))),
                u"Windows не смог открыть файл. Откройте папку проекта и выберите приложение для этого типа файла."_s);
    });
}

void Backend::openWorkspace()
{
    if (!core.workspace.root().isEmpty())
        QDesktopServices::openUrl(QUrl::fromLocalFile(core.workspace.root()));
}

QString Backend::defaultFolder() const
{
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + u"/VESK Projects"_s;
}

void Backend::addMemory(const QString &category, const QString &text)
{
    guard([&] {
        require(!core.workspace.project().isEmpty(), u"Выберите проект."_s);
        require(!text.trimmed().isEmpty(), u"Введите текст для сохранения."_s);
        const QString entryId = id();
        const QJsonObject entry{{u"id"_s, entryId}, {u"category"_s, category}, {u"text"_s, text}, {u"time"_s, now()}};
        core.store.atomic([&] {
            core.store.put(u"memory_entries"_s, entryId, core.workspace.project(), entry);
            if (category == "Architecture Decisions"_L1 || category == "User Decisions"_L1)
                core.store.put(u"decision_logs"_s, entryId, core.workspace.project(), entry);
        });
    });
}

void Backend::setPreference(const QString &key, const QVariant &value)
{
    guard([&] {
        require(settablePreferences().contains(key), u"Неизвестная настройка"_s);
        require(key != "background_js"_L1 || value.toString().size() <= maxBackgroundScript,
                u"Код фона слишком большой"_s);
        const QJsonObject before = preferences;
        preferences[key] = jsonOf(value);
        try {
            savePreferences();
        } catch (...) {
            preferences = before;
            throw;
        }
    });
}

void Backend::savePreferences()
{
    core.store.put(u"settings"_s, u"workspace-ui"_s, {}, preferences);
    Q_EMIT preferencesChanged();
}

void Backend::renderBackground(double time, int width, int height)
{
    background.render(std::as_const(preferences)["background_js"_L1].toString(), time, width, height);
}

void Backend::discoverMcp()
{
    mcp.scan(core.workspace.root());
}

void Backend::connectMcp(const QString &server)
{
    mcp.connectServer(server);
}

void Backend::disconnectMcp(const QString &server)
{
    mcp.disconnectServer(server);
}

} // namespace vesk
