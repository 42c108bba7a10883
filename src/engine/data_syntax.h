#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <functional>

namespace vesk {

/// Whether a file is written in a notation that the application reads itself: XML, SVG, and the JSON of files with a
/// name of their own; what is named *.json was read when it was written. Files that mean to break it (for tests of
/// parsers) are none.
bool isData(const QString &path);

/// JSON with blanks in place of what its format adds: comments, and commas behind a last element. Only files of tools
/// that take these (tsconfig.json, *.jsonc, .vscode/*.json) are changed.
QString plainJson(const QString &path, const QString &text);

/// What is wrong with a JSON text. A single value is right, too, though Qt's reader takes none.
QJsonParseError jsonError(const QByteArray &text);

/// What is wrong with the text of such a file, with its line, in Russian. Empty when it can be read, and for templates,
/// which are no data yet.
QString dataFault(const QString &path, const QString &text);

/// The result of looking at these files, in the shape of one of a program: "success", "exit_code", "stdout", "stderr".
QJsonObject dataSyntaxResult(const QStringList &paths, const std::function<QString(const QString &path)> &textOf);

} // namespace vesk
