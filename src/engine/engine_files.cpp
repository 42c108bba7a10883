// A coding answer is not trusted: its list of files is checked, each file is written as a revision, and each revision
// goes before two reviewers.

#include "engine_p.h"

#include "code_answer.h"
#include "path_rules.h"
#include "rework.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxFormatRepairs = 3;
constexpr qsizetype maxShownPath = 200;

QString filePath(const QJsonValue &file)
{
    return file["path"_L1].toString();
}

/// One file has one name, whichever slashes a model has written.
QJsonArray withForwardSlashes(const QJsonArray &files)
{
    QJsonArray same;
    for (const QJsonValue &value : files) {
        QJsonObject file = value.toObject();
        file["path"_L1] = slashed(filePath(file));
        same.append(file);
    }
    return same;
}

} // namespace

void Engine::writeCodeResult(int index, const QJsonObject &answer)
{
    QJsonArray files = answer["files"_L1].toArray();
    const QString expected = expectedPath(pathOf(graph.nodes.at(index)), files);
    if (expected != pathOf(graph.nodes.at(index)))
        graph.nodes[index].input["path"_L1] = expected;

    QString fault;
    files = assembled(files, expected, fault);
    if (!fault.isEmpty()) {
        repairFileList(index, fault,
                       u"Повтори правки файла "_s + expected
                           + u": old дословно повторяет текст, который встречается в файле ровно один раз; правки не "
                             u"пересекаются."_s);
        return;
    }
    fault = faultOf(index, files);
    if (!fault.isEmpty()) {
        repairFileList(index, fault,
                       u"Верни только полный файл "_s + expected
                           + u". Не изменяй пути других узлов. Дополнительные файлы должны иметь уникальные пути "
                             u"внутри проекта."_s);
        return;
    }

    files = withForwardSlashes(files);
    const auto others = splitOff(index, files, expected);
    for (const auto &[other, file] : others) {
        if (!busy())
            return;
        writeCodeResult(other, {{u"files"_s, QJsonArray{file}}});
    }
    if (busy())
        writeFile(index, fileAt(expected, files));
}

/// The files with their whole texts: edits of the node's own file are carried out on what stands there.
QJsonArray Engine::assembled(const QJsonArray &files, const QString &expected, QString &fault) const
{
    QJsonArray whole;
    for (const QJsonValue &value : files) {
        QJsonObject file = value.toObject();
        const QJsonArray edits = file.take("edits"_L1).toArray();
        if (slashed(filePath(file)) == expected)
            file["path"_L1] = expected;
        const QString path = filePath(file);
        if (!edits.isEmpty() && file["content"_L1].toString().isEmpty()) {
            const QJsonObject known = workspace.latest(path);
            if (path != expected || known.isEmpty() || known["deleted"_L1].toBool()) {
                fault = u"Нет текста, в который можно внести правки: "_s + path;
                return {};
            }
            const Edited result = edited(path, QString::fromUtf8(workspace.recorded(path)), edits);
            if (!result.fault.isEmpty()) {
                fault = result.fault;
                return {};
            }
            file["content"_L1] = result.text;
        }
        whole.append(file);
    }
    return whole;
}

QString Engine::faultOf(int index, const QJsonArray &files) const
{
    QStringList foreign;
    for (int i = 0; i < graph.nodes.size(); ++i) {
        if (i != index && isCode(graph.nodes.at(i)))
            foreign.append(pathOf(graph.nodes.at(i)));
    }
    return filesFault(files, {pathOf(graph.nodes.at(index)), foreign, graph.nodes.size(), [this](const QString &path) {
                                  return fileFault(path);
                              }});
}

