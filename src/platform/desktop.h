#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

/// What the interface must know of the desktop that it stands on.

struct FontSubstitutes {
    QString family;
    QStringList others; ///< In the order of preference.
};

/// For each font family of the interface the families that stand in for it where it is not installed. All of them have
/// Cyrillic.
QList<FontSubstitutes> fontSubstitutes();

/// Font files to be loaded when there is no desktop to ask for fonts. They need not exist.
QStringList offscreenFontFiles();

/// Whether the desktop shows dialogs for files: it has a theme of those that do, and one of `pluginFolders` has Qt's
/// part of that theme.
bool hasFileDialogs(const QStringList &pluginFolders);

/// Whether Qt draws windows by OpenGL here when nothing else is asked for.
bool usesOpenGL();

/// What the desktop gives a program that was started by a click, so that a window may come to the front: from the
/// environment, and back into it for the next window that asks to. Only printable characters are taken; empty where the
/// desktop has no such thing.
QByteArray activationToken();
void setActivationToken(const QByteArray &token);

} // namespace vesk
