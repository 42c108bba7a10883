// vesk-guard: runs one program, and nothing that the program started outlives it (docs/processes.md).
//
//   vesk-guard [--lifeline FD] [--status FD] [--grace MS] -- PROGRAM [ARGUMENT...]
//
// It is two processes: the outer guard, which the application has started, the inner one below it, and below that
// the program. Each is the sub-reaper of all that is below, so ending one of the two frees nothing: the other
// notices and ends the rest.

#include "descendants.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <unordered_set>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int exitNotStarted = 126;
constexpr int exitWrongUse = 125;
// How long nothing but what can't be killed is looked at before it is left behind. A disk that is merely slow answers
// within this time; without a limit one dead network disk would keep every run that touches it from ever ending.
constexpr long beyondReachLimitMs = 5000;
constexpr long innerExtraMs = 1000;

struct Options {
    int lifeline = -1; // Read end of a pipe; its end of file says that the application is gone.
    int status = -1; // Write end of a pipe for the lines of docs/processes.md.
    int graceMs = 500; // From SIGTERM to SIGKILL where the end is a gentle one.
    char **program = nullptr;
};

enum class Stop { None, Gently, AtOnce };

// What one of the two guards looks after.
struct Watch {
    bool outer;
    pid_t child; // The inner guard or the program.
    int lifeline;
    int signals;
    bool ended = false; // The child itself; others may be left.
    int endStatus = 0;
    size_t collected = 0; // All that have ended and were this guard's to bury.
};

Options options;

template <typename... Values> void report(const char *format, Values... values)
{
    if (options.status >= 0)
        dprintf(options.status, format, values...);
}

long nowMs()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000L + time.tv_nsec / 1000000;
}

bool parse(int count, char **arguments)
{
    int at = 1;
    for (; at + 1 < count && std::string_view(arguments[at]) != "--"; at += 2) {
        const std::string_view name = arguments[at];
        const int value = std::atoi(arguments[at + 1]);
        if (name == "--lifeline")
            options.lifeline = value;
        else if (name == "--status")
            options.status = value;
        else if (name == "--grace")
            options.graceMs = value;
        else
            return false;
    }
    options.program = arguments + at + 1;
    return at + 1 < count;
}

// Whatever the application has left open: neither the guards nor the program shall hold it.
void closeForeignDescriptors()
{
    unsigned from = STDERR_FILENO + 1;
    const auto [lower, higher] = std::minmax(options.lifeline, options.status);
    for (const int own : {lower, higher}) {
        if (own < int(from))
            continue;
        fcntl(own, F_SETFD, FD_CLOEXEC);
        if (unsigned(own) > from)
            syscall(SYS_close_range, from, unsigned(own) - 1, 0u);
        from = unsigned(own) + 1;
    }
    syscall(SYS_close_range, from, ~0u, 0u);
}

// A guard that held the output too would keep it open for a program that has closed it.
void releaseStandardDescriptors()
{
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int standard = 0; nothing >= 0 && standard <= 2; ++standard)
        dup2(nothing, standard);
    if (nothing > 2)
        close(nothing);
}

int watchSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1})
        sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return signalfd(-1, &set, SFD_CLOEXEC);
}

bool becomeGuard()
{
    // A guard that somebody has stopped is woken when its parent dies, and finds its life-line cut.
    return prctl(PR_SET_CHILD_SUBREAPER, 1) == 0 && prctl(PR_SET_PDEATHSIG, SIGCONT) == 0;
}

int notStarted(int error)
{
    dprintf(STDERR_FILENO, "%s: %s\n", options.program[0], std::strerror(error));
    report("failed %d\n", error);
    return exitNotStarted;
}

[[noreturn]] void becomeProgram(pid_t guard, int errorPipe)
{
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != guard)
        _exit(exitNotStarted);
    for (int number = 1; number < NSIG; ++number)
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execv(options.program[0], options.program);
    const int error = errno;
    (void)!write(errorPipe, &error, sizeof error);
    _exit(exitNotStarted);
}

