#pragma once

#include "descriptor.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

class QProcess;

namespace vesk {

/// Keeps one program and everything it starts together: when the last holder lets go, or this process dies, the whole
/// tree is killed. Held by the QProcess that runs the program, and by whoever asks about it.
///
/// The program runs below a small program of ours, the guard (docs/processes.md). The QProcess ends as the program has
/// ended, with the same exit code or signal, but only when nothing of its tree is left that SIGKILL can reach.
class ProcessContainment : public std::enable_shared_from_this<ProcessContainment> {
public:
    ProcessContainment() = default;
    ProcessContainment(const ProcessContainment &) = delete;
    ProcessContainment &operator=(const ProcessContainment &) = delete;

    /// Sets another guard than "vesk-guard" beside the application's executable.
    static void useGuard(const QString &path);

    /// Makes `process` run `program`, an absolute path, with these arguments inside this containment; starting it is
    /// left to the caller. Returns an empty text, or which step has failed: "Cannot create process job",
    /// "Cannot set process job limits", "Cannot initialize process attributes" or
    /// "Cannot assign process job attribute". To be called once; needs this object in a shared pointer.
    [[nodiscard]] QString prepare(QProcess &process, const QString &program, const QStringList &arguments);

    /// Kills a program that was prepared by a containment, with all its tree. `process` ends soon after, by signal 9.
    static void end(QProcess &process);

    /// Deletes a process once it has ended: deleting one that still runs would wait for it.
    static void deleteWhenEnded(QProcess *process);

    /// True when the guard could not execute the program. The reason is then in the standard error of the process.
    /// Known for certain once the process has ended.
    bool failedToStart();

private:
    struct Pipe {
        Descriptor read;
        Descriptor write;
    };
    static bool open(Pipe &pipe);
    static bool liftAboveStandard(Descriptor &descriptor);

    Pipe lifeline; ///< Nothing is ever written to it; the guard waits for its end of file.
    Pipe status; ///< Lines of the guard.
    QByteArray statusText;
};

} // namespace vesk
