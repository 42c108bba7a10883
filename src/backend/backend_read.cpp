// What the interface reads. Each answer is remembered with what it was made of, and made again only when that changed.

#include "backend.h"

#include "diff.h"
#include "helpers.h"
#include "narrator.h"
#include "phases.h"
#include "proof_view.h"
#include "read_models.h"
#include "report_markdown.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QUrl>

#include <algorithm>

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

/// What `read` gives, or, when that fails, nothing: the failure is shown.
template <typename Read> auto Backend::answered(const Read &read) const -> decltype(read())
{
    try {
        return read();
    } catch (const std::exception &failure) {
        showFailure(failure);
        return {};
    }
}

QVariantMap Backend::state() const
{
    return answered([this] {
        // A stored document is converted once; a running one is new at every step.
        const QString key = view.showsRun() ? QString() : versioned(core.store, {u"tasks"_s}, view.key());
        return remembered(stateMap, key, [this] { return selected().toVariantMap(); });
    });
}

QVariantMap Backend::uiState() const
{
    return answered([this] { return uiStateOf(selected()); });
}

QVariantMap Backend::progress() const
{
    return answered([this] { return progressOf(selected()); });
}

QVariantList Backend::projects() const
{
    return answered([this] {
        return remembered(projectRows, versioned(core.store, {u"projects"_s}, u"-"_s),
                          [this] { return core.store.list(u"projects"_s, {}).toVariantList(); });
    });
}

QVariantList Backend::tasks() const
{
    return answered([this]() -> QVariantList {
        const QString project = core.workspace.project();
        if (project.isEmpty())
            return {};
        return remembered(taskRows, versioned(core.store, {u"tasks"_s}, project),
                          [&] { return tasksOf(core.store.taskOutlines(project)); });
    });
}

QVariantList Backend::events() const
{
    return answered([this] {
        const QString task = view.id();
        return task.isEmpty() ? QVariantList() : eventRows.of(core.store, task);
    });
}

QVariantList Backend::files() const
{
    return answered([this]() -> QVariantList {
        const QString project = core.workspace.project();
        if (project.isEmpty())
            return {};
        return remembered(fileRows, versioned(core.store, {u"files"_s, u"artifacts"_s}, project),
                          [this] { return filesOf(core.workspace.files(), projectMedia()); });
    });
}

QJsonArray Backend::projectMedia() const
{
    const QString project = core.workspace.project();
    return project.isEmpty() ? QJsonArray() : mediaOf(core.store.list(u"artifacts"_s, project));
}

/// All records of the project in a table.
QVariantList Backend::projectRecords(Remembered<QVariantList> &slot, const QString &table) const
{
    const QString project = core.workspace.project();
    if (project.isEmpty())
        return {};
    return remembered(slot, versioned(core.store, {table}, project),
                      [&] { return core.store.list(table, project).toVariantList(); });
}

QVariantList Backend::memory() const
{
    return answered([this] { return projectRecords(memoryRows, u"memory_entries"_s); });
}

QVariantList Backend::checkpoints() const
{
    return answered([this] { return projectRecords(checkpointRows, u"checkpoints"_s); });
}

QVariantList Backend::restorePoints() const
{
    return answered([this]() -> QVariantList {
        const QString project = core.workspace.project();
        if (project.isEmpty())
            return {};
        QHash<QString, QString> titles;
        const QJsonArray outlines = core.store.taskOutlines(project);
        for (const QJsonValue &task : outlines) {
            const QString title = task["spec"_L1]["title"_L1].toString();
            titles[task["id"_L1].toString()]
                = title.isEmpty() ? task["spec"_L1]["original_request"_L1].toString() : title;
        }
        QVariantList points;
        const QJsonArray all = core.store.checkpointOutlines(project);
        for (const QJsonValue &point : all) {
            const QString task = point["task_id"_L1].toString();
            points.prepend(QVariantMap{
                {u"id"_s, point["id"_L1].toString()},
                {u"time"_s, point["time"_L1].toString()},
                {u"title"_s, task.isEmpty() ? u"Перед восстановлением"_s : u"Перед задачей: "_s + titles.value(task)}});
        }
        return points;
    });
}

