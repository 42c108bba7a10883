// Real checks that the plan left out, and the way back to the code from one that failed.

#include "engine_p.h"

#include "evidence_text.h"
#include "page_pictures.h"
#include "programs.h"
#include "project_checks.h"
#include "rework.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxRecoveries = 3;
constexpr int checkTimeoutMs = 120000;
constexpr int browserTimeoutMs = 35000;

// Limitations of what has no node.
constexpr int ofBuild = -2;
constexpr int ofPages = -1;

// The clock of some file systems has whole seconds, two of them at worst.
constexpr int fileClockMs = 2000;

QString browserScript()
{
    return QCoreApplication::applicationDirPath() + u"/tools/browser-check.mjs"_s;
}

} // namespace

bool Engine::prepareProjectChecks()
{
    if (spec.value("checks_prepared"_L1).toBool())
        return false;
    spec["checks_prepared"_L1] = true;
    const QStringList codeIds = codeNodeIds();
    if (codeIds.isEmpty())
        return false;

    const qsizetype sizeBefore = graph.nodes.size();
    const bool isBuilt = addBuildChecks(codeIds);
    if (!isBuilt && !nodeProgram().isEmpty()) {
        for (const ProjectCheck &check : syntaxChecks(graph.nodes))
            addCheck(check);
    }
    const qsizetype sizeWithCommands = graph.nodes.size();
    const bool asksNobody = addSharedSyntaxChecks() && sizeWithCommands == sizeBefore;
    if (graph.nodes.size() == sizeBefore)
        return false;

    graph.validate();
    plan["nodes"_L1] = graphWithoutOutputs();
    runAddedChecks(asksNobody ? u"Проверяю синтаксис файлов."_s
                              : u"Добавил реальные проверки проекта. Команды требуют разрешения в приложении."_s);
    return true;
}

/// Programs only where no question comes of them; what the application reads itself always. They are extras: where the
/// plan has no room they stay away. True when there are some.
bool Engine::addSharedSyntaxChecks()
{
    const QJsonObject programs = computerAccess ? spec["available_executables"_L1].toObject() : QJsonObject();
    const auto text = [this](const QString &path) { return fileText(path); };
    const qsizetype sizeBefore = graph.nodes.size();
    const QList<ProjectCheck> needed
        = sharedSyntaxChecks(graph.nodes, text, {programs["python"_L1].toString(), programs["bash"_L1].toString()});
    for (const ProjectCheck &check : needed) {
        if (graph.nodes.size() < TaskGraph::maxNodes)
            addCheck(check);
    }
    return graph.nodes.size() > sizeBefore;
}

/// True when a build was added that has something to say.
bool Engine::addBuildChecks(const QStringList &codeIds)
{
    const QJsonObject file = workspace.latest(u"package.json"_s);
    if (file.isEmpty() || file["deleted"_L1].toBool())
        return false;
    const QJsonObject package = QJsonDocument::fromJson(workspace.read(u"package.json"_s)).object();
    const BuildChecks needed = buildChecks(package, codeIds, checkTools());
    noteLimitation(ofBuild, needed.limitation);

    const qsizetype sizeBefore = graph.nodes.size();
    bool saysSomething = false;
    QStringList before;
    for (const ProjectCheck &next : needed.checks) {
        ProjectCheck check = next;
        check.after += before;
        const QString id = addCheck(check);
        waitFor(id, before);
        before = {id};
        saysSomething = emptyProof(nodeProgram(), strings(check.arguments), package).isEmpty();
    }
    return saysSomething && graph.nodes.size() > sizeBefore;
}

CheckTools Engine::checkTools() const
{
    const QJsonObject executables = spec["available_executables"_L1].toObject();
    return {executables["node"_L1].toString(), executables["npm_cli"_L1].toString(), [this](const QString &package) {
                return QFileInfo(workspace.root() + u"/node_modules/"_s + package).isDir();
            }};
}

/// Lets a node wait for others, unless they wait for it.
void Engine::waitFor(const QString &nodeId, const QStringList &others)
{
    const Links links = linksOf(graph.nodes);
    for (Node &node : graph.nodes) {
        if (node.id != nodeId)
            continue;
        for (const QString &other : others) {
            if (!node.dependencies.contains(other) && !upstreamOf(links, other).contains(nodeId))
                node.dependencies.append(other);
        }
    }
}

