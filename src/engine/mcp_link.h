#pragma once

#include <QString>

namespace vesk {

class Core;
class McpClient;

/// Ties MCP servers to the tasks of a core: a plan's calls go to the client, their results come back bounded and marked
/// with their server, and entries that the user has allowed earlier are known. Both outlive what is tied.
void useMcp(Core &core, McpClient &client);

/// The user's word on an entry that waits for it. A yes is kept for the next time, as the digest of the entry alone.
/// Throws when it can't be stored; the server is not connected then.
void decideOnServer(Core &core, McpClient &client, const QString &server, bool allow);

} // namespace vesk
