#pragma once

#include <QString>
#include <QStringList>

namespace vesk {

/// Programs that lie in different places on different systems. Each function gives a full path, or an empty text when
/// the program is not there.

/// npm's script npm-cli.js that belongs to this node executable.
QString npmScript(const QString &node);

/// The library that holds the window, where it belongs to this executable.
QString interfaceLibrary();

/// The library that holds the media worker.
QString mediaLibrary();

/// The library that holds the worker of the background.
QString backgroundLibrary();

/// A browser that pages of a project can be checked in.
QString browserProgram();

/// Where Blender lies besides the search path: the highest version first. Empty here where it has no such place.
QString installedBlender();

/// A script that another program has brought along, and what runs it. It need not be there.
struct InstalledScript {
    QString path;
    QString program;
    QStringList arguments;
};

/// The MCP server of Roblox Studio.
InstalledScript studioServer();

/// Where a program `name` lies when it comes with the application in this folder. It need not be there.
QString bundledProgram(const QString &applicationFolder, const QString &name);

/// The folders in which other programs keep what their user has set, in the order in which to look.
QStringList configurationFolders();

} // namespace vesk
