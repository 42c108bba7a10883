// What a finished task can show for its claims.

#include "evidence.h"

#include "evidence_text.h"
#include "helpers.h"
#include "narrator.h"
#include "node_kind.h"
#include "project_checks.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr double lowConfidence = 0.5;
constexpr qsizetype maxNamed = 8; ///< In one sentence.
constexpr qsizetype maxGaps = 40;
constexpr qsizetype maxTextChars = 300;
const QStringList fileReviewers{u"correctness_reviewer"_s, u"integration_reviewer"_s};

struct Check {
    const Node *node = nullptr;
    QStringList words;
    QString command;
    CheckKind kind = CheckKind::Other;
    QString empty;
    QSet<QString> upstream;
    bool proves() const { return node->output["success"_L1].toBool() && empty.isEmpty(); }
    QString began() const { return node->output["started_at"_L1].toString(); }
};

QString quotedShort(const QString &text)
{
    return u'«' + oneLine(text.left(maxTextChars)) + u'»';
}

QString listed(QStringList names)
{
    const qsizetype more = names.size() - maxNamed;
    if (more > 0)
        names = names.first(maxNamed) << u"ещё %1"_s.arg(more);
    for (QString &name : names)
        name = visibleText(name);
    return names.join(u", "_s);
}

QString nameOf(const QString &path)
{
    return path.section(u'/', -1);
}

/// A text that nothing can run.
bool isProse(const QString &path)
{
    static const QStringList orders{u"CMakeLists.txt"_s, u"requirements.txt"_s};
    return !orders.contains(nameOf(path))
        && (path.endsWith(".md"_L1, Qt::CaseInsensitive) || path.endsWith(".txt"_L1, Qt::CaseInsensitive)
            || path.endsWith(".rst"_L1, Qt::CaseInsensitive));
}

/// A program given as a text is told by its files.
QString shownCommand(const QString &program, const QStringList &arguments)
{
    QStringList shown{nameOf(program)};
    for (const QString &argument : arguments)
        shown.append(isSyntaxProgram(argument) ? u"…"_s : argument);
    return shown.join(u' ');
}

QString roleOf(const QJsonObject &run)
{
    const QString logical = run["logical_role"_L1].toString();
    return logical.isEmpty() ? run["role"_L1].toString() : logical;
}

bool isDone(const QJsonObject &run)
{
    return run["status"_L1].toString() == RunStatus::completed;
}

QString contentOf(const Node &node)
{
    return node.output["content"_L1].toString();
}

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

/// What a reviewer said about a file.
struct Review {
    QString run;
    QString role;
    QJsonObject artifact;
    QJsonObject answer;
};

class Ledger {
public:
    explicit Ledger(const EvidenceSources &sources)
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

    QJsonObject read()
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

private:
    void readPackage()
    {
        for (const Node *node : std::as_const(files)) {
            if (pathOf(*node) == "package.json"_L1)
                package = QJsonDocument::fromJson(contentOf(*node).toUtf8()).object();
        }
    }

    void findChecks()
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

