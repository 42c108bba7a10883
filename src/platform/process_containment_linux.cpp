// A program in a guard that ends all it has started.

#include "process_containment.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTimer>

#include <csignal>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

// What the programs get between SIGTERM and SIGKILL when this process is gone without having ended them.
constexpr int graceMs = 500;
constexpr int wakeAgainMs = 200;

QString chosenGuard;

QString guardPath()
{
    return chosenGuard.isEmpty() ? QCoreApplication::applicationDirPath() + "/vesk-guard"_L1 : chosenGuard;
}

} // namespace

void ProcessContainment::useGuard(const QString &path)
{
    chosenGuard = path;
}

QString ProcessContainment::prepare(QProcess &process, const QString &program, const QStringList &arguments)
{
    const QString guard = guardPath();
    if (!QFileInfo(guard).isFile() || ::access(QFile::encodeName(guard).constData(), X_OK) != 0)
        return u"Cannot create process job"_s;
    if (!open(lifeline))
        return u"Cannot set process job limits"_s;
    if (!open(status) || ::fcntl(status.read.get(), F_SETFL, O_NONBLOCK) != 0)
        return u"Cannot initialize process attributes"_s;
    if (!liftAboveStandard(lifeline.read) || !liftAboveStandard(status.write))
        return u"Cannot assign process job attribute"_s;

    process.setProgram(guard);
    process.setArguments(QStringList{u"--lifeline"_s, QString::number(lifeline.read.get()), u"--status"_s,
                                     QString::number(status.write.get()), u"--grace"_s, QString::number(graceMs),
                                     u"--"_s, program}
                         + arguments);
    // A session of its own keeps a Ctrl-C in the terminal from the guard: whether its program ends is decided here.
    process.setUnixProcessParameters(QProcess::UnixProcessFlag::CreateNewSession | QProcess::UnixProcessFlag::UseVFork);
    process.setChildProcessModifier([self = shared_from_this()] {
        ::fcntl(self->lifeline.read.get(), F_SETFD, 0);
        ::fcntl(self->status.write.get(), F_SETFD, 0);
    });
    return {};
}

void ProcessContainment::end(QProcess &process)
{
    const auto guard = pid_t(process.processId());
    if (guard <= 0)
        return;
    ::kill(guard, SIGUSR1);
    ::kill(guard, SIGCONT);
    // A program that stops its guard may do so a moment later as well.
    auto *again = new QTimer(&process);
    QObject::connect(again, &QTimer::timeout, &process, [&process, guard] {
        if (process.processId() == guard)
            ::kill(guard, SIGCONT);
    });
    QObject::connect(&process, &QProcess::finished, again, &QObject::deleteLater);
    again->start(wakeAgainMs);
}

void ProcessContainment::deleteWhenEnded(QProcess *process)
{
    if (process->state() == QProcess::NotRunning)
        return process->deleteLater();
    QObject::connect(process, &QProcess::stateChanged, process, [process](QProcess::ProcessState state) {
        if (state == QProcess::NotRunning)
            process->deleteLater();
    });
}

bool ProcessContainment::failedToStart()
{
    char bytes[512];
    for (ssize_t length; status.read && (length = ::read(status.read.get(), bytes, sizeof bytes)) > 0;)
        statusText.append(bytes, length);
    return statusText.startsWith("failed ");
}

bool ProcessContainment::open(Pipe &pipe)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return false;
    pipe = {Descriptor(ends[0]), Descriptor(ends[1])};
    return true;
}

// Where this process was started without standard descriptors, a pipe may have got one of their numbers, which in the
// child stand for the program's input and output.
bool ProcessContainment::liftAboveStandard(Descriptor &descriptor)
{
    Descriptor lifted(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!lifted)
        return false;
    descriptor = std::move(lifted);
    return true;
}

} // namespace vesk
