#include "sign.h"

#include <QHash>
#include <QList>
#include <QPainter>
#include <QPen>
#include <QPolygonF>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qreal grid = 16; // the drawings are made on a square of this size
constexpr qreal weight = 1.4;
constexpr qreal dotWidth = 2.6;

/// Lines from point to point; a single point is a dot.
using Drawing = QList<QPolygonF>;

const QHash<QString, Drawing> &drawings()
{
    static const QHash<QString, Drawing> all{
        {u"×"_s, {{{4.5, 4.5}, {11.5, 11.5}}, {{11.5, 4.5}, {4.5, 11.5}}}},
        {u"+"_s, {{{8, 3.5}, {8, 12.5}}, {{3.5, 8}, {12.5, 8}}}},
        {u"‹"_s, {{{9.8, 4}, {5.8, 8}, {9.8, 12}}}},
        {u"▾"_s, {{{4, 6.2}, {8, 10.2}, {12, 6.2}}}},
        {u"⋯"_s, {{{3.5, 8}}, {{8, 8}}, {{12.5, 8}}}},
        {u"☰"_s, {{{3, 4.5}, {13, 4.5}}, {{3, 8}, {13, 8}}, {{3, 11.5}, {13, 11.5}}}},
        {u"Ⅱ"_s, {{{5.8, 4}, {5.8, 12}}, {{10.2, 4}, {10.2, 12}}}},
        {u"▶"_s, {{{5.5, 3.8}, {12, 8}, {5.5, 12.2}, {5.5, 3.8}}}},
        {u"■"_s, {{{4.5, 4.5}, {11.5, 4.5}, {11.5, 11.5}, {4.5, 11.5}, {4.5, 4.5}}}},
        {u"↑"_s, {{{8, 12.8}, {8, 3.6}}, {{4, 7.6}, {8, 3.6}, {12, 7.6}}}},
        {u"↓"_s, {{{8, 3.2}, {8, 12.4}}, {{4, 8.4}, {8, 12.4}, {12, 8.4}}}},
        {u"↗"_s, {{{4.5, 11.5}, {11.5, 4.5}}, {{5.8, 4.5}, {11.5, 4.5}, {11.5, 10.2}}}},
        {u"▤"_s,
         {{{4, 2.5}, {9.2, 2.5}, {12, 5.3}, {12, 13.5}, {4, 13.5}, {4, 2.5}}, {{9, 2.7}, {9, 5.5}, {11.8, 5.5}}}},
        {u"✓"_s, {{{3.6, 8.4}, {6.6, 11.4}, {12.4, 5}}}},
    };
    return all;
}

} // namespace

Sign::Sign(QQuickItem *parent)
    : QQuickPaintedItem(parent)
    , ink(Qt::black)
{
}

void Sign::setSign(const QString &sign)
{
    if (sign == drawn)
        return;
    drawn = sign;
    update();
    Q_EMIT signChanged();
}

void Sign::setColor(const QColor &color)
{
    if (color == ink)
        return;
    ink = color;
    update();
    Q_EMIT colorChanged();
}

bool Sign::isKnown() const
{
    return drawings().contains(drawn);
}

void Sign::paint(QPainter *painter)
{
    painter->setRenderHint(QPainter::Antialiasing);
    painter->scale(width() / grid, height() / grid);
    const Drawing strokes = drawings().value(drawn);
    for (const QPolygonF &stroke : strokes) {
        const bool dot = stroke.size() == 1;
        painter->setPen(QPen(ink, dot ? dotWidth : weight, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        if (dot)
            painter->drawPoint(stroke.first());
        else
            painter->drawPolyline(stroke);
    }
}

} // namespace vesk
