// What a model's server sends. The first byte says how it comes: the status, and the size of the chunks.

#include "chat_reply.h"
#include "fuzz.h"

#include <array>

using namespace vesk;

namespace {

constexpr auto key = "geheim 77";

StreamState fed(const QByteArray &bytes, qsizetype chunk)
{
    StreamState state;
    for (qsizetype at = 0; at < bytes.size(); at += chunk)
        state.feed(bytes.sliced(at, std::min(chunk, bytes.size() - at)));
    return state;
}

void checkTexts(const QByteArray &bytes)
{
    const QString text = QString::fromUtf8(bytes);
    const QString shown = withoutSecrets(text, QString::fromLatin1(key));
    holds(!shown.contains(QLatin1StringView(key)));
    holds(withoutSecrets(shown, QString::fromLatin1(key)) == shown);
    const QString answer = withoutThinking(text);
    holds(answer.size() <= text.size() && withoutThinking(answer) == answer);
    const int waitMs = retryAfterMs(bytes, QDateTime::fromSecsSinceEpoch(1'800'000'000));
    holds(waitMs >= 0 && waitMs <= 60'000);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    static constexpr std::array statuses{200, 200, 0, 429};
    const QByteArray bytes = bytesOf(data + 1, size - 1);
    const ReplyFacts facts{.status = statuses.at(data[0] % 4),
                           .useResponses = data[0] % 8 >= 4,
                           .key = QString::fromLatin1(key),
                           .retryAfter = bytes};

    const StreamState whole = fed(bytes, std::max<qsizetype>(bytes.size(), 1));
    const StreamState parts = fed(bytes, 1 + data[0] / 8);
    holds(parts.content == whole.content && parts.finishReason == whole.finishReason && parts.usage == whole.usage);
    holds(parts.streamError == whole.streamError && parts.completed == whole.completed);

    const LLMResult result = resultOf(whole, facts);
    holds(result.error == resultOf(parts, facts).error);
    holds(!result.content.isEmpty() || !result.error.isEmpty());
    holds(!result.error.contains(QLatin1StringView(key)));
    checkTexts(bytes);
    return 0;
}
