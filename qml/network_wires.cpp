#include "network_wires.h"

#include <QLineF>
#include <QPainter>
#include <QPen>

#include <cmath>

namespace vesk {

namespace {

constexpr qsizetype numbersOfWire = 5;
constexpr qreal idleWidth = .7;
constexpr qreal litWidth = 1.1;
constexpr qreal headAt = .7;
constexpr qreal headLength = 6;
constexpr qreal headAngle = .5; // radians to either side of the line

/// The line, then the two strokes of its head.
void append(QList<QLineF> &strokes, const QLineF &wire)
{
    const QPointF tip = wire.pointAt(headAt);
    const qreal angle = std::atan2(wire.dy(), wire.dx());
    strokes.append(wire);
    for (const qreal side : {angle - headAngle, angle + headAngle})
        strokes.append({tip, tip - headLength * QPointF(std::cos(side), std::sin(side))});
}

} // namespace

NetworkWires::NetworkWires(QQuickItem *parent)
    : QQuickPaintedItem(parent)
{
    setAntialiasing(true);
    connect(this, &NetworkWires::coloursChanged, this, [this] { update(); });
}

void NetworkWires::setWires(const QList<qreal> &wires)
{
    if (wires == numbers)
        return;
    numbers = wires;
    update();
    Q_EMIT wiresChanged();
}

void NetworkWires::paint(QPainter *painter)
{
    QList<QLineF> strokes;
    QList<QLineF> litStrokes;
    for (qsizetype at = 0; at + numbersOfWire <= numbers.size(); at += numbersOfWire)
        append(numbers[at + 4] > 0 ? litStrokes : strokes,
               {numbers[at], numbers[at + 1], numbers[at + 2], numbers[at + 3]});
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(QPen(color, idleWidth));
    painter->drawLines(strokes);
    painter->setPen(QPen(litColor, litWidth));
    painter->drawLines(litStrokes);
}

} // namespace vesk
