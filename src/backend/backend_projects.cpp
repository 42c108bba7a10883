// Projects, and the tasks that are listed in them.

#include "backend.h"

#include "helpers.h"
#include "project_folder.h"
#include "project_record.h"

#include <QDesktopServices>
#include <QDir>
#include <QStandardPaths>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxTitle = 100;

/// The newest of those that the list shows; empty for none.
QString lastListed(const QJsonArray &outlines)
{
    for (qsizetype i = outlines.size() - 1; i >= 0; --i) {
        if (!outlines[i]["archived"_L1].toBool())
            return outlines[i]["id"_L1].toString();
    }
    return {};
}

} // namespace

void Backend::requireQuiet()
{
    require(!core.engine.busy() && !conversation.isBusy(),
            u"Сначала остановите текущую работу и дождитесь ответа в чате."_s);
    requireStill();
    require(!exporting.isBusy(), u"Дождитесь, пока файлы проекта будут сохранены."_s);
}

/// A project to work in, made in the usual place when there is none; throws what kept it from being made.
void Backend::requireProject(const QString &name)
{
    if (core.workspace.root().isEmpty())
        return makeProject(name, defaultFolder());
    // The folder of a project that could not be stored when it was made is in use all the same.
    const QString project = core.workspace.project();
    if (core.store.get(u"projects"_s, project).isEmpty()) {
        projectName = QDir(core.workspace.root()).dirName();
        core.store.put(u"projects"_s, project, {}, projectRecord(project, projectName, core.workspace.root()));
    }
}

void Backend::createProject(const QString &name, const QString &folder)
{
    guard([&] { makeProject(name, folder); });
}

void Backend::makeProject(const QString &name, const QString &folder)
{
    requireQuiet();
    require(!name.trimmed().isEmpty(), u"Укажите название проекта."_s);
    const QString projectId = id();
    core.workspace.open(projectFolder(name, folder, projectId), projectId);
    attachments.clear(); // they lie in the folder of the former project
    const QString root = core.workspace.root();
    writeProjectFile(root, name, projectId);
    queue.open(projectId, {});
    projectName = name;
    core.store.put(u"projects"_s, projectId, {}, projectRecord(projectId, name, root));
    view.followRun();
    takeUpProject();
}

void Backend::selectProject(const QString &projectId)
{
    guard([&] { openProject(projectId); });
}

void Backend::openProject(const QString &projectId)
{
    requireQuiet();
    const QJsonObject project = core.store.get(u"projects"_s, projectId);
    require(!project.isEmpty(), u"Проект не найден."_s);
    // All that may fail comes before anything changes: the queue of one project must not become another's.
    const QJsonArray waiting = queue.stored(projectId);
    const QJsonArray outlines = core.store.taskOutlines(projectId);
    core.workspace.open(project["root"_L1].toString(), projectId);
    projectName = project["name"_L1].toString();
    attachments.clear();
    queue.open(projectId, waiting);
    view.open(lastListed(outlines));
    takeUpProject();
    lookForEdits();
}

/// What was seen of another project is forgotten, and what was begun in this one goes on.
void Backend::takeUpProject()
{
    editWatch.forget();
    compared.clear();
    committing.cancel();
    resumeRestore();
    taking.resume();
    treeWatch.look();
}

void Backend::selectTask(const QString &task)
{
    guard([&] {
        require(!core.engine.busy() || task == core.engine.task(),
                u"Остановите текущую задачу перед открытием другой."_s);
        require(core.store.get(u"tasks"_s, task)["project_id"_L1].toString() == core.workspace.project()
                    && !core.workspace.project().isEmpty(),
                u"Эта задача относится к другому проекту."_s);
        view.open(task);
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
        require(!core.engine.busy() || task != core.engine.task(), u"Переименовать можно после завершения."_s);
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
        require(!core.engine.busy() || task != core.engine.task(), u"Сначала остановите задачу."_s);
        QJsonObject row = ownTask(task);
        const bool inView = view.id() == task;
        row["archived"_L1] = true;
        core.store.put(u"tasks"_s, task, core.workspace.project(), row);
        if (inView)
            view.beginAnew();
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

} // namespace vesk
