#pragma once

#include <QByteArray>
#include <QString>

namespace vesk {

/// Bytes of a secret, overwritten before their memory is given back. What Qt copies out of them (`text`) is not.
class SecretBytes {
public:
    SecretBytes() = default;
    /// Room for so many bytes, to be filled through `data`.
    explicit SecretBytes(qsizetype size);
    /// A copy of so many bytes.
    SecretBytes(const char *bytes, qsizetype size);
    /// The text as UTF-8, without a terminator.
    explicit SecretBytes(const QString &text);
    ~SecretBytes();
    SecretBytes(SecretBytes &&other) noexcept;
    SecretBytes &operator=(SecretBytes &&other) noexcept;

    QString text() const { return QString::fromUtf8(bytes); }
    QByteArrayView view() const { return bytes; }
    qsizetype size() const { return bytes.size(); }
    char *data() { return bytes.data(); }
    /// Takes over an array that nobody else holds.
    static SecretBytes taken(QByteArray &&bytes);
    /// Adds bytes. Room is made without leaving a copy behind.
    void append(QByteArrayView more);

private:
    void wipe();

    QByteArray bytes; ///< Never shared: a shared array would be copied where it is to be overwritten.
};

enum class SecretOutcome {
    Done,
    Missing, ///< There is no such secret.
    Locked, ///< The keyring is locked, and nobody unlocked it.
    Absent, ///< There is no such store on this machine, or none that this session can reach.
    Silent, ///< The store gave no answer in time.
    Failed,
};

/// What came of asking a store.
struct SecretAnswer {
    SecretOutcome outcome = SecretOutcome::Failed;
    SecretBytes secret; ///< Of a successful reading.
    QString reason; ///< Of all but Done and Missing: a text for the log, without a secret in it.
};

} // namespace vesk
