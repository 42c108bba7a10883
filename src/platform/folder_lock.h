#pragma once

#include "descriptor.h"

#include <QString>

namespace vesk {

/// A lock on a folder, held by the kernel on the folder itself: no file is left behind, and the lock ends with the
/// process however that ends. One process at a time holds it; a second object in the same process is refused too.
class FolderLock {
public:
    enum class Outcome {
        Held, ///< This object holds the lock until it is destroyed.
        Busy, ///< Somebody else holds it.
        Unavailable, ///< The folder can't be opened, or its file system has no locks.
    };

    explicit FolderLock(const QString &folder);

    Outcome outcome() const { return state; }

private:
    Descriptor held;
    Outcome state = Outcome::Unavailable;
};

} // namespace vesk
