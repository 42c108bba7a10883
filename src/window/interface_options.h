#pragma once

class QQmlApplicationEngine;
class QQuickWindow;

namespace vesk {

class Backend;
class CommandLine;

/// What the command line asks of the window once it is loaded.

/// True when nobody sits before the window: it is to look the same each time, and nothing of it is remembered.
bool isUnattended(const CommandLine &line);

/// The first root object, or null when it is not a window.
QQuickWindow *firstWindow(const QQmlApplicationEngine &engine);

/// "--settings", "--settings-agent" and "--compact-ui", in this order.
void applyWindowOptions(const CommandLine &line, const QQmlApplicationEngine &engine);

/// "--attach-file", "--smoke-test" and "--screenshot". The last two end the event loop, whichever comes first.
void armTimedOptions(const CommandLine &line, const QQmlApplicationEngine &engine, Backend &backend);

} // namespace vesk
