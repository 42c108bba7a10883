#pragma once

#include <QElapsedTimer>

namespace vesk {

/// A piece of long work on the interface's thread, which does the rest at its next turns. However many works go on at
/// a time, together they take about half of the 16 ms that a picture has; each goes on by a millisecond at least.
/// Main thread only.
class Slice {
public:
    Slice();
    ~Slice();
    Q_DISABLE_COPY_MOVE(Slice)

    bool isOver() const { return clock.nsecsElapsed() >= nanoseconds; }

private:
    QElapsedTimer clock;
    qint64 nanoseconds; ///< What is left for it.
};

} // namespace vesk