/// Why no file can be written to a path; empty when nothing is known against it.
QString Engine::fileFault(const QString &path) const
{
    const QString fault = pathFault(path);
    if (!fault.isEmpty())
        return fault;
    const QString shown = path.left(maxShownPath);
    switch (workspace.room(path)) {
    case ConfinedFolder::Room::Free:
        break;
    case ConfinedFolder::Room::Taken:
        return u"Этот путь занят папкой или другим объектом, который не является файлом: "_s + shown;
    case ConfinedFolder::Room::BelowFile:
        return u"На пути стоит файл, в нём не может быть других файлов: "_s + shown;
    case ConfinedFolder::Room::NameTooLong:
        return u"Слишком длинное имя файла: "_s + shown;
    }
    return {};
}

/// Why the workspace refuses a path; empty when it doesn't.
QString Engine::pathFault(const QString &path) const
{
    try {
        workspace.resolve(path);
        return {};
    } catch (const std::exception &fault) {
        return textOf(fault);
    }
}

void Engine::repairFileList(int index, const QString &fault, const QString &change)
{
    QJsonObject &input = graph.nodes[index].input;
    const int repairs = input["output_repairs"_L1].toInt();
    if (repairs >= maxFormatRepairs) {
        fail(u"Не удалось исправить формат файлов после трёх попыток: "_s + fault);
        return;
    }
    input["output_repairs"_L1] = repairs + 1;
    publish(u"AutomaticCorrection"_s, u"Уточняю список файлов: "_s + fault);
    codeNode(index, {QJsonObject{{u"issues"_s, QJsonArray{fault}}, {u"required_changes"_s, QJsonArray{change}}}});
}

/// Gives every further file of an answer a node of its own, which dependants then wait for as well.
QList<std::pair<int, QJsonObject>> Engine::splitOff(int index, const QJsonArray &files, const QString &primaryPath)
{
    QList<std::pair<int, QJsonObject>> added;
    QStringList ids;
    for (const QJsonValue &file : files) {
        const QString path = filePath(file);
        if (path == primaryPath)
            continue;
        Node node = graph.nodes.at(index);
        node.title = u"Создать "_s + path;
        node.input["path"_L1] = path;
        node.input.remove("output_repairs"_L1);
        node.input.remove("fix_attempts"_L1);
        node.output = {};
        node.revision = 0;
        node.status = NodeStatus::running;
        added.append({appendNode(std::move(node)), file.toObject()});
        ids.append(graph.nodes.constLast().id);
    }
    if (added.isEmpty())
        return added;

    const QString owner = graph.nodes.at(index).id;
    for (Node &node : graph.nodes) {
        if (node.dependencies.contains(owner))
            node.dependencies += ids;
    }
    graph.validate();
    plan["nodes"_L1] = graphWithoutOutputs();
    publish(u"AutomaticCorrection"_s,
            u"Разделил ответ на %1 файлов. Каждый будет проверен отдельно."_s.arg(files.size()));
    persist();
    return added;
}

void Engine::writeFile(int index, const QJsonObject &file)
{
    const QString path = filePath(file);
    const Agent author = agentFor(u"coding"_s);
    const QJsonObject arguments{
        {u"path"_s, path},
        {u"content"_s, file["content"_L1]},
        {u"expected_revision"_s, workspace.latest(path)["revision"_L1].toInt()},
    };
    tools.execute(taskId, author.id, author.allowed_tools, u"write_file"_s, arguments,
                  whileThisRun([this, index, file](const QJsonObject &result) {
                      step([&] { takeWritten(index, file, result); });
                  }));
}

void Engine::takeWritten(int index, const QJsonObject &file, const QJsonObject &result)
{
    requireRecorded(result);
    if (result["success"_L1].toBool()) {
        takeRevision(index, result["revision"_L1].toObject());
        return;
    }
    const QString path = filePath(file);
    const int known = workspace.latest(path)["revision"_L1].toInt();
    const bool waits = askAboutEdits(editsOf({path}), [this, index, file, path, known] {
        const QJsonObject record = workspace.latest(path);
        const bool isTaken = record["author_agent"_L1].toString() == userAuthor && record["revision"_L1].toInt() > known
            && record["status"_L1].toString() != "ROLLED_BACK"_L1;
        isTaken ? takeOwn(index, record) : writeFile(index, file);
    });
    if (waits)
        return;
    const QString reason = result["error"_L1].toString();
    fail(reason.isEmpty() ? u"File write failed"_s : reason);
}

