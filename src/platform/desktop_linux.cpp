// Fonts and places of a Linux desktop.

#include "desktop.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto tokenVariable = "XDG_ACTIVATION_TOKEN"; // The same for X11 and Wayland (xdg-activation).

/// The portal itself shows nothing: it needs a part of a desktop that does. What is in a sandbox can't see that part.
bool hasPortalDialogs()
{
    if (QFile::exists(u"/.flatpak-info"_s))
        return true;
    const QStringList folders = QStandardPaths::locateAll(
        QStandardPaths::GenericDataLocation, u"xdg-desktop-portal/portals"_s, QStandardPaths::LocateDirectory);
    for (const QString &folder : folders) {
        const QFileInfoList parts = QDir(folder).entryInfoList({u"*.portal"_s}, QDir::Files);
        for (const QFileInfo &part : parts) {
            QFile file(part.filePath());
            if (file.open(QFile::ReadOnly) && file.read(4096).contains("portal.FileChooser"))
                return true;
        }
    }
    return false;
}

/// The plugin by which Qt would show dialogs of the desktop; empty for a desktop that has none.
QString dialogPlugin()
{
    const QString chosen = qEnvironmentVariable("QT_QPA_PLATFORMTHEME");
    const QStringList desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").toUpper().split(u':');
    if (chosen == u"xdgdesktopportal"_s)
        return hasPortalDialogs() ? u"qxdgdesktopportal"_s : QString();
    if (chosen == u"kde"_s || (chosen.isEmpty() && desktops.contains(u"KDE"_s)))
        return u"KDEPlasmaPlatformTheme"_s;
    static const QStringList gtk{u"GNOME"_s, u"X-CINNAMON"_s, u"UNITY"_s,   u"MATE"_s,
                                 u"XFCE"_s,  u"LXDE"_s,       u"PANTHEON"_s};
    const bool isGtk = std::ranges::any_of(desktops, [](const QString &desktop) { return gtk.contains(desktop); });
    return chosen == u"gtk3"_s || (chosen.isEmpty() && isGtk) ? u"qgtk3"_s : QString();
}

} // namespace

bool hasFileDialogs(const QStringList &pluginFolders)
{
    const QString plugin = dialogPlugin();
    return !plugin.isEmpty() && std::ranges::any_of(pluginFolders, [&plugin](const QString &folder) {
        return !QDir(folder + u"/platformthemes"_s).entryList({u'*' + plugin + u'*'}, QDir::Files).isEmpty();
    });
}

QList<FontSubstitutes> fontSubstitutes()
{
    return {
        {u"Segoe UI"_s, {u"Inter"_s, u"Noto Sans"_s, u"DejaVu Sans"_s}},
        {u"Consolas"_s, {u"Cascadia Code"_s, u"JetBrains Mono"_s, u"Noto Sans Mono"_s, u"DejaVu Sans Mono"_s}},
    };
}

QStringList offscreenFontFiles()
{
    const QString folder = qEnvironmentVariable("WINDIR");
    if (folder.isEmpty())
        return {}; // The usual case here: the offscreen platform finds the installed fonts by itself.
    return {folder + u"/Fonts/segoeui.ttf"_s, folder + u"/Fonts/consola.ttf"_s};
}

bool usesOpenGL()
{
    return true;
}

QByteArray activationToken()
{
    return qgetenv(tokenVariable);
}

void setActivationToken(const QByteArray &token)
{
    if (!token.isEmpty() && std::ranges::all_of(token, [](char c) { return c > ' ' && c < 127; }))
        qputenv(tokenVariable, token);
}

} // namespace vesk
