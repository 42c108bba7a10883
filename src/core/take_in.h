#pragma once

#include "confined_folder.h"
#include "ignore_rules.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace vesk {

class Workspace;

/// A look at a folder that is to become a project, a few files of it at a time: what would be taken in, and what is
/// left out and why. Nothing is written. Links are not followed, and nothing outside the held folder is looked at.
class TakeIn {
public:
    struct File {
        QString path;
        qint64 bytes = 0;
    };
    /// More than this are taken in file by file, when a task first touches one.
    static constexpr qsizetype mostFiles = 10000;
    static constexpr qint64 mostBytes = 100LL * 1024 * 1024;

    explicit TakeIn(const Workspace &workspace);

    /// Looks at the next few files and folders, which takes about a millisecond; false when that was all.
    bool lookOn();

    const QList<File> &files() const { return found; }
    qint64 bytes() const { return size; }
    bool isLarge() const { return found.size() > mostFiles || size > mostBytes; }
    /// By reason, in Russian: how many files and folders are left out.
    const QMap<QString, int> &leftOut() const { return left; }

private:
    void take(const ConfinedFolder::Entry &entry);
    void readRules(const QString &folder);
    QString reasonAgainst(const QString &path, bool isFolder) const;
    QString reasonAgainstFile(const QString &path, qint64 bytes) const;

    const Workspace &workspace;
    QStringList waiting; ///< Folders still to be looked at.
    QString folder; ///< The one that is looked at.
    std::optional<ConfinedFolder::Listing> listing; ///< What is left of it.
    IgnoreRules rules;
    QList<File> found;
    qint64 size = 0;
    QMap<QString, int> left;
};

/// Why a name alone keeps a file or folder out of a project: version control, what tools make, secrets. Empty when it
/// doesn't.
QString reasonAgainstName(const QString &name, bool isFolder);

} // namespace vesk
