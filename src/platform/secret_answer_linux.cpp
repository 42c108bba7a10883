// What became of a request for a secret, and bytes that are wiped.

#include "secret_answer.h"

#include <utility>

#include <string.h>

namespace vesk {

SecretBytes::SecretBytes(qsizetype size)
    : bytes(size, Qt::Uninitialized)
{
}

SecretBytes::SecretBytes(const char *bytes, qsizetype size)
    : bytes(bytes, size)
{
}

SecretBytes::SecretBytes(const QString &text)
    : bytes(text.toUtf8())
{
}

SecretBytes::~SecretBytes()
{
    wipe();
}

SecretBytes::SecretBytes(SecretBytes &&other) noexcept
    : bytes(std::exchange(other.bytes, {}))
{
}

SecretBytes &SecretBytes::operator=(SecretBytes &&other) noexcept
{
    if (this != &other) {
        wipe();
        bytes = std::exchange(other.bytes, {});
    }
    return *this;
}

SecretBytes SecretBytes::taken(QByteArray &&bytes)
{
    SecretBytes secret;
    secret.bytes = std::exchange(bytes, {});
    return secret;
}

void SecretBytes::append(QByteArrayView more)
{
    if (bytes.size() + more.size() > bytes.capacity()) {
        // QByteArray would move its bytes and leave the old ones lying in freed memory.
        QByteArray larger;
        larger.reserve(2 * bytes.size() + more.size());
        larger.append(QByteArrayView(bytes));
        wipe();
        bytes = std::move(larger);
    }
    bytes.append(more);
}

void SecretBytes::wipe()
{
    if (!bytes.isEmpty() && bytes.isDetached())
        ::explicit_bzero(bytes.data(), size_t(bytes.size()));
}

} // namespace vesk
