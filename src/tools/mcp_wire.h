#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace vesk {

/// What MCP servers and configuration files send, as bytes and as JSON: pure functions, nothing here knows a process
/// or the network. A server answers one JSON-RPC message a line, or an event stream with one message a "data:" line.

/// The most that one message may take, in either direction.
constexpr qsizetype maxMcpMessageBytes = 4194304;

/// Bytes as they come, lines as they end.
class McpLines {
public:
    void feed(const QByteArray &bytes) { buffer.append(bytes); }
    /// Takes the next line off, without its line feed. Nothing as long as none has ended, or when isTooLong().
    std::optional<QByteArray> next();
    /// The first line takes more than maxMcpMessageBytes, its line feed included.
    bool isTooLong() const;
    /// What has not been taken off.
    const QByteArray &rest() const { return buffer; }
    void clear();

private:
    QByteArray buffer;
    qsizetype scanned = 0; ///< No line feed before this place.
};

/// The JSON object in these bytes; empty when there is none.
QJsonObject mcpMessage(const QByteArray &bytes);

/// The object behind "data:" in a line of an event stream; empty for every other line.
QJsonObject mcpEvent(const QByteArray &line);

/// Whether a message is the answer to the request with this id.
bool answers(const QJsonObject &message, const QJsonValue &id);

/// The id of an answer as a number; 0, which no request has, for what isn't the answer to any request of ours.
qint64 answeredId(const QJsonObject &message);

/// Why a request has failed; empty when it hasn't.
QString mcpFailure(const QJsonObject &message);

/// The tools of a server, as far as there is room for them.
struct McpTools {
    QJsonArray taken;
    int leftOut = 0;
};
constexpr int maxMcpTools = 512;
constexpr qsizetype maxMcpToolBytes = 65536;
McpTools boundedTools(const QJsonArray &listed);

/// What of a call's result goes into a run: texts cut to `maxMcpResultChars` altogether, pictures and sounds replaced
/// by what they were, and "server" and "tool" with whose words these are.
constexpr qsizetype maxMcpResultChars = 200000;
QJsonObject boundedResult(const QJsonObject &result, const QString &server, const QString &tool);

/// The texts in a value with every occurrence of these secrets replaced.
QJsonValue withoutValues(const QJsonValue &value, const QStringList &secrets);

} // namespace vesk
