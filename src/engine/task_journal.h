#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk {

class Engine;
class Store;
class Workspace;

/// What a task leaves behind, with or without a window: its events, what it has told the user, the files that its tools
/// have made, a note for later tasks, and its report. By these the application shows it.
///
/// Throws what the store throws. Everything it is made of outlives it.
class TaskJournal {
public:
    TaskJournal(Store &store, const Workspace &workspace, const Engine &engine);

    /// Stores the event, and then what follows from it. Gives the line that the user was told; empty for most events.
    QString record(const QJsonObject &event);

    /// The last note, and the report, of a task that has ended in this state.
    void close(const QJsonObject &state);

    /// A line of a conversation: {"id", "role", "content", "kind", "time"}. An empty one isn't stored.
    void addMessage(const QString &conversation, const QString &role, const QString &content, const QString &kind);

private:
    void saveWorkNote(const QJsonObject &state);
    void keepToolOutput(const QString &task, const QString &printed);
    bool isOwnPreview(const QString &path) const;
    QString projectPath(const QString &named) const;

    Store &store;
    const Workspace &workspace;
    const Engine &engine;
};

} // namespace vesk
