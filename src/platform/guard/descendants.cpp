// All processes that come of one, found and ended.

#include "descendants.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Process {
    pid_t parent = 0;
    char state = '?';
    int threads = 0;
};

// A process whose first thread has ended looks like a zombie, but lives on with the others.
bool isAlive(const Process &process)
{
    return process.state != 'Z' || process.threads > 1;
}

bool readStat(const char *path, Process &process)
{
    char text[512];
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    if (length <= 0)
        return false;
    text[length] = 0;
    // The name stands in brackets and may hold blanks and brackets itself.
    const char *afterName = std::strrchr(text, ')');
    constexpr auto format
        = " %c %d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %d"; // Fields 3, 4 and 20.
    return afterName && std::sscanf(afterName + 1, format, &process.state, &process.parent, &process.threads) == 3;
}

bool readProcess(pid_t id, Process &process)
{
    char path[40];
    std::snprintf(path, sizeof path, "/proc/%d/stat", id);
    return readStat(path, process);
}

std::unordered_map<pid_t, std::vector<pid_t>> childrenOfAll(std::unordered_set<pid_t> &alive)
{
    std::unordered_map<pid_t, std::vector<pid_t>> children;
    DIR *folder = opendir("/proc");
    if (!folder)
        return children;
    while (const dirent *entry = readdir(folder)) {
        const pid_t id = std::atoi(entry->d_name);
        Process process;
        if (id > 0 && readProcess(id, process)) {
            children[process.parent].push_back(id);
            if (isAlive(process))
                alive.insert(id);
        }
    }
    closedir(folder);
    return children;
}

bool isDescendant(pid_t id)
{
    const pid_t self = getpid();
    // While it is walked, the chain can change under us and in theory run in a circle.
    for (int steps = 0; steps < 100000 && id > 1; ++steps) {
        Process process;
        if (!readProcess(id, process))
            return false;
        if (process.parent == self)
            return true;
        id = process.parent;
    }
    return false;
}

bool hangsInKernel(pid_t process)
{
    char path[60];
    std::snprintf(path, sizeof path, "/proc/%d/task", process);
    DIR *folder = opendir(path);
    if (!folder)
        return false;
    bool hangs = false;
    bool runs = false;
    while (const dirent *entry = readdir(folder)) {
        Process thread;
        std::snprintf(path, sizeof path, "/proc/%d/task/%d/stat", process, std::atoi(entry->d_name));
        if (entry->d_name[0] == '.' || !readStat(path, thread))
            continue;
        hangs = hangs || thread.state == 'D';
        runs = runs || !std::strchr("DZX", thread.state);
    }
    closedir(folder);
    return hangs && !runs;
}

} // namespace

std::vector<pid_t> descendants()
{
    std::unordered_set<pid_t> alive;
    const auto children = childrenOfAll(alive);
    std::vector<pid_t> found;
    std::vector<pid_t> open{getpid()};
    while (!open.empty()) {
        const auto below = children.find(open.back());
        open.pop_back();
        if (below == children.end())
            continue;
        for (const pid_t id : below->second) {
            open.push_back(id);
            if (alive.contains(id))
                found.push_back(id);
        }
    }
    return found;
}

void signalDescendant(pid_t process, int signal)
{
    // First the handle, then the question whose it is: what the handle stands for can't change any more.
    const int handle = int(syscall(SYS_pidfd_open, process, 0));
    if (handle >= 0) {
        if (isDescendant(process))
            syscall(SYS_pidfd_send_signal, handle, signal, nullptr, 0);
        close(handle);
    } else if (errno != ESRCH && isDescendant(process)) {
        kill(process, signal); // No handles in this kernel, or none left.
    }
}

bool isBeyondReach(pid_t process)
{
    const bool foreign = kill(process, 0) != 0 && errno == EPERM;
    return foreign || hangsInKernel(process);
}
