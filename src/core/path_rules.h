#pragma once

#include <QString>

namespace vesk {

/// A path of a project with forward slashes.
QString slashed(QString path);

/// Whether a project's path can be that of a small picture that the program keeps beside a medium:
/// "assets/....preview.jpg". Of other paths that a program has named none is shown or sent as a picture.
bool isPreview(const QString &path);

/// What a relative path says by itself, before the disk is asked.
struct JudgedPath {
    QString good; ///< The components in front of the first bad one, with forward slashes.
    QString fault; ///< Why that one, or the path as a whole, is refused; empty when it is not.
    /// Why a new file is not to be called so; one that was recorded under such a name before is still read and
    /// replaced.
    QString newFault;
};
JudgedPath judged(const QString &relativePath);

} // namespace vesk
