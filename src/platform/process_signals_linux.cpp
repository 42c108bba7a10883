#include "process_signals.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

namespace vesk {

namespace {

constexpr std::array endings{SIGINT, SIGTERM, SIGHUP};
int wakeUp = -1;

/// Only what may be called in a signal handler: the rest happens in the event loop.
void note(int)
{
    const int kept = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeUp, &one, sizeof one);
    errno = kept;
}

void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

} // namespace

ProcessSignals::ProcessSignals(QObject *parent)
    : QObject(parent)
{
    wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    auto *notifier = new QSocketNotifier(wakeUp, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        std::uint64_t count = 0;
        if (::read(wakeUp, &count, sizeof count) == sizeof count)
            Q_EMIT endRequested();
    });
    for (const int signal : endings)
        setHandler(signal, note);
}

ProcessSignals::~ProcessSignals()
{
    for (const int signal : endings)
        setHandler(signal, SIG_DFL);
    ::close(wakeUp);
    wakeUp = -1;
}

void ProcessSignals::ignoreBrokenPipes()
{
    setHandler(SIGPIPE, SIG_IGN);
}

} // namespace vesk
