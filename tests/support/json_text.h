#pragma once

#include "helpers.h"

/// The JSON object in a text that is written with ' for ".
inline QJsonObject object(const QString &text)
{
    return vesk::parseObject(QString(text).replace(u'\'', u'"'));
}
