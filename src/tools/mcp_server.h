#pragma once

#include "mcp_client.h"
#include "mcp_wire.h"
#include "process_containment.h"

#include <QPointer>
#include <QProcess>

namespace vesk {

/// One known server, for the client's own files. Held by a shared pointer, so that timers and slots outlive whatever
/// becomes of it.
struct McpClient::Server {
    QJsonObject config; ///< The entry, with "source".
    QString id;
    QString name;
    QString status;
    QString error; ///< The last failure.
    QString details; ///< What is known of it beyond that.
    QString sessionId; ///< Of HTTP servers; empty for none.
    QJsonArray tools;
    QPointer<QProcess> process; ///< Null for HTTP, and when nothing runs.
    std::shared_ptr<ProcessContainment> containment;
    McpLines buffer; ///< Of standard output.
    QByteArray lastErrors; ///< The end of standard error.
    QHash<qint64, Callback> pending;
    QStringList secrets; ///< What must not be seen in what it says.
    int connection = 0; ///< Counts the connections: news of an earlier one is dropped.
    bool ofProject = false; ///< Its entry was found in a project.
    bool asks = false; ///< Waits for the user's word.

    QString source() const { return config[QStringLiteral("source")].toString(); }
    bool isHttp() const { return config[QStringLiteral("url")].isString(); }
    QString clean(const QString &text) const { return withoutValues(text, secrets).toString(); }
};

namespace McpStatus {
inline const QString available = QStringLiteral("Доступен");
inline const QString connecting = QStringLiteral("Подключение…");
inline const QString connected = QStringLiteral("Подключён");
inline const QString disconnected = QStringLiteral("Отключён");
inline const QString failed = QStringLiteral("Ошибка");
} // namespace McpStatus

inline const QString mcpProtocol = QStringLiteral("2025-03-26");

} // namespace vesk
