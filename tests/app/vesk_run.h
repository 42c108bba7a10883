#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>

/// How the program ended and what it printed.
struct Ended {
    int code = -1; ///< -1 when it was killed or didn't end in time.
    QString out;
    QString err;

    /// The lines of standard output that are whole, as JSON; an empty object for one that is none.
    QList<QJsonObject> events() const;
};

/// Folders for runs of the real program, and the ways to start it.
class VeskRun {
public:
    static const QString calculator; ///< A request that makes two files.
    static const QString build; ///< A request that runs the build command.
    static QString program();

    QString path(const QString &name) const { return folder.filePath(name); }
    QString project() const { return path(QStringLiteral("project")); }
    QString data() const { return path(QStringLiteral("data")); }

    /// "--run" on these folders, with a model that answers at once unless `more` says otherwise.
    QStringList arguments(const QString &request, const QStringList &more = {}) const;
    /// A build command for the shell, as the two arguments of its option.
    static QStringList shell(const QString &script);

    /// Runs to the end. `prepare` may change the process before it starts.
    Ended run(const QStringList &arguments, const std::function<void(QProcess &)> &prepare = {},
              int timeoutMs = 30000) const;
    /// Starts without waiting. Signals reach the process whatever this one ignores.
    void start(QProcess &process, const QStringList &arguments) const;
    /// Waits in the event loop, so that a server of this process can answer.
    static Ended ended(QProcess &process, int timeoutMs = 30000);

    QTemporaryDir folder;
};
