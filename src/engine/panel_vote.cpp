// What several reviews come to.

#include "panel_vote.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxIssueText = 1800;

QString verdictOf(const QJsonObject &review)
{
    return review["verdict"_L1].toString();
}

} // namespace

QString vote(const QList<QJsonObject> &reviews, int expected)
{
    if (reviews.size() != expected)
        return u"WAIT"_s;
    if (std::ranges::any_of(reviews, [](const auto &review) { return verdictOf(review) == "REJECT"_L1; }))
        return u"REJECT"_s;
    if (std::ranges::any_of(reviews, [](const auto &review) { return verdictOf(review) != "APPROVE"_L1; }))
        return u"REVISE"_s;
    return u"APPROVE"_s;
}

bool isCleanReview(const QJsonObject &review)
{
    return verdictOf(review) == "APPROVE"_L1 && review["issues"_L1].toArray().isEmpty()
        && review["required_changes"_L1].toArray().isEmpty();
}

QJsonObject reviewSummary(const QJsonObject &review)
{
    return {
        {u"reviewer"_s, review["reviewer"_L1]},
        {u"verdict"_s, review["verdict"_L1]},
        {u"issues"_s, review["issues"_L1]},
        {u"required_changes"_s, review["required_changes"_L1]},
    };
}

QJsonArray reviewSummaries(const QList<QJsonObject> &reviews)
{
    QJsonArray summaries;
    for (const QJsonObject &review : reviews)
        summaries.append(reviewSummary(review));
    return summaries;
}

QString joinedIssues(const QList<QJsonObject> &reviews)
{
    QStringList issues;
    for (const QJsonObject &review : reviews) {
        const QJsonArray entries = review["issues"_L1].toArray();
        for (const QJsonValue &entry : entries) {
            if (entry.isString())
                issues.append(entry.toString());
        }
    }
    return issues.join(u"; "_s).left(maxIssueText);
}

} // namespace vesk
