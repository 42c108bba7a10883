// How the bytes of an MCP server become messages, and how much of them is taken.

#include "mcp_wire.h"

#include "helpers.h"

#include <QJsonDocument>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

// Beyond this a double does not hold every whole number, and no counter of ours gets there.
constexpr double largestId = 9007199254740992.0;

/// Pictures and sounds come as base64: to a run they are megabytes that nobody reads.
void dropBytes(QJsonObject &part, const QString &key)
{
    if (const QJsonValue bytes = part.value(key); bytes.isString())
        part[key] = u"не передано, байт: "_s + QString::number(bytes.toString().size() / 4 * 3);
}

/// One part of a result, its text cut to what room is left; empty when there is none for the rest of it. Takes what it
/// needs off the room.
QJsonObject boundedPart(QJsonObject part, qsizetype &room)
{
    dropBytes(part, u"data"_s);
    QJsonObject resource = part.value("resource"_L1).toObject();
    dropBytes(resource, u"blob"_s);
    if (!resource.isEmpty())
        part["resource"_L1] = resource;
    const QString text = part.value("text"_L1).toString();
    const qsizetype rest = jsonBytes(part).size() - jsonBytes({{u"text"_s, text}}).size();
    if (rest > room)
        return {};
    if (text.size() > room)
        part["text"_L1] = text.left(room);
    room -= std::max<qsizetype>(rest, 0) + std::min(text.size(), room);
    return part;
}

} // namespace

std::optional<QByteArray> McpLines::next()
{
    const qsizetype end = buffer.indexOf('\n', scanned);
    scanned = end < 0 ? buffer.size() : end;
    if (end < 0 || end >= maxMcpMessageBytes)
        return {};
    const QByteArray line = buffer.first(end);
    buffer.remove(0, end + 1);
    scanned = 0;
    return line;
}

bool McpLines::isTooLong() const
{
    const qsizetype end = buffer.indexOf('\n', scanned);
    return end < 0 ? buffer.size() > maxMcpMessageBytes : end >= maxMcpMessageBytes;
}

void McpLines::clear()
{
    buffer.clear();
    scanned = 0;
}

QJsonObject mcpMessage(const QByteArray &bytes)
{
    return isTooDeep(bytes) ? QJsonObject() : QJsonDocument::fromJson(bytes).object();
}

QJsonObject mcpEvent(const QByteArray &line)
{
    const QByteArray trimmed = line.trimmed();
    return trimmed.startsWith("data:") ? mcpMessage(trimmed.sliced(5).trimmed()) : QJsonObject();
}

bool answers(const QJsonObject &message, const QJsonValue &id)
{
    // Servers number requests of their own, and a request with our number is no answer.
    return message.contains("id"_L1) && message["id"_L1] == id && !message.contains("method"_L1);
}

qint64 answeredId(const QJsonObject &message)
{
    const double id = message["id"_L1].toDouble();
    return message.contains("method"_L1) || std::abs(id) > largestId ? 0 : qint64(id);
}

QString mcpFailure(const QJsonObject &message)
{
    if (!message.contains("error"_L1))
        return {};
    const QString said = message["error"_L1]["message"_L1].toString();
    return said.isEmpty() ? u"Ошибка MCP"_s : said;
}

McpTools boundedTools(const QJsonArray &listed)
{
    McpTools tools;
    for (const QJsonValue &tool : listed) {
        const bool isNamed = !tool["name"_L1].toString().isEmpty();
        if (isNamed && tools.taken.size() < maxMcpTools && jsonBytes(tool.toObject()).size() <= maxMcpToolBytes)
            tools.taken.append(tool);
        else
            ++tools.leftOut;
    }
    return tools;
}

QJsonObject boundedResult(const QJsonObject &result, const QString &server, const QString &tool)
{
    qsizetype room = maxMcpResultChars;
    QJsonArray parts;
    bool whole = !result.contains("content"_L1) || result["content"_L1].isArray();
    const QJsonArray content = result["content"_L1].toArray();
    for (const QJsonValue &part : content) {
        const QJsonObject bounded = boundedPart(part.toObject(), room);
        if (!bounded.isEmpty())
            parts.append(bounded);
        whole = whole && bounded["text"_L1].toString().size() == part["text"_L1].toString().size();
    }
    QJsonObject bounded;
    for (auto entry = result.begin(); entry != result.end(); ++entry) {
        const qsizetype size = jsonBytes({{entry.key(), entry.value()}}).size();
        if (entry.key() == "content"_L1) {
            bounded["content"_L1] = parts;
        } else if (size <= room || entry.key() == "success"_L1 || entry.key() == "error"_L1) {
            // What a server puts beside the content: all of it, or nothing.
            bounded[entry.key()] = entry.value();
            room -= std::min(size, room);
        } else {
            whole = false;
        }
    }
    // Of these it is for us to say what they are.
    bounded["server"_L1] = server;
    bounded["tool"_L1] = tool;
    bounded.remove("truncated"_L1);
    if (!whole || parts.size() < content.size())
        bounded["truncated"_L1] = true;
    return bounded;
}

QJsonValue withoutValues(const QJsonValue &value, const QStringList &secrets)
{
    if (secrets.isEmpty())
        return value;
    if (value.isString()) {
        QString text = value.toString();
        for (const QString &secret : secrets)
            text.replace(secret, u"•••"_s);
        return text;
    }
    if (value.isArray()) {
        QJsonArray clean;
        const QJsonArray array = value.toArray();
        for (const QJsonValue &element : array)
            clean.append(withoutValues(element, secrets));
        return clean;
    }
    if (value.isObject()) {
        QJsonObject clean;
        const QJsonObject object = value.toObject();
        for (auto entry = object.begin(); entry != object.end(); ++entry)
            clean[withoutValues(entry.key(), secrets).toString()] = withoutValues(entry.value(), secrets);
        return clean;
    }
    return value;
}

} // namespace vesk
