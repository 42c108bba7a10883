// What checks and agents said in a finished task.

#include "evidence_p.h"

#include "helpers.h"
#include "narrator.h"
#include "project_checks.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr double lowConfidence = 0.5;

QString kindName(CheckKind kind)
{
    switch (kind) {
    case CheckKind::Test:
        return u"test"_s;
    case CheckKind::Build:
        return u"build"_s;
    case CheckKind::Page:
        return u"page"_s;
    case CheckKind::Syntax:
        return u"syntax"_s;
    case CheckKind::Other:
        break;
    }
    return u"other"_s;
}

} // namespace

QJsonArray Ledger::rowsOfChecks() const
{
    QJsonArray rows;
    for (const LedgerCheck &check : checks)
        rows.append(QJsonObject{
            {u"node"_s, check.node->id},
            {u"title"_s, check.node->title},
            {u"command"_s, check.command},
            {u"folder"_s, sources.root},
            {u"exit_code"_s, check.node->output["exit_code"_L1].toInt(-1)},
            {u"time"_s, check.node->output["finished_at"_L1]},
            {u"passed"_s, check.node->output["success"_L1].toBool()},
            {u"kind"_s, kindName(check.kind)},
            {u"empty"_s, check.empty},
        });
    return rows;
}

void Ledger::judgePackage()
{
    for (const LedgerCheck &check : std::as_const(checks)) {
        if (check.kind == CheckKind::Page) {
            for (const QString &dead : deadControls(check.node->output))
                gaps.append(visibleText(pageOf(check)) + u": "_s + visibleText(dead) + u'.');
        }
        if (!check.empty.isEmpty())
            gaps.append(quotedShort(check.command) + u": "_s + check.empty + u", это ничего не доказывает."_s);
    }
    const QString test = package["scripts"_L1]["test"_L1].toString();
    const QStringList npmTest{u"npm"_s, u"test"_s};
    if (test.isEmpty() || test.contains("no test specified"_L1)
        || std::ranges::any_of(ran, [&](const QStringList &line) { return isWithin(npmTest, line); }))
        return;
    gaps.append(u"Тесты из package.json (npm test) никто не запускал."_s);
}

QJsonArray Ledger::rowsOfOpinions()
{
    QHash<QString, qsizetype> last;
    for (qsizetype i = 0; i < sources.runs.size(); ++i) {
        const QJsonObject &run = sources.runs.at(i);
        if (isDone(run) && !run["output"_L1].toObject().isEmpty())
            last.insert(roleOf(run) + u'\n' + aboutOf(run), i);
    }
    QList<qsizetype> order = last.values();
    std::ranges::sort(order);
    QJsonArray rows;
    for (const qsizetype i : std::as_const(order))
        addOpinions(sources.runs.at(i), rows);
    for (const QString &role : strings(sources.spec["disabled_agents"_L1].toArray()))
        rows.append(QJsonObject{{u"role"_s, role},
                                {u"about"_s, QString()},
                                {u"text"_s, u"отключён пользователем"_s},
                                {u"run"_s, QString()}});
    return rows;
}

QString Ledger::aboutOf(const QJsonObject &run)
{
    return run["context"_L1]["artifact"_L1]["file"_L1]["path"_L1].toString();
}

void Ledger::addOpinions(const QJsonObject &run, QJsonArray &rows)
{
    const QJsonObject answer = run["output"_L1].toObject();
    const QString role = roleOf(run);
    QStringList texts;
    if (answer["verdict"_L1].toString() == "APPROVE"_L1) {
        const QStringList remarks = remarksOf(answer);
        if (!remarks.isEmpty())
            texts.append(u"одобрено с замечанием: "_s + remarks.join(u"; "_s).left(maxTextChars));
        if (answer["confidence"_L1].toDouble(1) < lowConfidence)
            texts.append(u"одобрено с уверенностью %1"_s.arg(answer["confidence"_L1].toDouble(), 0, 'g', 2));
    }
    if (role == "observer"_L1)
        addObserver(run, rows);
    texts += cutsOf(run);
    const QString about = aboutOf(run);
    for (const QString &text : std::as_const(texts)) {
        rows.append(QJsonObject{{u"role"_s, role}, {u"about"_s, about}, {u"text"_s, text}, {u"run"_s, run["id"_L1]}});
        gaps.append(Narrator::role(role) + (about.isEmpty() ? QString() : u", "_s + visibleText(about)) + u": "_s
                    + oneLine(text) + u'.');
    }
}

void Ledger::addObserver(const QJsonObject &run, QJsonArray &rows)
{
    const QString said = run["output"_L1]["summary"_L1].toString();
    rows.append(
        QJsonObject{{u"role"_s, u"observer"_s}, {u"about"_s, QString()}, {u"text"_s, said}, {u"run"_s, run["id"_L1]}});
    if (isComplaint(said))
        gaps.append(u"Наблюдатель: "_s + oneLine(said.left(maxTextChars)));
}

QStringList Ledger::remarksOf(const QJsonObject &answer)
{
    QStringList remarks;
    for (const auto key : {"issues"_L1, "required_changes"_L1}) {
        for (const QString &remark : strings(answer[key].toArray())) {
            if (!remark.trimmed().isEmpty() && !remarks.contains(remark))
                remarks.append(remark);
        }
    }
    return remarks;
}

QStringList Ledger::cutsOf(const QJsonObject &run)
{
    QStringList cuts;
    const QJsonObject artifact = run["context"_L1]["artifact"_L1].toObject();
    const qsizetype left = artifact["file"_L1]["content_chars_omitted"_L1].toInteger();
    if (left > 0)
        cuts.append(u"файл показан не целиком, без %1 знаков"_s.arg(left));
    QStringList cut;
    const QJsonArray files = artifact["project_files"_L1].toArray();
    for (const QJsonValue &file : files) {
        if (file["truncated"_L1].toBool())
            cut.append(file["path"_L1].toString() + u" (%1 знаков)"_s.arg(file["content"_L1].toString().size()));
    }
    if (!cut.isEmpty())
        cuts.append(u"видна только часть файлов: "_s + listed(cut));
    return cuts;
}

} // namespace vesk