QVariantList Backend::chat() const
{
    return answered([this]() -> QVariantList {
        if (core.workspace.project().isEmpty())
            return {};
        const QString where = view.conversationId();
        const QJsonObject shown = selected();
        const QString phase = shown["phase"_L1].toString();
        const QString pending = conversation.pendingText(where);
        // The report of an ended task is made of its document; as long as it runs, only its lines are shown.
        QStringList tables{u"messages"_s, u"artifacts"_s};
        if (isEndPhase(phase))
            tables.append(u"tasks"_s);
        const QString key = versioned(core.store, tables, where + u'|' + phase + u'|' + pending);
        return remembered(chatRows, key, [&] {
            return conversationOf(messageRows.of(core.store, where), shown, pending, projectMedia(),
                                  core.workspace.root());
        });
    });
}

QVariantList Backend::agentProfiles() const
{
    return agentProfilesOf(preferences.document());
}

QVariantMap Backend::agentSkill(const QString &agent) const
{
    return answered([&] { return team.skill(agent); });
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
    return answered([this] { return Narrator::report(selected()); });
}

QString Backend::reportMarkdown() const
{
    return answered([this] {
        const QJsonObject state = selected();
        const QString title = state["spec"_L1]["title"_L1].toString();
        return reportAsMarkdown(title.isEmpty() ? state["spec"_L1]["original_request"_L1].toString() : title,
                                Narrator::report(state),
                                compared.title() == taskTitle() ? compared.files() : QVariantList());
    });
}

void Backend::copyReport() const
{
    // Without a window there is no clipboard either.
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        QGuiApplication::clipboard()->setText(reportMarkdown());
}

QVariantMap Backend::proofs() const
{
    return answered([this] { return proofsOf(selected()); });
}

QString Backend::proofBehind(const QString &list, int place) const
{
    return answered([&] {
        return vesk::proofBehind(selected(), list, place,
                                 [this](const QString &run) { return core.store.get(u"agent_runs"_s, run); });
    });
}

QStringList Backend::proofPictures(const QString &list, int place) const
{
    return answered([&] {
        QStringList addresses;
        for (const QString &path : picturesBehind(selected(), list, place, core.engine.picturesFolder))
            addresses.append(QUrl::fromLocalFile(path).toString());
        return addresses;
    });
}

/// A medium that is no text.
bool Backend::isOpaque(const QString &path) const
{
    const QJsonArray media = projectMedia();
    return std::ranges::any_of(media, [&](const QJsonValue &item) {
        return item["path"_L1].toString() == path && item["kind"_L1].toString() != "text"_L1;
    });
}

QString Backend::fileContent(const QString &path) const
{
    try {
        if (isOpaque(path))
            return u"Медиафайл: "_s + path
                + u"\nОткройте файл для просмотра в системном приложении. Оригинал хранится в папке проекта."_s;
        return QString::fromUtf8(core.workspace.read(path));
    } catch (const std::exception &failure) {
        return textOf(failure);
    }
}

void Backend::showFile(const QString &path)
{
    const bool isPicture = PictureView::isPicture(path);
    const QString told = path.isEmpty() || isPicture ? QString() : fileContent(path);
    const QByteArray text = told.toUtf8();
    if (isBinary(text))
        shownFile.show(path, {}, u"Файл не текстовый."_s);
    else if (answered([&] { return isOpaque(path); }))
        shownFile.show(path, {}, told);
    else
        shownFile.show(path, text);
    shownPicture.show(core.workspace.root(), isPicture ? path : QString());
}

QString Backend::fileHistory(const QString &path) const
{
    return answered(
        [&] { return indented(core.workspace.project().isEmpty() ? QJsonArray() : core.workspace.revisions(path)); });
}

QVariantList Backend::fileVersions(const QString &path) const
{
    return answered([&]() -> QVariantList {
        if (core.workspace.project().isEmpty())
            return {};
        return versionsOf(core.workspace.revisions(path), [this](const QString &agent) {
            return core.store.get(u"agents"_s, agent)["role"_L1].toString();
        });
    });
}

QString Backend::search(const QString &query) const
{
    return answered([&] { return indented(core.store.search(query)); });
}

QVariantMap Backend::runDetails(const QString &key) const
{
    return answered([&] { return core.store.get(u"agent_runs"_s, key).toVariantMap(); });
}

} // namespace vesk
