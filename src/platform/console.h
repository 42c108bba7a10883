#pragma once

#include <QString>

namespace vesk {

/// The terminal or the pipes that the process was started with.

/// True when a person can answer on standard input.
bool canAsk();

/// True when there is a screen to open a window on.
bool hasDisplay();

/// Writes the text as UTF-8 with a line end, at once. A reader that has gone away is no error.
void printLine(const QString &text);
void printErrorLine(const QString &text);

} // namespace vesk