/// A new version of a node's file, written by a model or by the user, goes before the reviewers.
void Engine::takeRevision(int index, const QJsonObject &revision)
{
    const QString path = filePath(revision);
    Node &node = graph.nodes[index];
    node.output = revision;
    node.revision = revision["revision"_L1].toInt();
    node.status = NodeStatus::reviewing;
    rearmChecksOf(graph.nodes, node.id);
    const int written = node.revision;
    installNewPackages(path); // may add nodes, which moves them all
    publish(u"FileModified"_s, path + u" rev"_s + QString::number(written), revision);
    reviewFile(index, revision);
}

void Engine::reviewFile(int index, const QJsonObject &revision)
{
    const QJsonObject context{
        {u"file"_s, revision},
        {u"node"_s, withoutOutput(graph.nodes.at(index))},
        {u"structure"_s, structure},
    };
    judges({u"correctness_reviewer"_s, u"integration_reviewer"_s}, context,
           [this, index, revision](const QString &verdict, const QList<QJsonObject> &reviews) {
               require(!workspace.stale(filePath(revision), revision["revision"_L1].toInt()),
                       u"Stale review rejected"_s);
               if (verdict == "APPROVE"_L1)
                   acceptFile(index);
               else
                   requestFixes(index, revision, reviews);
           });
}

void Engine::acceptFile(int index)
{
    Node &node = graph.nodes[index];
    node.status = NodeStatus::completed;
    const QJsonArray fixes = store.list(u"fix_requests"_s, taskId);
    for (const QJsonValue &entry : fixes) {
        QJsonObject fix = entry.toObject();
        if (fix["node_id"_L1].toString() != node.id || fix["status"_L1].toString() != FixStatus::open)
            continue;
        fix["status"_L1] = FixStatus::resolved;
        fix["resolved_revision"_L1] = node.revision;
        store.put(u"fix_requests"_s, fix["id"_L1].toString(), taskId, fix);
    }
    persist();
    scheduleNodes();
}

void Engine::requestFixes(int index, const QJsonObject &file, const QList<QJsonObject> &reviews)
{
    Node &node = graph.nodes[index];
    const QString path = filePath(file);
    const int attempts = node.input["fix_attempts"_L1].toInt();
    if (attempts >= maxFixAttempts) {
        fail(u"Не удалось устранить замечания к "_s + path + u" после пяти исправлений. Файлы сохранены. Причина: "_s
             + joinedIssues(reviews));
        return;
    }
    node.input["fix_attempts"_L1] = attempts + 1;
    node.status = NodeStatus::revisionRequired;

    QJsonArray fixes;
    for (const QJsonObject &review : reviews) {
        if (review["verdict"_L1].toString() == "APPROVE"_L1)
            continue;
        const QJsonObject fix{
            {u"id"_s, id()},
            {u"node_id"_s, node.id},
            {u"file"_s, path},
            {u"revision"_s, file["revision"_L1]},
            {u"severity"_s, u"ERROR"_s},
            {u"reviewer"_s, review["reviewer"_L1]},
            {u"description"_s, review["issues"_L1].toArray()},
            {u"proposed_solution"_s, review["required_changes"_L1].toArray()},
            {u"status"_s, FixStatus::open},
        };
        store.put(u"fix_requests"_s, fix["id"_L1].toString(), taskId, fix);
        fixes.append(fix);
        publish(u"FixRequested"_s, u"Revision-bound fix queued"_s, fix);
    }
    persist();
    consult(u"code"_s, {{u"file"_s, file}, {u"fixes"_s, fixes}}, [this, index, fixes] {
        stage(Phase::execution);
        codeNode(index, fixes);
    });
}

} // namespace vesk
