#pragma once

#include "secret_answer.h"

#include <QByteArrayView>
#include <QString>

namespace vesk {

/// The text of a file of secrets, whose form secret_file.h shows. Of several lines of one target the first counts.

bool hasSecret(QByteArrayView file, const QString &target);

/// Done, Missing, or Failed when the line of this target holds no Base64.
SecretAnswer secretOf(QByteArrayView file, const QString &target);

/// The file's text without any line of this target.
SecretBytes withoutSecret(QByteArrayView file, const QString &target);

/// The same with a new line of this target at its end.
SecretBytes withSecret(QByteArrayView file, const QString &target, const SecretBytes &secret);

} // namespace vesk
