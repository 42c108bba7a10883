// What a request shows of a file that is too long for it.

#include "file_excerpt.h"

#include <QHash>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype longestLine = 500; ///< A minified file is one line; it is shown in pieces.
constexpr qsizetype contextLines = 8;
constexpr qsizetype maxOutlineChars = 6000;
constexpr qsizetype maxOutlineLine = 100;
constexpr qsizetype gapChars = 60; ///< A mark of what is left out takes at most so many.
constexpr double numberedWeight = 10; ///< A line that is named by its number comes before all words.

struct Line {
    qsizetype start;
    qsizetype length; ///< With its line end.
    qsizetype number; ///< In the file, from 1.
};

QList<Line> linesOf(const QString &text)
{
    QList<Line> lines;
    qsizetype number = 1;
    for (qsizetype at = 0; at < text.size();) {
        const qsizetype end = text.indexOf(u'\n', at);
        const qsizetype rest = (end < 0 ? text.size() : end + 1) - at;
        qsizetype taken = std::min(rest, longestLine);
        if (taken < rest && text.at(at + taken - 1).isHighSurrogate())
            --taken;
        lines.append({at, taken, number});
        at += taken;
        if (text.at(at - 1) == u'\n')
            ++number;
    }
    return lines;
}

QStringView viewOf(const QString &text, const Line &line)
{
    return QStringView(text).sliced(line.start, line.length);
}

QSet<QString> wordsIn(QStringView text)
{
    static const QRegularExpression word(u"[\\p{L}_$][\\p{L}\\p{N}_$]{2,}"_s);
    QSet<QString> words;
    for (const QRegularExpressionMatch &match : word.globalMatchView(text))
        words.insert(match.captured());
    return words;
}

QSet<qsizetype> numbersIn(const QStringList &sources)
{
    static const QRegularExpression place(u"(?:line|строк\\p{L}*|:)\\s*(\\d{1,6})"_s,
                                          QRegularExpression::CaseInsensitiveOption);
    QSet<qsizetype> numbers;
    for (const QString &source : sources) {
        for (const QRegularExpressionMatch &match : place.globalMatch(source))
            numbers.insert(match.captured(1).toLongLong());
    }
    return numbers;
}

QString outlineOf(const QString &text, const QList<Line> &lines)
{
    static const QRegularExpression heading(
        u"^#{1,6} |^\\s*(?:(?:export|default|public|private|protected|static|async|abstract|final|template\\b.*>)\\s+)*"
        "(?:class|struct|interface|enum|namespace|module|trait|impl|function|def|fn|func|type)\\b"
        "|^\\s*(?:export\\s+)?(?:const|let|var)\\s+[\\w$]+\\s*=\\s*(?:async\\s*)?(?:function\\b|\\(.*=>)"
        "|^\\s*<(?:h[1-6]|section|script|style|body|main|form|template)\\b|^[^\\s{}/][^;]*\\{\\s*$"_s);
    QStringList found;
    qsizetype chars = 0;
    for (const Line &line : lines) {
        const QStringView view = viewOf(text, line);
        if (!heading.matchView(view).hasMatch())
            continue;
        found.append(QString::number(line.number) + u": "_s + view.trimmed().left(maxOutlineLine).toString());
        chars += escapedLength(found.constLast()) + 2;
    }
    // Too many: every nth, so that the end of the file stays in sight.
    const qsizetype step = std::max<qsizetype>(1, (chars + maxOutlineChars - 1) / maxOutlineChars);
    QString outline;
    for (qsizetype i = 0; i < found.size(); i += step) {
        if (escapedLength(outline) + escapedLength(found.at(i)) < maxOutlineChars)
            outline += found.at(i) + u'\n';
    }
    return outline;
}

/// The lines to show, as many as fit: each that matters with its surroundings, the weightiest first.
QList<bool> chosenLines(const QString &text, const QList<Line> &lines, const LineWeights &weights, qsizetype limit)
{
    QList<bool> chosen(lines.size(), false);
    qsizetype left = limit - gapChars;
    const auto take = [&](qsizetype from, qsizetype to) {
        from = std::max<qsizetype>(from, 0);
        to = std::min(to, lines.size());
        const auto begin = chosen.cbegin();
        const bool island
            = std::find(begin + std::max<qsizetype>(from - 1, 0), begin + std::min(to + 1, lines.size()), true)
            == begin + std::min(to + 1, lines.size());
        qsizetype cost = island ? gapChars : 0;
        for (qsizetype i = from; i < to; ++i)
            cost += chosen.at(i) ? 0 : escapedLength(viewOf(text, lines.at(i)));
        if (cost > left)
            return false;
        left -= cost;
        std::fill(chosen.begin() + from, chosen.begin() + to, true);
        return true;
    };

    QList<qsizetype> order;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (weights.value(i) > 0)
            order.append(i);
    }
    std::ranges::stable_sort(order, [&](qsizetype a, qsizetype b) { return weights.at(a) > weights.at(b); });
    if (order.isEmpty()) {
        order.resize(lines.size());
        std::iota(order.begin(), order.end(), 0);
    }
    if (!take(0, contextLines))
        take(0, 1);
    for (const qsizetype i : std::as_const(order)) {
        if (!take(i - contextLines, i + contextLines + 1) && !chosen.at(i) && !take(i, i + 1))
            break;
    }
    return chosen;
}

} // namespace

