// Sending without waiting for acknowledgements.

#include "low_delay.h"

#include <QNetworkReply>

#include <cstdlib>
#include <memory>

#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace vesk {

namespace {

int option(int descriptor, int level, int name)
{
    int value = 0;
    socklen_t size = sizeof value;
    return ::getsockopt(descriptor, level, name, &value, &size) == 0 ? value : -1;
}

bool isDelayingConnection(int descriptor)
{
    return option(descriptor, SOL_SOCKET, SO_PROTOCOL) == IPPROTO_TCP
        && option(descriptor, SOL_SOCKET, SO_ACCEPTCONN) == 0 && option(descriptor, IPPROTO_TCP, TCP_NODELAY) == 0;
}

/// The manager doesn't tell which socket a reply uses, so all connections of the process get the option; for the others
/// it is harmless.
void speedUpConnections()
{
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(::opendir("/proc/self/fd"), ::closedir);
    if (!folder)
        return;
    while (const dirent *entry = ::readdir(folder.get())) {
        const int descriptor = std::atoi(entry->d_name);
        if (entry->d_type != DT_LNK || !isDelayingConnection(descriptor))
            continue;
        const int on = 1;
        ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
}

} // namespace

void sendWithoutDelay(QNetworkReply *reply)
{
    // A connection that is kept for later requests keeps the option, too. "Sent" comes after the first piece was
    // written; setting the option pushes out what the kernel holds back of it.
    QObject::connect(reply, &QNetworkReply::socketStartedConnecting, reply, &speedUpConnections);
    QObject::connect(reply, &QNetworkReply::requestSent, reply, &speedUpConnections);
}

} // namespace vesk
