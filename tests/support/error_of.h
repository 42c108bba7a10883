#pragma once

#include "helpers.h"

#include <functional>

/// The text of what `work` throws; empty when it does not.
inline QString errorOf(const std::function<void()> &work)
{
    try {
        work();
    } catch (const std::runtime_error &error) {
        return vesk::textOf(error);
    }
    return {};
}
