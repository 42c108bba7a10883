#pragma once

#include "llm_provider.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace vesk {

/// How a request becomes the body of a POST, in either dialect: pure functions of the request and the connection.

/// What of a connection shapes the requests over it.
struct ChatSettings {
    QString url; ///< Base address, with or without a trailing "/".
    QString model;
    QString root; ///< Folder of the project, the only place that images are read from; may be empty.
    bool useResponses = false; ///< The Responses dialect in place of chat completions.
    bool jsonFormat = true; ///< Ask for "response_format"; some servers refuse the key.
    bool stream = false; ///< Ask for a stream in the chat dialect.
    double temperature = 0.2;
};

/// The address that requests go to.
QUrl chatAddress(const ChatSettings &settings);

/// The rule for every request: a valid address, a model, no user information, HTTPS or else HTTP to this machine.
bool mayBeSent(const QUrl &address, const QString &model);

/// Whether the server's model is one whose thinking is switched off; only then does the chat dialect stream.
bool switchesThinkingOff(const QString &model);

/// The media of a request, each item followed by its further frames.
QJsonArray flattenedMedia(const QJsonObject &input);

/// Up to 8 still images as data URLs. A candidate counts only as a preview of at most 1 MiB in the project's "assets";
/// any other is skipped without a word.
QStringList mediaImages(const QJsonArray &media, const QString &root);

/// The whole body as a JSON object.
QJsonObject chatBody(const LLMRequest &request, const ChatSettings &settings);

} // namespace vesk
