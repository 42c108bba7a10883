#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QTimer>
#include <QVariantMap>

class QQuickWindow;

namespace vesk {

/// Remembers size and place of the window in "window.ini" of the data folder, and gives them back at the next start. A
/// place that no screen shows any more is not used; size and place are those of the window that is not maximised. On a
/// screen smaller than the window it is made as large as the screen allows, below its least size if it must be.
class WindowPlace : public QObject {
    Q_OBJECT
public:
    explicit WindowPlace(const QString &dataFolder, QObject *parent = nullptr);
    /// Writes what has changed since it was read.
    ~WindowPlace() override;

    /// What the window is to be made with: its last size and place, so that it never jumps. Empty at the first start on
    /// a screen that is large enough.
    QVariantMap initialProperties() const;
    /// Follows the window from now on. Null is ignored.
    void follow(QQuickWindow *window);

private:
    void note();

    QString file;
    QPointer<QQuickWindow> window;
    QRect normal;
    bool maximized = false;
    QTimer settled;
};

} // namespace vesk