/// What lies between a file that is to be written anew and its checks waits for it, and is done again under the consent
/// it had.
void Engine::repeatStepsOf(const QString &codeId)
{
    const QList<int> steps = stepsToRepeat(graph.nodes, codeId);
    for (const int step : steps) {
        rearm(graph.nodes[step]);
        grantAction(ToolRouter::fingerprint(u"run_command"_s, graph.nodes.at(step).input));
    }
}

/// A package that needs others only since its repair has had no installation so far.
void Engine::installNewPackages(const QString &path)
{
    if (path != "package.json"_L1 || !spec.value("checks_prepared"_L1).toBool())
        return;
    addBuildChecks(codeNodeIds());
    graph.validate();
}

QString Engine::nodeProgram() const
{
    return spec["available_executables"_L1]["node"_L1].toString();
}

/// The id of the check; the plan's own node counts when it runs the same command.
QString Engine::addCheck(const ProjectCheck &needed)
{
    const QString program = needed.program.isEmpty() ? nodeProgram() : needed.program;
    for (const Node &node : std::as_const(graph.nodes)) {
        if (runsCommand(node, program, needed.arguments))
            return node.id;
    }
    require(graph.nodes.size() < TaskGraph::maxNodes,
            u"Для проверок не осталось места в плане; разделите проект на этапы"_s);

    Node check;
    check.title = needed.title;
    check.kind = u"tool"_s;
    check.dependencies = needed.after;
    check.input = {
        {u"program"_s, program},
        {u"arguments"_s, needed.arguments},
        {u"verification"_s, needed.verification},
        {u"timeout_ms"_s, checkTimeoutMs},
    };
    if (program == ownParser)
        check.input["builtin"_L1] = true;
    return graph.nodes.at(appendNode(std::move(check))).id;
}

void Engine::runAddedChecks(const QString &message)
{
    publish(u"AutomaticCorrection"_s, message);
    stage(Phase::execution);
    scheduleNodes();
}

bool Engine::prepareBrowserCheck()
{
    if (provider->name().contains("Mock"_L1))
        return false;
    // Also when it was done before: a repair may have brought new pages.
    spec["browser_check_prepared"_L1] = true;
    if (nodeProgram().isEmpty() || browserProgram().isEmpty() || !QFileInfo(browserScript()).isFile())
        return false;

    const QStringList known = checkedPages();
    // One page has to find room; of the others as many as do.
    const qsizetype room = std::max<qsizetype>(TaskGraph::maxNodes - graph.nodes.size() + known.size(), 1);
    const ProjectFiles files{[this](const QString &path) { return fileText(path); },
                             [this](const QString &path) { return isBuilt(path); }};
    PageChecks needed = pagesToCheck(graph.nodes, files, room);
    noteLimitation(ofPages, needed.limitation);
    needed.pages.removeIf([&](const QString &page) { return known.contains(page); });
    if (needed.pages.isEmpty())
        return false;
    require(graph.nodes.size() < TaskGraph::maxNodes, u"Нет места для браузерной проверки"_s);

    const QString title = u"Проверить сайт в браузере"_s;
    QStringList after = codeNodeIds();
    for (const QString &page : needed.pages) {
        // One after the other: each has a browser of its own at work, and little time.
        const bool first = known.isEmpty() && page == needed.pages.first();
        after.append(addPageCheck(page, first ? title : title + u": "_s + page, after));
    }
    graph.validate();
    runAddedChecks(u"Проверяю загрузку сайта, ошибки JavaScript и отображение на двух размерах экрана."_s);
    return true;
}

/// The page that a node opens in a browser; empty for other nodes.
QString Engine::openedPage(const Node &node) const
{
    const QJsonArray arguments = node.input["arguments"_L1].toArray();
    if (!isCheck(node) || arguments.at(0) != browserScript())
        return {};
    return QDir(workspace.root()).relativeFilePath(arguments.at(2).toString());
}

QStringList Engine::checkedPages() const
{
    QStringList pages;
    for (const Node &node : graph.nodes) {
        const QString page = openedPage(node);
        if (!page.isEmpty())
            pages.append(page);
    }
    return pages;
}

QString Engine::addPageCheck(const QString &page, const QString &title, const QStringList &after)
{
    QJsonArray arguments{browserScript(), browserProgram(), workspace.resolve(page), workspace.root()};
    if (!picturesFolder.isEmpty())
        arguments.append(pictureStem(picturesFolder, taskId, page));
    Node check;
    check.title = title;
    check.kind = u"tool"_s;
    check.dependencies = after;
    check.input = {
        {u"program"_s, nodeProgram()},
        {u"arguments"_s, arguments},
        {u"verification"_s, true},
        {u"timeout_ms"_s, browserTimeoutMs},
    };
    return graph.nodes.at(appendNode(std::move(check))).id;
}

