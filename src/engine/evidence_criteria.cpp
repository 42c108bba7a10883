// What each criterion of a finished task rests on, and which of the files that it names are there.

#include "evidence_p.h"

#include "helpers.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

QJsonArray Ledger::rowsOfCriteria()
{
    const QJsonArray requirements = sources.spec["requirements"_L1].toArray();
    const QJsonArray criteria = sources.spec["acceptance_criteria"_L1].toArray();
    judgeSpec(requirements, criteria);
    judgeFilesOf(u"запрос"_s, sources.spec["original_request"_L1].toString());

    QJsonArray rows;
    const auto add = [&](const QJsonArray &texts, const QString &kind, bool counted) {
        for (const QJsonValue &text : texts) {
            if (text.toString().trimmed().isEmpty())
                continue;
            const QJsonObject row = rowOfCriterion(text.toString(), kind);
            rows.append(row);
            if (counted)
                ++counts[row["mark"_L1].toString()];
        }
    };
    add(criteria, u"criterion"_s, true);
    add(requirements, u"requirement"_s, criteria.isEmpty());
    return rows;
}

void Ledger::judgeSpec(const QJsonArray &requirements, const QJsonArray &criteria)
{
    if (requirements.isEmpty() && criteria.isEmpty())
        gaps.append(u"Главный агент не записал ни одного требования: сверять результат не с чем."_s);
    const QString request = sources.spec["original_request"_L1].toString();
    const QString noted
        = (QStringList{sources.spec["title"_L1].toString()} + strings(requirements) + strings(criteria)).join(u' ');
    if (!shareWords(request, noted))
        gaps.append(u"В записанной задаче нет ни одного слова из запроса."_s);
}

QJsonObject Ledger::rowOfCriterion(const QString &text, const QString &kind)
{
    QStringList notes;
    const QStringList named = namedFiles(text);
    const QList<QStringList> commands = namedCommands(text);
    for (const QStringList &command : commands) {
        if (std::ranges::none_of(ran, [&](const QStringList &line) { return isWithin(command, line); }))
            notes.append(u"команду «%1» никто не запускал"_s.arg(oneLine(command.join(u' '))));
    }
    notes += missingOf(text, named);
    const QStringList answering = checksFor(text, named, commands);
    for (const QString &note : std::as_const(notes))
        gaps.append(quotedShort(text) + u": "_s + note + u'.');

    QString mark = u"opinion"_s;
    if (!notes.isEmpty())
        mark = u"none"_s;
    else if (!answering.isEmpty())
        mark = u"check"_s;
    if (mark == "opinion"_L1 && kind == "criterion"_L1)
        gaps.append(quotedShort(text) + u": подтверждено только мнением агентов."_s);
    return {
        {u"text"_s, text},
        {u"kind"_s, kind},
        {u"mark"_s, mark},
        {u"checks"_s, QJsonArray::fromStringList(answering)},
        {u"files"_s, QJsonArray::fromStringList(named)},
        {u"notes"_s, QJsonArray::fromStringList(notes)},
    };
}

QStringList Ledger::checksFor(const QString &text, const QStringList &named, const QList<QStringList> &commands) const
{
    QStringList found;
    for (const LedgerCheck &check : checks) {
        if (!check.proves() || check.kind == CheckKind::Syntax)
            continue;
        const bool isCommand
            = std::ranges::any_of(commands, [&](const QStringList &command) { return isWithin(command, check.words); });
        const bool runsFile = check.kind != CheckKind::Page && check.kind != CheckKind::Build
            && std::ranges::any_of(named,
                                   [&](const QString &path) { return check.words.contains(nameOf(path).toLower()); });
        if (isCommand || runsFile || (answersKind(text, check.kind) && readsAll(check, named)))
            found.append(check.node->id);
    }
    return found;
}

bool Ledger::readsAll(const LedgerCheck &check, const QStringList &named) const
{
    return std::ranges::all_of(named, [&](const QString &path) {
        return std::ranges::any_of(
            files, [&](const Node *node) { return nameOf(pathOf(*node)) == nameOf(path) && reads(check, *node); });
    });
}

void Ledger::judgeFilesOf(const QString &whose, const QString &text)
{
    const QStringList notes = missingOf(text, namedFiles(text));
    for (const QString &note : notes)
        gaps.append(u"Назван в тексте «%1»: %2."_s.arg(whose, note));
}

QStringList Ledger::missingOf(const QString &text, const QStringList &named) const
{
    QStringList notes;
    for (const QString &path : named) {
        const bool isMade = std::ranges::any_of(
            files, [&](const Node *node) { return pathOf(*node) == path || nameOf(pathOf(*node)) == nameOf(path); });
        if (isMade || sources.exists(path) || isBesideOther(path) || isUnwanted(text, path) || isOfUse(path))
            continue;
        const QString stem = nameOf(path).section(u'.', 0, 0);
        const auto about = std::ranges::find_if(files, [&](const Node *node) {
            return isProse(pathOf(*node)) && nameOf(pathOf(*node)).startsWith(stem + u'.', Qt::CaseInsensitive);
        });
        notes.append(about == files.end() ? u"файла %1 нет"_s.arg(visibleText(path))
                                          : u"файла %1 нет, есть только текст о нём: %2"_s.arg(
                                                visibleText(path), visibleText(pathOf(**about))));
    }
    return notes;
}

bool Ledger::isOfUse(const QString &path) const
{
    static const QStringList programs{u".py"_s,   u".js"_s, u".mjs"_s, u".cjs"_s, u".ts"_s,
                                      u".sh"_s,   u".c"_s,  u".cpp"_s, u".go"_s,  u".rs"_s,
                                      u".java"_s, u".cs"_s, u".php"_s, u".rb"_s,  u".kt"_s};
    return isWrittenInUse(path) && std::ranges::any_of(files, [&](const Node *node) {
               return std::ranges::any_of(programs,
                                          [&](const QString &suffix) { return pathOf(*node).endsWith(suffix); })
                   && contentOf(*node).contains(nameOf(path));
           });
}

bool Ledger::isBesideOther(const QString &path) const
{
    return std::ranges::any_of(sources.strays.paths,
                               [&](const QString &stray) { return nameOf(stray) == nameOf(path); });
}

} // namespace vesk
