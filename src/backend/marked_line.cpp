// Lines of code as simple markup.

#include "marked_line.h"

#include "helpers.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// One between two words: a line may be broken there, and it is kept as it is.
bool isLoneBlank(QStringView text, qsizetype at)
{
    return text[at] == u' ' && at > 0 && at + 1 < text.size() && !text[at - 1].isSpace() && !text[at + 1].isSpace();
}

/// How many of the next places are one sign.
qsizetype signAt(QStringView text, qsizetype at)
{
    const bool isPair = text[at].isHighSurrogate() && at + 1 < text.size() && text[at + 1].isLowSurrogate();
    return isPair ? 2 : 1;
}

/// A sign as it is, or, when it can't be seen, leaning as a number.
QString leaning(const QString &sign)
{
    const QString seen = visibleText(sign);
    return seen == sign ? sign : u"<i>"_s + seen + u"</i>"_s;
}

QString escaped(QStringView text)
{
    QString marked;
    for (qsizetype at = 0, length = 1; at < text.size(); at += length) {
        const QChar c = text[at];
        length = signAt(text, at);
        if (c == u'&')
            marked += "&amp;"_L1;
        else if (c == u'<')
            marked += "&lt;"_L1;
        else if (c == u'>')
            marked += "&gt;"_L1;
        else if (c == u'\t')
            marked += u"&nbsp;&nbsp;&nbsp;&nbsp;"_s;
        else if (c == u' ' && !isLoneBlank(text, at))
            marked += "&nbsp;"_L1; // as such it is kept at the start of a line
        else if (c == u' ' || (length == 1 && c.isPrint() && !c.isSpace()))
            marked += c; // most signs; asking leaning() of each would be felt
        else
            marked += leaning(text.sliced(at, length).toString());
    }
    return marked;
}

/// Where the part that covers a place ends, or the next one begins; whether it is covered stands in `in`.
template <typename Part, typename Length>
qsizetype edgeAfter(const QList<Part> &parts, qsizetype &next, qsizetype at, qsizetype end, Length length, bool &in)
{
    while (next < parts.size() && parts[next].from + length(parts[next]) <= at)
        ++next;
    in = next < parts.size() && parts[next].from <= at;
    if (next == parts.size())
        return end;
    return std::min<qsizetype>(end, in ? parts[next].from + length(parts[next]) : parts[next].from);
}

} // namespace

QString decodedLine(QByteArrayView line)
{
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

QString markedLine(const QString &line, const QList<Span> &changed, const QList<ColouredPart> &colours)
{
    qsizetype end = std::min(line.size(), longestShownLine);
    if (end > 0 && line[end - 1].isHighSurrogate())
        --end;
    const auto length = [](const auto &part) { return qsizetype(part.length); };
    QString marked;
    qsizetype change = 0;
    qsizetype colour = 0;
    for (qsizetype at = 0; at < end;) {
        bool isChanged = false;
        bool isColoured = false;
        const qsizetype to = std::min(edgeAfter(changed, change, at, end, length, isChanged),
                                      edgeAfter(colours, colour, at, end, length, isColoured));
        QString part = escaped(QStringView(line).sliced(at, to - at));
        if (isColoured)
            part = u"<font color=\"#%1\">"_s.arg(colours[colour].colour & 0xffffff, 6, 16, QChar(u'0')) + part
                + u"</font>"_s;
        marked += isChanged ? u"<u><b>"_s + part + u"</b></u>"_s : part;
        at = to;
    }
    return end < line.size() ? marked + u'…' : marked;
}

} // namespace vesk
