#pragma once

#include "backend.h"

#include <QQmlApplicationEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>

#include <memory>

/// The whole window on a real backend with a data folder of its own, worked as a person would: by mouse and keyboard,
/// on what can be seen. Items are named by their objectName.
class WindowDesk {
public:
    WindowDesk();

    /// Opens backend and window; again, after both have been closed, on the same data.
    void open();
    void close();
    vesk::Backend &app() { return *backend; }
    QQuickWindow &screen() { return *window; }
    QString data() const { return folder.filePath(QStringLiteral("data")); }
    QString path(const QString &name) const { return folder.filePath(name); }
    QVariant get(const char *property) const { return window->property(property); }
    QVariantMap state() const { return backend->uiState(); }
    QString phase() const { return state().value(QStringLiteral("phase")).toString(); }

    /// The visible item, in or below `within`; null when there is none.
    QQuickItem *item(const QString &name, QQuickItem *within = nullptr) const;
    /// All visible items below the window, parents first.
    QList<QQuickItem *> visibleItems() const;
    /// The text of a visible item; what is not there reads as "(none)".
    QString text(const QString &name, const char *property = "text") const;
    /// Whether the dialog, menu or popup of this name is open.
    bool isOpen(const QString &popup) const;
    /// Presses the middle of the item once it can be seen. False when it doesn't appear.
    bool click(const QString &name, QQuickItem *within = nullptr);
    bool click(QQuickItem *item);
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    void type(const QString &text);
    /// Presses Tab until the item has the focus; false when it never gets it.
    bool tabTo(const QString &name);
    /// Moves with the left button down, in window coordinates.
    void drag(QPoint from, QPoint to);
    bool waitForPhase(const QString &phase) const;

private:
    QTemporaryDir folder;
    std::unique_ptr<vesk::Backend> backend;
    std::unique_ptr<QQmlApplicationEngine> engine;
    QQuickWindow *window = nullptr;
};
