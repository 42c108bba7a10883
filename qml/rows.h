#pragma once

#include <QAbstractListModel>
#include <QMetaMethod>
#include <QPointer>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

namespace vesk {

/// A list property of an object as a model that changes row by row: a list of variants given to a view directly would
/// make every item anew at each change, and copy the whole list into the script engine.
///
/// Rows are maps. Two of them are the same row when their "id", or, without one, their "path" or "kind", is equal; what
/// stands between unchanged rows at the beginning and the end is taken out and put in anew. The list is read once for
/// each change that the property announces.
class Rows : public QAbstractListModel {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QObject *source READ source WRITE setSource NOTIFY sourceChanged)
    Q_PROPERTY(QString list READ list WRITE setList NOTIFY listChanged)
    Q_PROPERTY(bool newestFirst READ newestFirst WRITE setNewestFirst NOTIFY orderChanged)
    Q_PROPERTY(QStringList only READ only WRITE setOnly NOTIFY filterChanged)
    Q_PROPERTY(QStringList without READ without WRITE setWithout NOTIFY filterChanged)
    Q_PROPERTY(int count READ count NOTIFY countChanged)
public:
    using QAbstractListModel::QAbstractListModel;

    QObject *source() const { return from; }
    void setSource(QObject *source);
    /// The name of the property of `source`.
    QString list() const { return name; }
    void setList(const QString &list);
    /// Turns the order of the list around.
    bool newestFirst() const { return turned; }
    void setNewestFirst(bool turn);
    /// Values of "kind" that are shown alone, or not at all. Both empty: every row.
    QStringList only() const { return wanted; }
    void setOnly(const QStringList &kinds);
    QStringList without() const { return unwanted; }
    void setWithout(const QStringList &kinds);
    int count() const { return int(rows.size()); }

    /// The row at this place, as a map; empty outside of the list.
    Q_INVOKABLE QVariantMap at(int place) const;
    /// The first row with this text in the field; empty without one.
    Q_INVOKABLE QVariantMap find(const QString &field, const QString &value) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    /// One role: "row", the whole map.
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void sourceChanged();
    void listChanged();
    void orderChanged();
    void filterChanged();
    void countChanged();

private Q_SLOTS:
    void read();

private:
    void listen();
    QVariantList readList() const;
    void become(const QVariantList &next);
    void announceChanges(const QVariantList &next, qsizetype fromOld, qsizetype fromNew, qsizetype count);

    QPointer<QObject> from;
    QString name;
    bool turned = false;
    QStringList wanted;
    QStringList unwanted;
    QMetaObject::Connection connection;
    QVariantList rows;
};

} // namespace vesk
