#pragma once

#include "folder_lock.h"

#include <QString>

#include <memory>

namespace vesk {

/// The folder of database and history: made when missing, and held by one process as long as the object lives. Nothing
/// in the folder is read or written before it is held.
class DataFolder {
public:
    /// Throws std::runtime_error when there is no such folder and none can be made, or it can't be locked.
    explicit DataFolder(const QString &path);

    const QString &path() const { return folder; }
    /// True when another process holds the folder.
    bool isTaken() const;
    /// What to tell the user then.
    QString takenText() const;

private:
    QString folder;
    std::unique_ptr<FolderLock> lock;
};

} // namespace vesk
