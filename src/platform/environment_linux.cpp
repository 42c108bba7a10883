// Variables that hold a secret.

#include "environment.h"

#include <QFile>

#include <cstdlib>
#include <cstring>

namespace vesk {

QString takeSecretVariable(const QString &name)
{
    const QByteArray encoded = QFile::encodeName(name);
    char *value = std::getenv(encoded.constData());
    const QString secret = QString::fromLocal8Bit(value);
    // What the process was started with stays readable in its memory and under /proc after the variable is gone.
    if (value)
        ::explicit_bzero(value, std::strlen(value));
    ::unsetenv(encoded.constData());
    return secret;
}

} // namespace vesk
