// What a finished task rests on, as rows that can be taken in at a glance.

#include "proof_view.h"

#include "evidence.h"
#include "helpers.h"
#include "narrator.h"
#include "page_pictures.h"

#include <QJsonArray>
#include <QVariantList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxOutput = 4000;
constexpr int pictureArgument = 4; ///< Of a check in a browser.

QString levelOf(const QString &mark)
{
    if (mark == "check"_L1)
        return u"proved"_s;
    return mark == "syntax"_L1 || mark == "reviews"_L1 ? u"seen"_s : u"unproved"_s;
}

QStringList marksOf(const QJsonObject &row)
{
    const QString mark = row["mark"_L1].toString();
    QStringList marks;
    if (mark == "check"_L1)
        marks.append(u"проверка"_s);
    if (mark == "syntax"_L1)
        marks.append(u"синтаксис"_s);
    if (row["reviews"_L1].toArray().size() > 1)
        marks.append(u"две рецензии"_s);
    if (mark == "opinion"_L1)
        marks.append(u"только мнение"_s);
    if (marks.isEmpty())
        marks.append(u"не проверено"_s);
    return marks;
}

/// The unproved ones first; of one kind, or of any.
QVariantList rowsOf(const QJsonObject &ledger, const QString &list, const QString &section, const QString &key,
                    const QString &kind = {})
{
    QVariantList rows;
    const QJsonArray source = ledger[list].toArray();
    for (qsizetype i = 0; i < source.size(); ++i) {
        const QJsonObject row = source.at(i).toObject();
        if (!kind.isEmpty() && row["kind"_L1].toString(u"criterion"_s) != kind)
            continue;
        rows.append(QVariantMap{{u"list"_s, list},
                                {u"place"_s, i},
                                {u"section"_s, section},
                                {u"text"_s, oneLine(row[key].toString())},
                                {u"marks"_s, marksOf(row)},
                                {u"level"_s, levelOf(row["mark"_L1].toString())},
                                {u"mark"_s, row["mark"_L1].toString()},
                                {u"note"_s, strings(row["notes"_L1].toArray()).join(u"; "_s)}});
    }
    const auto gravity = [](const QVariant &row) {
        return QStringList{u"unproved"_s, u"seen"_s, u"proved"_s}.indexOf(row.toMap()[u"level"_s].toString());
    };
    std::ranges::stable_sort(rows, {}, gravity);
    return rows;
}

QVariantMap countOf(const QString &level, int count)
{
    return {{u"level"_s, level}, {u"count"_s, count}};
}

QJsonObject entryOf(const QJsonArray &list, const QString &key, const QString &value)
{
    const auto found = std::ranges::find_if(list, [&](const QJsonValue &entry) { return entry[key] == value; });
    return found == list.end() ? QJsonObject() : found->toObject();
}

/// A heading with a text below it; nothing without the text.
QString part(const QString &heading, const QString &text)
{
    const QString shown = text.trimmed();
    return shown.isEmpty() ? QString() : u"\n\n"_s + heading + u'\n' + shown.right(maxOutput);
}

QString checkText(const QJsonObject &check, const QJsonObject &node)
{
    const QJsonObject output = node["output"_L1].toObject();
    const QString empty = check["empty"_L1].toString();
    return u"Проверка: "_s + check["title"_L1].toString() + u"\nКоманда: "_s + check["command"_L1].toString()
        + u"\nПапка: "_s + check["folder"_L1].toString() + u"\nКод завершения: "_s
        + QString::number(check["exit_code"_L1].toInt(-1))
        + (empty.isEmpty() ? QString() : u"\nНичего не доказывает: "_s + empty)
        + part(u"Вывод"_s, output["stdout"_L1].toString()) + part(u"Ошибки"_s, output["stderr"_L1].toString());
}

QString reviewText(const QJsonObject &run)
{
    const QString logical = run["logical_role"_L1].toString();
    const QJsonObject answer = run["output"_L1].toObject();
    const QStringList remarks = strings(answer["issues"_L1].toArray());
    return u"Рецензия: "_s + Narrator::role(logical.isEmpty() ? run["role"_L1].toString() : logical) + u"\nРешение: "_s
        + (answer["verdict"_L1].toString() == "APPROVE"_L1 ? u"одобрено"_s : u"не одобрено"_s)
        + part(u"Замечания"_s, remarks.join(u'\n'));
}

} // namespace

QVariantMap proofsOf(const QJsonObject &state)
{
    const QJsonObject ledger = state["evidence"_L1].toObject();
    const int unproved = ledger["believed"_L1].toInt() + ledger["open"_L1].toInt();
    return {
        {u"headline"_s, evidenceHeadline(ledger)},
        {u"rows"_s,
         // The counts are those of the criteria, where there are any.
         rowsOf(ledger, u"criteria"_s, u"Критерии готовности"_s, u"text"_s, u"criterion"_s)
             + rowsOf(ledger, u"criteria"_s, u"Требования"_s, u"text"_s, u"requirement"_s)
             + rowsOf(ledger, u"files"_s, u"Файлы"_s, u"path"_s)},
        {u"gaps"_s, strings(ledger["gaps"_L1].toArray())},
        {u"counts"_s,
         QVariantList{countOf(u"proved"_s, ledger["proved"_L1].toInt()), countOf(u"unproved"_s, unproved)}},
    };
}

QString proofBehind(const QJsonObject &state, const QString &list, int place,
                    const std::function<QJsonObject(const QString &run)> &runOf)
{
    const QJsonObject ledger = state["evidence"_L1].toObject();
    const QJsonObject row = ledger[list][place].toObject();
    QStringList texts{row[list == "files"_L1 ? "path"_L1 : "text"_L1].toString()};
    const QStringList notes = strings(row["notes"_L1].toArray());
    if (!notes.isEmpty())
        texts.append(u"Открыто: "_s + notes.join(u"; "_s));
    for (const QString &id : strings(row["checks"_L1].toArray()))
        texts.append(checkText(entryOf(ledger["checks"_L1].toArray(), u"node"_s, id),
                               entryOf(state["graph"_L1].toArray(), u"id"_s, id)));
    for (const QString &id : strings(row["reviews"_L1].toArray()))
        texts.append(reviewText(runOf(id)));
    if (texts.size() == 1)
        texts.append(u"За этим не стоит ни одной проверки: только мнение агентов."_s);
    return texts.join(u"\n\n———\n\n"_s);
}

QStringList picturesBehind(const QJsonObject &state, const QString &list, int place, const QString &pictures)
{
    QStringList found;
    for (const QString &id : strings(state["evidence"_L1][list][place]["checks"_L1].toArray())) {
        const QJsonObject node = entryOf(state["graph"_L1].toArray(), u"id"_s, id);
        found += picturesAt(pictures, node["input"_L1]["arguments"_L1][pictureArgument].toString());
    }
    return found;
}

} // namespace vesk
