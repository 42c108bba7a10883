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

bool isForbidden(QChar c)
{
    return c < u' ' || "<>\"|?*"_L1.contains(c);
}

/// What can't be seen in a name, or turns the rest of a line round.
bool isUnseen(QChar c)
{
    switch (c.category()) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return false;
    }
}

/// Why no new file is to have this name; empty when it may.
QString newFaultOf(QStringView name)
{
    // One like those of our temporary files would be cleared away at the next start.
    const bool bad = std::any_of(name.begin(), name.end(), isUnseen)
        || ConfinedFolder::isTemporary(QFile::encodeName(name.toString()));
    return bad ? u"Invalid filename"_s : QString();
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
    if (name.compare(".git"_L1, Qt::CaseInsensitive) == 0)
        return u"Git metadata is protected"_s;
    return {};
}

} // namespace

QString slashed(QString path)
{
    return path.replace(u'\\', u'/');
}

bool isPreview(const QString &path)
{
    return path.startsWith("assets/"_L1, Qt::CaseInsensitive) && path.endsWith(".preview.jpg"_L1)
        && judged(path).fault.isEmpty();
}

JudgedPath judged(const QString &relativePath)
{
    const QString path = slashed(relativePath);
    if (path.isEmpty() || path.startsWith(u'/') || path.contains(u':') || path.contains(QChar::Null))
        return {{}, u"Invalid relative path"_s, {}};

    qsizetype good = 0;
    QString fault;
    QString newFault;
    for (const QStringView name : QStringTokenizer{path, u'/'}) {
        fault = faultOf(name);
        if (!fault.isEmpty())
            break;
        good = name.end() - path.begin();
        if (newFault.isEmpty())
            newFault = newFaultOf(name);
    }
    return {path.first(good), fault, newFault};
}

} // namespace vesk
