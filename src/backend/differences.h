#pragma once

#include "difference_model.h"
#include "workspace.h"

#include <QObject>
#include <QThreadPool>
#include <QVariant>

#include <atomic>

namespace vesk {

/// What is compared in the window: some files in two states each, and the lines of one of them. Comparing goes on
/// beside the interface, one file after the other. Main thread only.
class Differences : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString title READ title NOTIFY changed)
    Q_PROPERTY(QVariantList files READ files NOTIFY changed)
    Q_PROPERTY(QString path READ path NOTIFY changed)
    Q_PROPERTY(QString note READ note NOTIFY changed)
    Q_PROPERTY(int older READ older NOTIFY changed)
    Q_PROPERTY(int newer READ newer NOTIFY changed)
    Q_PROPERTY(bool busy READ isBusy NOTIFY changed)
    Q_PROPERTY(bool dark READ isDark WRITE setDark NOTIFY changed)
    Q_PROPERTY(bool beside READ isBeside WRITE setBeside NOTIFY changed)
    Q_PROPERTY(vesk::DifferenceModel *lines READ lines CONSTANT)
public:
    explicit Differences(const Workspace &workspace);
    ~Differences() override;

    /// Begins to compare; the first file is shown once it is compared.
    void show(const QString &title, const QList<FileChange> &changes);
    /// The same for two revisions of a file, 0 for none.
    void showRevisions(const QString &path, int older, int newer);
    /// The same for a file as it is recorded and as the user has left it on disk.
    void showEdit(const HandEdit &edit);
    void clear();

    Q_INVOKABLE void select(const QString &path);

    QString title() const { return heading; }
    /// Each as {"path", "change": "изменён" | "добавлен" | "удалён", "added", "removed", "known"}; the counts are
    /// true once "known" is.
    QVariantList files() const;
    QString path() const { return selected; }
    /// What stands in place of lines: that a file is no text, can't be read, or is the same.
    QString note() const;
    /// The revisions in view; 0 and 0 when it is no revisions that are compared.
    int older() const { return olderRevision; }
    int newer() const { return newerRevision; }
    bool isBusy() const { return comparing; }
    bool isBeside() const { return beside; }
    void setBeside(bool side);
    /// Whether code is shown on a dark ground: its colours go by that.
    bool isDark() const { return dark; }
    void setDark(bool ground);
    DifferenceModel *lines() { return &model; }
    /// Lines that go and come in all files; complete once nothing is being compared.
    LineCounts total() const;

Q_SIGNALS:
    void changed();

private:
    struct File {
        FileChange change;
        bool fromDisk = false; ///< `after` is what stands on disk.
        std::shared_ptr<const ComparedFile> compared;
        std::shared_ptr<const FileColours> colours;
        QString fault;
    };

    void begin(const QString &title, const QList<File> &all);
    void compareNext();
    void take(qsizetype at, const std::shared_ptr<const ComparedFile> &compared);
    const File *shownFile() const;
    void showLines();
    void colour();

    const Workspace &workspace;
    QThreadPool pool; ///< For comparing, which nobody waits with colours for.
    QThreadPool colourPool;
    QList<File> compareds;
    QString heading;
    QString selected;
    DifferenceModel model;
    int olderRevision = 0;
    int newerRevision = 0;
    std::shared_ptr<std::atomic_bool> stale; ///< Tells a thread at work that its colours are wanted no more.
    bool beside = true;
    bool dark = true;
    bool comparing = false;
    quint32 generation = 0;
};

} // namespace vesk