qsizetype escapedLength(QStringView text)
{
    qsizetype length = 0;
    for (const QChar c : text) {
        if (c == u'"' || c == u'\\' || (c >= u'\b' && c <= u'\r' && c != u'\v'))
            length += 2;
        else
            length += c < u' ' ? 6 : 1;
    }
    return length;
}

QStringList textsIn(const QJsonValue &value)
{
    if (value.isString())
        return {value.toString()};
    QStringList texts;
    const QJsonObject object = value.toObject();
    for (const QJsonValue &part : object)
        texts += textsIn(part);
    const QJsonArray array = value.toArray();
    for (const QJsonValue &part : array)
        texts += textsIn(part);
    return texts;
}

LineWeights namedLines(const QString &text, const QStringList &sources)
{
    const QList<Line> lines = linesOf(text);
    const QSet<qsizetype> numbers = numbersIn(sources);
    const QSet<QString> wanted = wordsIn(sources.join(u'\n'));
    QHash<QString, QList<qsizetype>> places;
    LineWeights weights(lines.size(), 0);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (numbers.contains(lines.at(i).number))
            weights[i] += numberedWeight;
        const QSet<QString> words = wordsIn(viewOf(text, lines.at(i)));
        for (const QString &word : words) {
            if (wanted.contains(word))
                places[word].append(i);
        }
    }
    // A word that stands everywhere points nowhere.
    const qsizetype often = std::max<qsizetype>(10, lines.size() / 20);
    for (const QList<qsizetype> &found : std::as_const(places)) {
        for (const qsizetype i : found.size() > often ? QList<qsizetype>() : found)
            weights[i] += 1.0 / double(found.size());
    }
    return weights;
}

LineWeights changedLines(const QString &text, const QString &before)
{
    const QList<Line> lines = linesOf(text);
    const QList<Line> old = linesOf(before);
    const qsizetype shorter = std::min(lines.size(), old.size());
    const auto same = [&](qsizetype i, qsizetype j) { return viewOf(text, lines.at(i)) == viewOf(before, old.at(j)); };
    qsizetype head = 0;
    while (head < shorter && same(head, head))
        ++head;
    qsizetype tail = 0;
    while (tail < shorter - head && same(lines.size() - 1 - tail, old.size() - 1 - tail))
        ++tail;

    QHash<QStringView, int> known;
    for (qsizetype j = head; j < old.size() - tail; ++j)
        ++known[viewOf(before, old.at(j))];
    LineWeights weights(lines.size(), 0);
    for (qsizetype i = head; i < lines.size() - tail; ++i) {
        int &count = known[viewOf(text, lines.at(i))];
        weights[i] = count > 0 ? 0 : 1;
        --count;
    }
    for (const qsizetype edge : {head, lines.size() - tail}) {
        if (edge < lines.size() && lines.size() - tail - head < old.size() - tail - head)
            weights[edge] = 1;
    }
    return weights;
}

Excerpt excerptOf(const QString &text, const LineWeights &weights, qsizetype limit)
{
    const QList<Line> lines = linesOf(text);
    const QList<bool> chosen = chosenLines(text, lines, weights, limit);
    Excerpt excerpt;
    for (qsizetype i = 0; i < lines.size();) {
        if (chosen.at(i)) {
            excerpt.text += viewOf(text, lines.at(i++));
            continue;
        }
        const qsizetype first = i;
        for (; i < lines.size() && !chosen.at(i); ++i)
            excerpt.omitted += lines.at(i).length;
        if (!excerpt.text.isEmpty() && !excerpt.text.endsWith(u'\n'))
            excerpt.text += u'\n';
        excerpt.text += u"[… lines %1-%2 left out …]\n"_s.arg(lines.at(first).number).arg(lines.at(i - 1).number);
    }
    excerpt.outline = outlineOf(text, lines);
    return excerpt;
}

QJsonObject excerpted(QJsonObject file, const LineWeights &weights, qsizetype limit)
{
    const Excerpt shown = excerptOf(file.value("content"_L1).toString(), weights, limit);
    file["content"_L1] = shown.text;
    file["content_truncated"_L1] = true;
    file["content_chars_omitted"_L1] = file.value("content_chars_omitted"_L1).toInteger() + shown.omitted;
    if (!file.contains("outline"_L1)) // else that of the whole
        file["outline"_L1] = shown.outline;
    return file;
}

} // namespace vesk
