#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

/// What a commit of a task's files would hold, by what git says of them.
struct CommitPlan {
    enum class Change { Added, Changed, Deleted };
    struct File {
        QString path;
        Change change = Change::Changed;
        bool isNew = false; ///< Git doesn't know of it yet.
    };
    struct Left {
        QString path;
        QString reason; ///< In Russian.
    };
    QList<File> files;
    QList<Left> left; ///< Files of the task that can't go along.
};

/// `status` is what `git status --porcelain=v1 -z --no-renames --untracked-files=all --ignored=matching` prints,
/// `prefix` the project's folder in the repository ("" or "sub/"). Files that git has nothing to say of are committed
/// already. One that its user has staged in another state than it stands on disk is left: a commit would lose that.
/// `unwatched` are those that git does not look at, though they are there.
CommitPlan commitPlan(const QStringList &paths, const QByteArray &status, const QString &prefix,
                      const QStringList &unwatched = {});

/// Those of these files that git does not look at by what `git ls-files -z -v` prints of them.
QStringList unwatched(QStringList paths, const QByteArray &listed);

/// What kept git from doing something, from what it printed: its own words, behind a sentence where its reason is a
/// known one.
QString gitFault(const QString &printed);
/// The sentence and, below it, the last 2000 characters of what was printed, made visible.
QString withOutput(const QString &sentence, const QString &printed);

/// The first message of a commit: what was asked for in one line, then the report.
QString commitMessage(const QString &request, const QString &report);

} // namespace vesk
