#pragma once

#include <QLatin1StringView>
#include <QStringView>

namespace vesk {

/// The phases of a task, as they stand in records and events.
namespace Phase {
inline constexpr QLatin1StringView idle("IDLE"); ///< No task yet.
inline constexpr QLatin1StringView intake("INTAKE");
inline constexpr QLatin1StringView clarification("CLARIFICATION"); ///< Waits for the user.
inline constexpr QLatin1StringView planning("PLANNING");
inline constexpr QLatin1StringView planReview("PLAN_REVIEW");
inline constexpr QLatin1StringView structuring("STRUCTURING");
inline constexpr QLatin1StringView structureReview("STRUCTURE_REVIEW");
inline constexpr QLatin1StringView preview("PREVIEW"); ///< A simulated run before its execution.
inline constexpr QLatin1StringView execution("EXECUTION");
inline constexpr QLatin1StringView validation("VALIDATION");
inline constexpr QLatin1StringView completed("COMPLETED");
inline constexpr QLatin1StringView failed("FAILED");
inline constexpr QLatin1StringView cancelled("CANCELLED");
inline constexpr QLatin1StringView interrupted("INTERRUPTED"); ///< Its process ended before the task did.
} // namespace Phase

/// Whether a task stands still for good.
inline bool isEndPhase(QStringView phase)
{
    return phase == Phase::completed || phase == Phase::failed || phase == Phase::cancelled
        || phase == Phase::interrupted;
}

} // namespace vesk