/// Whether a check of this run, all of which are done by now, has made the file: that was a build.
bool Engine::isBuilt(const QString &path) const
{
    const QFileInfo file(workspace.root() + u'/' + path);
    const QDateTime made = file.lastModified().addMSecs(fileClockMs);
    return file.isFile() && std::ranges::any_of(graph.nodes, [&](const Node &node) {
               return isCheck(node)
                   && QDateTime::fromString(node.output["started_at"_L1].toString(), Qt::ISODateWithMs) <= made;
           });
}

BrowserVerdict Engine::verdictOf(int index, const QJsonObject &result) const
{
    const QString page = openedPage(graph.nodes.at(index));
    if (page.isEmpty())
        return {};
    const BrowserVerdict verdict = browserVerdict(page, result);
    // What a build would have made of the page is not known: its sources may well not run as they are.
    const bool isUnbuilt = !limitations.value(ofBuild).isEmpty() && !result["success"_L1].toBool();
    if (verdict.opened && isUnbuilt)
        return {false, u"Страница %1 не проверена в браузере: проект не собран."_s.arg(page)};
    return verdict;
}

/// Notes what a check could not tell, in place of what is noted for it; nothing is noted under an empty text.
void Engine::noteLimitation(int index, const QString &text)
{
    if (limitations.value(index) == text)
        return;
    limitations.insert(index, text);
    QStringList all = limitations.values();
    all.removeAll(QString());
    spec["verification_limitation"_L1] = all.join(u' ');
    if (!text.isEmpty())
        publish(u"VerificationUnavailable"_s, text);
}

/// The coder hears once of a control that does nothing, where no question comes of checking again; what then is left
/// stands in the report. True when the page is being mended.
bool Engine::tellDeadControls(int index, const QJsonObject &result)
{
    Node &node = graph.nodes[index];
    const QString page = openedPage(node);
    const QStringList dead = page.isEmpty() ? QStringList() : deadControls(result);
    if (dead.isEmpty() || !computerAccess || node.input["notes_told"_L1] == true)
        return false;
    node.input["notes_told"_L1] = true;
    QJsonObject fix = recoveryFix(node.input, result);
    fix["issues"_L1] = QJsonArray::fromStringList(dead);
    fix["required_changes"_L1] = QJsonArray{
        u"Сделай так, чтобы кнопка действовала, или убери её. Если она и не должна ничего менять, оставь как есть."_s};
    const QString text = fileText(page);
    const auto isOfPage = [&](const Node &code) {
        const QString path = pathOf(code);
        return path == page || (path.endsWith("js"_L1) && text.contains(path.section(u'/', -1)));
    };
    if (!sendBack(graph.nodes, index, fix, isOfPage))
        return false;
    rearm(graph.nodes[index]);
    publish(u"AutomaticCorrection"_s, u"На странице есть кнопки, которые ничего не меняют. Исправляю код."_s);
    persist();
    scheduleNodes();
    return true;
}

void Engine::recoverVerification(int index, const QJsonObject &result)
{
    const QJsonObject input = graph.nodes.at(index).input;
    if (!isCheck(graph.nodes.at(index))) {
        fail(u"Команда завершилась ошибкой. Подробности сохранены в журнале инструмента."_s);
        return;
    }
    const int attempts = input["recovery_attempts"_L1].toInt();
    if (attempts >= maxRecoveries) {
        fail(u"Проверка не прошла после трёх циклов исправления. Файлы и журнал сохранены."_s);
        return;
    }
    if (!sendBack(graph.nodes, index, recoveryFix(input, result))) {
        fail(u"Проверка завершилась ошибкой; в плане нет файлов для автоматического исправления."_s);
        return;
    }
    for (const QString &codeId : codeNodeIds()) {
        if (testedRevisions(graph.nodes, index).contains(codeId))
            repeatStepsOf(codeId);
    }
    graph.nodes[index].input["recovery_attempts"_L1] = attempts + 1;
    graph.nodes[index].status = NodeStatus::queued;
    publish(u"AutomaticCorrection"_s, u"Проверка не прошла. Исправляю код, цикл %1 из 3."_s.arg(attempts + 1));
    persist();
    scheduleNodes();
}

} // namespace vesk
