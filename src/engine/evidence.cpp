// What a finished task can show for its claims.

#include "evidence_p.h"

#include "helpers.h"
#include "project_checks.h"

#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxNamed = 8; ///< In one sentence.
constexpr qsizetype maxGaps = 40;

/// A program given as a text is told by its files.
QString shownCommand(const QString &program, const QStringList &arguments)
{
    QStringList shown{Ledger::nameOf(program)};
    for (const QString &argument : arguments)
        shown.append(isSyntaxProgram(argument) ? u"…"_s : argument);
    return shown.join(u' ');
}

} // namespace

bool LedgerCheck::proves() const
{
    return node->output["success"_L1].toBool() && empty.isEmpty();
}

QString LedgerCheck::began() const
{
    return node->output["started_at"_L1].toString();
}

Ledger::Ledger(const EvidenceSources &sources)
    : sources(sources)
{
    for (const Node &node : sources.nodes) {
        if (isCode(node) && !node.output.isEmpty())
            files.append(&node);
    }
    readPackage();
    findChecks();
    readRuns();
}

QJsonObject Ledger::read()
{
    const QJsonArray fileRows = rowsOfFiles();
    judgeFolder();
    const QJsonArray criteria = rowsOfCriteria();
    judgePackage();
    const QJsonArray opinions = rowsOfOpinions();
    if (gaps.size() > maxGaps)
        gaps = gaps.first(maxGaps) << u"И ещё замечаний: %1."_s.arg(gaps.size() - maxGaps);
    return {
        {u"criteria"_s, criteria},
        {u"files"_s, fileRows},
        {u"checks"_s, rowsOfChecks()},
        {u"opinions"_s, opinions},
        {u"gaps"_s, QJsonArray::fromStringList(gaps)},
        {u"proved"_s, counts.value(u"check"_s)},
        {u"believed"_s, counts.value(u"opinion"_s)},
        {u"open"_s, counts.value(u"none"_s)},
    };
}

QString Ledger::quotedShort(const QString &text)
{
    return u'«' + oneLine(text.left(maxTextChars)) + u'»';
}

QString Ledger::listed(QStringList names)
{
    const qsizetype more = names.size() - maxNamed;
    if (more > 0)
        names = names.first(maxNamed) << u"ещё %1"_s.arg(more);
    for (QString &name : names)
        name = visibleText(name);
    return names.join(u", "_s);
}

QString Ledger::nameOf(const QString &path)
{
    return path.section(u'/', -1);
}

bool Ledger::isProse(const QString &path)
{
    static const QStringList orders{u"CMakeLists.txt"_s, u"requirements.txt"_s};
    return !orders.contains(nameOf(path))
        && (path.endsWith(".md"_L1, Qt::CaseInsensitive) || path.endsWith(".txt"_L1, Qt::CaseInsensitive)
            || path.endsWith(".rst"_L1, Qt::CaseInsensitive));
}

QString Ledger::roleOf(const QJsonObject &run)
{
    const QString logical = run["logical_role"_L1].toString();
    return logical.isEmpty() ? run["role"_L1].toString() : logical;
}

bool Ledger::isDone(const QJsonObject &run)
{
    return run["status"_L1].toString() == RunStatus::completed;
}

QString Ledger::contentOf(const Node &node)
{
    return node.output["content"_L1].toString();
}

const QStringList &Ledger::fileReviewers()
{
    static const QStringList roles{u"correctness_reviewer"_s, u"integration_reviewer"_s};
    return roles;
}

void Ledger::readPackage()
{
    for (const Node *node : std::as_const(files)) {
        if (pathOf(*node) == "package.json"_L1)
            package = QJsonDocument::fromJson(contentOf(*node).toUtf8()).object();
    }
}

void Ledger::findChecks()
{
    const Links links = linksOf(sources.nodes);
    for (const Node &node : sources.nodes) {
        if (!isCheck(node) || node.output.isEmpty())
            continue;
        const QString program = node.input["program"_L1].toString();
        const QStringList arguments = strings(node.input["arguments"_L1].toArray());
        const QString empty = sources.hollow.contains(node.id) ? u"проходит и с пустыми файлами"_s
                                                               : emptyProof(program, arguments, package);
        checks.append({&node, commandWords(program, arguments), shownCommand(program, arguments),
                       kindOfCheck(program, arguments), empty, upstreamOf(links, node.id)});
    }
}

