#pragma once

// Shared by engine*.cpp only.

#include "engine.h"
#include "event_bus.h"
#include "helpers.h"
#include "llm_provider.h"
#include "node_kind.h"
#include "panel_vote.h"
#include "permissions.h"
#include "phases.h"
#include "store.h"
#include "tool_router.h"
#include "workspace.h"

namespace vesk {

constexpr int maxFixAttempts = 5;

/// Characters of the input of one request, as compact JSON.
constexpr int maxContextChars = 96000;
/// Of these, what the tools of MCP servers may take.
constexpr int maxToolChars = maxContextChars / 3;

/// Edits by name, for a line of text: at most ten.
QString namedEdits(const QList<HandEdit> &edits);

/// The node's record without what it produced.
inline QJsonObject withoutOutput(const Node &node)
{
    QJsonObject object = node.toJson();
    object.remove(QLatin1StringView("output"));
    return object;
}

} // namespace vesk
