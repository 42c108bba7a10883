#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QStringList>

#include <utility>

class QProcess;

namespace vesk {

class Store;
class Workspace;

/// The files that wait to go with the next message. Each is copied into the project by a worker process, so that
/// whatever is wrong with it, this process never opens it; then it is a medium of the project for good.
class Attachments : public QObject {
    Q_OBJECT
public:
    Attachments(Store &store, const Workspace &workspace);

    /// Import results with "type", "time", "status" and, when there is a preview, its "url".
    const QJsonArray &items() const { return waiting; }
    bool isEmpty() const { return waiting.isEmpty(); }
    bool isImporting() const { return !imports.isEmpty(); }

    /// The local files that these URLs and absolute paths name. Throws what is wrong with one, or "До 8 вложений в
    /// одном сообщении" when there is no room for all.
    QStringList vetted(const QStringList &addresses) const;
    /// Imports vetted files into the open project. `ffmpeg` is the program that reads videos.
    void attach(const QStringList &files, const QString &ffmpeg);
    /// Takes one off the message; the file stays in the project.
    void remove(const QString &id);
    void clear();
    /// Hands over what waits, and takes it back.
    QJsonArray putAside() { return std::exchange(waiting, {}); }
    void putBack(const QJsonArray &aside) { waiting = aside; }
    /// Ends the imports under way; nothing of them stays.
    void stop();

    /// Notes what a medium of the project is for; at most 120 characters are kept, and blanks take the note back.
    /// Throws "Ресурс не найден в проекте".
    void pinAsset(const QString &path, const QString &usage);

Q_SIGNALS:
    void changed();
    /// An import has failed; the others go on.
    void failed(const QString &text);

private:
    void importFile(const QString &file, const QString &ffmpeg);
    void takeImport(QProcess *worker, const QString &project, int exitCode);
    void keepImport(const QString &project, QJsonObject medium);
    static void dropCopy(const QString &folder);

    Store &store;
    const Workspace &workspace;
    QJsonArray waiting;
    QHash<QProcess *, QString> imports; ///< Each with the folder that its copy goes to.
};

} // namespace vesk
