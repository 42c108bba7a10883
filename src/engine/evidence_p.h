#pragma once

#include "evidence.h"
#include "evidence_text.h"
#include "node_kind.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

namespace vesk {

/// What a program has shown, or what was hoped of it.
struct LedgerCheck {
    const Node *node = nullptr;
    QStringList words;
    QString command;
    CheckKind kind = CheckKind::Other;
    QString empty; ///< Why its success says nothing.
    QSet<QString> upstream;
    bool proves() const;
    QString began() const;
};

/// What a reviewer said about a file.
struct LedgerReview {
    QString run;
    QString role;
    QJsonObject artifact;
    QJsonObject answer;
};

/// One reading of what a task has left; evidenceOf() makes it, and it ends with it.
class Ledger {
public:
    explicit Ledger(const EvidenceSources &sources);
    QJsonObject read();

    static constexpr qsizetype maxTextChars = 300; ///< Of a sentence that somebody else wrote.
    /// The beginning of a text in quotes, on one line.
    static QString quotedShort(const QString &text);
    /// The first names, and how many more there are.
    static QString listed(QStringList names);
    /// The last part of a path.
    static QString nameOf(const QString &path);
    /// A text that nothing can run.
    static bool isProse(const QString &path);
    /// The role that a run was made for.
    static QString roleOf(const QJsonObject &run);
    static bool isDone(const QJsonObject &run);
    static QString contentOf(const Node &node);
    /// The two whose approvals a file needs.
    static const QStringList &fileReviewers();

private:
    // evidence.cpp: what there is
    void readPackage();
    void findChecks();
    /// Once: each look into a run costs more than all that is done with it.
    void readRuns();
    static bool canTest(const QJsonObject &command);
    /// All files that a page loads, itself first, as far as they name each other.
    QSet<QString> loadedBy(const QString &page) const;
    QString pageOf(const LedgerCheck &check) const;
    bool reads(const LedgerCheck &check, const Node &file) const;

    // evidence_files.cpp: what each file rests on
    QJsonArray rowsOfFiles();
    QJsonObject rowOfFile(const Node &node);
    /// Runs of different reviewers that approve of exactly this text.
    QStringList approvalsOf(const Node &node) const;
    QStringList notesOn(const Node &node, const QString &text, bool isApproved) const;
    /// Whether the text is another one than before the first check failed.
    bool hasChangedSinceFailure(const Node &node) const;
    void judgeFolder();

    // evidence_criteria.cpp: what each criterion rests on
    QJsonArray rowsOfCriteria();
    void judgeSpec(const QJsonArray &requirements, const QJsonArray &criteria);
    QJsonObject rowOfCriterion(const QString &text, const QString &kind);
    QStringList checksFor(const QString &text, const QStringList &named, const QList<QStringList> &commands) const;
    bool readsAll(const LedgerCheck &check, const QStringList &named) const;
    void judgeFilesOf(const QString &whose, const QString &text);
    /// Of the files that a text names, those that are not there, with what stands in their place.
    QStringList missingOf(const QString &text, const QStringList &named) const;
    /// A file that a program of the task names: it comes into being, or is brought, when the program is used.
    bool isOfUse(const QString &path) const;
    /// Found below a folder of the project that commands fill.
    bool isBesideOther(const QString &path) const;

    // evidence_opinions.cpp: what agents and checks said
    QJsonArray rowsOfChecks() const;
    void judgePackage();
    QJsonArray rowsOfOpinions();
    static QString aboutOf(const QJsonObject &run);
    void addOpinions(const QJsonObject &run, QJsonArray &rows);
    /// The observer has only a summary; the row holds it whatever it says, the report only what sounds like a
    /// complaint.
    void addObserver(const QJsonObject &run, QJsonArray &rows);
    static QStringList remarksOf(const QJsonObject &answer);
    /// What a reviewer did not get to see.
    static QStringList cutsOf(const QJsonObject &run);

    const EvidenceSources &sources;
    QList<const Node *> files;
    QList<LedgerCheck> checks;
    QList<QStringList> ran; ///< The words of every command of the task.
    QHash<QString, QList<LedgerReview>> reviews; ///< By path.
    QString firstFailure; ///< When a check failed for the first time; empty when none did.
    QJsonObject package;
    QStringList gaps;
    QHash<QString, int> counts;
};

} // namespace vesk
