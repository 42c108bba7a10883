// A folder that one process works on at a time.

#include "folder_lock.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

namespace vesk {

FolderLock::FolderLock(const QString &folder)
    : held(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (!held)
        return;
    if (::flock(held.get(), LOCK_EX | LOCK_NB) == 0)
        state = Outcome::Held;
    else if (errno == EWOULDBLOCK)
        state = Outcome::Busy;
}

} // namespace vesk
