// The rows of a comparison.

#include "difference_model.h"

#include "marked_line.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype around = 3;

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

void DifferenceModel::show(std::shared_ptr<const ComparedFile> shown, bool beside)
{
    beginResetModel();
    file = std::move(shown);
    colours.reset();
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

void DifferenceModel::setColours(std::shared_ptr<const FileColours> of)
{
    colours = std::move(of);
    if (!rows.isEmpty())
        Q_EMIT dataChanged(index(0), index(int(rows.size()) - 1), {OldTextRole, NewTextRole});
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
    const QString line = decodedLine((old ? file->oldLines : file->newLines)[at]);
    const QList<ColouredPart> colour = colours ? (old ? colours->old : colours->now).value(at) : QList<ColouredPart>();
    if (row.kind == Kind::Same || row.old < 0 || row.now < 0)
        return markedLine(line, {}, colour);
    const WordDiff words = wordDiff(decodedLine(file->oldLines[row.old]), decodedLine(file->newLines[row.now]));
    return markedLine(line, old ? words.removed : words.added, colour);
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