// The program's process, or -1 with the reason in `error`.
pid_t startProgram(int &error)
{
    int errorPipe[2];
    const pid_t self = getpid();
    const pid_t child = pipe2(errorPipe, O_CLOEXEC) == 0 ? fork() : -1;
    if (child < 0) {
        error = errno;
        return -1;
    }
    if (child == 0)
        becomeProgram(self, errorPipe[1]);
    close(errorPipe[1]);
    const bool failed = read(errorPipe[0], &error, sizeof error) == sizeof error;
    close(errorPipe[0]);
    if (!failed)
        return child;
    waitpid(child, nullptr, 0);
    return -1;
}

// Collects what has ended; true while any child is left.
bool reap(Watch &watch)
{
    for (;;) {
        int status = 0;
        const pid_t child = waitpid(-1, &status, WNOHANG);
        if (child < 0)
            return errno != ECHILD;
        if (child == 0)
            return true;
        ++watch.collected;
        if (child == watch.child) {
            watch.ended = true;
            watch.endStatus = status;
        }
    }
}

Stop stopOf(const signalfd_siginfo &signal)
{
    switch (signal.ssi_signo) {
    case SIGCHLD:
        return Stop::None;
    case SIGUSR1:
        return Stop::AtOnce;
    default:
        return Stop::Gently;
    }
}

// Sleeps until something happens, `limitMs` at most (-1: no limit), and says what is asked for.
Stop nextEvent(const Watch &watch, bool withLifeline, int limitMs)
{
    pollfd sources[] = {{watch.signals, POLLIN, 0}, {withLifeline ? watch.lifeline : -1, POLLIN, 0}};
    if (poll(sources, 2, limitMs) < 0)
        return errno == EINTR ? Stop::None : Stop::AtOnce;
    signalfd_siginfo signal;
    if (sources[0].revents && read(watch.signals, &signal, sizeof signal) == sizeof signal
        && stopOf(signal) != Stop::None)
        return stopOf(signal);
    if (sources[1].revents)
        return watch.outer ? Stop::Gently : Stop::AtOnce;
    return Stop::None;
}

Stop waitForEnd(Watch &watch)
{
    while (!watch.ended) {
        const Stop stop = nextEvent(watch, true, -1);
        reap(watch);
        if (stop != Stop::None)
            return stop;
    }
    return Stop::None;
}

void askToEnd(const Watch &watch)
{
    // The outer guard leaves the asking to the inner one, or every program would be asked twice.
    if (watch.outer) {
        kill(watch.child, SIGTERM);
        kill(watch.child, SIGCONT);
        return;
    }
    for (const pid_t process : descendants()) {
        signalDescendant(process, SIGTERM);
        signalDescendant(process, SIGCONT);
    }
}

void endGently(Watch &watch)
{
    askToEnd(watch);
    const long deadline = nowMs() + options.graceMs + (watch.outer ? innerExtraMs : 0);
    while (reap(watch)) {
        const long left = deadline - nowMs();
        if (left <= 0 || nextEvent(watch, false, int(left)) == Stop::AtOnce)
            return;
    }
}

// Collects what ends within this time; true while any child is left.
bool reapFor(Watch &watch, long limitMs)
{
    const long deadline = nowMs() + limitMs;
    while (reap(watch)) {
        const long left = deadline - nowMs();
        if (left <= 0)
            return true;
        nextEvent(watch, false, int(left));
    }
    return false;
}

// All are stopped before the first is killed, until no new one shows up: a process that forks faster than it can be
// killed, or a shell that sees its child die, is not given a chance. The watched child comes last: as long as an
// inner guard is there, it ends the rest if this one is ended meanwhile. Returns all that were found.
std::unordered_set<pid_t> killAll(const Watch &watch)
{
    constexpr int roundsOfFreezing = 50;
    std::unordered_set<pid_t> frozen;
    for (int round = 0; round < roundsOfFreezing; ++round) {
        bool fresh = false;
        for (const pid_t process : descendants()) {
            if (frozen.insert(process).second) {
                fresh = true;
                signalDescendant(process, SIGSTOP);
            }
        }
        if (!fresh)
            break;
    }
    for (const pid_t process : frozen) {
        if (process != watch.child)
            signalDescendant(process, SIGKILL);
    }
    if (!watch.ended)
        kill(watch.child, SIGKILL); // Where /proc is missing, this one is known all the same.
    return frozen;
}

