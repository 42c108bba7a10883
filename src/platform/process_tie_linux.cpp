// A child that the kernel kills when this process dies.

#include "process_tie.h"

#include <QProcess>

#include <csignal>

#include <sys/prctl.h>
#include <unistd.h>

namespace vesk {

void endWithThisProcess(QProcess &process)
{
    process.setUnixProcessParameters(QProcess::UnixProcessFlag::UseVFork);
    process.setChildProcessModifier([parent = ::getpid()] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The parent may have died before the kernel knew what to do then.
        if (::getppid() != parent)
            ::_exit(1);
    });
}

} // namespace vesk
