// The project belongs to its user: what was edited by hand.

#include "backend.h"

#include "helpers.h"

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

} // namespace vesk
