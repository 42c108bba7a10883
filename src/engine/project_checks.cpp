// Which real checks a project needs that its plan left out.

#include "project_checks.h"

#include "data_syntax.h"
#include "helpers.h"
#include "node_kind.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxPages = 8;
constexpr qsizetype maxPaths = 10;
constexpr qsizetype maxReasonChars = 600;
const QString startPage = u"index.html"_s;
constexpr int notOpened = 2; ///< The exit code of the check in a browser when it had nothing to open the page with.

bool isScript(const QString &path)
{
    return path.endsWith(".js"_L1) || path.endsWith(".mjs"_L1) || path.endsWith(".cjs"_L1);
}

/// The programs begin with it, by which they are known.
const QString syntaxMark = u"# syntax\n"_s;

/// Looks at every file, so that all faults go back at once.
const QString pythonSyntax = syntaxMark + uR"(import sys, traceback
bad = 0
for path in sys.argv[1:]:
    try:
        compile(open(path, 'rb').read(), path, 'exec', dont_inherit=True)
    except (SyntaxError, ValueError):
        bad = 1
        print(path, file=sys.stderr)
        traceback.print_exc(limit=0)
sys.exit(bad)
)"_s;

const QString shellSyntax = syntaxMark + uR"(bad=0
for path do "$BASH" -n "$path" || bad=1; done
exit $bad
)"_s;

/// What bash can judge: scripts of other shells have a grammar of their own.
bool isForBash(const QString &path, const QString &text)
{
    static const QRegularExpression other(u"\\A#!.*\\b(?:zsh|fish|csh|tcsh|ksh)\\b"_s);
    return (path.endsWith(".sh"_L1) || path.endsWith(".bash"_L1)) && !text.contains(other);
}

/// A partial that scripts load into a page is none.
bool isDocument(const QString &text)
{
    return text.contains("<!doctype"_L1, Qt::CaseInsensitive) || text.contains("<html"_L1, Qt::CaseInsensitive);
}

/// What Jinja or Django make a page of: without its server it shows gaps, and its addresses lead nowhere.
bool isTemplate(const QString &text)
{
    static const QRegularExpression marks(u"\\{%|\\{\\{\\s*url_for\\b"_s);
    return text.contains(marks);
}

/// Where a build puts what it makes of this page: beside the start page, or with the folders of the sources left off.
QString builtPage(const QString &source, const QString &folder, const ProjectFiles &files)
{
    for (const QString &path : {source, source.section(u'/', 1)}) {
        if (!path.isEmpty() && files.isBuilt(folder + path))
            return folder + path;
    }
    return {};
}

/// The folder with the start page that a build has made, with its slash; empty without one.
QString builtFolder(const ProjectFiles &files)
{
    for (const QString &folder : {u"dist/"_s, u"build/"_s, u"out/"_s}) {
        if (files.isBuilt(folder + startPage))
            return folder;
    }
    return {};
}

QStringList builtPages(const QStringList &sources, const QString &folder, const ProjectFiles &files, QStringList &left)
{
    QStringList built{folder + startPage};
    for (const QString &source : sources.sliced(1)) {
        const QString page = builtPage(source, folder, files);
        if (page.isEmpty())
            left.append(source);
        else if (!built.contains(page))
            built.append(page);
    }
    return built;
}

QString leftOut(QStringList paths)
{
    if (paths.isEmpty())
        return {};
    const qsizetype more = paths.size() - maxPaths;
    if (more > 0)
        paths = paths.first(maxPaths) << u"и ещё %1"_s.arg(more);
    return u"В браузере не проверены страницы: "_s + paths.join(u", "_s) + u'.';
}

QString sentence(const QString &text)
{
    const QString line = oneLine(text).left(maxReasonChars);
    return line.endsWith(u'.') ? line : line + u'.';
}

bool needsPackages(const QJsonObject &package, const CheckTools &tools)
{
    const QStringList named
        = package["dependencies"_L1].toObject().keys() + package["devDependencies"_L1].toObject().keys();
    return std::ranges::any_of(named, [&](const QString &name) { return !tools.isInstalled(name); });
}

} // namespace

BuildChecks buildChecks(const QJsonObject &package, const QStringList &codeIds, const CheckTools &tools)
{
    if (package["scripts"_L1]["build"_L1].toString().isEmpty())
        return {};
    if (tools.node.isEmpty() || tools.npm.isEmpty())
        return {{}, u"Node.js/npm не найдены: сборка package.json не выполнена."_s};

    BuildChecks needed;
    if (needsPackages(package, tools))
        needed.checks.append({u"Установить зависимости проекта"_s,
                              {tools.npm, u"install"_s, u"--no-audit"_s, u"--no-fund"_s},
                              false,
                              codeIds});
    needed.checks.append({u"Проверить сборку проекта"_s, {tools.npm, u"run"_s, u"build"_s}, true, codeIds});
    return needed;
}

