// Who may use which tool on what.

#include "permissions.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto thisAction = "THIS_ACTION"_L1;
constexpr auto currentTask = "CURRENT_TASK"_L1;

bool scopeApplies(const Grant &grant, const QString &taskId, const QString &projectId, const QString &fingerprint)
{
    if (grant.scope == thisAction)
        return grant.task == taskId && grant.project == projectId && grant.fingerprint == fingerprint;
    if (grant.scope == currentTask)
        return grant.task == taskId && grant.project == projectId;
    if (grant.scope == "CURRENT_PROJECT"_L1)
        return grant.project == projectId;
    return grant.scope == "SESSION"_L1;
}

} // namespace

Grant taskGrant(const QString &tool, const QString &task, const QString &project, PermissionLevel level)
{
    return {tool, task, project, {}, currentTask, level};
}

Grant actionGrant(const QString &tool, const QString &task, const QString &project, const QString &fingerprint)
{
    return {tool, task, project, fingerprint, thisAction, PermissionLevel::Execute};
}

bool PermissionManager::allowed(const QString &tool, PermissionLevel level, const QString &taskId,
                                const QString &projectId, const QString &fingerprint, bool consume)
{
    const auto grant = std::ranges::find_if(grants, [&](const Grant &candidate) {
        return scopeApplies(candidate, taskId, projectId, fingerprint) && candidate.tool == tool
            && level <= candidate.level;
    });
    if (grant == grants.end())
        return false;
    if (consume && grant->scope == thisAction)
        grants.erase(grant);
    return true;
}

void PermissionManager::expireTask(const QString &taskId)
{
    grants.removeIf([&](const Grant &grant) {
        return grant.task == taskId && (grant.scope == currentTask || grant.scope == thisAction);
    });
}

} // namespace vesk
