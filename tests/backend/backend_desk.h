#pragma once

#include "backend.h"
#include "sandbox.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QVariant>

#include <functional>
#include <memory>

class QJSEngine;

/// A backend on a temporary folder, used as the scenes use it: operations are called from a script, everything else is
/// read as a property. Home, data and projects lie in that folder; keys in the file beside the database.
class Desk {
public:
    /// With a project of this name, or none.
    explicit Desk(const QString &project = {});
    ~Desk();
    Q_DISABLE_COPY_MOVE(Desk)

    /// The backend anew, as after a restart.
    void reopen();
    QString data() const { return path(QStringLiteral("data")); }
    QString path(const QString &name) const { return folder.filePath(name); }

    /// Calls an operation from a script and gives what that gets back. What the script would not survive stands in
    /// `thrown` then.
    QVariant call(const QByteArray &operation, const QVariantList &arguments = {});
    /// The same for the value of an expression of the script as the last argument.
    QVariant callWith(const QByteArray &operation, const QVariantList &arguments, const QString &expression);
    /// A project of this name in the folder.
    void createProject(const QString &name = QStringLiteral("Проба"));
    void emptyQueue();
    /// The connection that a backend finds at its next start.
    void connectTo(const QString &url, const QString &key = {});
    /// What another program changes in the database.
    QVariant sql(const QString &statement) const;

    QVariant read(const char *property) const { return backend->property(property); }
    QString message() const { return read("message").toString(); }
    QString phase() const;
    bool busy() const { return read("chatBusy").toBool(); }
    /// "kind: content" of each line of the conversation, or of those of one kind just the contents.
    QStringList chat(const QString &kind = {}) const;
    /// All that the interface can read and that a restart must not change.
    QVariantMap lasting() const;
    bool waitForPhase(const QString &wanted) const
    {
        return waitFor([&] { return phase() == wanted; });
    }
    static bool waitFor(const std::function<bool()> &condition);

    QTemporaryDir folder{sandbox::memoryTemplate()};
    std::unique_ptr<vesk::Backend> backend;
    QString thrown;

private:
    std::unique_ptr<QJSEngine> script;
};
