#pragma once

#include <QColor>
#include <QList>
#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

namespace vesk {

/// The arrows between the agents of the picture: thin lines, each with a head at 70 percent of its way. Drawn at the
/// resolution of the screen, and again only when a line has changed.
class NetworkWires : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QList<qreal> wires READ wires WRITE setWires NOTIFY wiresChanged)
    Q_PROPERTY(QColor color MEMBER color NOTIFY coloursChanged)
    Q_PROPERTY(QColor litColor MEMBER litColor NOTIFY coloursChanged)
public:
    explicit NetworkWires(QQuickItem *parent = nullptr);

    /// Five numbers for each: x and y of where it begins and of where it ends, in pixels of the item; 1 when it is lit.
    /// What is over at the end is left out.
    const QList<qreal> &wires() const { return numbers; }
    void setWires(const QList<qreal> &wires);
    void paint(QPainter *painter) override;

Q_SIGNALS:
    void wiresChanged();
    void coloursChanged();

private:
    QList<qreal> numbers;
    QColor color;
    QColor litColor;
};

} // namespace vesk
