#pragma once

#include "store.h"

namespace vesk {

/// The id of the project in the folder with this canonical path; empty when none is known.
inline QString projectAt(const Store &store, const QString &root)
{
    const QJsonArray projects = store.list(QStringLiteral("projects"), {});
    for (const QJsonValue &project : projects) {
        if (project[QLatin1StringView("root")].toString() == root)
            return project[QLatin1StringView("id")].toString();
    }
    return {};
}

} // namespace vesk
