// Real checks that the plan left out, and the way back to the code from one that failed.

#include "engine_p.h"

#include "programs.h"
#include "project_checks.h"
#include "rework.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxRecoveries = 3;
constexpr int checkTimeoutMs = 120000;
constexpr int browserTimeoutMs = 35000;

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
    addBuildChecks(codeIds);
    const bool hasNode = !std::as_const(spec)["available_executables"_L1]["node"_L1].toString().isEmpty();
    if (graph.nodes.size() == sizeBefore && hasNode) {
        for (const ProjectCheck &check : syntaxChecks(graph.nodes))
            addCheck(check);
    }
    if (graph.nodes.size() == sizeBefore)
        return false;

    graph.validate();
    plan["nodes"_L1] = graphWithoutOutputs();
    runAddedChecks(u"Добавил реальные проверки проекта. Команды требуют разрешения в приложении."_s);
    return true;
}

void Engine::addBuildChecks(const QStringList &codeIds)
{
    const QJsonObject file = workspace.latest(u"package.json"_s);
    if (file.isEmpty() || file["deleted"_L1].toBool())
        return;
    const QJsonObject package = QJsonDocument::fromJson(workspace.read(u"package.json"_s)).object();
    const QJsonObject executables = spec["available_executables"_L1].toObject();
    const BuildChecks needed = buildChecks(package, codeIds,
                                           {executables["node"_L1].toString(), executables["npm_cli"_L1].toString(),
                                            QFileInfo(workspace.root() + u"/node_modules"_s).isDir()});
    if (!needed.limitation.isEmpty()) {
        spec["verification_limitation"_L1] = needed.limitation;
        publish(u"VerificationUnavailable"_s, needed.limitation);
    }

    QStringList before;
    for (ProjectCheck check : needed.checks) {
        check.after += before;
        const QString id = addCheck(check);
        waitFor(id, before);
        before = {id};
    }
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
    if (path == "package.json"_L1 && spec.value("checks_prepared"_L1).toBool())
        addBuildChecks(codeNodeIds());
}

/// The id of the check; the plan's own node counts when it runs the same command.
QString Engine::addCheck(const ProjectCheck &needed)
{
    const QJsonValue program = std::as_const(spec)["available_executables"_L1]["node"_L1];
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
    if (spec.value("browser_check_prepared"_L1).toBool() || provider->name().contains("Mock"_L1))
        return false;
    spec["browser_check_prepared"_L1] = true;
    const QString node = spec["available_executables"_L1]["node"_L1].toString();
    const QString script = QCoreApplication::applicationDirPath() + u"/tools/browser-check.mjs"_s;
    const QString browser = browserProgram();
    const QString page = pageToCheck(graph.nodes, QFileInfo(workspace.root() + u"/dist/index.html"_s).isFile());
    if (node.isEmpty() || browser.isEmpty() || page.isEmpty() || !QFileInfo(script).isFile())
        return false;
    require(graph.nodes.size() < TaskGraph::maxNodes, u"Нет места для браузерной проверки"_s);

    Node check;
    check.title = u"Проверить сайт в браузере"_s;
    check.kind = u"tool"_s;
    check.dependencies = codeNodeIds();
    check.input = {
        {u"program"_s, node},
        {u"arguments"_s, QJsonArray{script, browser, workspace.resolve(page)}},
        {u"verification"_s, true},
        {u"timeout_ms"_s, browserTimeoutMs},
    };
    appendNode(std::move(check));
    graph.validate();
    runAddedChecks(u"Проверяю загрузку сайта, ошибки JavaScript и отображение на двух размерах экрана."_s);
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
