#pragma once

#include "secret_answer.h"

#include <functional>

struct _GCancellable;

namespace vesk {

/// One operation on the keyring.
struct KeyringRequest {
    enum class Action { Read, Save, Remove };
    Action action = Action::Read;
    QByteArray target; ///< UTF-8.
    SecretBytes secret; ///< To be saved.
    bool mayUnlock = true; ///< A locked keyring may be unlocked, for which the service may ask a person.
};

/// Whether this session has a bus, as far as can be told without asking it. GLib starts a bus of its own where it finds
/// none, and that would outlive the program.
bool hasSessionBus();

/// Carries the request out and waits for as long as the service takes, unless it is cancelled. `askingPerson` is called
/// with true just before something that may wait for a person, with false after it; when that returns false, nobody
/// waits for the operation any more, and it changes nothing. To be called only where LibSecret::get() gives something.
SecretAnswer askKeyring(const KeyringRequest &request, _GCancellable *cancellable,
                        const std::function<bool(bool)> &askingPerson);

} // namespace vesk
