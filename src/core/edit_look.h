#pragma once

#include "workspace.h"

#include <QJsonArray>
#include <QList>

namespace vesk {

/// A look for what the user has changed in the project's files, in slices, so that nothing stands still over a large
/// project. What it has seen unchanged is known to the workspace afterwards where the file system's times can be
/// trusted.
class EditLook {
public:
    explicit EditLook(const Workspace &workspace);

    /// Looks on, through small projects in one go; false when that was all. Throws what the store says.
    bool lookOn();

    /// What was found so far, in the order of the files.
    const QList<HandEdit> &edits() const { return found; }

private:
    const Workspace &workspace;
    QJsonArray records;
    qsizetype next = 0;
    QList<HandEdit> found;
};

} // namespace vesk
