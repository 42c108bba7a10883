// The roles, their prompts and limits, and the input of their requests.

#include "roles.h"

#include "helpers.h"

#include <QFile>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

// The macro declares a function of the global namespace.
static void initPromptResource()
{
    Q_INIT_RESOURCE(prompts);
}

namespace vesk {

namespace {

constexpr int defaultTokenBudget = 16000;

bool judgesOrReviews(const QString &role)
{
    return role.contains("judge"_L1) || role.contains("reviewer"_L1);
}

bool isFixing(const QJsonObject &context)
{
    return context["artifact"_L1].toObject().contains("fixes"_L1);
}

/// Length of the value's compact JSON in UTF-16 characters.
qsizetype textLength(const QJsonValue &value)
{
    const QByteArray text = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(text).size() - 2; // without the brackets
}

} // namespace

QStringList builtInRoles()
{
    static const QStringList roles{
        u"orchestrator"_s,
        u"planner"_s,
        u"requirements_judge"_s,
        u"architecture_judge"_s,
        u"risk_judge"_s,
        u"structure"_s,
        u"dependency_judge"_s,
        u"maintainability_judge"_s,
        u"coding"_s,
        u"correctness_reviewer"_s,
        u"integration_reviewer"_s,
        u"observer"_s,
        u"validator"_s,
        u"coordinator"_s,
    };
    return roles;
}

bool givesVerdict(const QString &role)
{
    return judgesOrReviews(role) || role == "validator"_L1;
}

bool isReviewKind(const QString &role)
{
    return givesVerdict(role) || role == "observer"_L1;
}

int outputLimit(const QString &role)
{
    if (role == "coding"_L1)
        return 8192;
    return judgesOrReviews(role) ? 1536 : 2048;
}

QString runStatus(const QString &role, const QJsonObject &context)
{
    if (givesVerdict(role))
        return u"REVIEWING"_s;
    if (role == "planner"_L1)
        return u"PLANNING"_s;
    if (role == "coding"_L1)
        return isFixing(context) ? u"FIXING"_s : u"WORKING"_s;
    return u"THINKING"_s;
}

QJsonObject Agent::toJson() const
{
    return {
        {u"id"_s, id},
        {u"name"_s, name},
        {u"role"_s, role},
        {u"system_prompt"_s, system_prompt},
        {u"capabilities"_s, QJsonArray::fromStringList(capabilities)},
        {u"allowed_tools"_s, QJsonArray::fromStringList(allowed_tools)},
        {u"token_budget"_s, token_budget},
    };
}

void registerPrompts()
{
    initPromptResource();
}

QString PromptManager::get(const QString &role)
{
    QFile file(u":/prompts/"_s + role + u".md"_s);
    if (!file.open(QIODevice::ReadOnly)) {
        file.setFileName(u":/prompts/specialist.md"_s);
        require(file.open(QIODevice::ReadOnly), u"Missing role prompt"_s);
    }
    return QString::fromUtf8(file.readAll());
}

Agent AgentFactory::create(const QString &role, const QString &name, const QStringList &capabilities,
                           const QStringList &allowedTools)
{
    Agent agent;
    agent.id = id();
    agent.name = name.isEmpty() ? role : name;
    agent.role = role;
    agent.system_prompt = PromptManager::get(role);
    agent.capabilities = capabilities;
    agent.allowed_tools = allowedTools;
    agent.token_budget = defaultTokenBudget;
    return agent;
}

QJsonObject ContextManager::select(const QJsonObject &task, const QJsonObject &artifact, const QJsonArray &memory,
                                   int limit)
{
    QJsonObject result{{u"task"_s, task}, {u"artifact"_s, artifact}, {u"memory"_s, QJsonArray()}};
    // Each part is written once and the lengths are added up: writing the whole again for every entry takes time with
    // the square of the memory's length.
    qsizetype length = json(result).size();
    require(length <= limit, u"Selected context exceeds configured limit"_s);

    QJsonArray selected;
    for (qsizetype i = memory.size() - 1; i >= 0; --i) {
        const QJsonValue entry = memory.at(i);
        const qsizetype comma = selected.isEmpty() ? 0 : 1;
        length += comma + textLength(entry);
        if (length > limit)
            break;
        selected.append(entry);
    }
    result["memory"_L1] = selected;
    return result;
}

} // namespace vesk
