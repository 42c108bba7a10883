// The JSON object in a model's answer.

#include "fuzz.h"
#include "helpers.h"

using namespace Qt::StringLiterals;
using namespace vesk;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QJsonObject object;
    try {
        object = parseObject(QString::fromUtf8(bytesOf(data, size)));
    } catch (const std::exception &) {
        return 0;
    }
    // Printed once, what has no text of its own (half a letter) is gone.
    const QString printed = json(parseObject(json(object)));
    holds(json(parseObject(u"Вот ответ: "_s + printed + u"\nГотово."_s)) == printed);
    return 0;
}
