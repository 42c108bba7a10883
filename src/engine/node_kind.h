#pragma once

#include "statuses.h"
#include "task_graph.h"

namespace vesk {

// What a node of a plan is to the engine.

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

/// Whether the node runs just this command.
inline bool runsCommand(const Node &node, const QJsonValue &program, const QJsonValue &arguments)
{
    return node.kind == QLatin1StringView("tool") && node.input[QLatin1StringView("program")] == program
        && node.input[QLatin1StringView("arguments")] == arguments;
}

/// Lets a check run again.
inline void rearm(Node &check)
{
    check.status = NodeStatus::queued;
    check.output = {};
}

} // namespace vesk
