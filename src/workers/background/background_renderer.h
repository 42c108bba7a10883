#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>

namespace vesk {

/// Draws what the user's background script describes. No script is run yet: every request is answered by an error text
/// as long as there is a script, and by an empty frame without one.
class BackgroundRenderer : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// Asks for a frame of `code` at `time` seconds for a window of this size in pixels.
    void render(const QString &code, double time, int width, int height);

    const QVariantList &frame() const { return shapes; }
    const QString &error() const { return problem; }

Q_SIGNALS:
    /// Frame or error may have changed.
    void changed();

private:
    QVariantList shapes;
    QString problem;
};

} // namespace vesk
