// What a task leaves in the conversation and in the memory of its project.

#include "task_journal.h"

#include "engine.h"
#include "helpers.h"
#include "narration.h"
#include "narrator.h"
#include "path_rules.h"
#include "statuses.h"
#include "store.h"
#include "workspace.h"

#include <QFileInfo>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxNoteChars = 7000;
constexpr qsizetype maxRequestChars = 1500;
constexpr qsizetype maxTitleChars = 160;
constexpr qsizetype maxErrorChars = 700;

bool touchesNote(const QString &type)
{
    return type == "FileModified"_L1 || type == "PhaseChanged"_L1 || type == "WorkflowStepCompleted"_L1;
}

QString noteOf(const QJsonObject &state)
{
    QStringList lines{u"Запрос: "_s + state["spec"_L1]["original_request"_L1].toString().left(maxRequestChars),
                      u"Этап: "_s + state["phase"_L1].toString()};
    const QJsonArray nodes = state["graph"_L1].toArray();
    for (const QJsonValue &node : nodes)
        lines.append(node["title"_L1].toString().left(maxTitleChars) + u": "_s + node["status"_L1].toString() + u' '
                     + node["input"_L1]["path"_L1].toString());
    const QString error = state["error"_L1].toString();
    if (!error.isEmpty())
        lines.append(u"Причина остановки: "_s + error.left(maxErrorChars));
    if (!state["decision"_L1].toObject().isEmpty())
        lines.append(u"Ожидается ответ: "_s + state["decision"_L1]["question"_L1].toString());
    return lines.join(u'\n').left(maxNoteChars);
}

} // namespace

TaskJournal::TaskJournal(Store &store, const Workspace &workspace, const Engine &engine)
    : store(store)
    , workspace(workspace)
    , engine(engine)
{
}

QString TaskJournal::record(const QJsonObject &event)
{
    const QString task = event["task_id"_L1].toString();
    const QString type = event["type"_L1].toString();
    store.put(u"events"_s, event["id"_L1].toString(), task, event);

    const QJsonObject state = touchesNote(type) ? engine.snapshot() : QJsonObject();
    const QString line = narration(event, state);
    addMessage(task, u"assistant"_s, line, narrationKind(event));
    if (touchesNote(type))
        saveWorkNote(state);
    // What is made in a copy of the project goes with it.
    if (type == "ToolFinished"_L1 && event["data"_L1]["success"_L1].toBool()
        && event["data"_L1]["tool"_L1] == "run_command"_L1)
        keepToolOutput(task, event["data"_L1]["stdout"_L1].toString());
    return line;
}

void TaskJournal::close(const QJsonObject &state)
{
    saveWorkNote(state);
    addMessage(state["id"_L1].toString(), u"assistant"_s, Narrator::report(state), u"report"_s);
}

void TaskJournal::addMessage(const QString &conversation, const QString &role, const QString &content,
                             const QString &kind)
{
    if (content.isEmpty())
        return;
    const QString rowId = id();
    store.put(u"messages"_s, rowId, conversation,
              {{u"id"_s, rowId}, {u"role"_s, role}, {u"content"_s, content}, {u"kind"_s, kind}, {u"time"_s, now()}});
}

/// One short summary of each task, which chat and later tasks read with the rest of the project's memory.
void TaskJournal::saveWorkNote(const QJsonObject &state)
{
    const QString task = state["id"_L1].toString();
    if (workspace.project().isEmpty() || task.isEmpty())
        return;
    const QString noteId = u"work-note:"_s + task;
    store.put(u"memory_entries"_s, noteId, workspace.project(),
              {{u"id"_s, noteId}, {u"category"_s, u"Work summary"_s}, {u"text"_s, noteOf(state)}, {u"time"_s, now()}});
}

/// A file that a tool says it has made appears among the project's media. One that isn't there is told of, and is none.
void TaskJournal::keepToolOutput(const QString &task, const QString &printed)
{
    QJsonObject made = QJsonDocument::fromJson(printed.toUtf8()).object();
    const QString named = std::as_const(made)["path"_L1].toString();
    if (!std::as_const(made)["success"_L1].toBool() || named.isEmpty())
        return;
    QString path;
    try {
        path = projectPath(named);
    } catch (const std::exception &) {
        return; // What lies outside the project is no medium of it; the run goes on.
    }
    const QFileInfo file(workspace.root() + u'/' + path);
    if (!file.isFile()) {
        addMessage(task, u"assistant"_s,
                   u"Инструмент сообщил о готовом файле, но в проекте его нет: "_s + oneLine(named.left(maxTitleChars)),
                   u"progress"_s);
        return;
    }
    // What only this program says of a medium: what is shown of it, and what it is pinned to.
    for (const QString &own : {u"url"_s, u"pinned"_s, u"usage"_s})
        made.remove(own);
    if (!isOwnPreview(std::as_const(made)["preview"_L1].toString()))
        made.remove("preview"_L1);
    made["id"_L1] = id();
    made["type"_L1] = u"media"_s;
    made["path"_L1] = path;
    made["name"_L1] = file.fileName();
    if (!made.contains("kind"_L1))
        made["kind"_L1] = u"result"_s;
    made["status"_L1] = RunStatus::completed;
    made["bytes"_L1] = file.size();
    store.put(u"artifacts"_s, std::as_const(made)["id"_L1].toString(), workspace.project(), made);
}

bool TaskJournal::isOwnPreview(const QString &path) const
{
    try {
        (void)workspace.resolve(path);
        return isPreview(path);
    } catch (const std::exception &) {
        return false;
    }
}

/// The path from the project folder on of a file that a tool has named, in full or so. Throws what Workspace::resolve
/// says of any other.
QString TaskJournal::projectPath(const QString &named) const
{
    const QString root = workspace.root() + u'/';
    const QString canonical = QFileInfo(named).canonicalFilePath();
    const QString full = canonical.isEmpty() ? named : canonical;
    const bool inside = QFileInfo(named).isAbsolute() && full.startsWith(root);
    return workspace.resolve(inside ? full.mid(root.size()) : named).mid(root.size());
}

} // namespace vesk
