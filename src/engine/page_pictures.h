#pragma once

#include <QString>
#include <QStringList>

namespace vesk {

// Pictures that checks in a browser have taken, in the data folder: pages/TASK/PAGE-WIDTH.png.

/// The path of a page's pictures without width and ending, as the check in a browser is told it.
QString pictureStem(const QString &pictures, const QString &task, const QString &page);

/// The pictures that are there of this stem, the wide screen first; none of a stem outside of `pictures`.
QStringList picturesAt(const QString &pictures, const QString &stem);

/// Removes those of old tasks: the newest 50 keep theirs.
void removeOldPictures(const QString &pictures);

} // namespace vesk
