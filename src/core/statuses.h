#pragma once

#include <QLatin1StringView>
#include <QStringView>

namespace vesk {

/// How far a node of the plan is. One that the run ends over gets the run's end.
namespace NodeStatus {
inline constexpr QLatin1StringView queued("QUEUED");
inline constexpr QLatin1StringView ready("READY"); ///< Only where a plan says so; the same as queued.
inline constexpr QLatin1StringView running("RUNNING");
inline constexpr QLatin1StringView blocked("BLOCKED"); ///< Waits for a permission.
inline constexpr QLatin1StringView reviewing("REVIEWING");
inline constexpr QLatin1StringView revisionRequired("REVISION_REQUIRED");
inline constexpr QLatin1StringView completed("COMPLETED");
inline constexpr QLatin1StringView failed("FAILED");
} // namespace NodeStatus

/// How far the run of an agent is. What it does while a model works on it is told by runStatus().
namespace RunStatus {
inline constexpr QLatin1StringView waiting("WAITING");
inline constexpr QLatin1StringView usingTool("USING_TOOL");
inline constexpr QLatin1StringView completed("COMPLETED");
inline constexpr QLatin1StringView error("ERROR");
inline constexpr QLatin1StringView cancelled("CANCELLED"); ///< The task ended before the run did.
inline constexpr QLatin1StringView interrupted("INTERRUPTED"); ///< The process did.
} // namespace RunStatus

/// Whether a node may start once its dependencies are done.
inline bool isStartable(QStringView nodeStatus)
{
    return nodeStatus == NodeStatus::queued || nodeStatus == NodeStatus::ready;
}

/// Whether a run has got its last status.
inline bool isEndedRun(QStringView runStatus)
{
    return runStatus == RunStatus::completed || runStatus == RunStatus::error || runStatus == RunStatus::cancelled
        || runStatus == RunStatus::interrupted;
}

/// What becomes of an objection of a reviewer.
namespace FixStatus {
inline constexpr QLatin1StringView open("OPEN");
inline constexpr QLatin1StringView resolved("RESOLVED");
} // namespace FixStatus

} // namespace vesk
