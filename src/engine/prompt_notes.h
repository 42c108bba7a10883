#pragma once

#include <QString>

namespace vesk {

// Texts appended to a role's prompt, in this order where several apply. Each begins with one line feed and has no line
// end of its own; the line end of the prompt's file stays in front of it.

/// For a role to which the user attached a skill.
QString roleSkillNote();

/// For a job that runs under a custom agent.
QString specialistNote();

/// For the orchestrator when it routes the work by itself.
QString autonomousNote();

/// For a job that writes one segment of a long document.
QString segmentNote();

/// For a job that sees only passages of the file that it changes.
QString editsNote();

/// Always behind the prompt "chat_router".
QString chatRouterSkillNote();

/// Always behind the prompt "chat".
QString chatSkillNote();

} // namespace vesk
