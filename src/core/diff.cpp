// What has changed between two texts.

#include "diff.h"

#include <QHash>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype contextLines = 3;
constexpr qsizetype maxWordLine = 2000;
/// Steps of one search after which a split that is good enough is taken. A search of d steps costs d * d.
constexpr int leastPatience = 512;

using Symbols = std::vector<int>;

/// Marks what has no counterpart, by the divide and conquer of Myers: the middle of a shortest way is found from both
/// ends at once, then the two halves are gone through in the same way.
class Comparison {
public:
    Comparison(const Symbols &a, const Symbols &b, std::vector<bool> &inA, std::vector<bool> &inB)
        : a(a)
        , b(b)
        , changedA(inA)
        , changedB(inB)
        , shift(int(b.size()) + 1)
        , forward(a.size() + b.size() + 3)
        , backward(a.size() + b.size() + 3)
    {
    }

    void run() { compare(0, int(a.size()), 0, int(b.size())); }

private:
    struct Point {
        int x;
        int y;
    };
    /// Diagonals, x - y, that a search has reached.
    struct Reach {
        int low;
        int high;
        bool holds(int diagonal) const { return low <= diagonal && diagonal <= high; }
    };

    void compare(int fromA, int toA, int fromB, int toB)
    {
        // The second half goes on here: recursion is as deep as the halving of the first ones.
        for (;;) {
            while (fromA < toA && fromB < toB && a[std::size_t(fromA)] == b[std::size_t(fromB)])
                ++fromA, ++fromB;
            while (fromA < toA && fromB < toB && a[std::size_t(toA) - 1] == b[std::size_t(toB) - 1])
                --toA, --toB;
            if (fromA == toA || fromB == toB)
                break;
            const Point middle = middleOf(fromA, toA, fromB, toB);
            compare(fromA, middle.x, fromB, middle.y);
            fromA = middle.x;
            fromB = middle.y;
        }
        std::fill(changedA.begin() + fromA, changedA.begin() + toA, true);
        std::fill(changedB.begin() + fromB, changedB.begin() + toB, true);
    }

    int &at(std::vector<int> &reached, int diagonal) const
    {
        return reached[std::size_t(std::ptrdiff_t(diagonal) + shift)];
    }

    /// One step further outward; the diagonals beside the reach get a value that never wins.
    void widen(Reach &reach, std::vector<int> &reached, int least, int most, int never) const
    {
        if (reach.low > least)
            at(reached, --reach.low - 1) = never;
        else
            ++reach.low;
        if (reach.high < most)
            at(reached, ++reach.high + 1) = never;
        else
            --reach.high;
    }

    Point middleOf(int fromA, int toA, int fromB, int toB)
    {
        const int least = fromA - toB;
        const int most = toA - fromB;
        Reach ahead{fromA - fromB, fromA - fromB};
        Reach back{toA - toB, toA - toB};
        const bool isOdd = ((ahead.low - back.low) & 1) != 0;
        at(forward, ahead.low) = fromA;
        at(backward, back.low) = toA;
        const int patience = std::max(leastPatience, int(std::sqrt(double(toA - fromA) + double(toB - fromB))) * 4);

        for (int cost = 1;; ++cost) {
            widen(ahead, forward, least, most, -1);
            for (int k = ahead.high; k >= ahead.low; k -= 2) {
                int x = std::max(at(forward, k - 1) + 1, at(forward, k + 1));
                while (x < toA && x - k < toB && a[std::size_t(x)] == b[std::size_t(x - k)])
                    ++x;
                at(forward, k) = x;
                if (isOdd && back.holds(k) && at(backward, k) <= x)
                    return {x, x - k};
            }
            widen(back, backward, least, most, std::numeric_limits<int>::max());
            for (int k = back.high; k >= back.low; k -= 2) {
                int x = std::min(at(backward, k - 1), at(backward, k + 1) - 1);
                while (fromA < x && fromB < x - k && a[std::size_t(x) - 1] == b[std::size_t(x - k) - 1])
                    --x;
                at(backward, k) = x;
                if (!isOdd && ahead.holds(k) && x <= at(forward, k))
                    return {x, x - k};
            }
            if (cost >= patience)
                return furthest(ahead, fromA, toA, fromB, toB);
        }
    }

    /// Where the search from the beginning has come furthest.
    Point furthest(const Reach &ahead, int fromA, int toA, int fromB, int toB)
    {
        Point best{fromA, fromB};
        for (int k = ahead.high; k >= ahead.low; k -= 2) {
            const int x = std::min({at(forward, k), toA, toB + k});
            const bool isInside = x >= fromA && x - k >= fromB && (x < toA || x - k < toB);
            if (isInside && x + (x - k) > best.x + best.y)
                best = {x, x - k};
        }
        const bool isOnward = best.x > fromA || best.y > fromB;
        return isOnward ? best : Point{fromA + (toA - fromA + 1) / 2, fromB};
    }

    const Symbols &a;
    const Symbols &b;
    std::vector<bool> &changedA;
    std::vector<bool> &changedB;
    int shift;
    std::vector<int> forward; ///< By diagonal, how far along `a` the search from the beginning has come.
    std::vector<int> backward;
};

