#pragma once

#include "task_graph.h"

#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

namespace vesk {

/// Files that appeared during a task and that nobody recorded.
struct Strays {
    QStringList paths;
    bool isCut = false; ///< There were too many files to look at them all.
};

/// What a finished task has left, from which the ledger is read. No model is asked.
struct EvidenceSources {
    QJsonObject spec; ///< The task, with "original_request", "requirements", "acceptance_criteria", "existing_files".
    QList<Node> nodes; ///< With outputs: revisions of files, results of programs.
    QList<QJsonObject> runs; ///< In full, with "context" and "output".
    QString root; ///< The folder of the project.
    std::function<bool(const QString &path)> exists; ///< A file of this path is in the project's folder.
    Strays strays;
    QSet<QString> hollow = {}; ///< Ids of tests that also pass when the files under test are empty.
};

/// What each claim of a finished task rests on:
///
/// - "criteria": {"text", "kind" ("requirement" or "criterion"), "mark" ("check", "opinion" or "none"), "checks" (ids
///   of nodes), "files" (paths), "notes"}
/// - "files": {"path", "revision", "hash", "node", "mark" ("check", "syntax", "reviews", "opinion" or "none"),
///   "checks", "reviews" (ids of runs), "notes"}
/// - "checks": {"node", "title", "command", "folder", "exit_code", "time", "passed", "kind", "empty" (why it proves
///   nothing)}
/// - "opinions": {"role", "about", "text", "run"}
/// - "gaps": sentences for the report, the gravest first
/// - "proved", "believed", "open": how many criteria have which mark
///
/// An approval counts for exactly the text that it was given for: path, revision and digest. A check counts for a file
/// when it passed, can fail, reads the file and began after the revision was written.
QJsonObject evidenceOf(const EvidenceSources &sources);

/// The sentence for the first line of the report; empty when there are no criteria.
QString evidenceHeadline(const QJsonObject &ledger);

/// Whether the answer of a reviewer names another file or revision than it was asked about.
bool isForeignReview(const QJsonObject &review, const QJsonObject &artifact);

} // namespace vesk
