#pragma once

#include "export_files.h"
#include "workspace.h"

#include <QJsonArray>
#include <QObject>
#include <QThreadPool>

#include <memory>

namespace vesk {

/// Copies a project's files to a place outside, beside the interface: the bytes are read here, a few milliseconds at a
/// time, and written on a thread. Not more than two megabytes and a file wait for it. Main thread only.
class Exporting : public QObject {
    Q_OBJECT
public:
    explicit Exporting(const Workspace &workspace);
    ~Exporting() override;

    /// Begins with these records, of a snapshot or of now. Throws as FileExport does, and when it is at it already.
    void begin(const QJsonArray &records, const QString &target);
    bool isBusy() const { return copy != nullptr; }
    /// "Сохраняю: 12 из 300", empty when there is nothing to save.
    QString progress() const;

Q_SIGNALS:
    void changed();
    /// It has come to its end, well or not; the text is for people.
    void concluded(QString text);

private:
    void goOn();
    void end(const QString &text);

    const Workspace &workspace;
    QThreadPool pool;
    QJsonArray records;
    qsizetype next = 0;
    QString target;
    std::shared_ptr<FileExport> copy;
};

} // namespace vesk
