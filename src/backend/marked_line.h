#pragma once

#include "code_colours.h"
#include "diff.h"

#include <QByteArrayView>
#include <QList>
#include <QString>

namespace vesk {

/// What is beyond is left out, with a sign.
inline constexpr qsizetype longestShownLine = 1000;

/// A line of a file without its end.
QString decodedLine(QByteArrayView line);

/// A line for a text that reads simple markup: signs of markup are escaped, blanks stay, tabs are four, what can't be
/// seen or makes other text look different is a number in italics (visibleText()), changed parts are bold and
/// underlined, coloured ones coloured. Both lists are in order and don't overlap in themselves.
QString markedLine(const QString &line, const QList<Span> &changed, const QList<ColouredPart> &colours = {});

} // namespace vesk
