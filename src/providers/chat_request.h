#pragma once

#include "llm_provider.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace vesk {

/// How a request becomes the body of a POST, in either dialect: pure functions of the request and the connection.

/// How a server is made to answer in JSON, from the usual way to the plainest.
enum class JsonMode {
    Object, ///< "response_format" of the type "json_object".
    Schema, ///< Of the type "json_schema", which some servers know in its place.
    Prompt, ///< By the words of the prompt alone: some servers refuse the key.
};

/// What is known of a server, so that it need not refuse something first.
struct ServerTraits {
    JsonMode json = JsonMode::Object;
    bool stream = true; ///< It can send its answer piece by piece.
    bool images = false; ///< Its model was seen to see.

    bool operator==(const ServerTraits &) const = default;
};

/// What of a connection shapes the requests over it.
struct ChatSettings {
    QString url; ///< Base address, with or without a trailing "/".
    QString model;
    QString root; ///< Folder of the project, the only place that images are read from; may be empty.
    bool useResponses = false; ///< The Responses dialect in place of chat completions.
    JsonMode json = JsonMode::Object;
    bool stream = false; ///< Ask for a stream in the chat dialect.
    bool images = false; ///< Send them in the chat dialect, too.
    double temperature = 0.2;
};

/// The address that requests go to.
QUrl chatAddress(const ChatSettings &settings);

/// The value of "response_format" for a mode, which is not Prompt.
QJsonObject responseFormat(JsonMode mode);

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
