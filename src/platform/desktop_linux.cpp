// Fonts and places of a Linux desktop.

#include "desktop.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto tokenVariable = "XDG_ACTIVATION_TOKEN"; // The same for X11 and Wayland (xdg-activation).

} // namespace

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
