#pragma once

#include <QCache>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <functional>
#include <unordered_map>

namespace vesk {

/// The one whitelist of table names; only names from it reach SQL text.
extern const QStringList tables;

/// JSON records in one SQLite file: 22 named tables, each record under an id and an owner key (docs/database.md).
///
/// Every failure throws std::runtime_error with a readable text. Main thread only; one connection per object.
/// Statements are prepared once per table. Two caches, bounded by the size of the bodies, spare the interface from
/// parsing the same rows again.
class Store {
public:
    /// Opens or makes the database. Throws "SQLite open failed: ..." or "SQLite: ..."; a file that is no database or
    /// can't be written to is left as it is.
    explicit Store(const QString &path);
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    /// Inserts the record, or replaces owner, body and time of the one with this id; the row keeps its place.
    /// Throws "Invalid table" for a name that isn't in `tables`, as all operations do.
    void put(const QString &table, const QString &id, const QString &task, const QJsonObject &body);

    /// The same for a record whose compact JSON the caller has already, as UTF-8.
    void putText(const QString &table, const QString &id, const QString &task, const QByteArray &body);

    /// The same for a task, whose document may be large: `head` holds what its outline shows, so that the text isn't
    /// parsed for it.
    void putTask(const QString &id, const QString &project, const QByteArray &body, const QJsonObject &head);

    /// The record, or an empty object when there is none or its text no longer parses.
    QJsonObject get(const QString &table, const QString &id) const;

    /// All records of the owner, or of the whole table for an empty `task`, by time of the last put, then place.
    QJsonArray list(const QString &table, const QString &task) const;

    /// A record with its place in the table. Places only grow; a record keeps its own.
    struct Row {
        qint64 place = 0;
        QJsonObject body;
    };
    /// The records of an owner behind a place, in order of place; with a limit, only the last so many of them. For
    /// tables to which records are only added, this gives what is new without reading the rest again.
    QList<Row> rowsAfter(const QString &table, const QString &task, qint64 place, int limit = -1) const;

    /// The tasks of a project (of all projects for an empty `project`) in the order of list(), each as
    /// {"id", "project_id", "phase", "archived", "spec": {"title", "original_request"}} with the request cut to 200
    /// characters. The documents, which may be large, are not read.
    QJsonArray taskOutlines(const QString &project) const;
    /// The checkpoints of a project likewise, but in the order in which they were taken, whatever the clock said; each
    /// as {"id", "project_id", "task_id", "time", "reason"}.
    QJsonArray checkpointOutlines(const QString &project) const;

    /// The revisions of a file (their "file_id") in order of their numbers, found without a look at those of others.
    QJsonArray fileRevisions(const QString &file) const;
    /// The one of this number, or an empty object.
    QJsonObject fileRevision(const QString &file, int revision) const;

    /// Raised by every put to the table, and by every failed transaction: equal numbers mean an unchanged table, as far
    /// as this object writes it.
    quint64 revision(const QString &table) const { return revisions.value(table); }

    /// Up to 200 records whose JSON text contains the query, ignoring case, as {"table", "record"}.
    QJsonArray search(const QString &query) const;

    /// Runs `work` in one transaction. If it throws, nothing of it stays and the exception goes on.
    void atomic(const std::function<void()> &work);

    /// The same for what has to be on the disk when this returns, also after a power cut.
    void atomicDurable(const std::function<void()> &work);

    /// Throws "SQLite: " and the driver's message if the query failed.
    void check(const QSqlQuery &query) const;

private:
    enum class Statement {
        Put,
        Get,
        ListAll,
        ListOwner,
        RowsAfter,
        LastRows,
        Outlines,
        OutlinesByPlace,
        PutOutline,
        PutRevision,
        FileRevisions,
        FileRevision
    };

    void open(const QString &path);
    void openOutlines(const QString &table);
    void addOutline(const QString &table, const QString &id);
    QJsonArray outlines(Statement order, const QString &table, const QString &project) const;
    void openRevisions();
    void putRevision(const QString &id, const QJsonObject &body);
    void execute(const QString &sql) const;
    QString write(Statement kind, const QString &table, const QString &id, const QString &task, const QByteArray &body,
                  const QString &time = {});
    static QString sqlOf(Statement kind);
    QSqlQuery &statement(Statement kind, const QString &table) const;
    void forgetLists(const QString &table);

    QString connection;
    QSqlDatabase database;
    mutable std::unordered_map<QString, QSqlQuery> prepared;
    mutable QCache<QString, QJsonObject> records;
    mutable QCache<QString, QJsonArray> lists;
    QHash<QString, quint64> revisions;
    mutable QHash<QString, QSet<QString>> listKeys; ///< Per table, the keys that `lists` may hold.
};

} // namespace vesk
