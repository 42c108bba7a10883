#pragma once

#include "helpers.h"

#include <QJsonArray>

/// The JSON object in a text that is written with ' for ".
inline QJsonObject object(const QString &text)
{
    return vesk::parseObject(QString(text).replace(u'\'', u'"'));
}

/// The same for a JSON array.
inline QJsonArray array(const QString &text)
{
    return object(QStringLiteral("{\"a\":") + text + u'}')[QStringLiteral("a")].toArray();
}

/// The values in a record under these keys, or ways of keys and places, in one line: "COMPLETED 2 true ['a']" for
/// "status revision input.safe options". What isn't there is nothing.
inline QString fields(const QJsonValue &record, const QString &keys)
{
    QStringList values;
    for (const QString &way : keys.split(u' ')) {
        QJsonValue value = record;
        for (const QString &key : way.split(u'.'))
            value = value.isArray() ? value[key.toInt()] : value[key];
        const bool isSimple = !value.isArray() && !value.isObject();
        const QString text
            = isSimple ? value.toVariant().toString() : vesk::json({{QStringLiteral("a"), value}}).chopped(1).sliced(5);
        values.append(isSimple ? text : QString(text).replace(u'"', u'\''));
    }
    return values.join(u' ');
}
