#pragma once

#include "helpers.h"

#include <QJsonObject>
#include <QString>

namespace vesk {

/// A project as it is stored in "projects" under its id.
inline QJsonObject projectRecord(const QString &id, const QString &name, const QString &root)
{
    return {{QStringLiteral("id"), id},
            {QStringLiteral("name"), name},
            {QStringLiteral("root"), root},
            {QStringLiteral("created_at"), now()}};
}

/// Of all that the program stores.
inline QString databaseIn(const QString &dataFolder)
{
    return dataFolder + QStringLiteral("/vesk.sqlite");
}

} // namespace vesk
