#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>

namespace vesk {

/// The path that an answer is expected to bring. A plan may name several files in one node, or none: then the first of
/// an answer of several takes its place, unless it is none of those named.
QString expectedPath(const QString &planned, const QJsonArray &files);

/// What an answer of files is held against.
struct FileBounds {
    QString expected; ///< The path that must be among them.
    QStringList foreign; ///< Paths of the other nodes.
    qsizetype nodes = 0; ///< Of the graph, in which each further file takes a place.
    std::function<QString(const QString &path)>
        pathFault; ///< Why a path leads nowhere in the project; empty when fine.
};

/// The first fault of an answer, to be told to the coder: too many files, a bad path, broken JSON, a path twice, a file
/// of another node, the expected file missing. Empty when there is none.
QString filesFault(const QJsonArray &files, const FileBounds &bounds);

/// The file with this path, or an empty object.
QJsonObject fileAt(const QString &path, const QJsonArray &files);

/// Whether a coder's order lets the answer change the file by edits: it shows only passages of it.
bool offersEdits(const QJsonObject &order);

/// A text with edits carried out, or why they cannot be.
struct Edited {
    QString text;
    QString fault; ///< To be told to the coder; empty when there is none.
};

/// Carries out edits of "old" and "new": each "old" stands in the text exactly once, and no two overlap.
Edited edited(const QString &path, const QString &text, const QJsonArray &edits);

} // namespace vesk
