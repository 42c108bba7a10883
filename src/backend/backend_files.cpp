// What the user does with the project's files: edits, folders that are taken in, differences, ways back, copies,
// commits.

#include "backend.h"

#include "helpers.h"
#include "narrator.h"
#include "slice.h"

#include <QFileInfo>
#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

QString Backend::taskTitle()
{
    return u"Что изменилось с запроса"_s;
}

void Backend::lookForEdits()
{
    if (!core.workspace.root().isEmpty())
        attempt([this] { editWatch.look(); });
}

void Backend::takeEdits(const QString &path)
{
    guard([&] { settleEdits(path, true); });
}

void Backend::undoEdits(const QString &path)
{
    guard([&] { settleEdits(path, false); });
}

/// One file, or all for an empty path. In a run the question about its file is answered instead.
void Backend::settleEdits(const QString &path, bool takesOwn)
{
    requireStill();
    require(!core.engine.busy(), u"Ответьте на вопрос задачи или остановите её."_s);
    QStringList paths{path};
    if (path.isEmpty()) {
        paths.clear();
        for (const QVariant &edit : editWatch.edits())
            paths.append(edit.toMap().value(u"path"_s).toString());
    }
    settling.begin(paths, takesOwn);
}

void Backend::takeSettled(const QStringList &faults)
{
    attempt([this] { editWatch.look(); });
    if (!faults.isEmpty())
        show(faults.join(u'\n'));
}

/// Files that change by themselves are nothing to work with.
void Backend::requireStill()
{
    require(!taking.isTaking(), u"Дождитесь, пока файлы проекта будут приняты."_s);
    require(!settling.isSettling(), u"Дождитесь, пока правки будут разобраны."_s);
    require(!committing.isCommitting(), u"Дождитесь конца фиксации."_s);
    if (!core.workspace.isRestoring())
        return;
    startRestoring(); // once more, if it has given up
    refuse(u"Дождитесь восстановления файлов."_s);
}

void Backend::startRestoring()
{
    if (restoreTimer.isActive())
        return;
    restoreFaults = 0;
    restoreTimer.start(0);
}

void Backend::lookAtFolder(const QString &folder)
{
    guard([&] {
        requireQuiet();
        const QString path = folder.startsWith("file:"_L1) ? QUrl(folder).toLocalFile() : folder;
        const QFileInfo place(path);
        require(place.isDir(), u"Такой папки нет: "_s + path);
        const QString root = place.canonicalFilePath();
        const QJsonArray projects = core.store.list(u"projects"_s, {});
        for (const QJsonValue &project : projects) {
            if (project["root"_L1].toString() == root)
                return openProject(project["id"_L1].toString());
        }
        taking.look(root);
    });
}

void Backend::acceptFolder()
{
    guard([this] {
        requireQuiet();
        openProject(taking.accept());
    });
}

void Backend::cancelFolder()
{
    if (!taking.isTaking())
        taking.cancel();
}

void Backend::compareEdit(const QString &path)
{
    guard([&] {
        const auto edit = core.workspace.handEdit(path);
        require(edit.has_value(), u"Файл не изменён вне программы: "_s + path);
        compared.showEdit(*edit);
    });
}

void Backend::compareTask(const QString &task)
{
    guard([&] {
        const QJsonObject before = core.workspace.checkpointOf(task.isEmpty() ? view.id() : task);
        compared.show(taskTitle(), before.isEmpty() ? QList<FileChange>() : core.workspace.changesSince(before));
    });
}

void Backend::compareRevisions(const QString &path, int from, int to)
{
    guard([&] {
        const int newer = to < 0 ? core.workspace.latest(path)["revision"_L1].toInt() : to;
        const int older = from < 0 ? std::max(0, newer - 1) : from;
        compared.showRevisions(path, older, newer);
    });
}

void Backend::compareRestore(const QString &checkpoint)
{
    guard([&] { compared.show(u"Что изменится"_s, core.workspace.restorePlan(checkpoint)); });
}

