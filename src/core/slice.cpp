// What the works of one picture's time have taken together.

#include "slice.h"

#include <algorithm>

namespace vesk {

namespace {

constexpr qint64 millisecond = 1000000;
constexpr qint64 picture = 16 * millisecond;
constexpr qint64 share = 8 * millisecond;

struct Window {
    QElapsedTimer since;
    qint64 used = 0;
};

Window &window()
{
    static Window current;
    return current;
}

} // namespace

Slice::Slice()
{
    Window &now = window();
    if (!now.since.isValid() || now.since.nsecsElapsed() >= picture) {
        now.since.start();
        now.used = 0;
    }
    nanoseconds = std::max(share - now.used, millisecond);
    clock.start();
}

Slice::~Slice()
{
    window().used += clock.nsecsElapsed();
}

} // namespace vesk
