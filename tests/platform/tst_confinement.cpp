// What a confined process can no longer do, also where the kernel has no filters of system calls.

#include "confinement.h"
#include "sandbox.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

void refuseFilters()
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_prctl, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PR_SET_SECCOMP, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{sizeof filter / sizeof *filter, filter};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

bool connects()
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    return socket >= 0
        && (::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 || errno == ECONNREFUSED);
}

bool maps(size_t bytes, int protection)
{
    return ::mmap(nullptr, bytes, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) != MAP_FAILED;
}

bool forks()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    return child > 0;
}

/// Prints what of these things can be done after a confinement.
void tryEverything()
{
    vesk::confineToComputing();
    const auto note = [&](const char *name, bool works) {
        if (works)
            std::puts(name);
    };
    note("read", ::open("/etc/passwd", O_RDONLY) >= 0);
    ::close(0); // Room for a descriptor: what the limit of their number lets through is to be refused all the same.
    note("read at 0", ::open("/etc/passwd", O_RDONLY) >= 0);
    note("list", ::open("/", O_RDONLY | O_DIRECTORY) >= 0);
    note("write", ::open("/tmp/vesk-confined", O_WRONLY | O_CREAT, 0600) >= 0);
    note("connect", connects());
    note("rename", ::rename("/tmp/vesk-confined-not-there", "/tmp/vesk-confined") == 0 || errno == ENOENT);
    note("fork", forks());
    note("execute memory", maps(4096, PROT_READ | PROT_EXEC));
    note("600 MB", maps(size_t(600) << 20, PROT_READ | PROT_WRITE));
    note("100 MB", maps(size_t(100) << 20, PROT_READ | PROT_WRITE));
    std::fflush(stdout);
}

/// The same, from a process of its own.
QByteArrayList possible(const QString &how)
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {how});
    process.waitForFinished();
    return process.readAllStandardOutput().trimmed().split('\n');
}

} // namespace

class ConfinementTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aConfinedProcessOnlyComputes() { QCOMPARE(possible(u"--confined"_s), QByteArrayList{"100 MB"}); }

    void withoutFiltersTheOtherMeansHold()
    {
        QByteArrayList able = possible(u"--confined-without-filters"_s);
        able.removeAll("fork"); // The limit of processes does not hold for root.
        able.removeAll("rename"); // Is Landlock's since its second version.
        QCOMPARE(able, (QByteArrayList{"execute memory", "100 MB"}));
    }

    void whatNobodyStopsRunsOutOfTime()
    {
        const QString end = sandbox::inChild([]() -> QString {
            vesk::limitProcessorTime(30);
            vesk::limitProcessorTime(0);
            for (volatile int turns = 0;;)
                turns = turns + 1;
        });
        QCOMPARE(end, u"died of signal %1"_s.arg(SIGXCPU));
    }
};

int main(int count, char **arguments)
{
    const QByteArrayView first(count > 1 ? arguments[1] : "");
    if (first.startsWith("--confined")) {
        if (first.endsWith("without-filters"))
            refuseFilters();
        tryEverything();
        return 0;
    }
    QCoreApplication application(count, arguments);
    ConfinementTest test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_confinement.moc"
