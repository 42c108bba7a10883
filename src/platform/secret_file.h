#pragma once

#include "secret_answer.h"

namespace vesk {

/// Secrets in the file "credentials" of a folder, for machines without a keyring. They are not encrypted: the file's
/// owner and mode (0600) are all that protects them. So a file that is a link, has several names, belongs to somebody
/// else or can be opened by others is refused, for reading and for writing. One line for each secret, of the target
/// (percent-encoded) and the Base64 of its bytes:
///
///     VESK:d9617135d6fdd0a2cde7... c2stMTIz
///     VESK:agent:8a6a0f0e-1b0c-4a53-9f0e-0d8f6d1c2b3a 0LrQu9GO0Yc=
///
/// Lines of any other form are kept as they are. The file is replaced in one step, so readers see it whole, and
/// processes that write at once take turns by a lock on "credentials.lock" (3 s at most).
class SecretFile {
public:
    explicit SecretFile(const QString &folder);

    QString path() const;
    SecretAnswer read(const QString &target) const;
    /// Replaces the secret that this target has. Makes the folder when it is missing.
    SecretAnswer save(const QString &target, const SecretBytes &secret) const;
    /// Missing, and no file touched, when there is nothing to remove.
    SecretAnswer remove(const QString &target) const;

private:
    QString folder;
};

} // namespace vesk
