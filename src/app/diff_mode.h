#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace vesk {

class Workspace;
struct HandEdit;

/// What "--diff" was asked to show.
struct DiffOptions {
    QString path; ///< One file; empty for all that a task has changed.
    QString projectFolder; ///< Absolute.
    QString task; ///< Empty for the last one.
    int from = -1; ///< Revision; below 0 the one before `to`, 0 is no file.
    int to = -1; ///< Below 0 the newest.
    bool edits = false; ///< What the user has changed, instead of what a task has.
};

/// Reads the arguments of "--diff". Throws std::runtime_error with a text for people.
DiffOptions parseDiffOptions(const QStringList &arguments);

/// An edited file against its record, as a unified diff; of one that can't be read what is to be said of it. Throws
/// std::runtime_error.
QByteArray differenceOf(const Workspace &workspace, const HandEdit &edit);

/// Prints the differences on standard output, as `patch -p1` applies them; the exit code of the process. Throws
/// std::runtime_error.
int printDifferences(const DiffOptions &options, const QString &dataFolder);

} // namespace vesk
