// What a confined process can no longer do, also where the kernel has no filters of system calls.

#include "confinement.h"

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
    const sockaddr_in address{
        .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    return socket >= 0
        && (::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0
            || errno == ECONNREFUSED);
}

bool maps(size_t megabytes, int protection)
{
    return ::mmap(nullptr, megabytes << 20, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)
        != MAP_FAILED;
}

/// Prints what of these things can be done after a confinement. Standard input is closed on the way: what the limit of
/// descriptors lets through then is to be refused all the same.
int tryEverything()
{
    vesk::confineToComputing();
    const auto note = [](const char *name, bool works) { works ? std::puts(name) : 0; };
    note("descriptor", ::dup(STDOUT_FILENO) >= 0);
    ::close(STDIN_FILENO);
    note("read", ::open("/etc/passwd", O_RDONLY) >= 0);
    note("write", ::open("/tmp/vesk-confined", O_WRONLY | O_CREAT, 0600) >= 0);
    note("connect", connects());
    note("execute memory", maps(1, PROT_READ | PROT_EXEC));
#if !defined(__SANITIZE_ADDRESS__) // The checks need all the addresses that there are.
    note("600 MB", maps(600, PROT_READ | PROT_WRITE));
#endif
    note("100 MB", maps(100, PROT_READ | PROT_WRITE));
    const pid_t child = ::fork();
    note("fork", child > 0);
    if (child != 0)
        std::fflush(stdout);
    ::_exit(0);
}

/// Runs for ever, as far as it may.
int run()
{
    vesk::limitProcessorTime(30);
    vesk::limitProcessorTime(0);
    for (volatile unsigned turns = 0;;)
        turns = turns + 1;
}

} // namespace

class ConfinementTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aConfinedProcessOnlyComputes_data()
    {
        QTest::addColumn<QByteArrayList>("possible");
        // The limit of processes does not hold for root, so that "fork" is the filters' alone.
        QTest::newRow("--confined") << QByteArrayList{"100 MB"};
        QTest::newRow("--confined-without-filters") << QByteArrayList{"execute memory", "100 MB"};
        QTest::newRow("--run") << QByteArrayList{""};
    }
    void aConfinedProcessOnlyComputes()
    {
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(QTest::currentDataTag())});
        QVERIFY(process.waitForFinished());
        QByteArrayList possible = process.readAllStandardOutput().trimmed().split('\n');
        if (qstrcmp(QTest::currentDataTag(), "--confined-without-filters") == 0)
            possible.removeAll("fork");
        QTEST(possible, "possible");
        QCOMPARE(process.exitCode(), qstrcmp(QTest::currentDataTag(), "--run") == 0 ? SIGXCPU : 0);
    }
};

int main(int count, char **arguments)
{
    const QByteArrayView first(count > 1 ? arguments[1] : "");
    if (first == "--run")
        return run();
    if (first == "--confined-without-filters")
        refuseFilters();
    if (first.startsWith("--confined"))
        return tryEverything();
    QCoreApplication application(count, arguments);
    ConfinementTest test;
    return QTest::qExec(&test, count, arguments);
}

#include "tst_confinement.moc"
