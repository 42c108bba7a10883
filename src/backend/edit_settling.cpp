// All edits are settled in slices.

#include "edit_settling.h"

#include "helpers.h"
#include "slice.h"
#include "workspace.h"

#include <exception>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

EditSettling::EditSettling(Workspace &workspace)
    : workspace(workspace)
{
    connect(&timer, &QTimer::timeout, this, &EditSettling::goOn);
}

void EditSettling::begin(const QStringList &files, bool takesTheirs)
{
    paths = files;
    takes = takesTheirs;
    faults.clear();
    next = 0;
    timer.start(0);
    goOn();
}

void EditSettling::goOn()
{
    for (const Slice slice; next < paths.size() && !slice.isOver(); ++next) {
        const QString &path = std::as_const(paths)[next];
        try {
            (void)(takes ? workspace.takeEdit(path) : workspace.undoEdit(path));
        } catch (const std::exception &fault) {
            faults.append(path + u": "_s + textOf(fault));
        }
    }
    if (next < paths.size())
        return;
    timer.stop();
    Q_EMIT ended(std::exchange(faults, {}));
}

} // namespace vesk
