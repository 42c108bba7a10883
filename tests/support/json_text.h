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
