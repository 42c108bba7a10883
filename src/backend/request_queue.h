#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <functional>

namespace vesk {

class Store;

/// What a task is started with.
struct StartRequest {
    QString request;
    bool preview = false; ///< Stop before anything is executed.
    int budget = 0; ///< Tokens.
    QString program; ///< Build command; may be empty.
    QString arguments; ///< Its arguments, a JSON array as text.
};

/// The requests of one project that wait for the task before them: at most 50, first in, first out, on disk with every
/// change ("settings", row "queue:" + project: {"items", "paused"}).
///
/// A change that can't be stored is none: the operation throws, and the queue is as it was.
class RequestQueue {
public:
    explicit RequestQueue(Store &store);

    /// Items as they are stored: {"id", "request", "preview", "budget", "program", "arguments", "created_at"}.
    const QJsonArray &items() const { return waiting; }
    bool isEmpty() const { return waiting.isEmpty(); }
    bool isPaused() const { return paused; }

    /// What waits in a project. Throws without a change when it can't be read.
    QJsonArray stored(const QString &project) const;
    /// Turns to a project. What was found waiting never starts by itself.
    void open(const QString &project, const QJsonArray &found);

    /// The new length. Throws "В очереди уже 50 задач.".
    qsizetype add(const StartRequest &request);
    /// An unknown id does nothing.
    void remove(const QString &id);
    void clear();
    /// What was taken out last, until the project is changed.
    const QJsonArray &removed() const { return takenOut; }
    /// Brings that back to its place. Throws when there is no room for it any more.
    void undo();
    /// Keeps the queue from going on, also when that can't be stored.
    void pause();
    void resume();

    /// Hands the first item over and takes it out of the queue. When that throws, the item stays the first, the queue
    /// is paused, and the exception goes on. On disk the item waits until it has been taken, so that a crash meanwhile
    /// loses nothing.
    void take(const std::function<void(const StartRequest &)> &start);

    /// Nothing is stored without a project.
    void saveQueue() const;

private:
    void change(const QJsonArray &next);

    Store &store;
    QString project;
    QJsonArray waiting;
    QJsonArray takenOut;
    qsizetype takenFrom = 0; ///< Where in the queue that stood.
    bool paused = false;
};

} // namespace vesk
