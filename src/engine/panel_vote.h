#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace vesk {

/// The verdict of a panel: "WAIT" until there are `expected` reviews, then "REJECT" if any says so, "REVISE" if any
/// doesn't approve, else "APPROVE". One dissenting judge is enough.
QString vote(const QList<QJsonObject> &reviews, int expected);

/// An approval without any note.
bool isCleanReview(const QJsonObject &review);

/// What other agents get to see of a review: "reviewer", "verdict", "issues", "required_changes".
QJsonObject reviewSummary(const QJsonObject &review);

/// The summaries of all reviews, in their order.
QJsonArray reviewSummaries(const QList<QJsonObject> &reviews);

/// All issues of the reviews joined with "; ", cut to 1800 characters.
QString joinedIssues(const QList<QJsonObject> &reviews);

} // namespace vesk
