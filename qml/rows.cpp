#include "rows.h"

#include <QMetaProperty>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int rowRole = Qt::UserRole;

QString keyOf(const QVariant &row)
{
    const QVariantMap map = row.toMap();
    for (const QString &field : {u"id"_s, u"path"_s}) {
        const QString value = map.value(field).toString();
        if (!value.isEmpty())
            return value;
    }
    return map.value(u"kind"_s).toString();
}

} // namespace

void Rows::setSource(QObject *source)
{
    if (source == from)
        return;
    from = source;
    Q_EMIT sourceChanged();
    listen();
}

void Rows::setList(const QString &list)
{
    if (list == name)
        return;
    name = list;
    Q_EMIT listChanged();
    listen();
}

void Rows::setNewestFirst(bool turn)
{
    if (turn == turned)
        return;
    turned = turn;
    Q_EMIT orderChanged();
    read();
}

void Rows::setOnly(const QStringList &kinds)
{
    if (kinds == wanted)
        return;
    wanted = kinds;
    Q_EMIT filterChanged();
    read();
}

void Rows::setWithout(const QStringList &kinds)
{
    if (kinds == unwanted)
        return;
    unwanted = kinds;
    Q_EMIT filterChanged();
    read();
}

void Rows::listen()
{
    disconnect(connection);
    if (from && !name.isEmpty()) {
        const QMetaObject *meta = from->metaObject();
        const QMetaProperty property = meta->property(meta->indexOfProperty(name.toLatin1().constData()));
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("read()"));
        if (property.hasNotifySignal())
            connection = connect(from, property.notifySignal(), this, slot);
    }
    read();
}

QVariantMap Rows::at(int place) const
{
    return rows.value(place).toMap();
}

QVariantMap Rows::find(const QString &field, const QString &value) const
{
    for (const QVariant &row : rows) {
        const QVariantMap map = row.toMap();
        if (map.value(field).toString() == value)
            return map;
    }
    return {};
}

int Rows::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : count();
}

QVariant Rows::data(const QModelIndex &index, int role) const
{
    return role == rowRole ? rows.value(index.row()) : QVariant();
}

QHash<int, QByteArray> Rows::roleNames() const
{
    return {{rowRole, "row"}};
}

void Rows::read()
{
    become(readList());
}

QVariantList Rows::readList() const
{
    QVariantList list;
    if (from && !name.isEmpty())
        list = from->property(name.toLatin1().constData()).toList();
    if (!wanted.isEmpty() || !unwanted.isEmpty()) {
        list.removeIf([this](const QVariant &row) {
            const QString kind = row.toMap().value(u"kind"_s).toString();
            return unwanted.contains(kind) || (!wanted.isEmpty() && !wanted.contains(kind));
        });
    }
    if (turned)
        std::ranges::reverse(list);
    return list;
}

/// From the rows shown to the next ones, with the least that a view must do for it.
void Rows::become(const QVariantList &next)
{
    const qsizetype common = std::min(rows.size(), next.size());
    qsizetype before = 0;
    // Lists share their rows as long as nothing has changed in them, so that most comparisons are of pointers.
    while (before < common && (rows[before] == next[before] || keyOf(rows[before]) == keyOf(next[before])))
        ++before;
    qsizetype after = 0;
    while (after < common - before && keyOf(rows[rows.size() - 1 - after]) == keyOf(next[next.size() - 1 - after]))
        ++after;

    const qsizetype removed = rows.size() - before - after;
    const qsizetype added = next.size() - before - after;
    if (removed > 0) {
        beginRemoveRows({}, int(before), int(before + removed - 1));
        rows.remove(before, removed);
        endRemoveRows();
    }
    if (added > 0) {
        beginInsertRows({}, int(before), int(before + added - 1));
        for (qsizetype i = 0; i < added; ++i)
            rows.insert(before + i, next[before + i]);
        endInsertRows();
    }
    announceChanges(next, 0, 0, before);
    announceChanges(next, rows.size() - after, next.size() - after, after);
    if (removed != added)
        Q_EMIT countChanged();
}

void Rows::announceChanges(const QVariantList &next, qsizetype fromOld, qsizetype fromNew, qsizetype count)
{
    for (qsizetype i = 0; i < count; ++i) {
        if (rows[fromOld + i] == next[fromNew + i])
            continue;
        rows[fromOld + i] = next[fromNew + i];
        const QModelIndex place = index(int(fromOld + i));
        Q_EMIT dataChanged(place, place, {rowRole});
    }
}

} // namespace vesk
