#pragma once

// What the program calls in the libraries that it loads only when they are needed. Declared once: a loaded symbol has
// no type of its own that a compiler could check.

class QString;

namespace vesk {
class CommandLine;
}

extern "C" {

/// The window, until it is closed; gives the program's exit code.
int veskInterface(int argc, char **argv);
/// The modes that do what the window would do.
int veskDriveBackend(const vesk::CommandLine *line, const QString *dataFolder);
/// A media job, given as JSON.
int veskMediaJob(const char *job);
/// The background's worker. Does not come back.
void veskBackgroundWorker();
}
