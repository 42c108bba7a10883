// Which mappings hold nothing but what stands in their files, by proc_pid_smaps(5).

#include "start_memory.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <sys/mman.h>

namespace vesk {

namespace {

struct Mapping {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    bool ofFile = false;
    /// Some pages are the process' own by now: relocated addresses, changed data. They would be lost.
    bool changed = false;
};

bool beginsMapping(const std::string &line, Mapping &mapping)
{
    int path = 0;
    char rights[5] = {};
    Mapping read;
    if (std::sscanf(line.c_str(), "%zx-%zx %4s %*s %*s %*s %n", &read.begin, &read.end, rights, &path) != 3)
        return false;
    read.ofFile = path > 0 && line[size_t(path)] == '/' && rights[1] == '-' && rights[3] == 'p';
    mapping = read;
    return true;
}

bool tellsOfChange(const std::string &line)
{
    size_t kilobytes = 0;
    return std::sscanf(line.c_str(), "Anonymous: %zu", &kilobytes) == 1 && kilobytes > 0;
}

std::vector<Mapping> mappings()
{
    std::vector<Mapping> all;
    std::ifstream file("/proc/self/smaps");
    for (std::string line; std::getline(file, line);) {
        if (Mapping mapping; beginsMapping(line, mapping))
            all.push_back(mapping);
        else if (!all.empty() && tellsOfChange(line))
            all.back().changed = true;
    }
    return all;
}

} // namespace

void releaseStartMemory()
{
    for (const Mapping &mapping : mappings()) {
        if (!mapping.ofFile || mapping.changed)
            continue;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses come as numbers here.
        ::madvise(reinterpret_cast<void *>(mapping.begin), mapping.end - mapping.begin, MADV_DONTNEED);
    }
}

} // namespace vesk
