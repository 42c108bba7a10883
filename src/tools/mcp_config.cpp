// Where MCP servers are found, and what their entries mean.

#include "mcp_config.h"

#include "helpers.h"
#include "programs.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qint64 maxConfigurationBytes = 1048576;
constexpr int maxStarted = 8;
constexpr int shortestSecret = 6;
constexpr int longOpaqueText = 16;

bool hasTellingName(const QString &name)
{
    static const QRegularExpression telling(
        u"(^|[_-])(key|token|secret|pass|password|passwd|passphrase|auth|credentials?)($|[_-])|(key|token|secret|password)$"_s,
        QRegularExpression::CaseInsensitiveOption);
    return name.contains(telling);
}

bool looksSecret(const QString &name, const QString &value)
{
    static const QRegularExpression opaque(u"^[A-Za-z0-9_\\-.=+:]+$"_s);
    if (hasTellingName(name) || (value.contains("://"_L1) && value.contains(u'@')))
        return true;
    return value.size() >= longOpaqueText && opaque.match(value).hasMatch();
}

bool isWanted(const QString &request, const QString &name)
{
    return (!name.isEmpty() && request.contains(name))
        || (request.contains(u"блендер"_s) && name.contains("blender"_L1));
}

} // namespace

QStringList mcpConfigurationFiles(const QString &root)
{
    const QString home = QDir::homePath();
    QStringList files{home + "/.cursor/mcp.json"_L1, home + "/.lmstudio/mcp.json"_L1,
                      home + "/.copilot/mcp-config.json"_L1, home + "/.mcp.json"_L1};
    const QStringList folders = configurationFolders();
    for (const QString &name : {u"/Code/User/mcp.json"_s, u"/Claude/claude_desktop_config.json"_s}) {
        for (const QString &folder : folders)
            files.append(folder + name);
    }
    if (!root.isEmpty())
        files += {root + "/.vscode/mcp.json"_L1, root + "/.mcp.json"_L1};
    return files;
}

QByteArray mcpConfiguration(const QString &path)
{
    // Opening a pipe would wait for its other end.
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray content = file.read(maxConfigurationBytes + 1);
    return content.size() > maxConfigurationBytes ? QByteArray() : content;
}

QJsonObject serversIn(const QByteArray &configuration)
{
    const QJsonObject document = QJsonDocument::fromJson(configuration).object();
    const QJsonObject servers = document["mcpServers"_L1].toObject();
    return servers.isEmpty() ? document["servers"_L1].toObject() : servers;
}

QString mcpServerId(const QString &source, const QString &name)
{
    return digest((source + u':' + name).toUtf8()).first(16);
}

QString expanded(QString text, const QString &root, const QProcessEnvironment &environment)
{
    text.replace("${workspaceFolder}"_L1, root);
    text.replace("${userHome}"_L1, QDir::homePath());
    const QStringList names = environment.keys();
    for (const QString &name : names) {
        if (text.contains("${env:"_L1))
            text.replace(u"${env:"_s + name + u'}', environment.value(name));
        if (text.contains(u'%'))
            text.replace(u'%' + name + u'%', environment.value(name), Qt::CaseInsensitive);
    }
    return text;
}

bool liesIn(const QString &root, const QString &file)
{
    if (root.isEmpty())
        return false;
    const auto below = [](const QString &folder, const QString &path) {
        return path.startsWith(folder.endsWith(u'/') ? folder : folder + u'/');
    };
    const QString realFile = QFileInfo(file).canonicalFilePath();
    const QString realRoot = QFileInfo(root).canonicalFilePath();
    return below(QDir::cleanPath(root), QDir::cleanPath(file))
        || (!realFile.isEmpty() && !realRoot.isEmpty() && below(realRoot, realFile));
}

QJsonObject shownEntry(const QJsonObject &config, const QString &root)
{
    const auto names = [](const QJsonValue &map) { return QJsonArray::fromStringList(map.toObject().keys()); };
    if (config["url"_L1].isString())
        return {{u"url"_s, config["url"_L1]}, {u"headers"_s, names(config["headers"_L1])}};
    return {{u"program"_s, config["command"_L1]},
            {u"arguments"_s, config["args"_L1]},
            {u"cwd"_s, root},
            {u"environment"_s, names(config["env"_L1])}};
}

QString entryDigest(const QJsonObject &config, const QString &name, const QString &root)
{
    return digest(jsonBytes({{u"name"_s, name}, {u"entry"_s, config}, {u"root"_s, root}}));
}

QStringList secretsOf(const QJsonObject &headers, const QProcessEnvironment &own, const QProcessEnvironment &inherited)
{
    QStringList secrets;
    for (auto header = headers.begin(); header != headers.end(); ++header) {
        if (header.key().startsWith("accept"_L1, Qt::CaseInsensitive)
            || header.key().startsWith("content-"_L1, Qt::CaseInsensitive))
            continue;
        // "Bearer abc": both the whole and the part that is the key.
        const QString value = header.value().toString();
        if (!looksSecret(header.key(), value))
            continue;
        secrets += QStringList{value, value.section(u' ', -1)};
    }
    const QStringList names = own.keys();
    for (const QString &name : names) {
        if (looksSecret(name, own.value(name)))
            secrets.append(own.value(name));
    }
    // Of what every program on this machine gets, names alone tell: it is full of other long words.
    const QStringList others = inherited.keys();
    for (const QString &name : others) {
        if (hasTellingName(name) && !inherited.value(name).startsWith(u'/'))
            secrets.append(inherited.value(name));
    }
    secrets.removeIf([](const QString &value) { return value.size() < shortestSecret; });
    // A longer one may hold a shorter one.
    std::ranges::sort(secrets, [](const QString &a, const QString &b) { return a.size() > b.size(); });
    return secrets;
}

QStringList serversToStart(const QJsonArray &list, const QString &request)
{
    const QString lower = request.toLower();
    const bool wantAll = lower.contains("mcp"_L1) || lower.contains("mps"_L1) || lower.contains(u"мпс"_s);
    QStringList chosen;
    for (const QJsonValue &server : list) {
        const QString status = server["status"_L1].toString();
        if (status == u"Подключён"_s || status == u"Подключение…"_s)
            continue;
        if (wantAll || isWanted(lower, server["name"_L1].toString().toLower()))
            chosen.append(server["id"_L1].toString());
        if (chosen.size() == maxStarted)
            break;
    }
    return chosen;
}

QStringList searchFolders(const QString &loginPath, const QString &ownPath)
{
    QStringList folders = (loginPath + QDir::listSeparator() + ownPath).split(QDir::listSeparator());
    folders.removeIf([](const QString &folder) { return !QDir::isAbsolutePath(folder); });
    folders.removeDuplicates();
    return folders;
}

} // namespace vesk
