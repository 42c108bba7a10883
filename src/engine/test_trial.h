#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

struct Node;

// A test that asserts nothing passes whatever becomes of the program. It gives itself away when it is run once more in
// a copy of the project in which the files under test are empty. Only what is surely such a test may be told of, so
// each doubt here means that it is not tried.

/// A test that is to be tried so.
struct Trial {
    QString node; ///< The id of its check.
    QList<QJsonObject> commands; ///< Inputs of nodes: the builds that went before, then the test.
    QStringList named; ///< Lower-case names that its command line holds: such files belong to the test.
};

/// Of the tests of the project that have passed and can fail, at most three. A command that names a folder elsewhere
/// is none: it would not work in the copy.
QList<Trial> trialsOf(const QList<Node> &nodes, const QJsonObject &package, const QString &root);

/// What becomes of a file in the copy.
enum class TrialFile {
    Kept, ///< It tests, or tells the tools what to do.
    Emptied,
    Mixed, ///< Tests stand in it beside what may be under test: there is nothing to be found out.
};
TrialFile fileInTrial(const QString &path, const QString &text, const QStringList &named);

/// Whether a file is the source of a program or of a page.
bool isSource(const QString &path);

/// The same command for the copy: paths of the project become the copy's, and no more time than a multiple of what it
/// took at first.
QJsonObject movedCommand(const QJsonObject &command, qint64 tookMs, const QString &root, const QString &copy);

} // namespace vesk
