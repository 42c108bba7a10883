#pragma once

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

} // namespace vesk
