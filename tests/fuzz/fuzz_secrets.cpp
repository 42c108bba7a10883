// A file of secrets. The first line of the input is a target, the second a secret, the rest the file.

#include "fuzz.h"
#include "secret_lines.h"

#include <QList>

using namespace vesk;

namespace {

bool isSame(const SecretAnswer &a, const SecretAnswer &b)
{
    return a.outcome == b.outcome && a.secret.view() == b.secret.view();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = bytesOf(data, size);
    const QList<QByteArray> lines = bytes.split('\n');
    const QString target = QString::fromUtf8(lines[0]);
    const QByteArray secret = lines.value(1);
    const QByteArray file = bytes.mid(lines[0].size() + secret.size() + 2);
    const QString other = target + u'x';

    const SecretBytes with = withSecret(file, target, SecretBytes(secret.constData(), secret.size()));
    const SecretAnswer answer = secretOf(with.view(), target);
    holds(answer.outcome == SecretOutcome::Done && answer.secret.view() == secret);
    const SecretBytes without = withoutSecret(with.view(), target);
    holds(!hasSecret(without.view(), target));
    holds(secretOf(without.view(), target).outcome == SecretOutcome::Missing);

    const SecretAnswer others = secretOf(file, other);
    holds(hasSecret(file, other) == (others.outcome != SecretOutcome::Missing));
    holds(isSame(secretOf(with.view(), other), others) && isSame(secretOf(without.view(), other), others));
    return 0;
}
