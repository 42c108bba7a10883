#pragma once

#include <QObject>
#include <QQuickItem>
#include <QQuickWindow>
#include <QStringList>

/// A person without a mouse who can't see the window, either: goes round it by Tab and asks for the name of everything.
class Keyboard : public QObject {
    Q_OBJECT
public:
    Keyboard();

    /// What is wrong in what lies topmost in the window, a line each: two rounds in each direction must be the same,
    /// reach each control, and stop only where the focus can be seen and has a name.
    Q_INVOKABLE QStringList faults(QQuickWindow *window);
    /// What a screen reader was to say since the last call.
    Q_INVOKABLE QStringList told();

private:
    QList<QQuickItem *> round(Qt::Key key);
    void checkStop(QQuickItem *item);
    void checkSeen(QQuickItem *item, QRect area, const QImage &with, const QImage &without);
    void checkItem(QQuickItem *item, const QList<QQuickItem *> &stops);
    void fault(const QQuickItem *item, const QString &text);

    QQuickWindow *window = nullptr;
    QQuickItem *ground = nullptr; ///< What lies topmost: a dialog, menu or popup, or else the whole window.
    bool looking = false;
    QStringList found;
};
