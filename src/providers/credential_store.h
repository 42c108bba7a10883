#pragma once

#include <QString>

namespace vesk {

/// API keys, kept out of the database and the settings: in the desktop's keyring, or, where there is none, in the file
/// "credentials" of the data folder, with one warning in the log (docs/keys.md). A key in the file was put there after
/// the one in the keyring, and is the one that counts. The environment variable VESK_SECRETS
/// decides for one of them: "service" or "file". Each key has a target, a name that says nothing about it.
///
/// Called on the interface thread only. The calls wait for the keyring: some milliseconds, 3 s at most, a minute while
/// a person is asked to unlock it. They throw nothing; what went wrong is in the log.
class CredentialStore {
public:
    CredentialStore() = delete;

    /// The folder of the file. Without this call that is the application's own local data folder.
    static void setDataFolder(const QString &folder);

    /// True when the store has taken the secret; what the target had is replaced.
    static bool save(const QString &target, const QString &secret);
    /// The secret. Empty also when there is none or it can't be read.
    static QString read(const QString &target);
    /// True when there is no such secret any more, or never was.
    static bool remove(const QString &target);
};

/// A key as it came in, from a person, a file or a variable: without the blanks and line feeds round it; empty when
/// there is nothing else. Throws when it holds characters that no key has and no request can carry.
QString cleanKey(const QString &given);

/// Where the key of a connection is kept. It follows the address: connections to one base URL share their key.
QString connectionTarget(const QString &baseUrl);

/// Where the key of an agent of one's own is kept.
QString agentTarget(const QString &agentId);

} // namespace vesk
