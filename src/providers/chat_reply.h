#pragma once

#include "llm_provider.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

namespace vesk {

/// How the bytes of a reply become a result: a plain document or a stream of server-sent events, of either dialect.
/// Nothing here knows the network.

/// The most that one reply may hold. Far more than any answer; a server that sends without end stops here.
constexpr qsizetype maxReplyBytes = 64 * 1024 * 1024;

/// What has arrived of one attempt so far.
class StreamState {
public:
    /// What a chunk brought.
    struct Progress {
        bool text = false; ///< New text: the model is at work.
        bool terminator = false; ///< "[DONE]": nothing more will come.
        bool overflow = false; ///< More than maxReplyBytes; the rest is dropped.
    };

    /// Takes a chunk as it came, which may end anywhere, in the middle of a letter too.
    Progress feed(const QByteArray &chunk);

    /// What has arrived, for a document or a failure; of a stream only what has not been read yet.
    const QByteArray &raw() const { return bytes; }
    /// Whether the reply was cut because it grew beyond maxReplyBytes.
    bool isEndless() const { return received >= maxReplyBytes; }

    QString content; ///< Collected from the deltas.
    QString finishReason;
    QJsonObject usage;
    bool sawData = false; ///< At least one line began with "data:".
    bool streamError = false; ///< A line could not be read, or the stream said that it failed.
    QString failure; ///< What the stream said of that, as it came: it may quote the key.
    bool completed = false; ///< The terminator was there.

private:
    void takeLine(QByteArrayView line, Progress &progress);
    void takeEvent(const QJsonObject &event, Progress &progress);
    void takeFailure(const QJsonObject &event);
    void takeChunk(const QJsonObject &chunk, Progress &progress);
    void addText(const QString &text, Progress &progress);

    void forgetReadLines();

    QByteArray bytes; ///< What has not been split into lines yet begins at `lineStart`.
    qsizetype received = 0;
    qsizetype lineStart = 0;
    qsizetype scanned = 0; ///< No line feed between lineStart and here.
};

/// The facts about a reply that has ended.
struct ReplyFacts {
    int status = 0; ///< HTTP status, 0 when there was none.
    int networkError = 0; ///< QNetworkReply::NetworkError.
    bool useResponses = false; ///< The dialect in which the request was posted.
    QString key{}; ///< Cut out of what the provider says.
    QByteArray retryAfter{}; ///< The header of this name.
};

/// The result of an attempt that has ended.
LLMResult resultOf(const StreamState &state, const ReplyFacts &facts);

/// The message without this key, and without whatever else looks like one.
QString withoutSecrets(QString message, const QString &key);

/// The answer of a model that thinks aloud, without its thoughts in front of it: cut at the last end of such a block,
/// and only when the whole is no JSON object.
QString withoutThinking(const QString &content);

/// A failure without the promise of a repeat, for when there is none any more.
QString withoutPromise(QString error);

/// Milliseconds to wait by the header Retry-After: seconds, or a date (RFC 9110, 10.2.3). 0 when it says nothing; at
/// most a minute.
int retryAfterMs(const QByteArray &header, const QDateTime &now);

} // namespace vesk
