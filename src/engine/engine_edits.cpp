// Files that somebody else has changed while a run goes on: the step that would overwrite one waits until the user has
// said whose version is to stand. What isn't taken stays as a revision.

#include "engine_p.h"

#include "rework.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxNamedEdits = 10;

QString programsVersion()
{
    return u"Вернуть версию программы"_s;
}

QString ownVersion()
{
    return u"Взять мою версию"_s;
}

bool isDeletedByUser(const QJsonObject &record)
{
    return record["deleted"_L1].toBool() && record["status"_L1].toString() == removedByUser;
}

} // namespace

QString namedEdits(const QList<HandEdit> &edits)
{
    QStringList names;
    for (const HandEdit &edit : edits.first(std::min(edits.size(), maxNamedEdits)))
        names.append(edit.text());
    if (edits.size() > maxNamedEdits)
        names.append(u"и ещё %1"_s.arg(edits.size() - maxNamedEdits));
    return names.join(u", "_s);
}

QList<HandEdit> Engine::editsOf(const QStringList &paths) const
{
    QList<HandEdit> edits;
    for (const QString &path : paths) {
        const auto edit = workspace.handEdit(path);
        if (edit && edit->kind == HandEdit::Kind::Added && workspace.takesLazily() && workspace.latest(path).isEmpty())
            (void)workspace.takeEdit(path); // the user's own, touched for the first time
        else if (edit)
            edits.append(*edit);
    }
    return edits;
}

/// False when there is nothing to ask. `next` runs once the files are as they are recorded.
bool Engine::askAboutEdits(const QList<HandEdit> &edits, const Step &next)
{
    if (edits.isEmpty())
        return false;
    if (!decision.isEmpty()) {
        // Another question is open; this one comes after it, about what is still edited then.
        deferred.push_back([=, this] { settleEdits(edits, {}, next); });
        return true;
    }
    askDecision(u"Файлы изменены вне программы: "_s + namedEdits(edits)
                    + u". Чью версию оставить? Другая останется в истории файла."_s,
                {ownVersion(), programsVersion()}, [=, this] { settleEdits(edits, decisionAnswer, next); });
    decision["kind"_L1] = u"hand_edit"_s;
    QJsonArray paths; // whose differences can be looked at
    for (const HandEdit &edit : edits)
        paths.append(edit.path);
    decision["paths"_L1] = paths;
    persist();
    return true;
}

/// Without an answer, and where an answer can't be carried out, it is asked (again). Anything but the program's version
/// is the user's own: a typed sentence must not cost an edit.
void Engine::settleEdits(const QList<HandEdit> &edits, const QString &answer, const Step &next)
{
    const bool takesOwn = answer.trimmed().compare(programsVersion(), Qt::CaseInsensitive) != 0;
    QList<HandEdit> left;
    for (const HandEdit &edit : edits) {
        if (!workspace.handEdit(edit.path))
            continue;
        if (answer.isEmpty()) {
            left.append(edit);
            continue;
        }
        try {
            const QJsonObject record = takesOwn ? workspace.takeEdit(edit.path) : workspace.undoEdit(edit.path);
            if (isDeletedByUser(record))
                leftOut.insert(edit.path);
            publish(u"AutomaticCorrection"_s,
                    (takesOwn ? u"Взял вашу версию: "_s : u"Вернул версию программы: "_s) + edit.path);
        } catch (const std::exception &fault) {
            publish(u"AutomaticCorrection"_s, edit.path + u": "_s + textOf(fault));
            left.append(edit);
        }
    }
    if (!askAboutEdits(left, next) && busy())
        next();
}

/// Gives the nodes what their files are by now. True when the run goes on with that: the user's versions are reviewed,
/// checks of what is gone run again. What was restored is as it was checked.
bool Engine::takeSettled()
{
    QList<int> edited;
    bool isGone = false;
    for (int i = 0; i < graph.nodes.size(); ++i) {
        Node &node = graph.nodes[i];
        if (!isCode(node) || !workspace.stale(pathOf(node), node.revision))
            continue;
        const QJsonObject record = workspace.latest(pathOf(node));
        node.output = record;
        node.revision = record["revision"_L1].toInt();
        if (isDeletedByUser(record)) {
            leaveOut(i);
            isGone = true;
        } else if (record["author_agent"_L1].toString() == userAuthor) {
            edited.append(i);
        }
    }
    persist();
    if (edited.isEmpty() && !isGone)
        return false;
    stage(Phase::execution);
    for (const int index : std::as_const(edited))
        takeRevision(index, workspace.latest(pathOf(graph.nodes.at(index))));
    if (edited.isEmpty())
        scheduleNodes();
    return true;
}

/// The user's version of a node's file becomes the node's.
void Engine::takeOwn(int index, const QJsonObject &record)
{
    if (!isDeletedByUser(record)) {
        takeRevision(index, record);
        return;
    }
    graph.nodes[index].output = record;
    graph.nodes[index].revision = record["revision"_L1].toInt();
    leaveOut(index);
    acceptFile(index);
}

/// The user wants the file gone, and so it is.
void Engine::leaveOut(int index)
{
    rearmChecksOf(graph.nodes, graph.nodes.at(index).id);
    noteLimitation(index, u"Файл удалён пользователем: "_s + pathOf(graph.nodes.at(index)) + u'.');
}

/// Whether the user has removed the file that the node was to make.
bool Engine::isGivenUp(const Node &node) const
{
    return isCode(node) && node.revision > 0 && isDeletedByUser(workspace.latest(pathOf(node)))
        && !workspace.stale(pathOf(node), node.revision);
}

/// What a file of the task holds as it is recorded, also when its user is just changing it; nothing once it is removed.
QString Engine::fileText(const QString &path) const
{
    return QString::fromUtf8(workspace.recorded(path));
}

} // namespace vesk
