#pragma once

#include "descriptor.h"

#include <QStringList>

namespace vesk {

/// Tells whether a file in certain folders has been opened since, by any process.
class OpenWatch {
public:
    /// Begins to watch these folders, not those below them.
    explicit OpenWatch(const QStringList &folders);

    /// False when the system does not let them all be watched.
    bool isWatching() const { return watching; }
    /// True when a file was opened, also where more happened than the system keeps. Asking begins anew.
    bool hasSeenOpening();

private:
    Descriptor events;
    bool watching = false;
};

} // namespace vesk
