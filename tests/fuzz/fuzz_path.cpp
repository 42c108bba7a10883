// The path of a project's file as a model writes it.

#include "fuzz.h"
#include "path_rules.h"

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;
using namespace vesk;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // JSON can hold half a surrogate pair, UTF-8 can't: byte 0xff stands for one.
    QString path = QString::fromUtf8(bytesOf(data, size).replace('\xff', "\xee\x80\x80"));
    path.replace(QChar(0xe000), QChar(0xd800));

    const JudgedPath found = judged(path);
    holds(slashed(path).startsWith(found.good));
    holds(!found.fault.isEmpty() || found.good == slashed(path));
    if (found.good.isEmpty())
        return 0;
    const JudgedPath again = judged(found.good);
    holds(again.fault.isEmpty() && again.good == found.good);
    holds(QDir::cleanPath(u"/r/"_s + found.good) == u"/r/"_s + found.good);
    const QByteArray encoded = QFile::encodeName(found.good);
    holds(QFile::decodeName(encoded) == found.good && !encoded.contains('\0'));
    holds(!found.good.split(u'/').contains(u".git"_s, Qt::CaseInsensitive));
    return 0;
}