void Backend::restore(const QString &checkpoint)
{
    guard([&] { beginRestore(checkpoint); });
}

void Backend::undoRestore()
{
    guard([&] {
        const QString last = lastRestore();
        require(!last.isEmpty(), u"Восстановлений ещё не было."_s);
        beginRestore(last);
    });
}

void Backend::beginRestore(const QString &checkpoint)
{
    require(!core.engine.busy(), u"Остановите задачу перед восстановлением файлов."_s);
    requireStill();
    (void)core.workspace.beginRestore(checkpoint);
    startRestoring();
}

/// What a crash has interrupted goes on.
void Backend::resumeRestore()
{
    canUndoRestore = !lastRestore().isEmpty();
    if (core.workspace.isRestoring())
        startRestoring();
}

void Backend::restoreOn()
{
    const Slice slice;
    try {
        while (core.workspace.restoreNext()) {
            if (slice.isOver())
                return;
        }
        restoreTimer.stop();
        canUndoRestore = true;
        core.events.publish(view.id(), u"RollbackCompleted"_s, u"Controlled workspace restored"_s, {});
        const QStringList left = core.workspace.restoreSkipped();
        show(left.isEmpty() ? QString() : u"Изменены вами за это время и остались как есть: "_s + left.join(u", "_s));
    } catch (const std::exception &fault) {
        // It has turned round and goes on towards how it was; a second failure leaves the rest for later.
        if (++restoreFaults > 1)
            restoreTimer.stop();
        showFailure(fault);
        return;
    }
    lookForEdits();
}

QString Backend::lastRestore() const
{
    const QJsonArray all = core.store.checkpointOutlines(core.workspace.project());
    QString last;
    for (const QJsonValue &point : all) {
        if (point["reason"_L1].toString() == "restore"_L1)
            last = point["id"_L1].toString();
    }
    return last;
}

void Backend::restoreRevision(const QString &path, int revision)
{
    guard([&] {
        require(!core.engine.busy(), u"Остановите задачу перед восстановлением файлов."_s);
        requireStill();
        (void)core.workspace.restoreRevision(path, revision);
    });
}

void Backend::exportFiles(const QString &target, const QString &checkpoint)
{
    guard([&] {
        const QString place = target.startsWith("file:"_L1) ? QUrl(target).toLocalFile() : target;
        const QJsonObject snapshot = core.store.get(u"checkpoints"_s, checkpoint);
        require(checkpoint.isEmpty() || snapshot["project_id"_L1].toString() == core.workspace.project(),
                u"Это состояние относится к другому проекту."_s);
        exporting.begin(checkpoint.isEmpty() ? core.workspace.files() : snapshot["files"_L1].toArray(), place);
    });
}

void Backend::lookAtCommit()
{
    guard([this] {
        require(!core.engine.busy(), u"Остановите задачу перед фиксацией."_s);
        requireStill();
        require(preferences.document()["git_commit"_L1].toBool(), u"Фиксация выключена в настройках."_s);
        const QJsonObject state = selected();
        committing.look(view.id(), core.workspace.filesOf(view.id()),
                        commitMessage(state["spec"_L1]["original_request"_L1].toString(), Narrator::report(state)));
    });
}

void Backend::commitFiles(const QString &commitText)
{
    guard([&] {
        require(!core.engine.busy(), u"Остановите задачу перед фиксацией."_s);
        requireStill();
        committing.commit(commitText);
    });
}

bool Backend::mayClose()
{
    if (!committing.isCommitting())
        return true;
    guard([] { refuse(u"Дождитесь конца фиксации."_s); });
    return false;
}

void Backend::cancelCommit()
{
    committing.cancel();
}

QVariantMap Backend::commitState() const
{
    QVariantMap state = committing.state();
    state[u"possible"_s] = preferences.document()["git_commit"_L1].toBool() && committing.isPossible();
    return state;
}

} // namespace vesk
