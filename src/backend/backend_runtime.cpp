#include "backend.h"

#include "programs.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace vesk {

void Backend::configureClient(OpenAICompatibleProvider &target)
{
    target.url = client.url;
    target.model = client.model;
    target.key = client.key;
    target.useResponses = client.useResponses;
    target.root = core.workspace.root();
}

/// The preferences become inputs of the next run.
void Backend::prepareRuntime(const QString &)
{
    core.engine.agentProviders.clear();
    core.engine.computerAccess = std::as_const(preferences)["computer_access"_L1].toBool();
    core.engine.automaticRouting = std::as_const(preferences)["automatic_routing"_L1].toBool(true);
    core.engine.disabledAgents.clear();
    const QJsonArray disabled = std::as_const(preferences)["disabled_agents"_L1].toArray();
    for (const QJsonValue &role : disabled)
        core.engine.disabledAgents.insert(role.toString());
    core.engine.roleSkills = std::as_const(preferences)["role_skills"_L1].toObject();
    core.engine.agentNetwork = std::as_const(preferences)["custom_agents"_L1].toArray();
    core.engine.mcpTools = mcp.availableTools();
}

/// Which real tools a run may plan with. Only what the program knows for certain by now.
QJsonObject Backend::mediaCapabilities() const
{
    return {{u"computer_access"_s, preferences["computer_access"_L1]},
            {u"workspace"_s, core.workspace.root()},
            {u"ffmpeg"_s, ffmpegProgram()}};
}

/// The user's choice, else the one that comes with the application, else the system's; empty when there is none.
QString Backend::ffmpegProgram() const
{
    const QString chosen = preferences["ffmpeg_path"_L1].toString();
    const QString bundled = bundledFfmpeg(QCoreApplication::applicationDirPath());
    for (const QString &path : {chosen, bundled}) {
        if (QFileInfo(path).isFile())
            return path;
    }
    return QStandardPaths::findExecutable(u"ffmpeg"_s);
}

} // namespace vesk
