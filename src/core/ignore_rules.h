#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

namespace vesk {

/// What files named .gitignore and .veskignore leave out, by the rules of git: the last pattern that fits decides, "!"
/// takes back, "/" at the end means folders, one within ties the pattern to the folder of its file.
class IgnoreRules {
public:
    /// Adds the patterns of a file that lies in `folder` ("" for the top). Later ones count more.
    void add(const QString &folder, const QString &text);
    /// Whether a path, below no folder that is left out itself, is left out.
    bool leavesOut(const QString &path, bool isFolder) const;

private:
    struct Pattern {
        QString folder; ///< With a slash at the end, or empty.
        QString glob;
        bool anchored = false;
        bool foldersOnly = false;
        bool takesBack = false;
    };
    QList<Pattern> patterns;
};

/// Whether a name fits a pattern: "*" and "?" stop at a slash, "**/" and "/**" don't; "[a-z]", "[!a]" and "\\" as
/// usual.
bool fitsGlob(QStringView glob, QStringView name);
/// Whether a name fits one of the patterns, which are in small letters, in any case.
bool fitsOneOf(const QString &name, const QStringList &globs);

} // namespace vesk
