#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace vesk {

/// Lines, or words, that stand in the place of others; either count may be 0, not both. Places count from 0.
struct DiffBlock {
    qsizetype oldFrom = 0;
    qsizetype oldCount = 0;
    qsizetype newFrom = 0;
    qsizetype newCount = 0;
    bool operator==(const DiffBlock &) const = default;
};

/// The lines of a text, each with its line feed; the last one may lack it. Views into the bytes.
QList<QByteArrayView> linesOf(QByteArrayView bytes);

/// What has to be replaced to make `after` of `before`, in order, blocks apart by at least one common line: the fewest
/// lines possible (Myers, 1986), except in texts with thousands of scattered changes, where a good answer in
/// bounded time is taken instead. Linear in memory.
QList<DiffBlock> lineDiff(const QList<QByteArrayView> &before, const QList<QByteArrayView> &after);

/// How many lines go and come.
struct LineCounts {
    qsizetype removed = 0;
    qsizetype added = 0;
};
LineCounts countsOf(const QList<DiffBlock> &blocks);

/// A part of a line, in UTF-16 units.
struct Span {
    qsizetype from = 0;
    qsizetype length = 0;
    bool operator==(const Span &) const = default;
};
/// The words of two versions of a line that the other one lacks. Lines of more than 2000 characters are one span each.
struct WordDiff {
    QList<Span> removed;
    QList<Span> added;
};
WordDiff wordDiff(QStringView before, QStringView after);

/// Whether bytes are no text for a person: they hold a NUL or are no UTF-8.
bool isBinary(const QByteArray &bytes);

/// The difference of one file as `patch -p1` applies it, with three lines of context; empty when there is none.
/// `before` or `after` is nothing where there is no file. Of binary files one line says that they differ.
QByteArray unifiedDiff(const QString &path, const std::optional<QByteArray> &before,
                       const std::optional<QByteArray> &after);

} // namespace vesk
