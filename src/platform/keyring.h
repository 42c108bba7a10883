#pragma once

#include "secret_answer.h"

#include <chrono>
#include <memory>

namespace vesk {

struct KeyringRequest;

/// How long the service is waited for.
struct KeyringLimits {
    std::chrono::milliseconds answer{3000}; ///< For all answers of one operation together.
    std::chrono::milliseconds repeated{300}; ///< The same, after an operation that had no answer, until one has.
    std::chrono::milliseconds person{60000}; ///< More, while a person is asked for a password.
};

/// The desktop's keyring, reached by D-Bus through libsecret (docs/keys.md). libsecret and GLib are loaded at the first
/// use, which takes some 10 ms: most starts of the program never need them.
///
/// Each operation runs on a thread of its own and is given up at its deadline, so a service that hangs costs the
/// caller 3 s once and a third of a second from then on. A locked keyring is unlocked through the service, which may
/// show a person its prompt; that is waited for only where there is a display. Who has declined isn't asked again by
/// `read`, but by `save` and `remove`, which follow from what a person does. Used on one thread.
class Keyring {
public:
    explicit Keyring(const KeyringLimits &limits = {});
    ~Keyring();
    Keyring(const Keyring &) = delete;
    Keyring &operator=(const Keyring &) = delete;

    SecretAnswer read(const QString &target);
    /// Replaces the secret that this target has.
    SecretAnswer save(const QString &target, SecretBytes secret);
    SecretAnswer remove(const QString &target);

private:
    class Errand;
    SecretAnswer run(KeyringRequest request);
    static SecretAnswer noAnswer(Errand &errand);

    KeyringLimits limits;
    std::shared_ptr<Errand> unfinished; ///< The last one that was given up: its thread may hang still.
    bool wasSilent = false;
    bool wasDeclined = false;
};

} // namespace vesk
