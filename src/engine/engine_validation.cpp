// A finished graph is not yet a finished task: real checks that the plan left out, then observer and validator, then
// the gates that no model decides on.

#include "engine_p.h"

#include "programs.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxRecoveries = 3;
constexpr int maxFinalFixCycles = 6;
constexpr qsizetype maxCheckOutput = 16000;
constexpr qsizetype maxFileChars = 12000;
constexpr qsizetype maxProjectChars = 64000;
constexpr qsizetype wholeOutput = std::numeric_limits<qsizetype>::max();
constexpr qsizetype shortestOutput = 1000;
constexpr int checkTimeoutMs = 120000;
constexpr int browserTimeoutMs = 35000;

bool isScript(const QString &path)
{
    return path.endsWith(".js"_L1) || path.endsWith(".mjs"_L1) || path.endsWith(".cjs"_L1);
}

bool isFilledObject(const QJsonValue &value)
{
    return !value.toObject().isEmpty();
}

/// All ids that the node with this index waits for, directly or not.
QSet<QString> upstreamOf(const QList<Node> &nodes, int index)
{
    QHash<QString, QStringList> links;
    for (const Node &node : nodes)
        links.insert(node.id, node.dependencies);

    QSet<QString> found;
    QStringList open = nodes.at(index).dependencies;
    while (!open.isEmpty()) {
        const QString id = open.takeLast();
        if (found.contains(id))
            continue;
        found.insert(id);
        open += links.value(id);
    }
    return found;
}

QJsonObject recoveryFix(const QJsonObject &command, const QJsonObject &result)
{
    return {
        {u"issues"_s, QJsonArray{u"Реальная проверка завершилась ошибкой"_s}},
        {u"command"_s, command},
        {u"stdout"_s, result["stdout"_L1].toString().right(maxCheckOutput)},
        {u"stderr"_s, result["stderr"_L1].toString().right(maxCheckOutput)},
        {u"error"_s, result["error"_L1]},
        {u"required_changes"_s,
         QJsonArray{u"Исправь причину ошибки в своём файле. Не отключай тесты и не скрывай ошибки."_s}},
    };
}

} // namespace

void Engine::finalValidation()
{
    if (prepareProjectChecks() || prepareBrowserCheck())
        return;
    stage(Phase::validation);

    const QJsonObject evidence = validatorContext();
    const QJsonArray compact = evidence["graph"_L1].toArray();
    const QJsonObject observed{{u"graph"_s, compact}, {u"tokens"_s, budget.used}};
    enqueue(u"observer"_s, observed, [this, evidence, compact](const QJsonObject &observation) {
        publish(u"ObserverReport"_s, observation["summary"_L1].toString());
        enqueue(u"validator"_s, evidence, [this, compact](const QJsonObject &review) {
            if (review["verdict"_L1].toString() == "APPROVE"_L1) {
                passGates();
                return;
            }
            consult(u"final"_s, {{u"review"_s, review}, {u"graph"_s, compact}},
                    [this, review] { reworkAfterValidation(review); });
        });
    });
}

bool Engine::prepareProjectChecks()
{
    if (spec.value("checks_prepared"_L1).toBool())
        return false;
    spec["checks_prepared"_L1] = true;
    const QString node = spec["available_executables"_L1]["node"_L1].toString();
    const QStringList codeIds = codeNodeIds();
    if (codeIds.isEmpty())
        return false;

    const qsizetype sizeBefore = graph.nodes.size();
    const QJsonObject package = workspace.latest(u"package.json"_s);
    if (!package.isEmpty() && !package["deleted"_L1].toBool())
        addBuildChecks(QJsonDocument::fromJson(workspace.read(u"package.json"_s)).object(), codeIds);

    if (graph.nodes.size() == sizeBefore && !node.isEmpty()) {
        for (qsizetype i = 0; i < sizeBefore; ++i) {
            const Node code = graph.nodes.at(i);
            if (isCode(code) && isScript(pathOf(code)))
                addCheck(u"Проверить синтаксис "_s + pathOf(code), {u"--check"_s, pathOf(code)}, true, {code.id});
        }
    }
    if (graph.nodes.size() == sizeBefore)
        return false;

    graph.validate();
    plan["nodes"_L1] = graphWithoutOutputs();
    runAddedChecks(u"Добавил реальные проверки проекта. Команды требуют разрешения в приложении."_s);
    return true;
}

