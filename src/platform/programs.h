#pragma once

#include <QString>

namespace vesk {

/// Programs that lie in different places on different systems. Each function gives a full path, or an empty text when
/// the program is not there.

/// npm's script npm-cli.js that belongs to this node executable.
QString npmScript(const QString &node);

/// The library that holds the window, where it belongs to this executable.
QString interfaceLibrary();

/// The library that holds the media worker.
QString mediaLibrary();

/// Where FFmpeg lies when it comes with the application in this folder. It need not be there.
QString bundledFfmpeg(const QString &applicationFolder);

/// A browser that pages of a project can be checked in.
QString browserProgram();

} // namespace vesk
