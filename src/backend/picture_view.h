#pragma once

#include <QObject>
#include <QString>

class QProcess;

namespace vesk {

/// A picture of the project to look at, decoded and made small by a process of its own. Main thread only.
class PictureView : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    ~PictureView() override;

    /// Whether a file is a picture by its name.
    static bool isPicture(const QString &path);
    /// Begins to show a file of the project folder; an empty path shows nothing.
    void show(const QString &root, const QString &path);
    /// A "data:" address, empty until there is something to show.
    const QString &source() const { return address; }

Q_SIGNALS:
    void changed();

private:
    void stop();
    void take(bool success);

    QProcess *worker = nullptr;
    QString address;
};

} // namespace vesk