    /// Once: each look into a run costs more than all that is done with it.
    void readRuns()
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
            if (!fileReviewers.contains(role) || !isDone(run))
                continue;
            const QJsonObject artifact = context["artifact"_L1].toObject();
            const QString path = artifact["file"_L1]["path"_L1].toString();
            reviews[path].append({run["id"_L1].toString(), role, artifact, run["output"_L1].toObject()});
        }
    }

    static bool canTest(const QJsonObject &command)
    {
        const CheckKind kind
            = kindOfCheck(command["program"_L1].toString(), strings(command["arguments"_L1].toArray()));
        return command["verification"_L1].toBool() && (kind == CheckKind::Test || kind == CheckKind::Other);
    }

    /// Whether the text is another one than before the first check failed.
    bool hasChangedSinceFailure(const Node &node) const
    {
        QString before;
        for (const Review &review : reviews.value(pathOf(node))) {
            const QJsonObject file = review.artifact["file"_L1].toObject();
            if (file["timestamp"_L1].toString() < firstFailure)
                before = file["hash"_L1].toString();
        }
        return !firstFailure.isEmpty() && !before.isEmpty() && before != node.output["hash"_L1].toString();
    }

    /// All files that a page loads, itself first, as far as they name each other.
    QSet<QString> loadedBy(const QString &page) const
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

    QString pageOf(const Check &check) const
    {
        const QString page = check.node->input["arguments"_L1][2].toString();
        return page.startsWith(sources.root + u'/') ? page.sliced(sources.root.size() + 1) : page;
    }

    bool reads(const Check &check, const Node &file) const
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

    QJsonArray rowsOfFiles()
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

    QJsonObject rowOfFile(const Node &node)
    {
        QStringList reading;
        bool isRun = false;
        for (const Check &check : std::as_const(checks)) {
            if (!check.proves() || !reads(check, node) || check.began() < node.output["timestamp"_L1].toString())
                continue;
            reading.append(check.node->id);
            isRun = isRun || check.kind != CheckKind::Syntax;
        }
        const QStringList approvals = approvalsOf(node);
        const QStringList notes = notesOn(node, contentOf(node), approvals.size() == fileReviewers.size());
        for (const QString &note : notes)
            gaps.append(visibleText(pathOf(node)) + u": "_s + note + u'.');

        QString mark = u"none"_s;
        if (isRun)
            mark = u"check"_s;
        else if (approvals.size() == fileReviewers.size())
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

    /// Runs of different reviewers that approve of exactly this text.
    QStringList approvalsOf(const Node &node) const
    {
        QHash<QString, QString> byRole;
        for (const Review &review : reviews.value(pathOf(node))) {
            const QJsonObject file = review.artifact["file"_L1].toObject();
            if (file["revision"_L1] != node.output["revision"_L1] || file["hash"_L1] != node.output["hash"_L1])
                continue;
            if (review.answer["verdict"_L1].toString() == "APPROVE"_L1
                && !isForeignReview(review.answer, review.artifact))
                byRole.insert(review.role, review.run);
            else
                byRole.remove(review.role);
        }
        QStringList ids;
        for (const QString &role : fileReviewers) {
            if (byRole.contains(role))
                ids.append(byRole.value(role));
        }
        return ids;
    }

    QStringList notesOn(const Node &node, const QString &text, bool isApproved) const
    {
        QStringList notes{hollowness(pathOf(node), text), disguise(pathOf(node), text)};
        if (isTestPath(pathOf(node)) && hasChangedSinceFailure(node))
            notes.append(u"тест изменён после неудачного запуска"_s);
        const bool isForeign = std::ranges::any_of(reviews.value(pathOf(node)), [&](const Review &review) {
            return review.artifact["file"_L1]["revision"_L1] == node.output["revision"_L1]
                && isForeignReview(review.answer, review.artifact);
        });
        if (isForeign && !isApproved)
            notes.append(u"рецензия дана другому файлу или другой версии"_s);
        notes.removeAll(QString());
        return notes;
    }

    void judgeFolder()
    {
        if (!sources.strays.isEmpty())
            gaps.append(u"Созданы командами, их никто не читал: %1."_s.arg(listed(sources.strays)));
        // Those that the request speaks of were meant.
        const QStringList meant = namedFiles(sources.spec["original_request"_L1].toString());
        QStringList replaced;
        const QJsonArray before = sources.spec["existing_files"_L1].toArray();
        for (const Node *node : std::as_const(files)) {
            const bool isMeant = std::ranges::any_of(
                meant, [&](const QString &name) { return nameOf(name) == nameOf(pathOf(*node)); });
            if (!isMeant && std::ranges::any_of(before, [&](const QJsonValue &file) {
                    return file["path"_L1] == pathOf(*node);
                }))
                replaced.append(pathOf(*node));
        }
        if (!replaced.isEmpty())
            gaps.append(u"Изменены файлы прежних задач: %1."_s.arg(listed(replaced)));
    }

    QJsonArray rowsOfCriteria()
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

    void judgeSpec(const QJsonArray &requirements, const QJsonArray &criteria)
    {
        if (requirements.isEmpty() && criteria.isEmpty())
            gaps.append(u"Главный агент не записал ни одного требования: сверять результат не с чем."_s);
        const QString request = sources.spec["original_request"_L1].toString();
        const QString noted
            = (QStringList{sources.spec["title"_L1].toString()} + strings(requirements) + strings(criteria)).join(u' ');
        if (!shareWords(request, noted))
            gaps.append(u"В записанной задаче нет ни одного слова из запроса."_s);
    }

    QJsonObject rowOfCriterion(const QString &text, const QString &kind)
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

    QStringList checksFor(const QString &text, const QStringList &named, const QList<QStringList> &commands) const
    {
        QStringList found;
        for (const Check &check : checks) {
            if (!check.proves() || check.kind == CheckKind::Syntax)
                continue;
            const bool isCommand = std::ranges::any_of(
                commands, [&](const QStringList &command) { return isWithin(command, check.words); });
            const bool runsFile = check.kind != CheckKind::Page && check.kind != CheckKind::Build
                && std::ranges::any_of(named, [&](const QString &path) {
                                      return check.words.contains(nameOf(path).toLower());
                                  });
            if (isCommand || runsFile || (answersKind(text, check.kind) && readsAll(check, named)))
                found.append(check.node->id);
        }
        return found;
    }

    bool readsAll(const Check &check, const QStringList &named) const
    {
        return std::ranges::all_of(named, [&](const QString &path) {
            return std::ranges::any_of(
                files, [&](const Node *node) { return nameOf(pathOf(*node)) == nameOf(path) && reads(check, *node); });
        });
    }

    void judgeFilesOf(const QString &whose, const QString &text)
    {
        const QStringList notes = missingOf(text, namedFiles(text));
        for (const QString &note : notes)
            gaps.append(u"Назван в тексте «%1»: %2."_s.arg(whose, note));
    }

    /// Of the files that a text names, those that are not there, with what stands in their place.
    QStringList missingOf(const QString &text, const QStringList &named) const
    {
        QStringList notes;
        for (const QString &path : named) {
            const bool isMade = std::ranges::any_of(files, [&](const Node *node) {
                return pathOf(*node) == path || nameOf(pathOf(*node)) == nameOf(path);
            });
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

    /// A file that a program of the task names: it comes into being, or is brought, when the program is used.
    bool isOfUse(const QString &path) const
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

    /// Found below a folder of the project that commands fill.
    bool isBesideOther(const QString &path) const
    {
        return std::ranges::any_of(sources.strays, [&](const QString &stray) { return nameOf(stray) == nameOf(path); });
    }

    QJsonArray rowsOfChecks() const
    {
        QJsonArray rows;
        for (const Check &check : checks)
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

    void judgePackage()
    {
        for (const Check &check : std::as_const(checks)) {
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

    QJsonArray rowsOfOpinions()
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

    static QString aboutOf(const QJsonObject &run)
    {
        return run["context"_L1]["artifact"_L1]["file"_L1]["path"_L1].toString();
    }

    void addOpinions(const QJsonObject &run, QJsonArray &rows)
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
            rows.append(
                QJsonObject{{u"role"_s, role}, {u"about"_s, about}, {u"text"_s, text}, {u"run"_s, run["id"_L1]}});
            gaps.append(Narrator::role(role) + (about.isEmpty() ? QString() : u", "_s + visibleText(about)) + u": "_s
                        + oneLine(text) + u'.');
        }
    }

    /// The observer has only a summary; the row holds it whatever it says, the report only what sounds like a
    /// complaint.
    void addObserver(const QJsonObject &run, QJsonArray &rows)
    {
        const QString said = run["output"_L1]["summary"_L1].toString();
        rows.append(QJsonObject{
            {u"role"_s, u"observer"_s}, {u"about"_s, QString()}, {u"text"_s, said}, {u"run"_s, run["id"_L1]}});
        if (isComplaint(said))
            gaps.append(u"Наблюдатель: "_s + oneLine(said.left(maxTextChars)));
    }

    static QStringList remarksOf(const QJsonObject &answer)
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

    /// What a reviewer did not get to see.
    static QStringList cutsOf(const QJsonObject &run)
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

    const EvidenceSources &sources;
    QList<const Node *> files;
    QList<Check> checks;
    QList<QStringList> ran; ///< The words of every command of the task.
    QHash<QString, QList<Review>> reviews; ///< By path.
    QString firstFailure; ///< When a check failed for the first time; empty when none did.
    QJsonObject package;
    QStringList gaps;
    QHash<QString, int> counts;
};

} // namespace

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
        if (!path.isEmpty() && nameOf(path) != nameOf(file["path"_L1].toString()))
            return true;
    }
    const QJsonValue revision = review["revision"_L1];
    const QString hash = review["hash"_L1].toString();
    return (revision.isDouble() && revision != file["revision"_L1])
        || (!hash.isEmpty() && hash != file["hash"_L1].toString());
}

} // namespace vesk
