// A connection to one MCP server, tried from the command line.

#include "probe_mcp.h"

#include "mcp_client.h"
#include "mcp_server.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto limit = std::chrono::seconds(35);
constexpr int noServer = 2;
constexpr int notConnected = 3;
constexpr int probeTimedOut = 4;

QJsonObject recordOf(const McpClient &client, const QString &id)
{
    const QJsonArray all = client.list();
    for (const QJsonValue &server : all) {
        if (server["id"_L1].toString() == id)
            return server.toObject();
    }
    return {};
}

void check(const McpClient &client, const QString &id)
{
    const QJsonObject server = recordOf(client, id);
    const QString status = server["status"_L1].toString();
    if (status == McpStatus::connecting)
        return;
    qInfo("%s %s tools %d %s", qPrintable(server["name"_L1].toString()), qPrintable(status),
          server["tool_count"_L1].toInt(), qPrintable(server["error"_L1].toString()));
    QCoreApplication::exit(status == McpStatus::connected ? 0 : notConnected);
}

} // namespace

int runProbeMcp()
{
    McpClient client;
    client.scan({});
    QString id;
    const QJsonArray all = client.list();
    for (const QJsonValue &server : all) {
        if (server["name"_L1].toString().contains("Roblox"_L1))
            id = server["id"_L1].toString();
    }
    if (id.isEmpty())
        return noServer;
    QObject::connect(&client, &McpClient::changed, &client, [&] { check(client, id); });
    QTimer::singleShot(0, &client, [&] { client.connectServer(id); });
    QTimer::singleShot(limit, &client, [] { QCoreApplication::exit(probeTimedOut); });
    return QCoreApplication::exec();
}

} // namespace vesk
