// An approved plan becomes running work.

#include "engine_p.h"

#include "edit_look.h"
#include "file_excerpt.h"
#include "path_rules.h"
#include "project_checks.h"
#include "rework.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxDependencyChars = 12000;
constexpr qsizetype maxWholeFile = 30000; ///< A longer one no answer can bring whole.
constexpr qsizetype maxPassages = 24000;
constexpr int segmentedFromChars = 12000;
constexpr int segmentChars = 6000;
constexpr int smallestSegment = 300;
constexpr int maxParts = 50;

bool isSegmented(const Node &node)
{
    const QString path = pathOf(node);
    return node.input["min_chars"_L1].toInt() >= segmentedFromChars
        && (path.endsWith(".md"_L1, Qt::CaseInsensitive) || path.endsWith(".txt"_L1, Qt::CaseInsensitive));
}

/// What a dependant gets to see of a finished node.
QJsonObject dependencyOutput(QJsonObject output)
{
    const QString content = output.value("content"_L1).toString();
    if (content.size() > maxDependencyChars) {
        output["content"_L1] = content.left(maxDependencyChars);
        output["content_truncated"_L1] = true;
    }
    return output;
}

/// What the engine counts in a node begins anew with it: a plan's own numbers would lift the limits.
void dropCounters(QJsonObject &input)
{
    for (const auto key : {"fix_attempts"_L1, "output_repairs"_L1, "recovery_attempts"_L1, "recovery_fixes"_L1,
                           "builtin"_L1, "notes_told"_L1})
        input.remove(key);
}

QJsonObject segmentOf(const QString &content, int target, int part)
{
    const int current = int(content.size());
    return {
        {u"index"_s, part},
        {u"current_chars"_s, current},
        {u"target_chars"_s, target},
        {u"minimum_new_chars"_s, std::min(target - current, segmentChars)},
        {u"previous_tail"_s, content.right(segmentChars)},
        {u"final_segment"_s, current + segmentChars >= target},
    };
}

} // namespace

void Engine::activatePlan()
{
    graph.load(plan["nodes"_L1].toArray());
    for (Node &node : graph.nodes) {
        node.status = NodeStatus::queued;
        node.output = {};
        node.revision = 0;
        dropCounters(node.input);
        if (isCode(node) && !pathOf(node).isEmpty())
            node.input["path"_L1] = slashed(pathOf(node));
    }
    // Of another plan than the one that checks were added to before.
    for (const QString &flag : {u"checks_prepared"_s, u"browser_check_prepared"_s})
        spec.remove(flag);
    markOwnChecks(graph.nodes, checkTools());
    tieLooseChecks(graph.nodes);
    const QJsonObject command = spec["build_command"_L1].toObject();
    if (!command.isEmpty())
        bindBuildCommand(command);

    if (simulation)
        stage(Phase::preview);
    else
        execution();
}

/// The user's build command becomes a check behind all code, be it the plan's own node or one that is added.
void Engine::bindBuildCommand(const QJsonObject &command)
{
    int check = -1;
    for (int i = 0; i < graph.nodes.size(); ++i) {
        if (runsCommand(graph.nodes.at(i), command["program"_L1], command["arguments"_L1]))
            check = i;
    }
    if (check < 0) {
        Node node;
        node.title = u"Проверить сборку"_s;
        node.kind = u"tool"_s;
        node.input = command;
        check = appendNode(std::move(node));
    }

    Node &node = graph.nodes[check];
    node.input["verification"_L1] = true;
    for (const QString &codeId : codeNodeIds()) {
        if (!node.dependencies.contains(codeId))
            node.dependencies.append(codeId);
    }
    graph.validate();
}

QStringList Engine::codePaths() const
{
    QStringList paths;
    for (const Node &node : graph.nodes) {
        if (isCode(node))
            paths.append(pathOf(node));
    }
    return paths;
}

int Engine::appendNode(Node node)
{
    node.id = id();
    graph.nodes.append(std::move(node));
    return int(graph.nodes.size()) - 1;
}

QStringList Engine::codeNodeIds() const
{
    QStringList ids;
    for (const Node &node : graph.nodes) {
        if (isCode(node))
            ids.append(node.id);
    }
    return ids;
}

QJsonArray Engine::graphWithoutOutputs() const
{
    QJsonArray nodes;
    for (const Node &node : graph.nodes)
        nodes.append(withoutOutput(node));
    return nodes;
}

void Engine::execution()
{
    lookForEdits(std::make_shared<EditLook>(workspace));
}

/// All files of a large project are looked at on several turns of the event loop.
void Engine::lookForEdits(const std::shared_ptr<EditLook> &look)
{
    if (look->lookOn())
        later(0, [this, look] { lookForEdits(look); });
    else if (!askAboutEdits(look->edits(), [this] { execution(); }))
        beginExecution();
}

void Engine::beginExecution()
{
    QJsonObject checkpoint;
    try {
        checkpoint = workspace.checkpoint(taskId, graph.toJson());
    } catch (const std::exception &) {
        // A file may have been edited since it was looked at.
        if (askAboutEdits(workspace.handEdits(), [this] { execution(); }))
            return;
        throw;
    }
    publish(u"CheckpointCreated"_s, u"Before execution"_s, checkpoint);
    stage(Phase::execution);
    scheduleNodes();
}

void Engine::runPreview()
{
    require(phase == Phase::preview && simulation, u"No preview ready"_s);
    simulation = false;
    grantWriting();
    step([this] { execution(); });
}

