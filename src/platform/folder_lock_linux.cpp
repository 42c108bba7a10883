// A folder that one process works on at a time.

#include "folder_lock.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace vesk {

FolderLock::FolderLock(const QString &folder)
    : descriptor(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (descriptor < 0)
        return;
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0)
        state = Outcome::Held;
    else if (errno == EWOULDBLOCK)
        state = Outcome::Busy;
}

FolderLock::~FolderLock()
{
    if (descriptor >= 0)
        ::close(descriptor);
}

} // namespace vesk
