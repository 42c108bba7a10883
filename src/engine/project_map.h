#pragma once

#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

/// A file as it stands on the map.
struct MappedFile {
    QString path;
    qint64 bytes = -1; ///< Below 0 when that isn't known.
};

/// The files of a project too large to be listed, folder by folder: "src/core/ (21, 96 KiB): budget.cpp, budget.h, …",
/// where all sizes of a folder are known. Not more than `room` characters; folders give way to those above them, names
/// to their number.
QString projectMap(const QList<MappedFile> &files, qsizetype room);

/// Of these files the few whose first lines tell most of the project: sources and read-me files, those at the top
/// first.
QStringList filesToOpen(const QStringList &paths);
/// What a text begins with: its first line with a letter, on 100 characters at most.
QString openingOf(const QString &text);

/// What stands in a request in place of a list of thousands of files, which would leave no room for anything else.
struct ProjectGlance {
    QString map; ///< Empty where the list is short enough to stand there itself.
    QJsonArray named; ///< Of the list, {"path", "revision"}, those whose names the request has in it.
};

/// `tracked` is the list of the project's own files; `tree`, of a project whose files are taken in when they are
/// touched, all that it has, and `treeMap` the map of that, if there is one already.
ProjectGlance glanceAt(const QJsonArray &tracked, const QStringList &tree, const QString &treeMap,
                       const QString &request);

/// Of a map, in characters.
inline constexpr qsizetype maxMapChars = 12000;

} // namespace vesk
