// Which folders of a project are none of its own.

#include "made_folders.h"

#include "ignore_rules.h"

#include <QString>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace vesk {

bool holdsHistory(const QString &name)
{
    static const QStringList names{u".git"_s, u".hg"_s, u".svn"_s, u".bzr"_s};
    return fitsOneOf(name, names);
}

bool holdsPackages(const QString &name)
{
    static const QStringList names{u"node_modules"_s, u"bower_components"_s, u".venv"_s, u"venv"_s};
    return fitsOneOf(name, names);
}

bool isMachineMade(const QString &name)
{
    static const QStringList names{u"__pycache__"_s, u"build"_s,   u"build-*"_s, u"cmake-build-*"_s, u"dist"_s,
                                   u"out"_s,         u"target"_s,  u".cache"_s,  u".pytest_cache"_s, u".mypy_cache"_s,
                                   u".tox"_s,        u".gradle"_s, u".next"_s,   u".idea"_s,         u".vs"_s};
    return holdsHistory(name) || holdsPackages(name) || fitsOneOf(name, names);
}

} // namespace vesk
