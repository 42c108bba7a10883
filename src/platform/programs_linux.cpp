// Where the programs of this system and those that come with us are.

#include "programs.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// A library that is loaded on demand: beside the executable while it is being built, apart from it once installed.
QString ownLibrary(const QString &name)
{
    // Asked before there is an application object that knows its own folder.
    const QDir folder = QFileInfo(QFileInfo(u"/proc/self/exe"_s).symLinkTarget()).dir();
    const QString beside = folder.filePath(name);
    return QFileInfo::exists(beside) ? beside : folder.filePath(u"../lib/vesk/"_s + name);
}

} // namespace

QString npmScript(const QString &node)
{
    const QString script = u"node_modules/npm/bin/npm-cli.js"_s;
    const QDir folder = QFileInfo(node).dir();
    // Unpacked archives have npm beside the executable or in the lib folder of their prefix.
    for (const QString &candidate : {folder.filePath(script), folder.filePath(u"../lib/"_s + script)}) {
        if (QFileInfo(candidate).isFile())
            return QDir::cleanPath(candidate);
    }
    // Distributions link the command to wherever they keep the script.
    const QString target = QFileInfo(folder.filePath(u"npm"_s)).canonicalFilePath();
    return target.endsWith("/npm-cli.js"_L1) ? target : QString();
}

QString interfaceLibrary()
{
    return ownLibrary(u"libvesk-interface.so"_s);
}

QString mediaLibrary()
{
    return ownLibrary(u"libvesk-media.so"_s);
}

QString backgroundLibrary()
{
    return ownLibrary(u"libvesk-background.so"_s);
}

QString bundledProgram(const QString &applicationFolder, const QString &name)
{
    return applicationFolder + u"/tools/"_s + name;
}

QString installedBlender()
{
    return {}; // Distributions and archives put it on the search path.
}

InstalledScript studioServer()
{
    // The variable is set where programs of another system run on this one.
    const QString path = qEnvironmentVariable("LOCALAPPDATA") + u"/Roblox/mcp.bat"_s;
    return {path, u"cmd.exe"_s, {u"/d"_s, u"/c"_s, QDir::toNativeSeparators(path)}};
}

QStringList configurationFolders()
{
    // The first is set where programs of another system run on this one.
    QStringList folders{qEnvironmentVariable("APPDATA"),
                        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)};
    folders.removeAll(QString());
    return folders;
}

QString browserProgram()
{
    // Each under the names that distributions and makers give it.
    for (const QString &name : {u"microsoft-edge"_s, u"microsoft-edge-stable"_s, u"chromium"_s, u"chromium-browser"_s,
                                u"google-chrome"_s, u"google-chrome-stable"_s, u"brave-browser"_s, u"brave"_s}) {
        const QString path = QStandardPaths::findExecutable(name);
        if (!path.isEmpty())
            return path;
    }
    return {};
}

} // namespace vesk
