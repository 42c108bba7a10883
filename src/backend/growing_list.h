#pragma once

#include "store.h"

#include <QJsonObject>
#include <QString>
#include <QVariantList>

#include <functional>

namespace vesk {

/// The records of one owner in a table to which records are only added, as variants for the interface. What has been
/// read once is not read, parsed or converted again: each refresh costs what is new.
class GrowingList {
public:
    using Cut = std::function<QJsonObject(const QJsonObject &)>;

    /// `cut` says what of a record is shown; with a limit, only the last so many records are kept.
    GrowingList(const QString &table, Cut cut, int limit = -1);

    const QVariantList &of(const Store &store, const QString &owner);

private:
    QString table;
    Cut cut;
    int limit;
    QString owner;
    quint64 revision = 0;
    qint64 place = 0;
    QVariantList items;
};

} // namespace vesk
