#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

/// The entry of a program in the shell that shakes hands as an MCP server with one tool, "t", reads one call and does
/// `more`, in which "reply TEXT" answers the call. With `handshake` false it does nothing but `more`.
inline QJsonObject mcpProgram(const QString &more, bool handshake = true, const QJsonObject &environment = {})
{
    const QString begin = QStringLiteral(
        "ask() { read -r line; }; reply() { printf '%s,%s}\\n' \"$(echo \"$line\" | cut -d, -f1)\" \"$1\"; }; ");
    const QString ready = QStringLiteral("ask; reply '\"result\":{}'; ask; ask; "
                                         "reply '\"result\":{\"tools\":[{\"name\":\"t\"}]}'; ask; ");
    return {{QStringLiteral("command"), QStringLiteral("sh")},
            {QStringLiteral("args"), QJsonArray{QStringLiteral("-c"), begin + (handshake ? ready : QString()) + more}},
            {QStringLiteral("env"), environment}};
}
