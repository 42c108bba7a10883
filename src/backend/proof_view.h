#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

namespace vesk {

/// What the view of a finished task's proofs shows: pure functions from its document (docs/evidence.md).

/// {"headline", "counts" (of criteria, as {"level", "count"}), "rows", "gaps"}. Rows are the criteria, then the files,
/// what is unproved first: {"list" ("criteria" or "files"), "place" (in that list of the ledger), "section", "text",
/// "marks" (texts), "level" ("proved", "seen" by two reviewers only, "unproved"), "mark" (as in the ledger), "note"}.
/// Without a ledger the rows are empty.
QVariantMap proofsOf(const QJsonObject &state);

/// The records behind a row, as a text: commands with their output, reviews with what they said. `runOf` gives the
/// whole record of an agent's run.
QString proofBehind(const QJsonObject &state, const QString &list, int place,
                    const std::function<QJsonObject(const QString &run)> &runOf);

/// The pictures of pages that the checks behind a row have opened: paths below `pictures`.
QStringList picturesBehind(const QJsonObject &state, const QString &list, int place, const QString &pictures);

} // namespace vesk
