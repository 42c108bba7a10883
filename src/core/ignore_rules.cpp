// Patterns of files to be left out.

#include "ignore_rules.h"

#include <algorithm>
#include <ranges>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// Reads "[...]" at the beginning of the glob; gives its length, 0 when it isn't closed, and whether `c` is in it.
qsizetype setAt(QStringView glob, QChar c, bool &isIn)
{
    qsizetype at = 1;
    const bool isNegated = at < glob.size() && (glob[at] == u'!' || glob[at] == u'^');
    if (isNegated)
        ++at;
    bool found = false;
    for (const qsizetype first = at; at < glob.size() && (glob[at] != u']' || at == first); ++at) {
        if (at + 2 < glob.size() && glob[at + 1] == u'-' && glob[at + 2] != u']') {
            found = found || (glob[at] <= c && c <= glob[at + 2]);
            at += 2;
        } else {
            found = found || glob[at] == c;
        }
    }
    isIn = found != isNegated && c != u'/';
    return at < glob.size() ? at + 1 : 0;
}

/// The length of what the glob begins with, and whether it takes `c`.
qsizetype signAt(QStringView glob, QChar c, bool &fits)
{
    if (glob[0] == u'[') {
        if (const qsizetype length = setAt(glob, c, fits); length > 0)
            return length;
    }
    if (glob[0] == u'\\' && glob.size() > 1) {
        fits = glob[1] == c;
        return 2;
    }
    fits = glob[0] == u'?' ? c != u'/' : glob[0] == c;
    return 1;
}

} // namespace

/// Goes back to the last star only, so that no pattern takes long: a star further left can take nothing that this one
/// doesn't. Two stars are gone back to when one star is of no more help.
bool fitsGlob(QStringView glob, QStringView name)
{
    qsizetype g = 0;
    qsizetype n = 0;
    qsizetype star = -1;
    qsizetype starName = 0;
    qsizetype deep = -1;
    qsizetype deepName = 0;
    while (n < name.size() || g < glob.size()) {
        if (g < glob.size() && glob.sliced(g).startsWith(u"**")) {
            g += 2;
            if (g < glob.size() && glob[g] == u'/')
                ++g; // "a/**/b" is "a/b" as well
            deep = g;
            deepName = n;
            star = -1;
            continue;
        }
        if (g < glob.size() && glob[g] == u'*') {
            star = ++g;
            starName = n;
            continue;
        }
        bool fits = false;
        if (g < glob.size() && n < name.size()) {
            const qsizetype length = signAt(glob.sliced(g), name[n], fits);
            if (fits) {
                g += length;
                ++n;
                continue;
            }
        }
        if (star >= 0 && starName < name.size() && name[starName] != u'/') {
            g = star;
            n = ++starName;
            continue;
        }
        if (deep < 0 || deepName >= name.size())
            return false;
        // Behind "**/" a component begins.
        const bool wholeParts = deep > 0 && glob[deep - 1] == u'/';
        do
            ++deepName;
        while (wholeParts && deepName < name.size() && name[deepName - 1] != u'/');
        g = deep;
        n = deepName;
        star = -1;
    }
    return true;
}

bool fitsOneOf(const QString &name, const QStringList &globs)
{
    const QString lower = name.toLower();
    return std::ranges::any_of(globs, [&](const QString &glob) { return fitsGlob(glob, lower); });
}

void IgnoreRules::add(const QString &folder, const QString &text)
{
    for (const QStringView line : QStringView(text).split(u'\n')) {
        QString glob = line.toString();
        if (glob.endsWith(u'\r'))
            glob.chop(1);
        while (glob.endsWith(u' ') && !glob.endsWith("\\ "_L1))
            glob.chop(1);
        if (glob.isEmpty() || glob.startsWith(u'#'))
            continue;
        Pattern pattern;
        pattern.folder = folder.isEmpty() ? QString() : folder + u'/';
        if (glob.startsWith(u'!')) {
            pattern.takesBack = true;
            glob.removeFirst();
        }
        if (glob.endsWith(u'/')) {
            pattern.foldersOnly = true;
            glob.chop(1);
        }
        pattern.anchored = glob.contains(u'/');
        if (glob.startsWith(u'/'))
            glob.removeFirst();
        pattern.glob = glob;
        if (!glob.isEmpty())
            patterns.append(pattern);
    }
}

bool IgnoreRules::leavesOut(const QString &path, bool isFolder) const
{
    for (const Pattern &pattern : std::views::reverse(patterns)) {
        if ((pattern.foldersOnly && !isFolder) || !path.startsWith(pattern.folder))
            continue;
        const QStringView below = QStringView(path).sliced(pattern.folder.size());
        const QStringView name = pattern.anchored ? below : below.sliced(below.lastIndexOf(u'/') + 1);
        if (fitsGlob(pattern.glob, name))
            return !pattern.takesBack;
    }
    return false;
}

} // namespace vesk