void Engine::scheduleNodes()
{
    if (paused || phase != Phase::execution)
        return;
    if (graph.complete()) {
        finalValidation();
        return;
    }
    const QList<int> ready = graph.ready();
    for (const int index : ready) {
        if (phase != Phase::execution)
            break;
        // A node that ends at once comes back here before its own start has returned. By then the rest of the list may
        // have been started, or wait again for a file that is being rewritten.
        const QString &status = graph.nodes.at(index).status;
        if (isStartable(status) && isReleased(index))
            executeNode(index);
    }
}

/// Whether all that the node depends on is done.
bool Engine::isReleased(int index) const
{
    const QStringList &dependencies = graph.nodes.at(index).dependencies;
    return std::ranges::none_of(graph.nodes, [&](const Node &node) {
        return node.status != NodeStatus::completed && dependencies.contains(node.id);
    });
}

void Engine::executeNode(int index)
{
    Node &node = graph.nodes[index];
    node.status = NodeStatus::running;
    if (isCode(node)) {
        const QJsonArray fixes = node.input.take("recovery_fixes"_L1).toArray();
        codeNode(index, fixes);
    } else if (node.kind == "tool"_L1) {
        runTool(index);
    } else if (node.kind == "mcp"_L1) {
        callMcp(index);
    } else {
        const QJsonObject context{{u"node"_s, node.toJson()}, {u"structure"_s, structure}};
        enqueue(u"specialist"_s, context, [this, index](const QJsonObject &answer) {
            graph.nodes[index].output = answer;
            graph.nodes[index].status = NodeStatus::completed;
            persist();
            scheduleNodes();
        });
    }
}

void Engine::codeNode(int index, const QJsonArray &fixes)
{
    if (!busy())
        return;
    graph.nodes[index].status = NodeStatus::running;
    const QString path = pathOf(graph.nodes.at(index));
    if (askAboutEdits(editsOf({path}), [this, index, fixes] { codeNode(index, fixes); }))
        return;
    // Nothing is left to change in a file that the user wants gone; an objection may still ask for it.
    if (leftOut.remove(path) && fixes.isEmpty()) {
        takeOwn(index, workspace.latest(path));
        return;
    }
    if (!fixes.isEmpty()) {
        // A changed file invalidates every check that has passed.
        for (Node &node : graph.nodes) {
            if (isCheck(node) && node.status == NodeStatus::completed)
                rearm(node);
        }
        repeatStepsOf(graph.nodes.at(index).id);
    }

    const Node &node = graph.nodes.at(index);
    QJsonObject payload = codingPayload(node, fixes);
    if (isSegmented(node)) {
        payload.remove("previous_file"_L1);
        documentPart(index, payload, {}, node.input["min_chars"_L1].toInt(), 1);
        return;
    }
    enqueue(u"coding"_s, payload, [this, index](const QJsonObject &answer) { writeCodeResult(index, answer); });
}

QJsonObject Engine::codingPayload(const Node &node, const QJsonArray &fixes) const
{
    QJsonObject payload{{u"node"_s, withoutOutput(node)}, {u"structure"_s, structure}};

    QJsonObject file = workspace.latest(pathOf(node));
    if (!file.isEmpty() && !file.value("deleted"_L1).toBool()) {
        const QString text = QString::fromUtf8(workspace.read(pathOf(node)));
        file["content"_L1] = text;
        if (text.size() > maxWholeFile)
            file = excerpted(file, namedLines(text, namedIn(withoutOutput(node), fixes)), maxPassages);
        payload["previous_file"_L1] = file;
    }

    QJsonArray dependencies;
    for (const Node &other : graph.nodes) {
        if (node.dependencies.contains(other.id))
            dependencies.append(dependencyOutput(other.output));
    }
    payload["dependencies"_L1] = dependencies;
    if (!fixes.isEmpty())
        payload["fixes"_L1] = fixes;
    return payload;
}

void Engine::documentPart(int index, QJsonObject payload, const QString &content, int target, int part)
{
    payload["segment"_L1] = segmentOf(content, target, part);
    enqueue(u"coding"_s, payload, whileThisRun([=, this](const QJsonObject &answer) {
                takeDocumentPart(index, payload, content, target, part, answer);
            }));
}

void Engine::takeDocumentPart(int index, const QJsonObject &payload, const QString &content, int target, int part,
                              const QJsonObject &answer)
{
    const Node &node = graph.nodes.at(index);
    const QJsonArray files = answer["files"_L1].toArray();
    require(files.size() == 1, u"Для части документа нужен один файл"_s);
    QJsonObject file = files.first().toObject();
    require(slashed(file["path"_L1].toString()) == pathOf(node), u"Часть документа изменила путь файла"_s);
    const QString chunk = file["content"_L1].toString();
    require(chunk.trimmed().size() >= std::min<qsizetype>(target - content.size(), smallestSegment),
            u"Модель не добавила содержательную часть документа"_s);

    const QString merged = content + chunk;
    store.put(u"artifacts"_s, taskId + u':' + node.id + u":draft"_s, taskId,
              {{u"type"_s, u"DocumentDraft"_s}, {u"path"_s, pathOf(node)}, {u"content"_s, merged}, {u"part"_s, part}});
    publish(u"AutomaticCorrection"_s, u"Документ: подготовлено %1 из %2 символов"_s.arg(merged.size()).arg(target));

    if (merged.size() < target) {
        require(part < maxParts, u"Документ сохранён в черновиках: достигнут предел частей"_s);
        later(0, [=, this] { documentPart(index, payload, merged, target, part + 1); });
        return;
    }
    file["content"_L1] = merged;
    writeCodeResult(index, {{u"files"_s, QJsonArray{file}}});
}

} // namespace vesk
