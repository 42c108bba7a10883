// From a request for a frame to the shapes of the script.

#include "background_script.h"

#include <QJsonArray>
#include <QJsonValue>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr quint32 maxShapes = 200;
constexpr qsizetype maxErrorText = 250;

QJsonArray shapesOf(const QJSValue &list)
{
    const quint32 count = std::min(list.property(u"length"_s).toUInt(), maxShapes);
    QJsonArray shapes;
    for (quint32 i = 0; i < count; ++i)
        shapes.append(QJsonObject::fromVariantMap(list.property(i).toVariant().toMap()));
    return shapes;
}

/// The line of `code` that the error is about; 0 when the engine names none that there is.
qsizetype lineOf(const QJSValue &error, const QString &code)
{
    const int line = error.isError() ? error.property(u"lineNumber"_s).toInt() : 0;
    const qsizetype last = code.count(u'\n') + 1;
    // What is missing at the end is found missing in the line that closes the function.
    return line == last + 1 ? last : line > last ? 0 : std::max(line, 0);
}

} // namespace

QJsonObject BackgroundScript::answer(const QJsonObject &request)
{
    compile(request["code"_L1].toString());
    QJSValue result = function;
    if (function.isCallable())
        result = function.call({request["t"_L1].toDouble(), request["w"_L1].toInt(), request["h"_L1].toInt()});
    QJsonObject reply{{u"generation"_s, request["generation"_L1]}};
    if (!result.isError() && result.isArray())
        reply["shapes"_L1] = shapesOf(result);
    else {
        reply["error"_L1] = u"JavaScript должен вернуть массив фигур. "_s + result.toString().left(maxErrorText);
        if (const qsizetype line = lineOf(result, code); line > 0)
            reply["line"_L1] = line;
    }
    return reply;
}

void BackgroundScript::compile(const QString &text)
{
    if (text == code)
        return;
    code = text;
    // The line feed keeps a comment in the last line from swallowing the bracket.
    function = engine.evaluate(u"(function(t,w,h){"_s + code + u"\n})"_s, QString(), 1);
}

} // namespace vesk
