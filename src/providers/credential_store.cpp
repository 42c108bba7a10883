// API keys in the keyring, or in the file that stands in for it.

#include "credential_store.h"

#include "helpers.h"
#include "keyring.h"
#include "secret_file.h"

#include <QStandardPaths>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

enum class Place { Automatic, Service, File };

Place chosenPlace()
{
    const QString choice = qEnvironmentVariable("VESK_SECRETS");
    if (choice == "service"_L1)
        return Place::Service;
    if (choice == "file"_L1)
        return Place::File;
    if (!choice.isEmpty())
        qWarning("VESK_SECRETS: известны значения service и file, значение \"%s\" не учтено", qUtf8Printable(choice));
    return Place::Automatic;
}

/// Read once: the log is to have one warning of it, and a key is not to move while the program runs.
Place place()
{
    static const Place chosen = chosenPlace();
    return chosen;
}

Keyring &keyring()
{
    static Keyring instance;
    return instance;
}

QString &dataFolder()
{
    static QString folder;
    return folder;
}

SecretFile file()
{
    const QString &folder = dataFolder();
    return SecretFile(folder.isEmpty() ? QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
                                       : folder);
}

/// Whether the file stands in for the keyring that gave this answer.
bool standsIn(const SecretAnswer &answer)
{
    return place() == Place::Automatic && answer.outcome == SecretOutcome::Absent;
}

/// Once in the log, when a key really lies in the file though nobody has chosen that.
void warnOfFile(const QString &reason = {})
{
    static bool warned = false;
    if (warned || place() != Place::Automatic)
        return;
    const QString start = reason.isEmpty() ? QString() : u"Связка ключей недоступна ("_s + reason + u"): "_s;
    qWarning("%sключи хранятся без шифрования в файле %s", qUtf8Printable(start), qUtf8Printable(file().path()));
    warned = true;
}

/// Whether all is well; what isn't is told to the log.
bool isWell(const SecretAnswer &answer, const char *step)
{
    if (answer.outcome == SecretOutcome::Done || answer.outcome == SecretOutcome::Missing)
        return true;
    qWarning("%s: %s", step, qUtf8Printable(answer.reason));
    return false;
}

} // namespace

void CredentialStore::setDataFolder(const QString &folder)
{
    dataFolder() = folder;
}

bool CredentialStore::save(const QString &target, const QString &secret)
{
    constexpr auto step = "Ключ не сохранён";
    if (place() != Place::File) {
        const SecretAnswer answer = keyring().save(target, SecretBytes(secret));
        if (!standsIn(answer)) {
            const bool saved = isWell(answer, step);
            // The key it had while there was no keyring would lie on unprotected, and count for the newer one.
            return saved
                && (place() != Place::Automatic || isWell(file().remove(target), "Прежний ключ не удалён из файла"));
        }
        warnOfFile(answer.reason);
    }
    return isWell(file().save(target, SecretBytes(secret)), step);
}

QString CredentialStore::read(const QString &target)
{
    constexpr auto step = "Ключ не прочитан";
    if (place() != Place::Service) {
        const SecretAnswer kept = file().read(target);
        if (kept.outcome == SecretOutcome::Done) {
            warnOfFile();
            return kept.secret.text();
        }
        isWell(kept, step); // a file that can't be read hides no key of the keyring
        if (place() == Place::File)
            return {};
    }
    const SecretAnswer answer = keyring().read(target);
    return !standsIn(answer) && isWell(answer, step) ? answer.secret.text() : QString();
}

bool CredentialStore::remove(const QString &target)
{
    constexpr auto step = "Ключ не удалён";
    bool removed = true;
    if (place() != Place::File) {
        const SecretAnswer answer = keyring().remove(target);
        removed = standsIn(answer) || isWell(answer, step);
    }
    if (place() != Place::Service)
        removed = isWell(file().remove(target), step) && removed;
    return removed;
}

QString cleanKey(const QString &given)
{
    const QString key = given.trimmed();
    require(std::ranges::none_of(key, [](QChar c) { return c.category() == QChar::Other_Control; }),
            u"Ключ API содержит управляющие символы. Скопируйте его ещё раз."_s);
    return key;
}

QString connectionTarget(const QString &baseUrl)
{
    return u"VESK:"_s + digest(baseUrl.toUtf8());
}

QString agentTarget(const QString &agentId)
{
    return u"VESK:agent:"_s + agentId;
}

} // namespace vesk
