// The report of a task for a document, a letter or an issue.

#include "report_markdown.h"

#include "helpers.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// What is read as it stands, whatever signs are in it.
QString plain(QString text)
{
    static const QRegularExpression signs(uR"(([\\`*_<>\[\]|~&]))"_s);
    static const QRegularExpression opening(uR"(^(\s*)([#+-]))"_s);
    static const QRegularExpression number(uR"(^(\s*\d+)([.)]\s))"_s);
    text.replace(signs, uR"(\\1)"_s);
    text.replace(opening, uR"(\1\\2)"_s);
    return text.replace(number, uR"(\1\\2)"_s);
}

/// Between more backticks than stand in it at one place.
QString code(const QString &text)
{
    static const QRegularExpression ticks(u"`+"_s);
    qsizetype longest = 0;
    for (const QRegularExpressionMatch &run : ticks.globalMatch(text))
        longest = std::max(longest, run.capturedLength());
    const QString fence(longest + 1, u'`');
    const QString space = longest > 0 ? u" "_s : QString();
    return fence + space + text + space + fence;
}

/// A line of a section: the path of a file, and the command that stands for a criterion, are code.
QString listed(const QString &section, const QString &line)
{
    static const QString proved = u"» — подтверждено: "_s;
    const qsizetype command = line.indexOf(proved);
    if (command >= 0)
        return plain(line.left(command + proved.size())) + code(line.mid(command + proved.size()));
    const qsizetype version = line.lastIndexOf(u" — версия "_s);
    if (section == u"Файлы"_s && version > 0)
        return code(line.left(version)) + plain(line.mid(version));
    return plain(line);
}

QString block(const QString &text)
{
    QStringList lines = text.split(u'\n');
    const bool headed = lines.size() > 1 && !lines.first().startsWith(u"• "_s);
    const QString section = headed ? lines.takeFirst() : QString();
    for (QString &line : lines)
        line = line.startsWith(u"• "_s) ? u"- "_s + listed(section, line.mid(2)) : plain(line);
    return (headed ? u"## "_s + plain(section) + u"\n\n"_s : QString()) + lines.join(u'\n');
}

QString changedFiles(const QVariantList &changed)
{
    QStringList lines;
    for (const QVariant &each : changed) {
        const QVariantMap file = each.toMap();
        lines.append(u"- "_s + code(file[u"path"_s].toString())
                     + u" — %1, +%2 −%3"_s.arg(file[u"change"_s].toString())
                           .arg(file[u"added"_s].toInt())
                           .arg(file[u"removed"_s].toInt()));
    }
    return u"## Изменения с запроса\n\n"_s + lines.join(u'\n');
}

} // namespace

QString reportAsMarkdown(const QString &request, const QString &report, const QVariantList &changed)
{
    QStringList blocks = report.split(u"\n\n"_s, Qt::SkipEmptyParts);
    if (blocks.isEmpty())
        return {};
    QStringList parts{u"# "_s + plain(oneLine(request)), u"**"_s + plain(blocks.takeFirst()) + u"**"_s};
    for (const QString &each : std::as_const(blocks))
        parts.append(block(each));
    if (!changed.isEmpty())
        parts.append(changedFiles(changed));
    return parts.join(u"\n\n"_s) + u'\n';
}

} // namespace vesk
