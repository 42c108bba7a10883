#pragma once

#include <QElapsedTimer>

#include <algorithm>

namespace vesk {

/// How often something that grows may be written: so that writing takes no more than about a tenth of the time, and
/// never less often than four times a second. A write that is due costs its caller nothing to ask for.
class WritePace {
public:
    /// True when the last write lies back long enough.
    bool due() const { return delayMs() == 0; }

    /// Milliseconds until the next write is due, at most 250.
    int delayMs() const
    {
        if (!sinceWrite.isValid())
            return 0;
        const qint64 wait = std::min(costNs * shareOfTime, longestNs) - sinceWrite.nsecsElapsed();
        return wait <= 0 ? 0 : int(wait / 1000000) + 1;
    }

    void begin() { cost.start(); }
    void end()
    {
        costNs = cost.nsecsElapsed();
        sinceWrite.start();
    }

private:
    static constexpr qint64 shareOfTime = 10;
    static constexpr qint64 longestNs = 250000000;

    QElapsedTimer cost;
    QElapsedTimer sinceWrite;
    qint64 costNs = 0;
};

} // namespace vesk
