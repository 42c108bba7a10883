#pragma once

#include <QHash>
#include <QJsonObject>
#include <QList>

namespace vesk {

struct Node;

/// The code node that a rejection of the whole goes back to: the first whose path the review names, else the first of
/// all. -1 when there is no code.
int reworkTarget(const QList<Node> &nodes, const QJsonObject &review);

/// What a failed check tells the coder: its command and the last 16000 characters of each channel.
QJsonObject recoveryFix(const QJsonObject &command, const QJsonObject &result);

/// Queues all code that the check depends on, with the fix; false when there is none.
bool sendBack(QList<Node> &nodes, int check, const QJsonObject &fix);

/// What a check would test now: the revision of every file that it depends on, by node.
QHash<QString, int> testedRevisions(const QList<Node> &nodes, int check);

/// Lets the checks that have passed for a file run again, since it was written anew.
void rearmChecksOf(QList<Node> &nodes, const QString &codeId);

} // namespace vesk
