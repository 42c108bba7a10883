// The JSON object in a model's answer.

#include "fuzz.h"
#include "helpers.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;
using namespace vesk;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(bytesOf(data, size));
    const QJsonDocument whole = QJsonDocument::fromJson(text.toUtf8());
    QJsonObject object;
    try {
        object = parseObject(text);
    } catch (const std::exception &error) {
        holds(!whole.isObject() || textOf(error).endsWith("too deep"_L1));
        return 0;
    }
    holds(!whole.isObject() || object == whole.object());
    // Printed once, what has no text of its own (half a letter) is gone.
    const QString printed = json(parseObject(json(object)));
    holds(json(parseObject(u"Вот ответ: "_s + printed + u"\nГотово."_s)) == printed);
    return 0;
}
