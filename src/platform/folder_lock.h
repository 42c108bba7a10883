#pragma once

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
    ~FolderLock();
    FolderLock(const FolderLock &) = delete;
    FolderLock &operator=(const FolderLock &) = delete;

    Outcome outcome() const { return state; }

private:
    int descriptor = -1;
    Outcome state = Outcome::Unavailable;
};

} // namespace vesk
