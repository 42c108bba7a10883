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

/// Carries the request out and waits for as long as the service takes, unless it is cancelled. `askingPerson` is called
/// with true just before something that may wait for a person, with false after it. To be called only where
/// LibSecret::get() gives something.
SecretAnswer askKeyring(const KeyringRequest &request, _GCancellable *cancellable,
                        const std::function<void(bool)> &askingPerson);

} // namespace vesk
