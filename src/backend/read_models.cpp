// What the interface is shown of the stored documents.

#include "read_models.h"

#include "message_kind.h"
#include "narrator.h"
#include "phases.h"
#include "roles.h"

#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxSummary = 2000;
constexpr qsizetype maxExcerpt = 1500;

QJsonObject shownRun(const QJsonObject &run)
{
    QJsonObject shown;
    for (const QString &key : {u"id"_s, u"name"_s, u"role"_s, u"logical_role"_s, u"status"_s, u"attempt"_s,
                               u"started_at"_s, u"finished_at"_s}) {
        if (run.contains(key))
            shown[key] = run[key];
    }
    const QJsonValue output = run["output"_L1];
    shown["output"_L1] = QJsonObject{{u"summary"_s, output["summary"_L1].toString().left(maxSummary)},
                                     {u"issues"_s, output["issues"_L1]}};
    return shown;
}

/// The media that a message names by their paths.
QVariantList mediaIn(const QString &content, const QJsonArray &media, const QString &root)
{
    QVariantList found;
    for (const QJsonValue &entry : media) {
        QJsonObject item = entry.toObject();
        const QString path = item["path"_L1].toString();
        if (path.isEmpty() || !content.contains(path))
            continue;
        item.remove("url"_L1); // what a tool says of itself is fetched from nowhere
        const QString preview = item["preview"_L1].toString();
        if (!preview.isEmpty())
            item["url"_L1] = QUrl::fromLocalFile(root + u'/' + preview).toString();
        found.append(item.toVariantMap());
    }
    return found;
}

void addMedia(QVariant &row, const QJsonArray &media, const QString &root)
{
    QVariantMap message = row.toMap();
    if (message.value(u"role"_s).toString() != "user"_L1)
        return;
    const QString content = message.value(u"content"_s).toString();
    const QVariantList found = mediaIn(content, media, root);
    message.insert(u"attachments"_s, found);
    if (!found.isEmpty())
        message.insert(u"display_content"_s, withoutAttachments(content));
    row = message;
}

bool hasReport(const QVariantList &rows)
{
    return std::ranges::any_of(
        rows, [](const QVariant &row) { return row.toMap().value(u"kind"_s).toString() == "report"_L1; });
}

} // namespace

QJsonObject emptyState()
{
    return {{u"phase"_s, Phase::idle}, {u"runs"_s, QJsonArray()}, {u"graph"_s, QJsonArray()}};
}

QVariantMap uiStateOf(const QJsonObject &state)
{
    QVariantMap shown;
    for (const QString &key : {u"id"_s, u"phase"_s, u"paused"_s, u"simulation"_s, u"error"_s, u"decision"_s,
                               u"pending"_s, u"tokens"_s, u"token_limit"_s, u"provider"_s}) {
        if (state.contains(key))
            shown.insert(key, state[key].toVariant());
    }
    QVariantList runs;
    const QJsonArray all = state["runs"_L1].toArray();
    for (const QJsonValue &run : all)
        runs.append(shownRun(run.toObject()).toVariantMap());
    shown.insert(u"runs"_s, runs);
    return shown;
}

QJsonObject shownEvent(QJsonObject event)
{
    event["data"_L1] = QJsonObject{{u"path"_s, std::as_const(event)["data"_L1]["path"_L1].toString()}};
    return event;
}

QVariantList conversationOf(QVariantList rows, const QJsonObject &state, const QString &pending,
                            const QJsonArray &media, const QString &root)
{
    if (isEndPhase(state["phase"_L1].toString()) && !hasReport(rows))
        rows.append(QVariantMap{
            {u"role"_s, u"assistant"_s}, {u"kind"_s, u"report"_s}, {u"content"_s, Narrator::report(state)}});
    if (!pending.isEmpty())
        rows.append(QVariantMap{{u"role"_s, u"user"_s}, {u"content"_s, pending}, {u"kind"_s, u"pending"_s}});
    for (QVariant &row : rows)
        addMedia(row, media, root);
    return rows;
}

QJsonArray mediaOf(const QJsonArray &artifacts)
{
    QJsonArray media;
    for (const QJsonValue &entry : artifacts) {
        if (entry["type"_L1].toString() != "media"_L1)
            continue;
        QJsonObject item = entry.toObject();
        if (entry["excerpt"_L1].toString().size() > maxExcerpt)
            item["excerpt"_L1] = entry["excerpt"_L1].toString().left(maxExcerpt);
        media.append(item);
    }
    return media;
}

QVariantList filesOf(const QJsonArray &files, const QJsonArray &media)
{
    QVariantList shown;
    for (const QJsonValue &entry : files) {
        QJsonObject file = entry.toObject();
        file.remove("content"_L1);
        shown.append(file.toVariantMap());
    }
    for (const QJsonValue &entry : media) {
        QJsonObject item = entry.toObject();
        item.remove("excerpt"_L1);
        shown.append(item.toVariantMap());
    }
    return shown;
}

QVariantList tasksOf(const QJsonArray &outlines)
{
    QVariantList shown;
    for (const QJsonValue &task : outlines) {
        if (task["archived"_L1].toBool())
            continue;
        shown.append(QVariantMap{{u"id"_s, task["id"_L1].toString()},
                                 {u"phase"_s, task["phase"_L1].toString()},
                                 {u"spec"_s, task["spec"_L1].toObject().toVariantMap()}});
    }
    return shown;
}

QVariantList agentProfilesOf(const QJsonObject &preferences)
{
    QVariantList profiles;
    const QJsonArray disabled = preferences["disabled_agents"_L1].toArray();
    const QStringList roles = builtInRoles();
    const QJsonValue models = preferences["agent_api"_L1];
    for (const QString &role : roles) {
        const QJsonValue skill = preferences["role_skills"_L1][role];
        profiles.append(QVariantMap{{u"id"_s, role},
                                    {u"name"_s, Narrator::role(role)},
                                    {u"enabled"_s, !disabled.contains(QJsonValue(role))},
                                    {u"custom"_s, false},
                                    {u"parent"_s, u""_s},
                                    {u"api"_s, models[role].toObject().toVariantMap()},
                                    {u"skill_url"_s, skill["skill_url"_L1].toString()},
                                    {u"status"_s, skill["status"_L1].toString()}});
    }
    const QJsonArray custom = preferences["custom_agents"_L1].toArray();
    for (const QJsonValue &entry : custom) {
        QVariantMap profile = entry.toObject().toVariantMap();
        profile.remove(u"instructions"_s);
        profile.insert(u"custom"_s, true);
        profile.insert(u"api"_s, models[profile.value(u"id"_s).toString()].toObject().toVariantMap());
        profiles.append(profile);
    }
    return profiles;
}

} // namespace vesk
