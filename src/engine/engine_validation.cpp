// A finished graph is not yet a finished task: observer and validator look at it, then come the gates that no model
// decides on.

#include "engine_p.h"

#include "rework.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxFinalFixCycles = 6;
constexpr qsizetype maxFileChars = 12000;
constexpr qsizetype maxProjectChars = 64000;

} // namespace

void Engine::finalValidation()
{
    QStringList paths = codePaths();
    if (!workspace.latest(u"package.json"_s).isEmpty() && !paths.contains(u"package.json"_s))
        paths.append(u"package.json"_s);
    const auto settled = [this] {
        if (!takeSettled())
            finalValidation();
    };
    if (!askAboutEdits(editsOf(paths), settled))
        validate();
}

void Engine::validate()
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
                tryTests();
                return;
            }
            consult(u"final"_s, {{u"review"_s, review}, {u"graph"_s, compact}},
                    [this, review] { reworkAfterValidation(review); });
        });
    });
}

/// The graph with the size of each text in place of the text.
QJsonArray Engine::compactGraph() const
{
    QJsonArray compact;
    for (const Node &node : graph.nodes) {
        QJsonObject output = node.output;
        output["content_chars"_L1] = output.take("content"_L1).toString().size();
        QJsonObject object = node.toJson();
        object["output"_L1] = output;
        compact.append(object);
    }
    return compact;
}

/// Graph, files and all fixes; what is too much for a request is left to its making.
QJsonObject Engine::validatorContext() const
{
    return {
        {u"graph"_s, compactGraph()},
        {u"project_files"_s, projectFiles()},
        {u"open_fixes"_s, store.list(u"fix_requests"_s, taskId)},
    };
}

/// The start of each file, as far as there is room for all of them.
QJsonArray Engine::projectFiles() const
{
    QJsonArray files;
    qsizetype left = maxProjectChars;
    for (const Node &node : graph.nodes) {
        if (!isCode(node) || isGivenUp(node))
            continue;
        const QString text = QString::fromUtf8(workspace.recorded(pathOf(node)));
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
        if (!isCode(node) || isGivenUp(node))
            continue;
        const QString path = pathOf(node);
        require(!workspace.stale(path, node.revision), u"Final gate: stale file revision"_s);
        require(digest(workspace.read(path)) == workspace.latest(path)["hash"_L1].toString(),
                u"Final gate: external file change"_s);
    }

    evidence = readEvidence();
    QJsonObject ledger = evidence;
    ledger["type"_L1] = u"Evidence"_s;
    store.put(u"artifacts"_s, id(), taskId, ledger);
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
    const int target = reworkTarget(graph.nodes, review);
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

} // namespace vesk
