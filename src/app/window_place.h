#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QString>

class QQuickWindow;

namespace vesk {

/// Remembers size and place of the window in "window.ini" of the data folder, and gives them back at the next start. A
/// place that no screen shows any more is not used; size and place are those of the window that is not maximised.
class WindowPlace : public QObject {
    Q_OBJECT
public:
    explicit WindowPlace(const QString &dataFolder, QObject *parent = nullptr);
    /// Writes what has changed since it was read.
    ~WindowPlace() override;

    /// Gives the window its last size and place, and follows it from now on. Null is ignored.
    void follow(QQuickWindow *window);

private:
    void restore();
    void note();

    QString file;
    QPointer<QQuickWindow> window;
    QRect normal;
    bool maximized = false;
};

} // namespace vesk
