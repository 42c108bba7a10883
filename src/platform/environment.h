#pragma once

#include <QString>

namespace vesk {

/// The value of an environment variable, which is removed at once, so that no program started from here inherits it.
QString takeSecretVariable(const QString &name);

} // namespace vesk
