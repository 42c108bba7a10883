// What each file of a finished task rests on.

#include "evidence_p.h"

#include "helpers.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

QJsonArray Ledger::rowsOfFiles()
{
    QJsonArray rows;
    QStringList onlyOpinion;
    QStringList onlyReviews;
    for (const Node *node : std::as_const(files)) {
        const QJsonObject row = rowOfFile(*node);
        rows.append(row);
        const QString mark = row["mark"_L1].toString();
        if (mark == "none"_L1 || mark == "opinion"_L1)
            onlyOpinion.append(pathOf(*node));
        else if (mark != "check"_L1 && !isProse(pathOf(*node)))
            onlyReviews.append(pathOf(*node));
    }
    if (!onlyOpinion.isEmpty())
        gaps.append(u"Нет двух рецензий на последнюю версию: %1."_s.arg(listed(onlyOpinion)));
    if (!onlyReviews.isEmpty())
        gaps.append(u"Смотрели только проверяющие, запуском не проверены: %1."_s.arg(listed(onlyReviews)));
    return rows;
}

QJsonObject Ledger::rowOfFile(const Node &node)
{
    QStringList reading;
    bool isRun = false;
    for (const LedgerCheck &check : std::as_const(checks)) {
        if (!check.proves() || !reads(check, node) || check.began() < node.output["timestamp"_L1].toString())
            continue;
        reading.append(check.node->id);
        isRun = isRun || check.kind != CheckKind::Syntax;
    }
    const QStringList approvals = approvalsOf(node);
    const QStringList notes = notesOn(node, contentOf(node), approvals.size() == fileReviewers().size());
    for (const QString &note : notes)
        gaps.append(visibleText(pathOf(node)) + u": "_s + note + u'.');

    QString mark = u"none"_s;
    if (isRun)
        mark = u"check"_s;
    else if (approvals.size() == fileReviewers().size())
        mark = reading.isEmpty() ? u"reviews"_s : u"syntax"_s;
    else if (!approvals.isEmpty())
        mark = u"opinion"_s;
    return {
        {u"path"_s, pathOf(node)},
        {u"revision"_s, node.output["revision"_L1]},
        {u"hash"_s, node.output["hash"_L1]},
        {u"node"_s, node.id},
        {u"mark"_s, mark},
        {u"checks"_s, QJsonArray::fromStringList(reading)},
        {u"reviews"_s, QJsonArray::fromStringList(approvals)},
        {u"notes"_s, QJsonArray::fromStringList(notes)},
    };
}

QStringList Ledger::approvalsOf(const Node &node) const
{
    QHash<QString, QString> byRole;
    for (const LedgerReview &review : reviews.value(pathOf(node))) {
        const QJsonObject file = review.artifact["file"_L1].toObject();
        if (file["revision"_L1] != node.output["revision"_L1] || file["hash"_L1] != node.output["hash"_L1])
            continue;
        if (review.answer["verdict"_L1].toString() == "APPROVE"_L1 && !isForeignReview(review.answer, review.artifact))
            byRole.insert(review.role, review.run);
        else
            byRole.remove(review.role);
    }
    QStringList ids;
    for (const QString &role : fileReviewers()) {
        if (byRole.contains(role))
            ids.append(byRole.value(role));
    }
    return ids;
}

QStringList Ledger::notesOn(const Node &node, const QString &text, bool isApproved) const
{
    QStringList notes{hollowness(pathOf(node), text), disguise(pathOf(node), text)};
    if (isTestPath(pathOf(node)) && hasChangedSinceFailure(node))
        notes.append(u"тест изменён после неудачного запуска"_s);
    const bool isForeign = std::ranges::any_of(reviews.value(pathOf(node)), [&](const LedgerReview &review) {
        return review.artifact["file"_L1]["revision"_L1] == node.output["revision"_L1]
            && isForeignReview(review.answer, review.artifact);
    });
    if (isForeign && !isApproved)
        notes.append(u"рецензия дана другому файлу или другой версии"_s);
    notes.removeAll(QString());
    return notes;
}

bool Ledger::hasChangedSinceFailure(const Node &node) const
{
    QString before;
    for (const LedgerReview &review : reviews.value(pathOf(node))) {
        const QJsonObject file = review.artifact["file"_L1].toObject();
        if (file["timestamp"_L1].toString() < firstFailure)
            before = file["hash"_L1].toString();
    }
    return !firstFailure.isEmpty() && !before.isEmpty() && before != node.output["hash"_L1].toString();
}

void Ledger::judgeFolder()
{
    if (!sources.strays.paths.isEmpty())
        gaps.append(u"Созданы командами, их никто не читал: %1."_s.arg(listed(sources.strays.paths)));
    if (sources.strays.isCut)
        gaps.append(u"В папке проекта слишком много файлов: что ещё создали команды, не просмотрено."_s);
    // Those that the request speaks of were meant.
    const QStringList meant = namedFiles(sources.spec["original_request"_L1].toString());
    QStringList replaced;
    const QJsonArray before = sources.spec["existing_files"_L1].toArray();
    for (const Node *node : std::as_const(files)) {
        const bool isMeant
            = std::ranges::any_of(meant, [&](const QString &name) { return nameOf(name) == nameOf(pathOf(*node)); });
        if (!isMeant
            && std::ranges::any_of(before, [&](const QJsonValue &file) { return file["path"_L1] == pathOf(*node); }))
            replaced.append(pathOf(*node));
    }
    if (!replaced.isEmpty())
        gaps.append(u"Изменены файлы прежних задач: %1."_s.arg(listed(replaced)));
}

} // namespace vesk
