#include "credential_store.h"

#include "helpers.h"
#include "keyring.h"
#include "secret_file.h"

#include <QStandardPaths>

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
    if (place() != Place::Automatic || answer.outcome != SecretOutcome::Absent)
        return false;
    static bool warned = false;
    if (!warned) {
        qWarning("Связка ключей недоступна (%s): ключи хранятся без шифрования в файле %s",
                 qUtf8Printable(answer.reason), qUtf8Printable(file().path()));
    }
    warned = true;
    return true;
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
            // The key it had while there was no keyring would lie on unprotected, and come back with the next removal.
            if (saved && place() == Place::Automatic)
                isWell(file().remove(target), "Прежний ключ не удалён из файла");
            return saved;
        }
    }
    return isWell(file().save(target, SecretBytes(secret)), step);
}

QString CredentialStore::read(const QString &target)
{
    SecretAnswer answer;
    if (place() != Place::File)
        answer = keyring().read(target);
    // Kept while there was no keyring: still the person's key.
    const bool mayBeInFile = place() == Place::Automatic && answer.outcome == SecretOutcome::Missing;
    if (place() == Place::File || mayBeInFile || standsIn(answer))
        answer = file().read(target);
    return isWell(answer, "Ключ не прочитан") ? answer.secret.text() : QString();
}

bool CredentialStore::remove(const QString &target)
{
    constexpr auto step = "Ключ не удалён";
    if (place() != Place::File) {
        const SecretAnswer answer = keyring().remove(target);
        if (place() == Place::Service || !(standsIn(answer) || isWell(answer, step)))
            return isWell(answer, step);
    }
    return isWell(file().remove(target), step);
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
