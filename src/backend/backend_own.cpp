// The project belongs to its user: what was edited by hand.

#include "backend.h"

#include "helpers.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

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
    require(!core.engine.busy(), u"Ответьте на вопрос задачи или остановите её."_s);
    QStringList paths{path};
    if (path.isEmpty()) {
        paths.clear();
        for (const QVariant &edit : editWatch.edits())
            paths.append(edit.toMap().value(u"path"_s).toString());
    }
    // One that can't be settled doesn't keep the others from it.
    QStringList faults;
    for (const QString &each : std::as_const(paths)) {
        try {
            (void)(takesOwn ? core.workspace.takeEdit(each) : core.workspace.undoEdit(each));
        } catch (const std::exception &fault) {
            faults.append(each + u": "_s + textOf(fault));
        }
    }
    editWatch.look();
    require(faults.isEmpty(), faults.join(u'\n'));
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
        compared.show(u"Что изменилось с запроса"_s,
                      before.isEmpty() ? QList<FileChange>() : core.workspace.changesSince(before));
    });
}

void Backend::compareRevisions(const QString &path, int from, int to)
{
    guard([&] {
        const Workspace &workspace = core.workspace;
        const int newer = to < 0 ? workspace.latest(path)["revision"_L1].toInt() : to;
        const int older = from < 0 ? std::max(0, newer - 1) : from;
        compared.show(u"Версия %1 и версия %2"_s.arg(older).arg(newer),
                      {{path, workspace.revision(path, older), workspace.revision(path, newer)}});
    });
}

} // namespace vesk
