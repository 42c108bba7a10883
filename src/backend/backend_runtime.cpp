// What the user has set, and what of it, and of this computer, a run is given.

#include "backend.h"

#include "helpers.h"
#include "mcp_config.h"
#include "mcp_link.h"
#include "programs.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// A value as JSON. A script's object or array arrives wrapped in a type of the script engine, which converts to the
/// plain ones but isn't known to QJsonValue.
QJsonValue jsonOf(const QVariant &value)
{
    if (value.metaType().id() < QMetaType::User)
        return QJsonValue::fromVariant(value);
    const QVariantList list = value.toList();
    return list.isEmpty() ? QJsonValue(QJsonObject::fromVariantMap(value.toMap()))
                          : QJsonValue(QJsonArray::fromVariantList(list));
}

QString existing(const QString &path)
{
    return QFileInfo(path).isFile() ? path : QString();
}

/// The user's choice, else where the system has it, the one that comes with the application, or the one on the search
/// path; empty when there is none.
QString toolProgram(const QString &name, const QString &chosen)
{
    const QString own = existing(chosen);
    if (!own.isEmpty())
        return own;
    const QString installed = name == "blender"_L1 ? installedBlender() : QString();
    if (!installed.isEmpty())
        return installed;
    const QString bundled = existing(bundledProgram(QCoreApplication::applicationDirPath(), name));
    return bundled.isEmpty() ? QStandardPaths::findExecutable(name) : bundled;
}

/// The project's media as agents are told of them.
QJsonArray assetsOf(const QJsonArray &media, const QString &root)
{
    QJsonArray assets;
    for (const QJsonValue &medium : media) {
        QJsonObject asset;
        for (const QString &key : {u"path"_s, u"name"_s, u"kind"_s, u"usage"_s, u"pinned"_s})
            asset[key] = medium[key];
        asset["absolute_path"_L1] = root + u'/' + medium["path"_L1].toString();
        assets.append(asset);
    }
    return assets;
}

} // namespace

void Backend::setPreference(const QString &key, const QVariant &value)
{
    guard([&] {
        const QJsonValue given = jsonOf(value);
        if (key == "agent_positions"_L1 && given.isObject())
            team.setPositions(given.toObject());
        else
            preferences.set(key, given);
    });
}

void Backend::renderBackground(double time, int width, int height)
{
    background.render(preferences.value(u"background_js"_s).toString(), time, width, height);
}

void Backend::discoverMcp()
{
    mcp.scan(core.workspace.root());
}

void Backend::connectMcp(const QString &server)
{
    mcp.connectServer(server);
}

void Backend::disconnectMcp(const QString &server)
{
    mcp.disconnectServer(server);
}

void Backend::allowMcp(const QString &server, bool allow)
{
    guard([&] { decideOnServer(core, mcp, server, allow); });
}

/// By name, so that the order stays, and with what is known of a failure beyond its error.
QVariantList Backend::mcpServers() const
{
    QVariantList shown = mcp.list().toVariantList();
    for (QVariant &server : shown) {
        QVariantMap record = server.toMap();
        record[u"details"_s] = mcp.details(record.value(u"id"_s).toString());
        server = record;
    }
    std::ranges::stable_sort(shown, [](const QVariant &a, const QVariant &b) {
        return a.toMap().value(u"name"_s).toString().localeAwareCompare(b.toMap().value(u"name"_s).toString()) < 0;
    });
    return shown;
}

/// The preferences become inputs of the next run, and the servers that its request names are called up.
void Backend::prepareRuntime(const QString &request)
{
    const RunPreferences chosen = runPreferences(preferences.document());
    if (chosen.computerAccess)
        startServers(request);
    connectAgentClients();
    Engine &engine = core.engine;
    engine.computerAccess = chosen.computerAccess;
    engine.automaticRouting = chosen.automaticRouting;
    engine.disabledAgents = QSet<QString>(chosen.disabledAgents.cbegin(), chosen.disabledAgents.cend());
    engine.roleSkills = chosen.roleSkills;
    engine.agentNetwork = chosen.agentNetwork;
    engine.mcpTools = mcp.availableTools();
}

/// Connecting only begins here: a server that is not up yet is absent from this run.
void Backend::startServers(const QString &request)
{
    discoverMcp();
    const QStringList wanted = serversToStart(mcp.list(), request);
    for (const QString &server : wanted)
        mcp.connectServer(server);
}

/// Made anew for each run, so that a changed key or address counts from the next task on.
void Backend::connectAgentClients()
{
    Engine &engine = core.engine;
    engine.agentProviders.clear();
    qDeleteAll(std::exchange(connection.agentClients, {}));
    const QJsonObject own = preferences.value(u"agent_api"_s).toObject();
    for (auto entry = own.begin(); entry != own.end(); ++entry) {
        auto *agent = new OpenAICompatibleProvider(this);
        connection.configureAgentClient(*agent, entry.key(), entry.value().toObject(), core.workspace.root());
        connection.agentClients.insert(entry.key(), agent);
        engine.agentProviders.insert(entry.key(), agent);
    }
}

/// Which real tools this computer has, and where the project's assets are.
QJsonObject Backend::mediaCapabilities() const
{
    const QString home = QDir::homePath();
    return {{u"browser"_s, browserProgram()},
            {u"browser_worker"_s, QCoreApplication::applicationDirPath() + u"/tools/browser-check.mjs"_s},
            {u"project_assets"_s, assetsOf(projectMedia(), core.workspace.root())},
            {u"computer_access"_s, preferences.value(u"computer_access"_s)},
            {u"search_roots"_s, QJsonArray{home + u"/Pictures"_s, home + u"/Downloads"_s, home + u"/Documents"_s}},
            {u"worker"_s, QCoreApplication::applicationFilePath()},
            {u"workspace"_s, core.workspace.root()},
            {u"operations"_s,
             QJsonArray{u"image: resize,crop,rotate,background behind transparency"_s,
                        u"obj_transform: scale,translate"_s, u"video: trim,resize"_s, u"frame: extract JPG/PNG"_s}},
            {u"ffmpeg"_s, toolProgram(u"ffmpeg"_s, preferences.value(u"ffmpeg_path"_s).toString())},
            {u"blender"_s, toolProgram(u"blender"_s, preferences.value(u"blender_path"_s).toString())}};
}

} // namespace vesk
