// Signals that ask the process to end, as events.

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

bool isIgnored(int signal)
{
    struct sigaction action = {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
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
    for (const int signal : endings) {
        // The others are ignored in what a script starts in the background, which is no wish of anybody.
        if (signal != SIGHUP || !isIgnored(signal))
            setHandler(signal, note);
    }
}

ProcessSignals::~ProcessSignals()
{
    // Whoever lets go of this ends by himself, with an exit code that tells more than the signal.
    for (const int signal : endings)
        setHandler(signal, SIG_IGN);
    ::close(wakeUp);
    wakeUp = -1;
}

void ProcessSignals::ignoreBrokenPipes()
{
    setHandler(SIGPIPE, SIG_IGN);
}

} // namespace vesk
