// Which names a project's files may have.

#include "path_rules.h"

#include "confined_folder.h"

#include <QFile>
#include <QStringTokenizer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// CON, PRN, AUX, NUL, COM1 to COM9 and LPT1 to LPT9, alone or with anything after a dot.
bool isReservedDevice(QStringView name)
{
    const QStringView stem = name.first(name.contains(u'.') ? name.indexOf(u'.') : name.size());
    const auto is = [stem](QLatin1StringView device) { return stem.compare(device, Qt::CaseInsensitive) == 0; };
    if (stem.size() == 3)
        return is("CON"_L1) || is("PRN"_L1) || is("AUX"_L1) || is("NUL"_L1);
    return stem.size() == 4 && stem[3] >= u'1' && stem[3] <= u'9'
        && (stem.startsWith("COM"_L1, Qt::CaseInsensitive) || stem.startsWith("LPT"_L1, Qt::CaseInsensitive));
}

/// Besides what some systems forbid: what can't be seen in a name, or turns the rest of a line round.
bool isForbidden(QChar c)
{
    switch (c.category()) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return "<>\"|?*"_L1.contains(c);
    }
}

/// Why a component is refused by its name alone; empty if it is not.
QString faultOf(QStringView name)
{
    if (name.isEmpty() || name == "."_L1 || name == ".."_L1 || name.endsWith(u'.') || name.endsWith(u' '))
        return u"Unsafe path component"_s;
    // Half a surrogate pair has no UTF-8: two such names would be one file.
    if (!name.isValidUtf16() || std::any_of(name.begin(), name.end(), isForbidden))
        return u"Invalid filename"_s;
    if (isReservedDevice(name))
        return u"Reserved device filename"_s;
    // Cleared away at the next start, when its process is gone.
    if (ConfinedFolder::isTemporary(QFile::encodeName(name.toString())))
        return u"Invalid filename"_s;
    if (name.compare(".git"_L1, Qt::CaseInsensitive) == 0)
        return u"Git metadata is protected"_s;
    return {};
}

} // namespace

QString slashed(QString path)
{
    return path.replace(u'\\', u'/');
}

JudgedPath judged(const QString &relativePath)
{
    const QString path = slashed(relativePath);
    if (path.isEmpty() || path.startsWith(u'/') || path.contains(u':') || path.contains(QChar::Null))
        return {{}, u"Invalid relative path"_s};

    qsizetype good = 0;
    QString fault;
    for (const QStringView name : QStringTokenizer{path, u'/'}) {
        fault = faultOf(name);
        if (!fault.isEmpty())
            break;
        good = name.end() - path.begin();
    }
    return {path.first(good), fault};
}

} // namespace vesk
