#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace vesk {

/// A sign that stands on a button in place of a letter: ×, ‹, +, ▶ and the like, drawn by lines of one weight at the
/// resolution of the screen, so that it looks the same in every font and size.
class Sign : public QQuickPaintedItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString sign READ sign WRITE setSign NOTIFY signChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    /// Whether there is a drawing for the sign.
    Q_PROPERTY(bool known READ isKnown NOTIFY signChanged)
public:
    explicit Sign(QQuickItem *parent = nullptr);

    const QString &sign() const { return drawn; }
    void setSign(const QString &sign);
    QColor color() const { return ink; }
    void setColor(const QColor &color);
    bool isKnown() const;
    void paint(QPainter *painter) override;

Q_SIGNALS:
    void signChanged();
    void colorChanged();

private:
    QString drawn;
    QColor ink;
};

} // namespace vesk
