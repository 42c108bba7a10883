#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk {

class Engine;
class Store;
class Workspace;

/// Which task is in view: the one that the engine runs, a stored one, or none, for a fresh conversation. Everything
/// that it is made of outlives it.
class TaskView {
public:
    TaskView(const Store &store, const Workspace &workspace, const Engine &engine);

    /// The view follows the run, whichever task that is.
    void followRun() { chosen.clear(); }
    void open(const QString &task) { chosen = task; }
    void beginAnew() { chosen = newTask; }

    /// Whether the document in view is the one that the engine holds, not a stored one.
    bool showsRun() const;
    /// The document of the task in view: a stored one, or, as long as it runs, the live one.
    QJsonObject selected() const;
    /// Its id, without making the document of a run.
    QString id() const;
    /// The owner key of the lines said in this view: the task's, or the project's own.
    QString conversationId() const;
    /// A text that differs between two views of different tasks.
    QString key() const;

private:
    static inline const QString newTask = QStringLiteral("new");

    const Store &store;
    const Workspace &workspace;
    const Engine &engine;
    QString chosen; ///< Empty: the run's. "new": none. Else a task.
};

} // namespace vesk