void markOwnChecks(QList<Node> &nodes, const CheckTools &tools)
{
    const QJsonArray build{tools.npm, u"run"_s, u"build"_s};
    const QJsonArray test{tools.npm, u"test"_s};
    if (tools.node.isEmpty() || tools.npm.isEmpty())
        return;
    for (Node &node : nodes) {
        if (runsCommand(node, tools.node, build) || runsCommand(node, tools.node, test))
            node.input["verification"_L1] = true;
    }
}

QList<ProjectCheck> syntaxChecks(const QList<Node> &nodes)
{
    QList<ProjectCheck> needed;
    for (const Node &node : nodes) {
        const QString path = pathOf(node);
        if (isCode(node) && isScript(path))
            needed.append({u"Проверить синтаксис "_s + path, {u"--check"_s, path}, true, {node.id}});
    }
    return needed;
}

bool isSyntaxProgram(const QString &argument)
{
    return argument.startsWith(syntaxMark);
}

QList<ProjectCheck> sharedSyntaxChecks(const QList<Node> &nodes,
                                       const std::function<QString(const QString &path)> &textOf,
                                       const SyntaxTools &tools)
{
    ProjectCheck python{u"Проверить синтаксис Python"_s, {u"-I"_s, u"-c"_s, pythonSyntax}, true, {}, tools.python};
    ProjectCheck shell{u"Проверить синтаксис сценариев"_s, {u"-c"_s, shellSyntax, u"bash"_s}, true, {}, tools.bash};
    ProjectCheck data{u"Проверить разметку XML и SVG"_s, {}, true, {}, ownParser};
    for (const Node &node : nodes) {
        const QString path = pathOf(node);
        if (!isCode(node))
            continue;
        ProjectCheck *check = nullptr;
        if (path.endsWith(".py"_L1))
            check = &python;
        else if (isData(path))
            check = &data;
        else if (isForBash(path, textOf(path)))
            check = &shell;
        if (!check)
            continue;
        // A name that begins like an option would be taken for one.
        check->arguments.append(path.startsWith(u'-') ? u"./"_s + path : path);
        check->after.append(node.id);
    }
    QList<ProjectCheck> needed;
    for (const ProjectCheck &check : {python, shell, data}) {
        if (!check.after.isEmpty() && !check.program.isEmpty())
            needed.append(check);
    }
    return needed;
}

PageChecks pagesToCheck(const QList<Node> &nodes, const ProjectFiles &files, qsizetype room)
{
    QStringList pages;
    QStringList left;
    for (const Node &node : nodes) {
        const QString path = pathOf(node);
        if (!isCode(node) || !path.endsWith(".html"_L1))
            continue;
        const QString text = files.textOf(path);
        if (isTemplate(text))
            left.append(path);
        else if (path == startPage)
            pages.prepend(path);
        else if (pages.isEmpty() || isDocument(text))
            pages.append(path);
    }
    const QString folder = pages.isEmpty() ? QString() : builtFolder(files);
    if (!folder.isEmpty())
        pages = builtPages(pages, folder, files, left);

    const qsizetype most = std::min(room, maxPages);
    left += pages.mid(most);
    return {pages.first(std::min(most, pages.size())), leftOut(left)};
}

QStringList deadControls(const QJsonObject &result)
{
    static const QRegularExpression note(u"^- (кнопка «.*» ничего не изменила)$"_s,
                                         QRegularExpression::MultilineOption);
    QStringList dead;
    for (auto it = note.globalMatch(result["stdout"_L1].toString()); it.hasNext();)
        dead.append(it.next().captured(1));
    return dead;
}

BrowserVerdict browserVerdict(const QString &page, const QJsonObject &result)
{
    const QString said = result["stdout"_L1].toString();
    if (result["success"_L1].toBool()) {
        const QString left = said.section(u"\nНе проверено:\n- "_s, 1).trimmed();
        return {true,
                left.isEmpty() ? QString()
                               : sentence(u"Страница %1 проверена в браузере не полностью: "_s.arg(page)
                                          + left.split(u"\n- "_s).join(u"; "_s))};
    }
    if (result["timed_out"_L1].toBool())
        return {false, u"Страница %1 не проверена в браузере: проверка не уложилась в отведённое время."_s.arg(page)};
    if (result["exit_code"_L1].toInt() != notOpened)
        return {};
    return {false, sentence(said.trimmed().isEmpty() ? u"Страница %1 не проверена в браузере"_s.arg(page) : said)};
}

} // namespace vesk
