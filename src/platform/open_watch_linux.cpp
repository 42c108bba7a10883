// News of opened files from the kernel.

#include "open_watch.h"

#include <QFile>

#include <algorithm>

#include <sys/inotify.h>
#include <unistd.h>

namespace vesk {

OpenWatch::OpenWatch(const QStringList &folders)
    : events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    watching = bool(events) && std::ranges::all_of(folders, [this](const QString &folder) {
                   return ::inotify_add_watch(events.get(), QFile::encodeName(folder).constData(), IN_OPEN | IN_ONLYDIR)
                       >= 0;
               });
}

bool OpenWatch::hasSeenOpening()
{
    alignas(inotify_event) char buffer[16384];
    bool seen = false;
    for (ssize_t length; (length = ::read(events.get(), buffer, sizeof buffer)) > 0;) {
        for (const char *at = buffer; at < buffer + length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            // Folders are opened by whoever walks past.
            seen = seen || (event->mask & IN_ISDIR) == 0;
            at += sizeof(inotify_event) + event->len;
        }
    }
    return seen;
}

} // namespace vesk
