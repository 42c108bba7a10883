// What an MCP server writes, and what the file that names one holds. The first byte is the size of the pieces.

#include "fuzz.h"
#include "mcp_config.h"
#include "mcp_wire.h"

#include <QJsonDocument>

using namespace vesk;

namespace {

QList<QByteArray> linesOf(const QByteArray &bytes, qsizetype piece)
{
    McpLines lines;
    QList<QByteArray> found;
    for (qsizetype at = 0; at < bytes.size(); at += piece) {
        lines.feed(bytes.sliced(at, std::min(piece, bytes.size() - at)));
        while (const auto line = lines.next())
            found.append(*line);
    }
    found.append(lines.rest());
    return found;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes = bytesOf(data + 1, size - 1);
    const QList<QByteArray> lines = linesOf(bytes, 1 + data[0]);
    holds(lines.join('\n') == bytes && lines == bytes.split('\n'));

    const QStringList secrets{QStringLiteral("geheim")};
    for (const QByteArray &line : lines) {
        const QJsonObject message = mcpMessage(line);
        holds(mcpEvent("data:" + line) == message);
        holds(message.contains(QStringLiteral("error")) == !mcpFailure(message).isEmpty());
        holds(!answers(message, message[QStringLiteral("id")]) || !message.contains(QStringLiteral("method")));
        (void)answeredId(message);
        const QJsonObject clean = withoutValues(message, secrets).toObject();
        holds(!QJsonDocument(clean).toJson().contains("geheim"));
        const QJsonObject bounded = boundedResult(message, {}, {});
        holds(QJsonDocument(bounded).toJson(QJsonDocument::Compact).size() <= 8 * maxMcpResultChars + line.size());
    }
    const QJsonObject entries = serversIn(bytes);
    for (const QJsonValue &entry : entries) {
        // Keys and headers are named, and their values never shown.
        const QJsonObject shown = shownEntry(entry.toObject(), {});
        holds(!shown.contains(QStringLiteral("env")) && !shown[QStringLiteral("headers")].isObject());
    }
    return 0;
}
