// The lines of an OBJ file, moved and scaled as the first byte says.

#include "fuzz.h"
#include "media_parts.h"

#include <QBuffer>
#include <QJsonArray>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QByteArray moved(QByteArray bytes, const QJsonObject &job)
{
    QBuffer from(&bytes);
    QBuffer to;
    from.open(QIODevice::ReadOnly);
    to.open(QIODevice::WriteOnly);
    moveVertices(job, from, to);
    return to.data();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes = bytesOf(data + 1, size - 1);
    const QJsonObject job{{u"scale"_s, double(data[0]) * data[0]}, {u"translate"_s, QJsonArray{data[0], 0, -1e9}}};
    try {
        const QByteArray once = moved(bytes, {});
        holds(moved(once, {}) == once);
        holds(qAbs(once.count('\n') - bytes.count('\n')) <= 1);
        moved(bytes, job);
    } catch (const std::exception &) {
        return 0; // a vertex that is none
    }
    return 0;
}
