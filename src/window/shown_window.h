#pragma once

#include <QLocalServer>
#include <QObject>
#include <QPointer>
#include <QString>

class QQuickWindow;

namespace vesk {

/// Lets a second start on the same data folder bring the window of the first one to the front: each folder has a local
/// socket of its user's, which only the process that holds the folder listens on.
class ShownWindow : public QObject {
    Q_OBJECT
public:
    /// Listens for second starts. Without a socket (no place for it) they are told that the folder is taken, as before.
    ShownWindow(const QString &dataFolder, QQuickWindow *window, QObject *parent = nullptr);

    /// Asks the process that holds the folder to show its window; false when none does in time, such as a
    /// task without a window.
    static bool call(const QString &dataFolder);

private:
    void take();
    void show(const QByteArray &token);

    QLocalServer server;
    QPointer<QQuickWindow> window;
};

} // namespace vesk
