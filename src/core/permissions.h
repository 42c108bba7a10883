#pragma once

#include <QList>
#include <QString>

namespace vesk {

/// What a grant covers; each level includes the lower ones.
enum class PermissionLevel { Read = 0, Write = 1, Execute = 2 };

/// One permission for a tool. Lives in memory only: after a restart there is none.
struct Grant {
    QString tool;
    QString task;
    QString project;
    QString fingerprint; ///< ToolRouter::fingerprint of one exact action; empty when not tied to one.
    QString scope; ///< "THIS_ACTION", "CURRENT_TASK", "CURRENT_PROJECT" or "SESSION"; any other never applies.
    PermissionLevel level = PermissionLevel::Read;
};

/// A grant for all that a tool does within a task.
Grant taskGrant(const QString &tool, const QString &task, const QString &project, PermissionLevel level);
/// One to execute an exact action once.
Grant actionGrant(const QString &tool, const QString &task, const QString &project, const QString &fingerprint);

/// Answers whether a tool action is covered by a grant. It does not know how grants come to be.
class PermissionManager {
public:
    /// In the order in which they were given; the engine appends.
    QList<Grant> grants;

    /// True when a grant applies. With `consume`, a "THIS_ACTION" grant that was used is removed.
    bool allowed(const QString &tool, PermissionLevel level, const QString &taskId, const QString &projectId,
                 const QString &fingerprint, bool consume);

    /// Removes the "CURRENT_TASK" and "THIS_ACTION" grants of the task.
    void expireTask(const QString &taskId);
};

} // namespace vesk
