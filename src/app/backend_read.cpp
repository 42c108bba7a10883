// What the interface reads. Each answer is remembered with what it was made of, and made again only when that changed.

#include "backend.h"

#include "helpers.h"
#include "narrator.h"
#include "read_models.h"
#include "roles.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// The remembered value, made anew if the key has changed.
template <typename Remembered, typename Make>
const auto &remembered(Remembered &slot, const QString &key, const Make &make)
{
    if (slot.key != key || key.isEmpty()) {
        slot.value = make();
        slot.key = key;
    }
    return slot.value;
}

QString versioned(const Store &store, const QStringList &tables, const QString &owner)
{
    QString key = owner;
    for (const QString &table : tables)
        key += u'|' + QString::number(store.revision(table));
    return key;
}

QString indented(const QJsonArray &array)
{
    return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
}

} // namespace

QString Backend::engineTask() const
{
    return engine.task();
}

/// The document of the task in view: a stored one, or, as long as it runs, the live one.
QJsonObject Backend::selected() const
{
    const QString running = engineTask();
    if (selectedTask == "new"_L1)
        return emptyState();
    if (!selectedTask.isEmpty() && selectedTask != running)
        return store.get(u"tasks"_s, selectedTask);
    // A running task is always one of the project in view: another can't be chosen meanwhile.
    if (running.isEmpty() || engine.busy())
        return engine.snapshot();
    const QJsonObject stored = store.get(u"tasks"_s, running);
    if (stored.isEmpty())
        return engine.snapshot();
    return stored["project_id"_L1].toString() == workspace.project() ? stored : emptyState();
}

QVariantMap Backend::state() const
{
    // A stored document is converted once; a running one is new at every step.
    const bool live = engine.busy() && (selectedTask.isEmpty() || selectedTask == engineTask());
    const QString key = live ? QString() : versioned(store, {u"tasks"_s}, selectedTask + u'/' + engineTask());
    return remembered(stateMap, key, [this] { return selected().toVariantMap(); });
}

QVariantMap Backend::uiState() const
{
    return uiStateOf(selected());
}

QVariantList Backend::projects() const
{
    return remembered(projectRows, versioned(store, {u"projects"_s}, u"-"_s),
                      [this] { return store.list(u"projects"_s, {}).toVariantList(); });
}

QVariantList Backend::tasks() const
{
    const QString project = workspace.project();
    if (project.isEmpty())
        return {};
    return remembered(taskRows, versioned(store, {u"tasks"_s}, project),
                      [&] { return tasksOf(store.taskOutlines(project)); });
}

QVariantList Backend::events() const
{
    const QString task = selected()["id"_L1].toString();
    return task.isEmpty() ? QVariantList() : eventRows.of(store, task);
}

QVariantList Backend::files() const
{
    const QString project = workspace.project();
    if (project.isEmpty())
        return {};
    return remembered(fileRows, versioned(store, {u"files"_s, u"artifacts"_s}, project),
                      [this] { return filesOf(workspace.files(), projectMedia()); });
}

QJsonArray Backend::projectMedia() const
{
    const QString project = workspace.project();
    return project.isEmpty() ? QJsonArray() : mediaOf(store.list(u"artifacts"_s, project));
}

QVariantList Backend::memory() const
{
    const QString project = workspace.project();
    if (project.isEmpty())
        return {};
    return remembered(memoryRows, versioned(store, {u"memory_entries"_s}, project),
                      [&] { return store.list(u"memory_entries"_s, project).toVariantList(); });
}

QVariantList Backend::checkpoints() const
{
    const QString project = workspace.project();
    if (project.isEmpty())
        return {};
    return remembered(checkpointRows, versioned(store, {u"checkpoints"_s}, project),
                      [&] { return store.list(u"checkpoints"_s, project).toVariantList(); });
}

QVariantList Backend::chat() const
{
    if (workspace.project().isEmpty())
        return {};
    const QString conversation = conversationId();
    const QJsonObject shown = selected();
    const QString pending = pendingChatConversation == conversation ? pendingChatText : QString();
    const QString key = versioned(store, {u"messages"_s, u"artifacts"_s},
                                  conversation + u'|' + shown["phase"_L1].toString() + u'|' + pending);
    return remembered(chatRows, key, [&] {
        return conversationOf(messageRows.of(store, conversation), shown, pending, projectMedia(), workspace.root());
    });
}

QVariantList Backend::agentProfiles() const
{
    QVariantList profiles;
    const QJsonArray disabled = preferences["disabled_agents"_L1].toArray();
    const QStringList roles = builtInRoles();
    for (const QString &role : roles)
        profiles.append(QVariantMap{
            {u"id"_s, role}, {u"name"_s, Narrator::role(role)}, {u"enabled"_s, !disabled.contains(QJsonValue(role))}});
    return profiles;
}

QString Backend::phaseLabel(const QString &code) const
{
    return Narrator::phase(code);
}

QString Backend::statusLabel(const QString &code) const
{
    return Narrator::status(code);
}

QString Backend::roleLabel(const QString &code) const
{
    return Narrator::role(code);
}

QString Backend::resultReport() const
{
    return Narrator::report(selected());
}

QString Backend::fileContent(const QString &path) const
{
    const QJsonArray media = projectMedia();
    for (const QJsonValue &item : media) {
        if (item["path"_L1].toString() == path && item["kind"_L1].toString() != "text"_L1)
            return u"Медиафайл: "_s + path
                + u"\nОткройте файл для просмотра в системном приложении. Оригинал хранится в папке проекта."_s;
    }
    try {
        return QString::fromUtf8(workspace.read(path));
    } catch (const std::exception &failure) {
        return textOf(failure);
    }
}

QString Backend::fileHistory(const QString &path) const
{
    QJsonArray history;
    const QJsonArray revisions = store.list(u"file_revisions"_s, workspace.project());
    for (const QJsonValue &revision : revisions) {
        if (revision["path"_L1].toString() == path)
            history.append(revision);
    }
    return indented(history);
}

QString Backend::search(const QString &query) const
{
    return indented(store.search(query));
}

QVariantMap Backend::runDetails(const QString &key) const
{
    return store.get(u"agent_runs"_s, key).toVariantMap();
}

} // namespace vesk
