#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace vesk {

/// Characters that a request takes of a skill, or of the instructions of an agent of the user's.
constexpr qsizetype maxInstructionChars = 16000;

/// The 14 roles that the user can switch off and attach skills to, in the order in which they are shown.
/// Other codes exist beside them: "specialist", "workflow_reviewer", "terminal", the two of the chat, and whatever a
/// plan or a custom agent brings.
QStringList builtInRoles();

/// True for a role that answers with a verdict: "judge" or "reviewer" in its code, or "validator".
bool givesVerdict(const QString &role);

/// True for a role that only looks on, so that a disabled one is replaced by an approval: those with a verdict and
/// "observer". Any other role works, and runs even when disabled.
bool isReviewKind(const QString &role);

/// Tokens that the first request of a role may answer with.
int outputLimit(const QString &role);

/// The status of a run while the model works on it: "REVIEWING", "PLANNING", "FIXING", "WORKING" or "THINKING".
/// `context` is the input of the request; a coding job whose artifact has the key "fixes" is fixing.
QString runStatus(const QString &role, const QJsonObject &context);

/// A role made concrete for one task. A plain value: a job changes its own copy.
struct Agent {
    QString id; ///< Random UUID.
    QString name; ///< For people.
    QString role; ///< Role code, or the id of a custom agent.
    QString system_prompt;
    QStringList capabilities; ///< Free labels; nothing decides on them.
    QStringList allowed_tools; ///< The tool router refuses any other.
    int token_budget = 16000; ///< Reported only; no limit follows from it.

    /// The record of the table "agents", its keys named like the members.
    QJsonObject toJson() const;
};

/// Puts the role prompts in reach of PromptManager. To be called once before its first use: a static library's
/// resources are not there by themselves.
void registerPrompts();

/// Reads the prompts of the roles, ":/prompts/<role>.md".
class PromptManager {
public:
    /// The prompt, line ends as in the file; that of "specialist" for a role that has none.
    /// Throws "Missing role prompt" when that one cannot be read either.
    static QString get(const QString &role);
};

/// Makes agents.
class AgentFactory {
public:
    /// A fresh agent with its role's prompt. An empty `name` stands for the role. Throws as PromptManager::get() does.
    static Agent create(const QString &role, const QString &name, const QStringList &capabilities,
                        const QStringList &allowedTools);
};

/// Fits the input of a request into a limit.
class ContextManager {
public:
    /// The object of "task", "artifact" and "memory". `memory` comes oldest first and is given newest first; the first
    /// entry that does not fit ends the selection. `limit` counts the UTF-16 characters of the whole as compact JSON.
    /// Throws "Selected context exceeds configured limit" when task and artifact alone are too long: they are never
    /// shortened.
    static QJsonObject select(const QJsonObject &task, const QJsonObject &artifact, const QJsonArray &memory,
                              int limit);
};

} // namespace vesk
