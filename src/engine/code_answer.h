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

} // namespace vesk