void Ledger::readRuns()
{
    for (const QJsonObject &run : sources.runs) {
        const QString role = roleOf(run);
        const QJsonObject context = run["context"_L1].toObject();
        if (role == "terminal"_L1) {
            ran.append(commandWords(context["program"_L1].toString(), strings(context["arguments"_L1].toArray())));
            const bool failed = canTest(context) && !run["output"_L1]["success"_L1].toBool();
            const QString finished = run["finished_at"_L1].toString();
            if (failed && (firstFailure.isEmpty() || finished < firstFailure))
                firstFailure = finished;
        }
        if (!fileReviewers().contains(role) || !isDone(run))
            continue;
        const QJsonObject artifact = context["artifact"_L1].toObject();
        const QString path = artifact["file"_L1]["path"_L1].toString();
        reviews[path].append({run["id"_L1].toString(), role, artifact, run["output"_L1].toObject()});
    }
}

bool Ledger::canTest(const QJsonObject &command)
{
    const CheckKind kind = kindOfCheck(command["program"_L1].toString(), strings(command["arguments"_L1].toArray()));
    return command["verification"_L1].toBool() && (kind == CheckKind::Test || kind == CheckKind::Other);
}

QSet<QString> Ledger::loadedBy(const QString &page) const
{
    QSet<QString> seen;
    QStringList open{page};
    while (!open.isEmpty()) {
        const QString path = open.takeFirst();
        const auto file = std::ranges::find_if(files, [&](const Node *node) { return pathOf(*node) == path; });
        if (file == files.end() || seen.contains(path))
            continue;
        seen.insert(path);
        const QString text = contentOf(**file);
        for (const Node *other : files) {
            if (!seen.contains(pathOf(*other)) && !isProse(pathOf(*other)) && text.contains(nameOf(pathOf(*other))))
                open.append(pathOf(*other));
        }
    }
    return seen;
}

QString Ledger::pageOf(const LedgerCheck &check) const
{
    const QString page = check.node->input["arguments"_L1][2].toString();
    return page.startsWith(sources.root + u'/') ? page.sliced(sources.root.size() + 1) : page;
}

bool Ledger::reads(const LedgerCheck &check, const Node &file) const
{
    const QString path = pathOf(file);
    if (check.words.contains(nameOf(path).toLower()))
        return true;
    if (check.kind == CheckKind::Syntax)
        return false;
    if (check.kind == CheckKind::Page) {
        const QString page = pageOf(check);
        // What a build has made of them cannot be followed back to each of its sources.
        const bool isBuilt = std::ranges::none_of(files, [&](const Node *node) { return pathOf(*node) == page; });
        return isBuilt ? !isProse(path) : loadedBy(page).contains(path);
    }
    return check.upstream.contains(file.id) && !isProse(path);
}

QJsonObject evidenceOf(const EvidenceSources &sources)
{
    return Ledger(sources).read();
}

QString evidenceHeadline(const QJsonObject &ledger)
{
    const int proved = ledger["proved"_L1].toInt();
    const int believed = ledger["believed"_L1].toInt();
    const int open = ledger["open"_L1].toInt();
    const int all = proved + believed + open;
    if (all == 0)
        return {};
    QString text = proved == 0 ? u"Проверками не подтверждён ни один критерий"_s
                               : u"%1 из %2 %3 %4 проверками"_s.arg(proved).arg(all).arg(
                                     all % 10 == 1 && all % 100 != 11 ? u"критерия"_s : u"критериев"_s,
                                     proved == 1 ? u"подтверждён"_s : u"подтверждены"_s);
    if (believed > 0)
        text += u", %1 — только мнением агентов"_s.arg(believed);
    if (open > 0 && open < all)
        text += u", %1 — не %2"_s.arg(open).arg(open == 1 ? u"подтверждён"_s : u"подтверждены"_s);
    return text + u'.';
}

bool isForeignReview(const QJsonObject &review, const QJsonObject &artifact)
{
    const QJsonObject file = artifact["file"_L1].toObject();
    if (file.isEmpty())
        return false;
    for (const auto key : {"path"_L1, "file"_L1}) {
        const QString path = review[key].toString();
        if (!path.isEmpty() && Ledger::nameOf(path) != Ledger::nameOf(file["path"_L1].toString()))
            return true;
    }
    const QJsonValue revision = review["revision"_L1];
    const QString hash = review["hash"_L1].toString();
    return (revision.isDouble() && revision != file["revision"_L1])
        || (!hash.isEmpty() && hash != file["hash"_L1].toString());
}

} // namespace vesk
