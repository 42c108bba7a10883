// Lines of a file of secrets: found, added, removed.

#include "secret_lines.h"

#include <QByteArray>

#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// How a target's line begins.
QByteArray beginning(const QString &target)
{
    return target.toUtf8().toPercentEncoding(":") + ' ';
}

/// The same bytes, not a copy of them.
QByteArray asArray(QByteArrayView bytes)
{
    return QByteArray::fromRawData(bytes.data(), bytes.size());
}

/// The place of a line in the file's bytes, the line's end with it.
struct Line {
    qsizetype first = 0;
    qsizetype end = 0;
};

std::optional<Line> findLine(QByteArrayView bytes, const QByteArray &beginning)
{
    for (Line line; line.first < bytes.size(); line.first = line.end) {
        const qsizetype newline = bytes.indexOf('\n', line.first);
        line.end = newline < 0 ? bytes.size() : newline + 1;
        if (bytes.sliced(line.first, line.end - line.first).startsWith(beginning))
            return line;
    }
    return {};
}

} // namespace

bool hasSecret(QByteArrayView file, const QString &target)
{
    return findLine(file, beginning(target)).has_value();
}

SecretAnswer secretOf(QByteArrayView file, const QString &target)
{
    const QByteArray start = beginning(target);
    const std::optional<Line> line = findLine(file, start);
    if (!line)
        return {SecretOutcome::Missing, {}, {}};

    const QByteArrayView rest = file.sliced(line->first, line->end - line->first).sliced(start.size());
    QByteArray::FromBase64Result decoded
        = QByteArray::fromBase64Encoding(asArray(rest.trimmed()), QByteArray::AbortOnBase64DecodingErrors);
    SecretBytes secret = SecretBytes::taken(std::move(decoded.decoded));
    if (decoded.decodingStatus != QByteArray::Base64DecodingStatus::Ok)
        return {SecretOutcome::Failed, {}, u"запись в файле ключей повреждена"_s};
    return {SecretOutcome::Done, std::move(secret), {}};
}

SecretBytes withoutSecret(QByteArrayView file, const QString &target)
{
    const QByteArray start = beginning(target);
    SecretBytes kept;
    while (const std::optional<Line> line = findLine(file, start)) {
        kept.append(file.first(line->first));
        file = file.sliced(line->end);
    }
    kept.append(file);
    return kept;
}

SecretBytes withSecret(QByteArrayView file, const QString &target, const SecretBytes &secret)
{
    SecretBytes bytes = withoutSecret(file, target);
    if (!bytes.view().isEmpty() && !bytes.view().endsWith('\n'))
        bytes.append("\n");
    bytes.append(beginning(target));
    // Not a copy of the secret: it would be left in memory.
    bytes.append(SecretBytes::taken(asArray(secret.view()).toBase64()).view());
    bytes.append("\n");
    return bytes;
}

} // namespace vesk
