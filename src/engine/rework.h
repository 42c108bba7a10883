#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>

#include <functional>

namespace vesk {

struct Node;

/// The code node that a rejection of the whole goes back to: the first whose path the review names, else the first of
/// all. -1 when there is no code.
int reworkTarget(const QList<Node> &nodes, const QJsonObject &review);

/// What a failed check tells the coder: its command and the last 16000 characters of each channel.
QJsonObject recoveryFix(const QJsonObject &command, const QJsonObject &result);

/// Queues all code that the check depends on, or what `concerns` picks of it, with the fix; false when there is none.
bool sendBack(QList<Node> &nodes, int check, const QJsonObject &fix,
              const std::function<bool(const Node &code)> &concerns = {});

/// What a check would test now: the revision of every file that it depends on, by node.
QHash<QString, int> testedRevisions(const QList<Node> &nodes, int check);

/// Whether a file that the check depends on is being rewritten: what the check says is no report on what is to come.
bool isBeingRewritten(const QList<Node> &nodes, int check);

/// The steps between a file and a check that have to be done again when the file was written anew: a copy, a generator.
/// The installation of packages is one only when the file is package.json. Indices of nodes.
QList<int> stepsToRepeat(const QList<Node> &nodes, const QString &codeId);

/// Lets a check that the plan has tied to nothing wait for all code, or, when it looks only at the syntax of a file,
/// for the one it names; as far as that doesn't wait for the check itself.
void tieLooseChecks(QList<Node> &nodes);

/// Lets the checks that have passed for a file run again, since it was written anew.
void rearmChecksOf(QList<Node> &nodes, const QString &codeId);

} // namespace vesk
