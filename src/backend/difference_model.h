#pragma once

#include "code_colours.h"
#include "diff.h"

#include <QAbstractListModel>
#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

namespace vesk {

/// Two states of a file, compared. Made on any thread, read on the main one; never changed after it was made.
struct ComparedFile {
    QString path;
    std::optional<QByteArray> before;
    std::optional<QByteArray> after;
    bool binary = false;
    QList<QByteArrayView> oldLines; ///< Into `before`.
    QList<QByteArrayView> newLines;
    QList<DiffBlock> blocks;
    LineCounts counts;

    static std::shared_ptr<const ComparedFile> of(const QString &path, std::optional<QByteArray> before,
                                                  std::optional<QByteArray> after);
};

/// Of both sides of a comparison.
struct FileColours {
    LineColours old;
    LineColours now;
};

/// The lines of a comparison for a list that makes only the rows in sight: text is decoded and its changed words are
/// searched when a row is asked for. Where nothing has changed all but three lines around are folded into one row.
class DifferenceModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role { KindRole = Qt::UserRole, OldNumberRole, NewNumberRole, OldTextRole, NewTextRole, HiddenRole };
    /// "same", "removed", "added", "changed" (both sides of one row), "fold".
    enum class Kind { Same, Removed, Added, Changed, Fold };

    using QAbstractListModel::QAbstractListModel;

    void show(std::shared_ptr<const ComparedFile> file, bool beside);
    /// The colours of what is shown, when they are known; without them text is plain.
    void setColours(std::shared_ptr<const FileColours> of);
    /// Shows what a fold has hidden.
    Q_INVOKABLE void unfold(int row);
    /// The row of the next (or the one before) change from a row on; below 0 without one.
    Q_INVOKABLE int change(int row, bool forward) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    struct Row {
        Kind kind = Kind::Same;
        qsizetype old = -1; ///< Line of that side, or of its partner where the row shows only the other; -1 for none.
        qsizetype now = -1;
        qsizetype hidden = 0; ///< Lines in a fold, from `old` and `now` on.
    };

    void addSame(QList<Row> &to, qsizetype old, qsizetype now, qsizetype count, bool fromStart, bool toEnd) const;
    void addBlock(QList<Row> &to, const DiffBlock &block, bool beside) const;
    QString text(const Row &row, bool old) const;

    std::shared_ptr<const ComparedFile> file;
    std::shared_ptr<const FileColours> colours;
    QList<Row> rows;
};

} // namespace vesk
