#include "backend.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace vesk {

void Backend::configureClient(OpenAICompatibleProvider &target)
{
    target.url = client.url;
    target.model = client.model;
    target.key = client.key;
    target.useResponses = client.useResponses;
    target.root = workspace.root();
}

/// The preferences become inputs of the next run.
void Backend::prepareRuntime(const QString &)
{
    engine.agentProviders.clear();
    engine.computerAccess = std::as_const(preferences)["computer_access"_L1].toBool();
    engine.automaticRouting = std::as_const(preferences)["automatic_routing"_L1].toBool(true);
    engine.disabledAgents.clear();
    const QJsonArray disabled = std::as_const(preferences)["disabled_agents"_L1].toArray();
    for (const QJsonValue &role : disabled)
        engine.disabledAgents.insert(role.toString());
    engine.roleSkills = std::as_const(preferences)["role_skills"_L1].toObject();
    engine.agentNetwork = std::as_const(preferences)["custom_agents"_L1].toArray();
    engine.mcpTools = mcp.availableTools();
}

/// Which real tools a run may plan with. Only what the program knows for certain by now.
QJsonObject Backend::mediaCapabilities() const
{
    return {{u"computer_access"_s, preferences["computer_access"_L1]}, {u"workspace"_s, workspace.root()}};
}

/// No files are attached yet, so no request speaks of any.
QJsonArray Backend::mediaForRequest(const QString &) const
{
    return {};
}

} // namespace vesk
