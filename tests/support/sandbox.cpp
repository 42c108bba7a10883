#include "sandbox.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace sandbox {

namespace {

bool put(const char *path, const QByteArray &text)
{
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    const bool isPut = file >= 0 && ::write(file, text.constData(), size_t(text.size())) == text.size();
    ::close(file);
    return isPut;
}

} // namespace

QString inChild(const std::function<QString()> &work)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return u"no pipe"_s;
    const pid_t child = ::fork();
    if (child == 0) {
        QByteArray text;
        try {
            text = work().toUtf8();
        } catch (const std::exception &error) {
            text = QByteArray("threw: ") + error.what();
        }
        (void)!::write(ends[1], text.constData(), size_t(text.size()));
        ::_exit(0);
    }
    ::close(ends[1]);
    QByteArray text;
    char part[4096];
    for (ssize_t size; (size = ::read(ends[0], part, sizeof part)) > 0;)
        text.append(part, size);
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? u"died of signal %1"_s.arg(WTERMSIG(status)) : QString::fromUtf8(text);
}

bool haveOwnMounts()
{
    const QByteArray user = QByteArray::number(::geteuid());
    const QByteArray group = QByteArray::number(::getegid());
    if (::unshare(CLONE_NEWNS) != 0) {
        // Who isn't root may be it in a user namespace of his own.
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !put("/proc/self/setgroups", "deny")
            || !put("/proc/self/uid_map", "0 " + user + " 1") || !put("/proc/self/gid_map", "0 " + group + " 1"))
            return false;
    }
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool behaveLikeAnOldKernel()
{
    constexpr quint32 number = offsetof(seccomp_data, nr);
    constexpr quint32 arguments = offsetof(seccomp_data, args); // Of eight bytes, the low half first.
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, number),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),

        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 5),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, arguments + 2 * 8), // Its flags.
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, O_TMPFILE),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, O_TMPFILE, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),

        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, arguments + 4 * 8), // Its flags.
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{sizeof filter / sizeof *filter, filter};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool obey(int &count, char *arguments[])
{
    if (count < 2 || QByteArrayView(arguments[1]) != "--old-kernel")
        return true;
    std::copy(arguments + 2, arguments + count + 1, arguments + 1);
    --count;
    return behaveLikeAnOldKernel();
}

QString memoryTemplate()
{
    const QFileInfo memory(u"/dev/shm"_s);
    return (memory.isDir() && memory.isWritable() ? memory.filePath() : QDir::tempPath()) + u"/vesk-XXXXXX"_s;
}

} // namespace sandbox
