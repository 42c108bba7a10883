#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

/// Characters that a text takes inside of a JSON document.
qsizetype escapedLength(QStringView text);

/// All texts inside of a value, without the keys.
QStringList textsIn(const QJsonValue &value);

/// A long file as a request shows it: word for word, but for what it leaves out.
struct Excerpt {
    QString text; ///< The passages; between them lines "[… lines 41-120 left out …]".
    QString outline; ///< "12: class Cell {" for headings and symbols of the whole, a line each.
    qsizetype omitted = 0; ///< Characters left out.
};

/// How much each line of a text matters to a request; 0 for most. A line longer than 500 characters counts as several.
using LineWeights = QList<double>;

/// Lines that the sources name: by their number ("line 12", "строка 12", "a.js:12") or by a word of theirs that is rare
/// in the text.
LineWeights namedLines(const QString &text, const QStringList &sources);

/// Lines that another text has not, and those beside a place where something was taken out.
LineWeights changedLines(const QString &text, const QString &before);

/// The lines that matter most, with eight lines around each, and the start; within so many escaped characters without
/// the outline, which has 6000 at most. With no weights, as much of the start as fits.
Excerpt excerptOf(const QString &text, const LineWeights &weights, qsizetype limit);

/// A file's record with an excerpt for its "content", and "content_truncated", "content_chars_omitted" and "outline".
QJsonObject excerpted(QJsonObject file, const LineWeights &weights, qsizetype limit);

} // namespace vesk