/// A sequence without the symbols that the other one has nowhere, which need no search, and where the rest came from.
struct Reduced {
    Symbols symbols;
    std::vector<qsizetype> places;
};

Reduced reduced(const Symbols &all, const std::vector<bool> &known, std::vector<bool> &changed)
{
    Reduced left;
    for (size_t i = 0; i < all.size(); ++i) {
        if (known[std::size_t(all[i])]) {
            left.symbols.push_back(all[i]);
            left.places.push_back(qsizetype(i));
        } else {
            changed[i] = true;
        }
    }
    return left;
}

std::vector<bool> seenIn(const Symbols &all, int kinds)
{
    std::vector<bool> seen(std::size_t(kinds), false);
    for (const int symbol : all)
        seen[std::size_t(symbol)] = true;
    return seen;
}

QList<DiffBlock> blocksOf(const std::vector<bool> &changedA, const std::vector<bool> &changedB)
{
    QList<DiffBlock> blocks;
    size_t x = 0;
    size_t y = 0;
    while (x < changedA.size() || y < changedB.size()) {
        DiffBlock block{qsizetype(x), 0, qsizetype(y), 0};
        for (; x < changedA.size() && changedA[x]; ++x)
            ++block.oldCount;
        for (; y < changedB.size() && changedB[y]; ++y)
            ++block.newCount;
        if (block.oldCount + block.newCount > 0)
            blocks.append(block);
        ++x;
        ++y;
    }
    return blocks;
}

template <typename View> QList<DiffBlock> sequenceDiff(const QList<View> &before, const QList<View> &after)
{
    QHash<View, int> numbers;
    const auto numbered = [&](const QList<View> &parts) {
        Symbols symbols;
        symbols.reserve(std::size_t(parts.size()));
        for (const View &part : parts) {
            const int next = int(numbers.size());
            const auto known = numbers.constFind(part);
            symbols.push_back(known == numbers.cend() ? *numbers.insert(part, next) : *known);
        }
        return symbols;
    };
    const Symbols a = numbered(before);
    const Symbols b = numbered(after);
    const int kinds = int(numbers.size());
    std::vector<bool> changedA(a.size(), false);
    std::vector<bool> changedB(b.size(), false);
    const Reduced left = reduced(a, seenIn(b, kinds), changedA);
    const Reduced right = reduced(b, seenIn(a, kinds), changedB);

    std::vector<bool> leftChanged(left.symbols.size(), false);
    std::vector<bool> rightChanged(right.symbols.size(), false);
    Comparison(left.symbols, right.symbols, leftChanged, rightChanged).run();
    for (size_t i = 0; i < leftChanged.size(); ++i) {
        if (leftChanged[i])
            changedA[std::size_t(left.places[i])] = true;
    }
    for (size_t i = 0; i < rightChanged.size(); ++i) {
        if (rightChanged[i])
            changedB[std::size_t(right.places[i])] = true;
    }
    return blocksOf(changedA, changedB);
}

/// Words, runs of blanks, and single signs.
QList<QStringView> wordsOf(QStringView line)
{
    const auto kindOf = [](QChar c) {
        if (c.isLetterOrNumber() || c == u'_' || c.isSurrogate() || c.isMark())
            return 1;
        return c.isSpace() ? 2 : 0;
    };
    QList<QStringView> words;
    for (qsizetype from = 0; from < line.size();) {
        const int kind = kindOf(line[from]);
        qsizetype to = from + 1;
        while (kind != 0 && to < line.size() && kindOf(line[to]) == kind)
            ++to;
        words.append(line.sliced(from, to - from));
        from = to;
    }
    return words;
}

Span spanOf(const QList<QStringView> &words, QStringView line, qsizetype from, qsizetype count)
{
    const qsizetype begin = words[from].data() - line.data();
    const QStringView last = words[from + count - 1];
    return {begin, last.data() + last.size() - line.data() - begin};
}

/// A name as patches have it: in quotes once there is something in it that ends a name or a line.
QByteArray patchName(const QByteArray &name)
{
    QByteArray escaped;
    bool isPlain = true;
    for (const char c : name) {
        const auto byte = uchar(c);
        const bool isSpecial = byte < ' ' || byte == 0x7f || c == '"' || c == '\\';
        isPlain = isPlain && !isSpecial;
        if (c == '"' || c == '\\')
            escaped += QByteArray("\\") + c;
        else if (isSpecial)
            escaped += '\\' + QByteArray::number(byte, 8).rightJustified(3, '0');
        else
            escaped += c;
    }
    // A blank ends a name unless a tab does.
    return isPlain ? name + (name.contains(' ') ? "\t" : "") : '"' + escaped + '"';
}

QByteArray rangeOf(qsizetype from, qsizetype count)
{
    const QByteArray start = QByteArray::number(count == 0 ? from : from + 1);
    return count == 1 ? start : start + ',' + QByteArray::number(count);
}

void addLines(QByteArray &text, char sign, const QList<QByteArrayView> &lines, qsizetype from, qsizetype count)
{
    for (qsizetype i = from; i < from + count; ++i) {
        text += sign;
        text += lines[i];
        if (!lines[i].endsWith('\n'))
            text += "\n\\ No newline at end of file\n";
    }
}

