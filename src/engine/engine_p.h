#pragma once

// Shared by engine*.cpp only.

#include "engine.h"
#include "event_bus.h"
#include "helpers.h"
#include "llm_provider.h"
#include "panel_vote.h"
#include "permissions.h"
#include "phases.h"
#include "statuses.h"
#include "store.h"
#include "tool_router.h"
#include "workspace.h"

namespace vesk {

constexpr int maxFixAttempts = 5;

/// Characters of the input of one request, as compact JSON.
constexpr int maxContextChars = 96000;

/// The node's record without what it produced.
inline QJsonObject withoutOutput(const Node &node)
{
    QJsonObject object = node.toJson();
    object.remove(QLatin1StringView("output"));
    return object;
}

inline QString pathOf(const Node &node)
{
    return node.input[QLatin1StringView("path")].toString();
}

inline bool isCode(const Node &node)
{
    return node.kind == QLatin1StringView("code");
}

/// A real build or test: what it says is true of the files that it saw.
inline bool isCheck(const Node &node)
{
    return node.kind == QLatin1StringView("tool") && node.input[QLatin1StringView("verification")] == true;
}

/// Lets a check run again.
inline void rearm(Node &check)
{
    check.status = NodeStatus::queued;
    check.output = {};
}

} // namespace vesk
