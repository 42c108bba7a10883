// Which files of a folder become those of a project.

#include "take_in.h"

#include "confined_folder.h"
#include "ignore_rules.h"
#include "made_folders.h"
#include "path_rules.h"
#include "workspace.h"

#include <QByteArray>
#include <QStringConverter>

#include <exception>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qint64 largestBinary = 1024 * 1024;
constexpr qint64 judgedBytes = 8 * 1024; ///< By which it is told whether a file is text.
constexpr qsizetype piece = 32; ///< Files and folders that are looked at in one go.

/// Whether a file that begins so is text; the last character of a beginning may be cut.
bool beginsAsText(const QByteArray &beginning)
{
    QStringDecoder decoder(QStringConverter::Utf8);
    const QString text = decoder(beginning);
    return !decoder.hasError() && !text.contains(QChar::Null);
}

bool isSecret(const QString &name)
{
    static const QStringList secrets{
        u".env"_s,   u".env.*"_s,     u"*.pem"_s,   u"*.key"_s,     u"*.p12"_s,           u"*.pfx"_s,
        u"*.jks"_s,  u"*.keystore"_s, u"*.kdbx"_s,  u"id_rsa*"_s,   u"id_ed25519*"_s,     u"id_ecdsa*"_s,
        u".netrc"_s, u".npmrc"_s,     u".pypirc"_s, u".htpasswd"_s, u"credentials"_s,     u"credentials.json"_s,
        u".ssh"_s,   u".aws"_s,       u".gnupg"_s,  u"secrets.*"_s, u".git-credentials"_s};
    static const QStringList samples{u"*.example"_s, u"*.sample"_s, u"*.template"_s, u"*.pub"_s};
    return fitsOneOf(name, secrets) && !fitsOneOf(name, samples);
}

} // namespace

QString reasonAgainstName(const QString &name, bool isFolder)
{
    if (holdsHistory(name))
        return u"система версий"_s;
    if (isFolder && isMachineMade(name))
        return u"сборка и зависимости"_s;
    if (isSecret(name))
        return u"ключи и пароли"_s;
    return {};
}

TakeIn::TakeIn(const Workspace &workspace)
    : workspace(workspace)
    , waiting{QString()}
{
}

void TakeIn::readRules(const QString &folder)
{
    for (const QString &name : {u".gitignore"_s, u".veskignore"_s}) {
        try {
            const QString path = folder.isEmpty() ? name : folder + u'/' + name;
            rules.add(folder, QString::fromUtf8(workspace.read(path)));
        } catch (const std::exception &) {
            continue; // there is none, or none that can be read
        }
    }
}

QString TakeIn::reasonAgainst(const QString &path, bool isFolder) const
{
    const QString reason = reasonAgainstName(path.section(u'/', -1), isFolder);
    if (!reason.isEmpty())
        return reason;
    const JudgedPath judged = vesk::judged(path);
    if (path.contains(QChar::ReplacementCharacter) || !judged.fault.isEmpty() || !judged.newFault.isEmpty())
        return u"недопустимые имена"_s;
    return rules.leavesOut(path, isFolder) ? u".gitignore и .veskignore"_s : QString();
}

QString TakeIn::reasonAgainstFile(const QString &path, qint64 bytes) const
{
    if (bytes > Workspace::maxFileBytes)
        return u"больше 2 МиБ"_s;
    try {
        const QByteArray beginning = bytes > largestBinary ? workspace.start(path, judgedBytes) : QByteArray();
        if (bytes > largestBinary && beginning.isEmpty())
            return u"не читаются"_s;
        if (!beginsAsText(beginning))
            return u"не текст, больше 1 МиБ"_s;
    } catch (const std::exception &) {
        return u"не читаются"_s;
    }
    return {};
}

bool TakeIn::lookOn()
{
    if (!listing) {
        if (waiting.isEmpty())
            return false;
        folder = waiting.takeLast();
        readRules(folder);
        listing = workspace.listing(folder);
    }
    const QList<ConfinedFolder::Entry> entries = listing->next(piece);
    for (const ConfinedFolder::Entry &entry : entries)
        take(entry);
    if (entries.isEmpty())
        listing.reset();
    return listing || !waiting.isEmpty();
}

void TakeIn::take(const ConfinedFolder::Entry &entry)
{
    const QString name = QString::fromUtf8(entry.name);
    const QString path = folder.isEmpty() ? name : folder + u'/' + name;
    const bool isFolder = entry.kind == ConfinedFolder::Kind::Folder;
    QString reason = reasonAgainst(path, isFolder);
    if (reason.isEmpty() && !isFolder)
        reason = entry.kind != ConfinedFolder::Kind::File ? u"ссылки и другие файловые системы"_s
                                                          : reasonAgainstFile(path, entry.bytes);
    if (!reason.isEmpty()) {
        ++left[reason];
    } else if (isFolder) {
        waiting.append(path);
    } else {
        found.append({path, entry.bytes});
        size += entry.bytes;
    }
}

} // namespace vesk
