#pragma once

#include <QList>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

/// While it lives, this process has only `left` free descriptors.
class FewDescriptors {
public:
    explicit FewDescriptors(int left)
    {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit limit{200, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
        for (int taken; (taken = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            occupied.append(taken);
        for (int freed = 0; freed < left; ++freed)
            ::close(occupied.takeLast());
    }
    ~FewDescriptors()
    {
        for (const int taken : std::as_const(occupied))
            ::close(taken);
        setrlimit(RLIMIT_NOFILE, &before);
    }
    Q_DISABLE_COPY_MOVE(FewDescriptors)

private:
    rlimit before{};
    QList<int> occupied;
};
