// The rows of a comparison.

#include "difference_model.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype around = 3;
constexpr qsizetype maxShown = 1000;

QString decoded(QByteArrayView line)
{
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    return QString::fromUtf8(line);
}

QString escaped(QStringView text)
{
    QString marked;
    for (const QChar c : text) {
        if (c == u'&')
            marked += "&amp;"_L1;
        else if (c == u'<')
            marked += "&lt;"_L1;
        else if (c == u'>')
            marked += "&gt;"_L1;
        else if (c == u'\t')
            marked += u"&nbsp;&nbsp;&nbsp;&nbsp;"_s;
        else if (c.isSpace())
            marked += "&nbsp;"_L1; // as such it is kept at the start of a line
        else
            marked += c;
    }
    return marked;
}

QString nameOf(DifferenceModel::Kind kind)
{
    switch (kind) {
    case DifferenceModel::Kind::Same:
        return u"same"_s;
    case DifferenceModel::Kind::Removed:
        return u"removed"_s;
    case DifferenceModel::Kind::Added:
        return u"added"_s;
    case DifferenceModel::Kind::Changed:
        return u"changed"_s;
    case DifferenceModel::Kind::Fold:
        break;
    }
    return u"fold"_s;
}

} // namespace

std::shared_ptr<const ComparedFile> ComparedFile::of(const QString &path, std::optional<QByteArray> before,
                                                     std::optional<QByteArray> after)
{
    auto compared = std::make_shared<ComparedFile>();
    compared->path = path;
    compared->before = std::move(before);
    compared->after = std::move(after);
    compared->binary
        = (compared->before && isBinary(*compared->before)) || (compared->after && isBinary(*compared->after));
    if (compared->binary)
        return compared;
    if (compared->before)
        compared->oldLines = linesOf(*compared->before);
    if (compared->after)
        compared->newLines = linesOf(*compared->after);
    compared->blocks = lineDiff(compared->oldLines, compared->newLines);
    compared->counts = countsOf(compared->blocks);
    return compared;
}

QString markedLine(const QString &line, const QList<Span> &changed)
{
    qsizetype end = std::min(line.size(), maxShown);
    if (end > 0 && line[end - 1].isHighSurrogate())
        --end;
    QString marked;
    qsizetype at = 0;
    for (const Span &span : changed) {
        const qsizetype from = std::min(span.from, end);
        const qsizetype to = std::min(span.from + span.length, end);
        marked += escaped(QStringView(line).sliced(at, from - at));
        if (to > from)
            marked += u"<u><b>"_s + escaped(QStringView(line).sliced(from, to - from)) + u"</b></u>"_s;
        at = to;
    }
    marked += escaped(QStringView(line).sliced(at, end - at));
    return end < line.size() ? marked + u'…' : marked;
}

void DifferenceModel::show(std::shared_ptr<const ComparedFile> shown, bool beside)
{
    beginResetModel();
    file = std::move(shown);
    rows.clear();
    if (file && !file->binary) {
        qsizetype old = 0;
        qsizetype now = 0;
        for (const DiffBlock &block : file->blocks) {
            addSame(rows, old, now, block.oldFrom - old, old == 0, false);
            addBlock(rows, block, beside);
            old = block.oldFrom + block.oldCount;
            now = block.newFrom + block.newCount;
        }
        addSame(rows, old, now, file->oldLines.size() - old, file->blocks.isEmpty(), true);
    }
    endResetModel();
}

/// Common lines; those that stand next to no change are folded.
void DifferenceModel::addSame(QList<Row> &to, qsizetype old, qsizetype now, qsizetype count, bool fromStart,
                              bool toEnd) const
{
    const qsizetype lead = fromStart ? 0 : around;
    const qsizetype tail = toEnd ? 0 : around;
    const qsizetype hidden = count - lead - tail;
    for (qsizetype i = 0; i < count; ++i) {
        if (hidden > 1 && i == lead) {
            to.append({Kind::Fold, old + i, now + i, hidden});
            i += hidden - 1;
            continue;
        }
        to.append({Kind::Same, old + i, now + i});
    }
}

void DifferenceModel::addBlock(QList<Row> &to, const DiffBlock &block, bool beside) const
{
    const qsizetype pairs = std::min(block.oldCount, block.newCount);
    const auto partner = [&](qsizetype from, qsizetype i) { return i < pairs ? from + i : -1; };
    for (qsizetype i = 0; beside && i < pairs; ++i)
        to.append({Kind::Changed, block.oldFrom + i, block.newFrom + i});
    for (qsizetype i = beside ? pairs : 0; i < block.oldCount; ++i)
        to.append({Kind::Removed, block.oldFrom + i, partner(block.newFrom, i)});
    for (qsizetype i = beside ? pairs : 0; i < block.newCount; ++i)
        to.append({Kind::Added, partner(block.oldFrom, i), block.newFrom + i});
}

void DifferenceModel::unfold(int row)
{
    if (row < 0 || row >= rows.size() || rows[row].kind != Kind::Fold)
        return;
    const Row fold = rows[row];
    beginRemoveRows({}, row, row);
    rows.removeAt(row);
    endRemoveRows();
    beginInsertRows({}, row, row + int(fold.hidden) - 1);
    QList<Row> opened;
    for (qsizetype i = 0; i < fold.hidden; ++i)
        opened.append({Kind::Same, fold.old + i, fold.now + i});
    rows = rows.first(row) + opened + rows.sliced(row);
    endInsertRows();
}

int DifferenceModel::change(int row, bool forward) const
{
    const auto isChange = [&](qsizetype at) {
        return at >= 0 && at < rows.size() && rows[at].kind != Kind::Same && rows[at].kind != Kind::Fold;
    };
    const int step = forward ? 1 : -1;
    for (qsizetype at = row + step; at >= 0 && at < rows.size(); at += step) {
        if (isChange(at) && !isChange(at - 1))
            return int(at);
    }
    return -1;
}

int DifferenceModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(rows.size());
}

QString DifferenceModel::text(const Row &row, bool old) const
{
    const bool isShown = row.kind != (old ? Kind::Added : Kind::Removed) && row.kind != Kind::Fold;
    const qsizetype at = old ? row.old : row.now;
    if (!isShown || at < 0)
        return {};
    const QString line = decoded((old ? file->oldLines : file->newLines)[at]);
    if (row.kind == Kind::Same || row.old < 0 || row.now < 0)
        return markedLine(line, {});
    const WordDiff words = wordDiff(decoded(file->oldLines[row.old]), decoded(file->newLines[row.now]));
    return markedLine(line, old ? words.removed : words.added);
}

QVariant DifferenceModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rows.size())
        return {};
    const Row &row = rows[index.row()];
    switch (role) {
    case KindRole:
        return nameOf(row.kind);
    case OldNumberRole:
        return row.kind == Kind::Added || row.old < 0 ? 0 : int(row.old) + 1;
    case NewNumberRole:
        return row.kind == Kind::Removed || row.now < 0 ? 0 : int(row.now) + 1;
    case OldTextRole:
        return text(row, true);
    case NewTextRole:
        return text(row, false);
    case HiddenRole:
        return int(row.hidden);
    default:
        return {};
    }
}

QHash<int, QByteArray> DifferenceModel::roleNames() const
{
    return {{KindRole, "kind"},       {OldNumberRole, "oldNumber"}, {NewNumberRole, "newNumber"},
            {OldTextRole, "oldText"}, {NewTextRole, "newText"},     {HiddenRole, "hidden"}};
}

} // namespace vesk
