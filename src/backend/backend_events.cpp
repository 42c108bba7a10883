// What an event of a run, and its end, mean for conversation, memory and queue.

#include "backend.h"

using namespace Qt::StringLiterals;

namespace vesk {

/// A failure of the store goes to whoever published the event: a run that can't be recorded ends.
void Backend::follow(const QJsonObject &event)
{
    core.journal.record(event);
    notifyUi();
}

void Backend::finishRun(const QString &status)
{
    // The run may have ended over a failing store; its end is taken notice of all the same.
    attempt([this] { core.journal.close(core.engine.snapshot()); });
    // After a failed or stopped run the user decides whether the waiting requests still make sense.
    if (status != "COMPLETED"_L1)
        queuePaused = true;
    attempt([this] { saveQueue(); });
    drainLater();
}

} // namespace vesk
