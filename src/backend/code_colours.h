#pragma once

#include <QByteArrayView>
#include <QList>
#include <QRgb>
#include <QString>

#include <atomic>

namespace vesk {

/// A part of a line, in UTF-16 units, and the colour of what it is. Parts in the colour of plain text are left out.
struct ColouredPart {
    int from = 0;
    int length = 0;
    QRgb colour = 0;
};
using LineColours = QList<QList<ColouredPart>>;

/// The colours of the lines of a file in the language that its name tells, for a dark ground or a light one, where
/// each can be read (4.5 to 1), also on the colours of lines that go and come. Empty for a
/// language that is not known, where there is no library that knows any, and when `stop` became true on the way. Of a
/// line only what can be shown is looked at. On any thread, one call at a time; 20,000 lines take some tenths of a
/// second.
LineColours coloursOf(const QString &path, const QList<QByteArrayView> &lines, bool dark, const std::atomic_bool &stop);

} // namespace vesk