// True when all that is left is beyond reach. Processes that live too shortly to be seen show by being collected.
bool onlyBeyondReach(bool anyCollected)
{
    const std::vector<pid_t> left = descendants();
    if (left.empty())
        return !anyCollected;
    return std::all_of(left.begin(), left.end(), isBeyondReach);
}

// Ends everything that is left, however long it takes: on a busy machine what was killed still needs its turn on a
// processor to die. Only when nothing but processes beyond reach has been seen for a while are these reported and
// left behind.
void sweep(Watch &watch)
{
    constexpr long longestPauseMs = 64;
    std::unordered_set<pid_t> killed;
    std::unordered_set<pid_t> last;
    long pauseMs = 1;
    long givesUpAt = 0;
    bool left = reap(watch);
    while (left) {
        const size_t collected = watch.collected;
        std::unordered_set<pid_t> found = killAll(watch);
        // Looking again takes time from those that are about to die; what still forks is to be met soon.
        const bool dying = !found.empty() && std::ranges::all_of(found, [&](pid_t id) { return last.contains(id); });
        pauseMs = dying ? std::min(2 * pauseMs, longestPauseMs) : 1;
        left = reapFor(watch, pauseMs);
        killed.insert(found.begin(), found.end());
        last = std::move(found);
        if (!left || !onlyBeyondReach(watch.collected != collected))
            givesUpAt = 0;
        else if (givesUpAt == 0)
            givesUpAt = nowMs() + beyondReachLimitMs;
        else if (nowMs() >= givesUpAt)
            break;
    }
    if (!killed.empty())
        report("swept %zu\n", killed.size());
    if (left)
        report("survivors %zu\n", descendants().size());
}

// Ends this process as the child has ended, so that whoever started the guard sees the program's own end.
[[noreturn]] void endLike(const Watch &watch)
{
    if (watch.ended && WIFEXITED(watch.endStatus))
        _exit(WEXITSTATUS(watch.endStatus));
    const int number = watch.ended ? WTERMSIG(watch.endStatus) : SIGKILL;
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    signal(number, SIG_DFL);
    sigset_t set;
    sigfillset(&set);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(number);
    _exit(128 + number);
}

[[noreturn]] void lookAfter(Watch watch)
{
    if (waitForEnd(watch) == Stop::Gently)
        endGently(watch);
    sweep(watch);
    endLike(watch);
}

[[noreturn]] void runInnerGuard(int lifeline, int signals)
{
    int error = 0;
    const pid_t program = becomeGuard() ? startProgram(error) : -1;
    if (program < 0)
        _exit(notStarted(error ? error : errno));
    report("started %d\n", program);
    releaseStandardDescriptors();
    lookAfter({.outer = false, .child = program, .lifeline = lifeline, .signals = signals});
}

} // namespace

int main(int count, char **arguments)
{
    if (!parse(count, arguments)) {
        std::fputs("usage: vesk-guard [--lifeline FD] [--status FD] [--grace MS] -- PROGRAM [ARGUMENT...]\n", stderr);
        return exitWrongUse;
    }
    closeForeignDescriptors();
    const int signals = watchSignals();
    int tie[2]; // The life-line of the inner guard.
    if (signals < 0 || !becomeGuard() || pipe2(tie, O_CLOEXEC) != 0)
        return notStarted(errno);
    const pid_t inner = fork();
    if (inner < 0)
        return notStarted(errno);
    if (inner == 0) {
        close(tie[1]);
        if (options.lifeline >= 0)
            close(options.lifeline);
        runInnerGuard(tie[0], signals);
    }
    close(tie[0]);
    releaseStandardDescriptors();
    lookAfter({.outer = true, .child = inner, .lifeline = options.lifeline, .signals = signals});
}
