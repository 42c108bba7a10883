#pragma once

#include <QString>

#include <optional>

namespace vesk {

/// The terminal or the pipes that the process was started with.

/// Gives every standard descriptor that the process was started without the null device. To be called first of all: the
/// next file to be opened would get its number, and everything that is printed.
void ensureStandardStreams();

/// The descriptor that a notifier for answers watches.
constexpr int standardInput = 0;

/// True when a person can read a question on standard error and answer it on standard input.
bool canAsk();

/// Forgets what has been typed on the terminal: an answer counts only after its question.
void dropTyped();

/// What has been typed: a line, since the terminal gives no less. Empty without a value at the end of input.
std::optional<QString> readAnswer();

/// True when there is a screen to open a window on.
bool hasDisplay();

/// Writes the text as UTF-8 with a line end, at once. A reader that has gone away is no error. What could move a
/// terminal's cursor or hide text on it (the text may come from a model) reaches no terminal.
void printLine(const QString &text);
void printErrorLine(const QString &text);
/// Whether something that was to be printed on standard output is lost, for another reason than a reader that has gone.
bool printingFailed();

} // namespace vesk
