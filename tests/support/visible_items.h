#pragma once

#include <QList>
#include <QQuickItem>

/// The item and all below it that can be seen, parents first.
inline QList<QQuickItem *> visibleItems(QQuickItem *item)
{
    if (!item->isVisible())
        return {};
    QList<QQuickItem *> list{item};
    const QList<QQuickItem *> children = item->childItems();
    for (QQuickItem *child : children)
        list += visibleItems(child);
    return list;
}
