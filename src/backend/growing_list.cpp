// Records to which more are only added, kept ready for the interface.

#include "growing_list.h"

#include <algorithm>
#include <utility>

namespace vesk {

GrowingList::GrowingList(const QString &table, Cut cut, int limit)
    : table(table)
    , cut(std::move(cut))
    , limit(limit)
{
}

const QVariantList &GrowingList::of(const Store &store, const QString &wanted)
{
    if (wanted != owner || place == 0) {
        items.clear();
        owner = wanted;
        place = 0;
    } else if (revision == store.revision(table)) {
        return items;
    }
    const QList<Store::Row> rows = store.rowsAfter(table, owner, place, limit);
    revision = store.revision(table); // Only now: rows that couldn't be read are still to come.
    for (const Store::Row &row : rows) {
        items.append(cut(row.body).toVariantMap());
        place = std::max(place, row.place);
    }
    if (limit >= 0 && items.size() > limit)
        items.remove(0, items.size() - limit);
    return items;
}

} // namespace vesk
