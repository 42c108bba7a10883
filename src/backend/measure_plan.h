#pragma once

#include "bounded_reply.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariant>

#include <optional>

namespace vesk {

/// What to ask a server to find out what the pipeline can expect of it, and what its answers say: pure functions over
/// plain data.

/// The questions, in the order in which they may come.
enum class Probe {
    Stream, ///< A longer text, piece by piece: also the speed, and whether thoughts come.
    JsonObject,
    JsonSchema,
    JsonPrompt,
    WindowSample, ///< A known piece of text, to learn how many tokens it makes.
    WindowMiddle, ///< More than the window that some servers have when nobody has set one.
    WindowPlan, ///< As much as a plan takes.
    Images,
};

/// What a server answered to one of them.
struct ProbeAnswer {
    Probe probe = Probe::Stream;
    int lines = 0; ///< That the prompt of a window probe was long.
    int status = 0;
    int networkError = 0;
    bool streamed = false;
    QString content{};
    QString thoughts{}; ///< That came in a field of their own.
    QString said{}; ///< Why it was refused; as the server put it, for evaluation only.
    int promptTokens = 0; ///< 0 when the server doesn't count.
    int completionTokens = 0;
    qint64 firstMs = 0; ///< Until the first byte.
    qint64 totalMs = 0;

    bool isAccepted() const { return status >= 200 && status <= 299 && networkError == 0; }
};

/// Reads a reply: a document or a stream.
ProbeAnswer probeAnswer(Probe probe, const ServerReply &reply);

/// The next question after these answers; none when all is known, or when the server has stopped answering.
std::optional<Probe> nextProbe(const QList<ProbeAnswer> &answers);

/// How many lines the prompt of a window probe has; 0 for the others.
int probeLines(Probe probe, const QList<ProbeAnswer> &answers);

/// The body of the POST. `lines` as above.
QJsonObject probeBody(Probe probe, const QString &model, int lines);

/// What the answers say so far, without what is still unknown:
/// {"streaming": bool, "speed": tokens a second, "thoughts": "none", "field" or "text",
///  "json": "json_object", "json_schema" or "prompt", "json_works": bool,
///  "window": tokens, "window_cut": bool, "images": bool}.
/// "window" is 0 when the server gives no way to tell; from leastWindow on it is a lower bound.
QJsonObject factsOf(const QList<ProbeAnswer> &answers);

/// The facts in words, as rows {"id", "name", "text", "mark"}: "ok", "warn", "bad", or "wait" for what is not known yet
/// while `measuring`. None when nothing is known and nothing measured.
QVariantList measureRows(const QJsonObject &facts, const QString &url, bool measuring);

} // namespace vesk