/// Blocks whose contexts touch stand together; gives the end of those that begin with `first`.
qsizetype endOfHunk(const QList<DiffBlock> &blocks, qsizetype first)
{
    qsizetype end = first + 1;
    while (end < blocks.size()
           && blocks[end].oldFrom - (blocks[end - 1].oldFrom + blocks[end - 1].oldCount) <= 2 * contextLines)
        ++end;
    return end;
}

void addHunk(QByteArray &text, const QList<QByteArrayView> &before, const QList<QByteArrayView> &after,
             const QList<DiffBlock> &blocks)
{
    const DiffBlock &first = blocks.constFirst();
    const DiffBlock &last = blocks.constLast();
    const qsizetype lead = std::min(contextLines, first.oldFrom);
    const qsizetype oldEnd = last.oldFrom + last.oldCount;
    const qsizetype tail = std::min(contextLines, before.size() - oldEnd);
    const qsizetype oldFrom = first.oldFrom - lead;
    const qsizetype newFrom = first.newFrom - lead;
    text += "@@ -" + rangeOf(oldFrom, oldEnd + tail - oldFrom) + " +"
        + rangeOf(newFrom, last.newFrom + last.newCount + tail - newFrom) + " @@\n";
    qsizetype at = oldFrom;
    for (const DiffBlock &block : blocks) {
        addLines(text, ' ', before, at, block.oldFrom - at);
        addLines(text, '-', before, block.oldFrom, block.oldCount);
        addLines(text, '+', after, block.newFrom, block.newCount);
        at = block.oldFrom + block.oldCount;
    }
    addLines(text, ' ', before, at, tail);
}

} // namespace

QList<QByteArrayView> linesOf(QByteArrayView bytes)
{
    QList<QByteArrayView> lines;
    while (!bytes.isEmpty()) {
        const qsizetype feed = bytes.indexOf('\n');
        const qsizetype length = feed < 0 ? bytes.size() : feed + 1;
        lines.append(bytes.first(length));
        bytes = bytes.sliced(length);
    }
    return lines;
}

QList<DiffBlock> lineDiff(const QList<QByteArrayView> &before, const QList<QByteArrayView> &after)
{
    return sequenceDiff(before, after);
}

LineCounts countsOf(const QList<DiffBlock> &blocks)
{
    LineCounts counts;
    for (const DiffBlock &block : blocks) {
        counts.removed += block.oldCount;
        counts.added += block.newCount;
    }
    return counts;
}

WordDiff wordDiff(QStringView before, QStringView after)
{
    WordDiff diff;
    if (before.size() > maxWordLine || after.size() > maxWordLine)
        return {{{0, before.size()}}, {{0, after.size()}}};
    const QList<QStringView> oldWords = wordsOf(before);
    const QList<QStringView> newWords = wordsOf(after);
    const QList<DiffBlock> blocks = sequenceDiff(oldWords, newWords);
    for (const DiffBlock &block : blocks) {
        if (block.oldCount > 0)
            diff.removed.append(spanOf(oldWords, before, block.oldFrom, block.oldCount));
        if (block.newCount > 0)
            diff.added.append(spanOf(newWords, after, block.newFrom, block.newCount));
    }
    return diff;
}

bool isBinary(const QByteArray &bytes)
{
    return bytes.contains('\0') || !QByteArrayView(bytes).isValidUtf8();
}

QByteArray unifiedDiff(const QString &path, const std::optional<QByteArray> &before,
                       const std::optional<QByteArray> &after)
{
    if (before == after)
        return {};
    const QByteArray name = path.toUtf8();
    const QByteArray oldName = before ? patchName("a/" + name) : QByteArray("/dev/null");
    const QByteArray newName = after ? patchName("b/" + name) : QByteArray("/dev/null");
    const QByteArray oldBytes = before.value_or(QByteArray());
    const QByteArray newBytes = after.value_or(QByteArray());
    if (isBinary(oldBytes) || isBinary(newBytes))
        return "Binary files " + oldName.trimmed() + " and " + newName.trimmed() + " differ\n";

    const QList<QByteArrayView> oldLines = linesOf(oldBytes);
    const QList<QByteArrayView> newLines = linesOf(newBytes);
    const QList<DiffBlock> blocks = lineDiff(oldLines, newLines);
    // An empty file comes and goes without a line that could say so; its content has a name of its own instead.
    if (blocks.isEmpty())
        return "diff --git " + patchName("a/" + name).trimmed() + ' ' + patchName("b/" + name).trimmed() + '\n'
            + (before ? "deleted file mode 100644\nindex e69de29..0000000\n"
                      : "new file mode 100644\nindex 0000000..e69de29\n");
    QByteArray text = "--- " + oldName + "\n+++ " + newName + '\n';
    for (qsizetype first = 0; first < blocks.size();) {
        const qsizetype end = endOfHunk(blocks, first);
        addHunk(text, oldLines, newLines, blocks.sliced(first, end - first));
        first = end;
    }
    return text;
}

} // namespace vesk
