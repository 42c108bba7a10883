// A program for tests, that behaves as badly as it is told to.

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

[[noreturn]] void waitForEver()
{
    for (;;)
        pause();
}

void ignoreAll()
{
    for (const int number : {SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGPIPE})
        signal(number, SIG_IGN);
}

void closeAll()
{
    for (int descriptor = 0; descriptor < 256; ++descriptor)
        close(descriptor);
}

struct Stat {
    char state = 0;
    int parent = 0;
};

Stat statOf(pid_t process)
{
    const std::string path = "/proc/" + std::to_string(process) + "/stat";
    FILE *file = std::fopen(path.c_str(), "r");
    Stat found;
    if (!file || std::fscanf(file, "%*d (%*[^)]) %c %d", &found.state, &found.parent) != 2)
        std::exit(70);
    std::fclose(file);
    return found;
}

// A process whose parent is gone, in a session of its own, deaf to signals and without any descriptor.
void makeDaemon()
{
    int ready[2];
    if (pipe(ready) != 0)
        std::exit(70);
    const pid_t between = fork();
    if (between == 0) {
        setsid();
        if (fork() == 0) {
            setsid();
            ignoreAll();
            closeAll();
            waitForEver();
        }
        _exit(0);
    }
    close(ready[1]);
    waitpid(between, nullptr, 0);
    char byte;
    (void)!read(ready[0], &byte, 1); // Its end is closed when the daemon has closed everything.
    close(ready[0]);
}

// A process that looks like a zombie, as its first thread has ended. Its number is written out.
void leaveThread()
{
    const pid_t child = fork();
    if (child == 0) {
        std::thread(waitForEver).detach();
        pthread_exit(nullptr);
    }
    while (statOf(child).state != 'Z')
        usleep(1000);
    std::printf("%d", child);
}

void grow(int breadth, int depth)
{
    for (int child = 0; child < breadth; ++child) {
        if (fork() != 0)
            continue;
        if (child % 3 == 0)
            setsid();
        if (depth > 1)
            grow(breadth, depth - 1);
        waitForEver();
    }
}

// Each process of the chain starts its successor in a new session and ends.
void hop(int chains)
{
    for (int chain = 0; chain < chains; ++chain) {
        if (fork() != 0)
            continue;
        for (;;) {
            if (fork() != 0)
                _exit(0);
            setsid();
        }
    }
}

// All processes fork whenever there are fewer than `most`, and now and then one ends and makes room. The first stays:
// it is the program, with which all would be over. A place is taken before the fork; if each child counted itself, a
// busy machine would fork thousands before the first of them has run.
void bomb(int most)
{
    void *shared = mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto &alive = *new (shared) std::atomic<int>(1);
    const pid_t first = getpid();
    for (int turn = first;; ++turn) {
        if (alive.fetch_add(1) >= most) {
            --alive;
            usleep(1000);
            continue;
        }
        const pid_t child = fork();
        if (child < 0)
            --alive;
        if (child > 0 && turn % 16 == 0 && getpid() != first && alive > most / 2) {
            --alive;
            _exit(0);
        }
    }
}

void writeWhole(int descriptor, const std::string &text)
{
    for (size_t written = 0; written < text.size();) {
        const ssize_t count = write(descriptor, text.data() + written, text.size() - written);
        if (count < 0)
            std::exit(71);
        written += size_t(count);
    }
}

// `prefix`, then `text` again and again until `bytes` are written.
void flood(int descriptor, const std::string &prefix, const std::string &text, size_t bytes)
{
    std::string block;
    while (block.size() < 65536)
        block += text;
    writeWhole(descriptor, prefix);
    for (size_t written = prefix.size(); written < bytes; written += block.size()) {
        if (bytes - written < block.size())
            block.resize(bytes - written);
        writeWhole(descriptor, block);
    }
}

void listDescriptors()
{
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0)
            std::printf("%d ", descriptor);
    }
}

int number(char **arguments, int index)
{
    return std::atoi(arguments[index]);
}

} // namespace

int main(int count, char **arguments)
{
    const std::string what = count > 1 ? arguments[1] : "";
    const pid_t guard = getppid();
    if (what == "daemon") { // EXIT_CODE: leaves a daemon behind and ends.
        makeDaemon();
        return number(arguments, 2);
    }
    if (what == "grow") { // BREADTH DEPTH
        ignoreAll();
        grow(number(arguments, 2), number(arguments, 3));
    } else if (what == "hop") { // CHAINS
        hop(number(arguments, 2));
    } else if (what == "leave-thread") {
        leaveThread();
        return 0;
    } else if (what == "bomb") { // MOST
        bomb(number(arguments, 2));
    } else if (what == "kill-inner-guard") {
        makeDaemon();
        kill(guard, SIGKILL);
    } else if (what == "kill-outer-guard") {
        makeDaemon();
        kill(statOf(guard).parent, SIGKILL);
    } else if (what == "stop-guards") {
        makeDaemon();
        kill(statOf(guard).parent, SIGSTOP);
        kill(guard, SIGSTOP);
    } else if (what == "stop-itself") {
        makeDaemon();
        kill(getpid(), SIGSTOP);
    } else if (what == "close-all") {
        makeDaemon();
        closeAll();
    } else if (what == "flood") { // DESCRIPTOR PREFIX TEXT BYTES
        flood(number(arguments, 2), arguments[3], arguments[4], size_t(std::atoll(arguments[5])));
        return 0;
    } else if (what == "descriptors") {
        listDescriptors();
        return 0;
    } else if (what == "session") {
        std::printf("%d", getsid(0) == getpid());
        return 0;
    } else {
        return 64;
    }
    waitForEver();
}
