#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace vesk {

/// Which MCP servers there are: the program keeps no list of its own, it reads those that other tools keep
/// (docs/mcp.md).

/// The files that may name servers, in the order in which they are read; those of the project at `root` come last.
QStringList mcpConfigurationFiles(const QString &root);

/// The content of such a file; empty for what is no file, can't be read or is larger than 1 MiB.
QByteArray mcpConfiguration(const QString &path);

/// Its servers, entries by name.
QJsonObject serversIn(const QByteArray &configuration);

/// The same for the same source and name after a restart: 16 hexadecimal digits.
QString mcpServerId(const QString &source, const QString &name);

/// A text of an entry with the project's root, the home folder and the variables of the environment in it.
QString expanded(QString text, const QString &root, const QProcessEnvironment &environment);

/// Whether a file lies in the project, by its name or by what the name leads to.
bool liesIn(const QString &root, const QString &file);

/// What the user is shown of an entry before it is started, without any secret: "program", "arguments", "cwd" and the
/// names in its "environment"; or "url" and the names of its "headers".
QJsonObject shownEntry(const QJsonObject &config, const QString &root);

/// What a consent is bound to: the entry with all it holds, where it stands, and the folder it would run in.
QString entryDigest(const QJsonObject &config, const QString &name, const QString &root);

/// Values that must not be seen in anything that a server says: all headers of its entry, and what of the environment,
/// its `own` or `inherited`, looks like a key.
QStringList secretsOf(const QJsonObject &headers, const QProcessEnvironment &own = {},
                      const QProcessEnvironment &inherited = {});

/// The ids of the servers in a list that this request wants started: at most 8, in the order of the list.
QStringList serversToStart(const QJsonArray &list, const QString &request);

/// The folders in which a program is looked for: those of the login shell first.
QStringList searchFolders(const QString &loginPath, const QString &ownPath);

} // namespace vesk
