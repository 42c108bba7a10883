// Tools of other programs: none are looked for yet.

#include "mcp_client.h"

using namespace Qt::StringLiterals;

namespace vesk {

void McpClient::scan(const QString &)
{
}

void McpClient::connectServer(const QString &)
{
}

void McpClient::disconnectServer(const QString &)
{
}

void McpClient::call(const QString &, const QString &, const QJsonObject &,
                     const std::function<void(QJsonObject)> &callback)
{
    callback({{u"success"_s, false}, {u"error"_s, u"MCP-сервер не подключён"_s}});
}

void McpClient::cancelAll()
{
}

} // namespace vesk
