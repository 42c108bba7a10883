// How a request becomes the body of a POST.

#include "chat_request.h"

#include "confined_folder.h"
#include "endpoints.h"
#include "helpers.h"
#include "private_network.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxImages = 8;
constexpr qint64 maxImageBytes = 1048576;

bool carriesImages(const ChatSettings &settings, const QString &role)
{
    static const QStringList seeing{u"orchestrator"_s, u"planner"_s,     u"coding"_s,
                                    u"chat"_s,         u"chat_router"_s, u"specialist"_s};
    const bool dialect = settings.useResponses || settings.images || chatAddress(settings).host() == geminiHost();
    return dialect && !settings.root.isEmpty() && seeing.contains(role);
}

/// A preview as a data URL; empty unless it really lies in the project's assets.
QString imageOf(const QString &preview, const QString &root)
{
    const QString top = QFileInfo(root).canonicalFilePath();
    const QString path = QFileInfo(root + u'/' + preview).canonicalFilePath();
    if (preview.isEmpty() || top.isEmpty() || !path.startsWith(top + u"/assets/"_s, Qt::CaseInsensitive)
        || !path.endsWith(".preview.jpg"_L1))
        return {};
    // Read below the held folder: between the check and the reading, a link could take the file's place.
    const auto folder = ConfinedFolder::hold(QFile::encodeName(top));
    ConfinedFolder::Content content;
    if (!folder
        || folder->read(QFile::encodeName(path.sliced(top.size() + 1)), maxImageBytes, content)
            != ConfinedFolder::Result::Done)
        return {};
    return u"data:image/jpeg;base64,"_s + QString::fromLatin1(content.bytes.toBase64());
}

QJsonObject deliveryNote(qsizetype imageCount)
{
    return {
        {u"image_count"_s, imageCount},
        {u"full_video"_s, false},
        {u"audio"_s, false},
        {u"note"_s,
         imageCount > 0
             ? u"Only the attached still images / sampled video frames were supplied, not the full video or audio."_s
             : u"No image pixels were supplied. Do not infer visual contents from filenames or metadata."_s},
    };
}

QString userText(const QJsonObject &input, const QString &model)
{
    return json(input) + (switchesThinkingOff(model) ? u"\n/no_think"_s : QString());
}

QJsonObject responsesBody(const LLMRequest &request, const ChatSettings &settings, const QString &text,
                          const QStringList &images)
{
    QJsonArray parts{QJsonObject{{u"type"_s, u"input_text"_s},
                                 {u"text"_s, u"Return one JSON object matching the instructions.\n"_s + text}}};
    for (const QString &image : images)
        parts.append(QJsonObject{{u"type"_s, u"input_image"_s}, {u"image_url"_s, image}});
    return {
        {u"model"_s, settings.model},
        {u"instructions"_s, request.system},
        {u"input"_s, QJsonArray{QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, parts}}}},
        {u"max_output_tokens"_s, request.maxTokens},
        {u"store"_s, false},
        {u"stream"_s, true},
        {u"text"_s, QJsonObject{{u"format"_s, QJsonObject{{u"type"_s, u"json_object"_s}}}}},
    };
}

QJsonValue chatContent(const QString &text, const QStringList &images)
{
    if (images.isEmpty())
        return text;
    QJsonArray parts{QJsonObject{{u"type"_s, u"text"_s}, {u"text"_s, text}}};
    for (const QString &image : images)
        parts.append(QJsonObject{{u"type"_s, u"image_url"_s}, {u"image_url"_s, QJsonObject{{u"url"_s, image}}}});
    return parts;
}

QJsonObject completionsBody(const LLMRequest &request, const ChatSettings &settings, const QString &text,
                            const QStringList &images)
{
    const QJsonArray messages{
        QJsonObject{{u"role"_s, u"system"_s}, {u"content"_s, request.system}},
        QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, chatContent(text, images)}},
    };
    QJsonObject body{
        {u"model"_s, settings.model},
        {u"messages"_s, messages},
        {u"temperature"_s, settings.temperature},
        {u"max_tokens"_s, request.maxTokens},
    };
    if (settings.json != JsonMode::Prompt)
        body[u"response_format"_s] = responseFormat(settings.json);
    if (switchesThinkingOff(settings.model))
        body[u"chat_template_kwargs"_s] = QJsonObject{{u"enable_thinking"_s, false}};
    if (settings.stream || switchesThinkingOff(settings.model)) {
        body[u"stream"_s] = true;
        body[u"stream_options"_s] = QJsonObject{{u"include_usage"_s, true}};
    }
    return body;
}

} // namespace

QUrl chatAddress(const ChatSettings &settings)
{
    const QString path = settings.useResponses ? u"responses"_s : u"chat/completions"_s;
    if (settings.url.isEmpty())
        return QUrl(path);
    return QUrl(settings.url.endsWith(u'/') ? settings.url + path : settings.url + u'/' + path);
}

QJsonObject responseFormat(JsonMode mode)
{
    if (mode == JsonMode::Object)
        return {{u"type"_s, u"json_object"_s}};
    const QJsonObject anyObject{{u"type"_s, u"object"_s}};
    return {{u"type"_s, u"json_schema"_s},
            {u"json_schema"_s, QJsonObject{{u"name"_s, u"answer"_s}, {u"schema"_s, anyObject}}}};
}

bool mayBeSent(const QUrl &address, const QString &model)
{
    if (!address.isValid() || model.isEmpty() || !address.userInfo().isEmpty())
        return false;
    return address.scheme() == "https"_L1 || (address.scheme() == "http"_L1 && isLoopback(address.host()));
}

bool switchesThinkingOff(const QString &model)
{
    return model == "qwen3-8"_L1;
}

QJsonArray flattenedMedia(const QJsonObject &input)
{
    QJsonArray media = input["task"_L1]["media"_L1].toArray();
    if (media.isEmpty())
        media = input["media"_L1].toArray();

    QJsonArray flat;
    for (const QJsonValue &item : std::as_const(media)) {
        flat.append(item);
        // The item itself stands for its first frame.
        const QJsonArray frames = item["frames"_L1].toArray();
        for (qsizetype i = 1; i < frames.size(); ++i)
            flat.append(frames.at(i));
    }
    return flat;
}

QStringList mediaImages(const QJsonArray &media, const QString &root)
{
    QStringList images;
    for (const QJsonValue &item : media) {
        if (images.size() == maxImages)
            break;
        const QString image = imageOf(item["preview"_L1].toString(), root);
        if (!image.isEmpty())
            images.append(image);
    }
    return images;
}

QJsonObject chatBody(const LLMRequest &request, const ChatSettings &settings)
{
    const QJsonArray media = flattenedMedia(request.input);
    const QStringList images
        = carriesImages(settings, request.role) ? mediaImages(media, settings.root) : QStringList();
    QJsonObject input = request.input;
    if (!media.isEmpty())
        input[u"media_delivery"_s] = deliveryNote(images.size());
    const QString text = userText(input, settings.model);
    return settings.useResponses ? responsesBody(request, settings, text, images)
                                 : completionsBody(request, settings, text, images);
}

} // namespace vesk
