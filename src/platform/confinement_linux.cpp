// What a process that runs foreign code gives up: by limits, by Landlock and by a filter of system calls.

#include "confinement.h"

#include <QtGlobal>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <vector>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vesk {

namespace {

constexpr rlim_t addressSpaceBytes = rlim_t(512) << 20;
constexpr rlim_t descriptors = 3; // The standard ones; one more cannot be opened.

#if defined(__SANITIZE_ADDRESS__)
constexpr bool addressesCanBeCounted = false; // The checks take terabytes of them for themselves.
#else
constexpr bool addressesCanBeCounted = true;
#endif

#if defined(__x86_64__)
constexpr quint32 architecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr quint32 architecture = AUDIT_ARCH_AARCH64;
#else
constexpr quint32 architecture = 0; // No filter: the numbers of its calls are not known here.
#endif

void limit(__rlimit_resource resource, rlim_t most)
{
    rlimit now{};
    ::getrlimit(resource, &now);
    if (now.rlim_max != RLIM_INFINITY && now.rlim_max < most)
        return;
    const rlimit wanted{most, most};
    ::setrlimit(resource, &wanted);
}

void limitResources()
{
    if (addressesCanBeCounted)
        limit(RLIMIT_AS, addressSpaceBytes);
    limit(RLIMIT_NOFILE, descriptors);
    limit(RLIMIT_NPROC, 0);
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_MEMLOCK, 0);
}

/// The kernel's landlock_ruleset_attr as of its sixth version; an older one is told of its first fields alone.
struct LandlockRules {
    quint64 files = 0;
    quint64 network = 0;
    quint64 scope = 0;
};

/// Handles every right there is and grants none.
LandlockRules rulesOf(long version)
{
    LandlockRules rules;
    const int fileRights = version >= 5 ? 16 : version >= 3 ? 15 : version == 2 ? 14 : 13;
    rules.files = (1U << fileRights) - 1;
    rules.network = version >= 4 ? 0b11 : 0; // TCP: to bind, to connect.
    rules.scope = version >= 6 ? 0b11 : 0; // Abstract sockets and signals to processes outside.
    return rules;
}

size_t sizeOfRules(long version)
{
    return version >= 6 ? sizeof(LandlockRules) : version >= 4 ? 2 * sizeof(quint64) : sizeof(quint64);
}

void forbidFiles()
{
    constexpr unsigned askVersion = 1;
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, askVersion);
    if (version < 1)
        return;
    const LandlockRules rules = rulesOf(version);
    const long ruleset = ::syscall(SYS_landlock_create_ruleset, &rules, sizeOfRules(version), 0);
    if (ruleset < 0)
        return;
    ::syscall(SYS_landlock_restrict_self, ruleset, 0);
    ::close(int(ruleset));
}

/// That an argument of a system call, as far as the mask goes, has this value. Only its low half is looked at: all
/// arguments asked about here are ints to the kernel.
struct Condition {
    quint32 argument;
    quint32 mask;
    quint32 value;
};

struct AllowedCall {
    long number;
    std::vector<Condition> conditions = {};
};

constexpr quint32 whole = ~0U;

/// What computing, allocating, reading the request, writing the answer and dying take.
std::vector<AllowedCall> allowedCalls()
{
    const Condition notExecutable{2, PROT_EXEC, 0};
    return {
        {SYS_read, {{0, whole, STDIN_FILENO}}},
        {SYS_write, {{0, whole, STDOUT_FILENO}}},
        {SYS_write, {{0, whole, STDERR_FILENO}}},
        {SYS_writev, {{0, whole, STDERR_FILENO}}},
        {SYS_mmap, {notExecutable}},
        {SYS_mprotect, {notExecutable}},
        {SYS_munmap},
        {SYS_mremap},
        {SYS_madvise},
        {SYS_brk},
        {SYS_futex},
        {SYS_clock_gettime},
        {SYS_gettimeofday},
        {SYS_getrandom},
        {SYS_getrusage},
        {SYS_getpid},
        {SYS_gettid},
        {SYS_tgkill, {{0, whole, quint32(::getpid())}}}, // abort() does it to itself.
        {SYS_rt_sigaction},
        {SYS_rt_sigprocmask},
        {SYS_rt_sigreturn},
        {SYS_sigaltstack},
        {SYS_restart_syscall},
        {SYS_prlimit64, {{0, whole, 0}, {1, whole, RLIMIT_CPU}}},
        {SYS_close},
        {SYS_exit},
        {SYS_exit_group},
    };
}

sock_filter load(size_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, quint32(offset));
}

sock_filter answer(quint32 action)
{
    return BPF_STMT(BPF_RET | BPF_K, action);
}

/// Goes on with the next step when what is loaded has this value, else leaves out `others` steps.
sock_filter onlyIf(quint32 value, size_t others)
{
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, quint8(others));
}

void append(std::vector<sock_filter> &filter, const AllowedCall &call)
{
    constexpr size_t stepsOfCondition = 3;
    size_t left = call.conditions.size() * stepsOfCondition + 1;
    filter.push_back(load(offsetof(seccomp_data, nr)));
    filter.push_back(onlyIf(quint32(call.number), left));
    for (const Condition &condition : call.conditions) {
        left -= stepsOfCondition;
        filter.push_back(load(offsetof(seccomp_data, args) + condition.argument * sizeof(quint64)));
        filter.push_back(BPF_STMT(BPF_ALU | BPF_AND | BPF_K, condition.mask));
        filter.push_back(onlyIf(condition.value, left));
    }
    filter.push_back(answer(SECCOMP_RET_ALLOW));
}

/// Any other call fails as one that is not permitted, which libraries take better than being killed.
void filterCalls()
{
    if (architecture == 0)
        return;
    std::vector<sock_filter> filter{load(offsetof(seccomp_data, arch)), onlyIf(architecture, 1),
                                    BPF_STMT(BPF_JMP | BPF_JA, 1), answer(SECCOMP_RET_KILL_PROCESS)};
    for (const AllowedCall &call : allowedCalls())
        append(filter, call);
    filter.push_back(answer(SECCOMP_RET_ERRNO | EPERM));
    const sock_fprog program{quint16(filter.size()), filter.data()};
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

} // namespace

void confineToComputing()
{
    ::tzset();
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    forbidFiles();
    limitResources();
    filterCalls();
}

void limitProcessorTime(int seconds)
{
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    rlimit most{};
    ::getrlimit(RLIMIT_CPU, &most);
    most.rlim_cur = std::min(rlim_t(used.ru_utime.tv_sec + used.ru_stime.tv_sec + 1 + seconds), most.rlim_max);
    ::setrlimit(RLIMIT_CPU, &most);
}

} // namespace vesk
