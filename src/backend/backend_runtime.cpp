// What the user has set, and what of it, and of this computer, a run is given.

#include "backend.h"

#include "helpers.h"
#include "programs.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

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

/// The user's choice, else the one that comes with the application, else the system's; empty when there is none.
QString ffmpegProgram(const QString &chosen)
{
    const QString bundled = bundledProgram(QCoreApplication::applicationDirPath(), u"ffmpeg"_s);
    for (const QString &path : {chosen, bundled}) {
        if (QFileInfo(path).isFile())
            return path;
    }
    return QStandardPaths::findExecutable(u"ffmpeg"_s);
}

void notYet(const QString &what)
{
    require(false, what + u" — пока недоступно в этой версии."_s);
}

} // namespace

void Backend::setPreference(const QString &key, const QVariant &value)
{
    guard([&] { preferences.set(key, jsonOf(value)); });
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

void Backend::connectAgents(const QString &, const QString &)
{
    guard([] { notYet(u"Связи агентов"_s); });
}

void Backend::addWorkflowTemplate()
{
    guard([] { notYet(u"Пример команды"_s); });
}

/// The preferences become inputs of the next run.
void Backend::prepareRuntime()
{
    const RunPreferences chosen = runPreferences(preferences.document());
    Engine &engine = core.engine;
    engine.agentProviders.clear();
    engine.computerAccess = chosen.computerAccess;
    engine.automaticRouting = chosen.automaticRouting;
    engine.disabledAgents = QSet<QString>(chosen.disabledAgents.cbegin(), chosen.disabledAgents.cend());
    engine.roleSkills = chosen.roleSkills;
    engine.agentNetwork = chosen.agentNetwork;
    engine.mcpTools = mcp.availableTools();
}

/// Which real tools a run may plan with. Only what the program knows for certain by now.
QJsonObject Backend::mediaCapabilities() const
{
    return {{u"computer_access"_s, preferences.value(u"computer_access"_s)},
            {u"workspace"_s, core.workspace.root()},
            {u"ffmpeg"_s, ffmpegProgram(preferences.value(u"ffmpeg_path"_s).toString())}};
}

} // namespace vesk