void Engine::addBuildChecks(const QJsonObject &package, const QStringList &codeIds)
{
    if (package["scripts"_L1]["build"_L1].toString().isEmpty())
        return;
    const QJsonObject executables = spec["available_executables"_L1].toObject();
    const QString npm = executables["npm_cli"_L1].toString();
    if (executables["node"_L1].toString().isEmpty() || npm.isEmpty()) {
        const QString limitation = u"Node.js/npm не найдены: сборка package.json не выполнена."_s;
        spec["verification_limitation"_L1] = limitation;
        publish(u"VerificationUnavailable"_s, limitation);
        return;
    }

    QStringList dependencies = codeIds;
    const bool needsPackages
        = isFilledObject(package["dependencies"_L1]) || isFilledObject(package["devDependencies"_L1]);
    if (needsPackages && !QFileInfo(workspace.root() + u"/node_modules"_s).isDir())
        dependencies.append(addCheck(u"Установить зависимости проекта"_s,
                                     {npm, u"install"_s, u"--no-audit"_s, u"--no-fund"_s}, false, codeIds));
    addCheck(u"Проверить сборку проекта"_s, {npm, u"run"_s, u"build"_s}, true, dependencies);
}

/// The id of the check; the plan's own node counts when it runs the same command.
QString Engine::addCheck(const QString &title, const QJsonArray &arguments, bool verification,
                         const QStringList &dependencies)
{
    const QJsonValue program = spec["available_executables"_L1]["node"_L1];
    for (const Node &node : std::as_const(graph.nodes)) {
        if (node.kind == "tool"_L1 && node.input["program"_L1] == program && node.input["arguments"_L1] == arguments)
            return node.id;
    }
    require(graph.nodes.size() < TaskGraph::maxNodes,
            u"Для проверок не осталось места в плане; разделите проект на этапы"_s);

    Node check;
    check.title = title;
    check.kind = u"tool"_s;
    check.dependencies = dependencies;
    check.input = {
        {u"program"_s, program},
        {u"arguments"_s, arguments},
        {u"verification"_s, verification},
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
    const QString page = pageToCheck();
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

/// The page of the project that a browser can open; empty when there is none.
QString Engine::pageToCheck() const
{
    QString page;
    for (const Node &node : graph.nodes) {
        if (!isCode(node) || !pathOf(node).endsWith(".html"_L1))
            continue;
        if (page.isEmpty() || pathOf(node) == "index.html"_L1)
            page = pathOf(node);
    }
    if (!page.isEmpty() && QFileInfo(workspace.root() + u"/dist/index.html"_s).isFile())
        page = u"dist/index.html"_s;
    return page;
}

/// The graph with the size of each text in place of the text, and of what programs printed the last `printed`
/// characters of each channel.
QJsonArray Engine::compactGraph(qsizetype printed) const
{
    QJsonArray compact;
    for (const Node &node : graph.nodes) {
        QJsonObject output = node.output;
        output["content_chars"_L1] = output.take("content"_L1).toString().size();
        for (const QString &channel : {u"stdout"_s, u"stderr"_s}) {
            const QString text = output.value(channel).toString();
            if (text.size() > printed)
                output[channel] = text.right(printed);
        }
        QJsonObject object = node.toJson();
        object["output"_L1] = output;
        compact.append(object);
    }
    return compact;
}

/// Graph, files and open fixes. Together they may be more than a request holds, and then no such task could ever end:
/// what programs printed gives way first, a megabyte each at most, then the files, by what is too much.
QJsonObject Engine::validatorContext() const
{
    QJsonObject context{
        {u"graph"_s, compactGraph(wholeOutput)},
        {u"project_files"_s, projectFiles(maxProjectChars)},
        {u"open_fixes"_s, store.list(u"fix_requests"_s, taskId)},
    };
    const auto excess = [&] { return inputChars(u"validator"_s, context) - maxContextChars; };
    for (qsizetype printed = maxCheckOutput; excess() > 0 && printed >= shortestOutput; printed /= 2)
        context["graph"_L1] = compactGraph(printed);
    for (qsizetype room = maxProjectChars; excess() > 0 && room > 0;) {
        room -= std::min(room, excess());
        context["project_files"_L1] = projectFiles(room);
    }
    return context;
}

/// The start of each file; `left` is the room for all of them, in characters.
QJsonArray Engine::projectFiles(qsizetype left) const
{
    QJsonArray files;
    for (const Node &node : graph.nodes) {
        if (!isCode(node))
            continue;
        const QString text = QString::fromUtf8(workspace.read(pathOf(node)));
        const qsizetype taken = std::min({left, text.size(), maxFileChars});
        left -= taken;
        files.append(QJsonObject{
            {u"path"_s, pathOf(node)},
            {u"content"_s, text.left(taken)},
            {u"truncated"_s, taken < text.size()},
            {u"revision"_s, node.revision},
        });
    }
    return files;
}

void Engine::passGates()
{
    require(graph.complete(), u"Final gate: graph incomplete"_s);
    require(pendingPermissions.isEmpty(), u"Final gate: permissions pending"_s);
    const QJsonArray fixes = store.list(u"fix_requests"_s, taskId);
    require(std::ranges::none_of(fixes,
                                 [](const QJsonValue &fix) { return fix["status"_L1].toString() == FixStatus::open; }),
            u"Final gate: unresolved fixes"_s);
    for (const Node &node : std::as_const(graph.nodes)) {
        if (!isCode(node))
            continue;
        const QString path = pathOf(node);
        require(!workspace.stale(path, node.revision), u"Final gate: stale file revision"_s);
        require(digest(workspace.read(path)) == workspace.latest(path)["hash"_L1].toString(),
                u"Final gate: external file change"_s);
    }

    store.put(u"artifacts"_s, id(), taskId,
              {{u"type"_s, u"FinalReport"_s},
               {u"version"_s, 1},
               {u"nodes"_s, graph.toJson()},
               {u"tokens"_s, budget.used},
               {u"runs"_s, runs.size()}});
    completeRun(u"Acceptance review and core completion gates passed"_s,
                {{u"tokens"_s, budget.used}, {u"runs"_s, runs.size()}, {u"nodes"_s, graph.nodes.size()}});
}

void Engine::reworkAfterValidation(const QJsonObject &review)
{
    const int target = reworkTarget(review);
    if (target < 0) {
        planning();
        return;
    }
    const int attempts = graph.nodes.at(target).input["fix_attempts"_L1].toInt();
    const int cycles = spec.value("final_fix_cycles"_L1).toInt();
    if (attempts >= maxFixAttempts || cycles >= maxFinalFixCycles) {
        fail(u"Финальная проверка не пройдена после исправлений. Файлы сохранены. Причина: "_s
             + joinedIssues({review}));
        return;
    }
    spec["final_fix_cycles"_L1] = cycles + 1;
    graph.nodes[target].input["fix_attempts"_L1] = attempts + 1;
    graph.nodes[target].status = NodeStatus::revisionRequired;
    stage(Phase::execution);
    codeNode(target, {review});
}

/// The first code node that the review names, else the first one; -1 when there is none.
int Engine::reworkTarget(const QJsonObject &review) const
{
    const QString text = json(review);
    int first = -1;
    for (int i = 0; i < graph.nodes.size(); ++i) {
        const Node &node = graph.nodes.at(i);
        if (!isCode(node))
            continue;
        if (text.contains(pathOf(node)))
            return i;
        if (first < 0)
            first = i;
    }
    return first;
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
    if (!sendBackUpstream(index, recoveryFix(input, result))) {
        fail(u"Проверка завершилась ошибкой; в плане нет файлов для автоматического исправления."_s);
        return;
    }
    graph.nodes[index].input["recovery_attempts"_L1] = attempts + 1;
    graph.nodes[index].status = NodeStatus::queued;
    publish(u"AutomaticCorrection"_s, u"Проверка не прошла. Исправляю код, цикл %1 из 3."_s.arg(attempts + 1));
    persist();
    scheduleNodes();
}

/// Queues all code that the check depends on, with the fix; false when there is none.
bool Engine::sendBackUpstream(int index, const QJsonObject &fix)
{
    const QSet<QString> upstream = upstreamOf(graph.nodes, index);
    bool found = false;
    for (Node &node : graph.nodes) {
        if (!isCode(node) || !upstream.contains(node.id))
            continue;
        found = true;
        if (node.status == NodeStatus::completed) {
            node.status = NodeStatus::queued;
            node.input["recovery_fixes"_L1] = QJsonArray{fix};
        } else if (node.status == NodeStatus::queued) {
            // Another check has failed over the same file and its repair has not begun: it gets both reports.
            QJsonArray fixes = node.input["recovery_fixes"_L1].toArray();
            fixes.append(fix);
            node.input["recovery_fixes"_L1] = fixes;
        }
        // Else it is being rewritten right now. Queued again it would be written twice at a time, and the review of
        // the first version would end the run; this check runs again after the rewrite.
    }
    return found;
}

/// What a check would test now: the revision of every file that it depends on, by node.
QHash<QString, int> Engine::testedRevisions(int index) const
{
    const QSet<QString> upstream = upstreamOf(graph.nodes, index);
    QHash<QString, int> revisions;
    for (const Node &node : graph.nodes) {
        if (isCode(node) && upstream.contains(node.id))
            revisions.insert(node.id, node.revision);
    }
    return revisions;
}

/// A check that was under way when the order to rewrite a file came, and passed before it was written, has passed for
/// the text that is gone.
void Engine::rearmChecksOf(const QString &codeId)
{
    for (int i = 0; i < graph.nodes.size(); ++i) {
        Node &node = graph.nodes[i];
        if (isCheck(node) && node.status == NodeStatus::completed && upstreamOf(graph.nodes, i).contains(codeId))
            rearm(node);
    }
}

void Engine::runPreview()
{
    require(phase == Phase::preview, u"No preview ready"_s);
    simulation = false;
    permissions.grants.append(
        {u"write_file"_s, taskId, workspace.project(), {}, u"CURRENT_TASK"_s, PermissionLevel::Write});
    step([this] { execution(); });
}

} // namespace vesk
