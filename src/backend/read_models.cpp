// What the interface is shown of the stored documents.

#include "read_models.h"

#include "helpers.h"
#include "message_kind.h"
#include "narrator.h"
#include "phases.h"
#include "roles.h"
#include "statuses.h"
#include "workspace.h"

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

/// The last line of the user above `end` that says this; -1 for none. The first of all is the request.
qsizetype lineBefore(const QVariantList &rows, qsizetype end, const QString &text)
{
    qsizetype found = -1;
    for (qsizetype i = 0; i < end; ++i) {
        const QVariantMap row = rows[i].toMap();
        if (i > 0 && row.value(u"role"_s).toString() == "user"_L1 && row.value(u"content"_s).toString() == text)
            found = i;
    }
    return found;
}

/// From the end, since a task that goes on with another one's work knows the answers given to that, too.
void addQuestions(QVariantList &rows, const QJsonArray &decisions)
{
    qsizetype end = rows.size();
    for (qsizetype i = decisions.size() - 1; i >= 0; --i) {
        const QJsonObject asked = decisions[i].toObject();
        const qsizetype answer = lineBefore(rows, end, asked["answer"_L1].toString());
        if (answer < 0)
            continue;
        rows.insert(answer,
                    QVariantMap{{u"id"_s, u"question:"_s + asked["id"_L1].toString()},
                                {u"role"_s, u"assistant"_s},
                                {u"kind"_s, u"question"_s},
                                {u"content"_s, asked["question"_L1].toString()}});
        end = answer;
    }
}

/// Who wrote a version of a file.
QString authorOf(const QString &agent, const std::function<QString(const QString &agent)> &roleOf)
{
    if (agent == userAuthor)
        return u"Вы"_s;
    if (agent == "rollback"_L1)
        return u"Восстановление"_s;
    const QString role = roleOf(agent);
    const QString label = Narrator::role(role);
    return label == role ? u"Агент"_s : label;
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

QVariantMap progressOf(const QJsonObject &state)
{
    const QJsonArray runs = state["runs"_L1].toArray();
    if (runs.isEmpty())
        return {};
    int done = 0;
    QString step;
    const QJsonArray nodes = state["graph"_L1].toArray();
    for (const QJsonValue &node : nodes) {
        const QString status = node["status"_L1].toString();
        if (status == NodeStatus::completed)
            ++done;
        else if (step.isEmpty() && !isStartable(status))
            step = oneLine(node["title"_L1].toString());
    }
    const bool over = isEndPhase(state["phase"_L1].toString());
    const QJsonValue first = runs.first();
    return {{u"began"_s, first[first["created_at"_L1].isString() ? "created_at"_L1 : "started_at"_L1].toString()},
            {u"ended"_s, over ? state["updated"_L1].toString() : QString()},
            {u"steps"_s, nodes.size()},
            {u"done"_s, done},
            {u"step"_s, over ? QString() : step}};
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
    addQuestions(rows, state["spec"_L1]["decisions"_L1].toArray());
    return rows;
}

QVariantList versionsOf(const QJsonArray &revisions, const std::function<QString(const QString &agent)> &roleOf)
{
    QVariantList versions;
    for (const QJsonValue &revision : revisions) {
        const QString encoded = revision["content_base64"_L1].toString();
        versions.prepend(QVariantMap{{u"revision"_s, revision["revision"_L1].toInt()},
                                     {u"time"_s, revision["timestamp"_L1].toString()},
                                     {u"author"_s, authorOf(revision["author_agent"_L1].toString(), roleOf)},
                                     {u"bytes"_s,
                                      encoded.isEmpty() ? revision["content"_L1].toString().toUtf8().size()
                                                        : QByteArray::fromBase64(encoded.toLatin1()).size()},
                                     {u"deleted"_s, revision["deleted"_L1].toBool()}});
    }
    return versions;
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
