// MCP servers in the service of tasks.

#include "mcp_link.h"

#include "core.h"
#include "helpers.h"
#include "mcp_client.h"
#include "mcp_wire.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

const QString &consents()
{
    static const QString table = u"mcp_servers"_s;
    return table;
}

} // namespace

void useMcp(Core &core, McpClient &client)
{
    core.engine.mcpCall = [&client](const QString &server, const QString &tool, const QJsonObject &arguments,
                                    const Engine::Answer &done) {
        client.call(server, tool, arguments, [done, tool, name = client.nameOf(server)](const QJsonObject &result) {
            done(boundedResult(result, name, tool));
        });
    };
    const QJsonArray known = core.store.list(consents(), {});
    for (const QJsonValue &consent : known)
        client.allowed.insert(consent["id"_L1].toString());
}

void decideOnServer(Core &core, McpClient &client, const QString &server, bool allow)
{
    const QString digest = allow ? client.waitingDigest(server) : QString();
    if (!digest.isEmpty())
        core.store.put(consents(), digest, {},
                       {{u"id"_s, digest}, {u"name"_s, client.nameOf(server)}, {u"allowed_at"_s, now()}});
    client.decide(server, allow);
}

} // namespace vesk
