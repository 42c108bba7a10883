#pragma once

#include <QtTypes>

namespace vesk {

/// What a task may spend when nobody has said otherwise.
constexpr int defaultTaskTokens = 1000000;

/// The token account of one task. All three numbers are tokens.
struct BudgetManager {
    qint64 limit = 100000; ///< The most that the task may spend.
    qint64 used = 0; ///< Settled so far.
    qint64 reserved = 0; ///< Held by requests in flight.

    /// Holds `amount` for a request; false, and nothing changes, when it is negative or exceeds what is left.
    /// Exactly reaching the limit succeeds.
    bool reserve(qint64 amount);

    /// Ends a reservation: `actual` (a negative one counts as 0) is spent, `reserved` never falls below 0.
    void settle(qint64 reservedAmount, qint64 actual);
};

} // namespace vesk
