#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

namespace vesk {

/// What the interface is shown of the stored documents: pure functions from plain data.

/// The document of a view with no task.
QJsonObject emptyState();

/// The task state document cut down to what the main view binds to.
QVariantMap uiStateOf(const QJsonObject &state);

/// How far a task is: {"began", "ended" (times; the second empty while it goes on), "steps", "done" (nodes of its
/// plan), "step" (the title of one that is being done)}. Empty before anything was asked.
QVariantMap progressOf(const QJsonObject &state);

/// An event without its payload but for the path in it.
QJsonObject shownEvent(QJsonObject event);

/// Message rows with the media that each user message names, the report that an ended task always shows, and the line
/// that is still being routed. `pending` is empty when there is none; `root` is the project folder. A question of the
/// run stands before the line that answers it, as a row of kind "question".
QVariantList conversationOf(QVariantList rows, const QJsonObject &state, const QString &pending,
                            const QJsonArray &media, const QString &root);

/// The media records of a project's artifacts, excerpts cut to 1500 characters.
QJsonArray mediaOf(const QJsonArray &artifacts);

/// The versions of a file, the newest first, without their content: {"revision", "time", "author", "bytes", "deleted"}.
/// `roleOf` gives the role of an agent by its id, empty for one that is not known.
QVariantList versionsOf(const QJsonArray &revisions, const std::function<QString(const QString &agent)> &roleOf);

/// Tracked files without their content, then media without their excerpts.
QVariantList filesOf(const QJsonArray &files, const QJsonArray &media);

/// Outlines of the tasks that are not archived.
QVariantList tasksOf(const QJsonArray &outlines);

/// The built-in roles in order, then the user's own agents: {"id", "name", "enabled", "custom", "parent", "api",
/// "skill_url", "status"}, of the latter all of their records but the text of the skill.
QVariantList agentProfilesOf(const QJsonObject &preferences);

} // namespace vesk
