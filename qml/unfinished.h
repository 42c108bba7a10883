#pragma once

#include <QQmlEngine>
#include <QQmlIncubationController>

namespace vesk {

/// Completes what the loaders of the window are making piece by piece. To be called before the engine goes: Qt takes
/// what is left unfinished for a fault and says so on standard error. Two seconds at most.
inline void finishLoaders(const QQmlEngine &engine)
{
    if (QQmlIncubationController *making = engine.incubationController())
        making->incubateFor(2000);
}

} // namespace vesk
