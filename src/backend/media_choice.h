#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace vesk {

/// Which files a request is about, and who can look at them: pure functions from plain data.

/// The files in question, in this order of preference: those attached, those that the user named last (`userTexts`,
/// newest first: the first one that names a file counts), those of the task in view.
QStringList mediaInQuestion(const QJsonArray &attachments, const QStringList &userTexts, const QJsonArray &taskMedia,
                            const QJsonArray &projectMedia);

/// Of the project's media, in their order, what is in question or named by the request; the last 12, each with its
/// "absolute_path" below the project folder.
QJsonArray requestMedia(const QString &request, const QJsonArray &projectMedia, const QStringList &inQuestion,
                        const QString &root);

/// Whether there is anything to see among the media.
bool hasVisuals(const QJsonArray &media);

/// A connection of an agent's own that can look at pictures.
struct VisualAgent {
    QString url;
    QString model;
    QString key;
    bool useResponses = false;
    QString guidance; ///< How the agent is to look; empty for the chief agent.
};

/// The first of the user's agents that looks at all of the media and whose own connection can see, else the chief
/// agent's own connection if that can. `keyOf` gives the key of an agent's connection, empty when there is none.
std::optional<VisualAgent> visualAgent(const QJsonObject &preferences, const QJsonArray &media,
                                       const std::function<QString(const QString &)> &keyOf);

} // namespace vesk
