#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>

namespace vesk {

/// Connections to MCP servers. None are looked for yet, so the lists stay empty and a call is answered by a failure.
class McpClient : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// Looks for servers on this machine and in the project at `root`.
    void scan(const QString &root);
    QJsonArray list() const { return {}; }
    QJsonArray availableTools() const { return {}; }
    void connectServer(const QString &id);
    void disconnectServer(const QString &id);
    /// The callback always runs, exactly once, with "success" and, when that is false, "error".
    void call(const QString &serverId, const QString &tool, const QJsonObject &arguments,
              const std::function<void(QJsonObject)> &callback);
    void cancelAll();

Q_SIGNALS:
    void changed();
    /// One line for the user.
    void statusMessage(QString text);
};

} // namespace vesk
