// JSON records in one SQLite file.

#include "store.h"

#include "helpers.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QScopeGuard>
#include <QSqlError>
#include <QVariant>

#include <algorithm>
#include <functional>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

const QStringList tables{
    u"projects"_s,       u"tasks"_s,       u"task_nodes"_s, u"messages"_s,    u"agents"_s,         u"agent_runs"_s,
    u"plans"_s,          u"reviews"_s,     u"structures"_s, u"files"_s,       u"file_revisions"_s, u"fix_requests"_s,
    u"events"_s,         u"permissions"_s, u"tool_calls"_s, u"checkpoints"_s, u"memory_entries"_s, u"decision_logs"_s,
    u"model_profiles"_s, u"mcp_servers"_s, u"settings"_s,   u"artifacts"_s,
};

namespace {

constexpr int cacheCost = 16384;
constexpr qsizetype searchLimit = 200;
constexpr qsizetype outlineRequestChars = 200;

/// Where the outlines of a table's records stand; empty for a table that has none.
QString outlinesOf(const QString &table)
{
    return table == "tasks"_L1 ? u"task_outlines"_s : table == "checkpoints"_L1 ? u"checkpoint_outlines"_s : QString();
}

/// What a list of tasks shows of one.
QJsonObject taskOutline(const QJsonObject &task)
{
    const QJsonValue spec = task["spec"_L1];
    return {{u"id"_s, task["id"_L1]},
            {u"project_id"_s, task["project_id"_L1]},
            {u"phase"_s, task["phase"_L1]},
            {u"archived"_s, task["archived"_L1].toBool()},
            {u"spec"_s,
             QJsonObject{{u"title"_s, spec["title"_L1]},
                         {u"original_request"_s, spec["original_request"_L1].toString().left(outlineRequestChars)}}}};
}

QJsonObject outlineOf(const QString &table, const QJsonObject &body)
{
    if (table == "tasks"_L1)
        return taskOutline(body);
    QJsonObject outline;
    for (const QString &key : {u"id"_s, u"project_id"_s, u"task_id"_s, u"time"_s, u"reason"_s}) {
        if (body.contains(key))
            outline[key] = body[key];
    }
    return outline;
}

/// What a record takes of a cache, in units of so many bytes. What is larger than the whole cache is not kept.
int costOf(qsizetype bytes, qsizetype unit)
{
    return int(std::clamp<qsizetype>(bytes / unit, 1, cacheCost + 1));
}

QString cacheKey(const QString &table, const QString &key)
{
    return table + u':' + key;
}

void requireTable(const QString &table)
{
    require(tables.contains(table), u"Invalid table"_s);
}

/// A null string would be bound as NULL, which equals nothing: an empty key is an empty text.
QString boundKey(const QString &key)
{
    return key.isNull() ? u""_s : key;
}

QJsonObject parsed(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object();
}

/// What was asked and made is nobody else's business. SQLite gives the files beside it the rights of this one.
void keepPrivate(const QString &path)
{
    constexpr auto owner = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly, owner))
        file.setPermissions(owner);
    for (const QString &beside : {u"-wal"_s, u"-shm"_s})
        QFile::setPermissions(path + beside, owner);
}

} // namespace

Store::Store(const QString &path)
    : connection(id())
    , records(cacheCost)
    , lists(cacheCost)
{
    try {
        open(path);
    } catch (...) {
        // The destructor doesn't run for an object that was never complete.
        database = {};
        QSqlDatabase::removeDatabase(connection);
        throw;
    }
}

Store::~Store()
{
    prepared.clear();
    database.close();
    database = {};
    QSqlDatabase::removeDatabase(connection);
}

void Store::open(const QString &path)
{
    database = QSqlDatabase::addDatabase(u"QSQLITE"_s, connection);
    database.setDatabaseName(path);
    // For a file that it may only read SQLite would leave two more beside it.
    const QFileInfo file(path);
    require(!file.exists() || file.isWritable(), u"SQLite open failed: attempt to write a readonly database"_s);
    keepPrivate(path);
    const bool opened = database.open();
    require(opened, u"SQLite open failed: "_s + database.lastError().text());

    execute(u"PRAGMA journal_mode=WAL"_s);
    execute(u"PRAGMA synchronous=NORMAL"_s);
    execute(u"PRAGMA busy_timeout=5000"_s);
    for (const QString &table : tables) {
        execute(u"CREATE TABLE IF NOT EXISTS "_s + table
                + u" (id TEXT PRIMARY KEY, task TEXT NOT NULL, body TEXT NOT NULL, updated TEXT NOT NULL)"_s);
        execute(u"CREATE INDEX IF NOT EXISTS idx_"_s + table + u"_task ON "_s + table + u"(task)"_s);
    }
    openOutlines(u"tasks"_s);
    openOutlines(u"checkpoints"_s);
    openRevisions();
    QSqlQuery(database).exec(u"PRAGMA user_version=1"_s);
    // SQLite opens a file that it may not write to for reading and says so only at the first write,
    // which would be in the middle of a run.
    execute(u"BEGIN IMMEDIATE"_s);
    execute(u"ROLLBACK"_s);
}

/// The outlines stand beside the records, since the document of a task or of a checkpoint may be megabytes long: an
/// index over expressions parsed each of them at every write. What another program, or a crash between the two writes,
/// has left behind is made up for here; the time of the last write tells.
void Store::openOutlines(const QString &table)
{
    const QString outlines = outlinesOf(table);
    execute(u"CREATE TABLE IF NOT EXISTS "_s + outlines
            + u" (id TEXT PRIMARY KEY, task TEXT NOT NULL, body TEXT NOT NULL, updated TEXT NOT NULL)"_s);
    // Without this index the comparison would walk through the pages of every document to the column behind it.
    execute(u"CREATE INDEX IF NOT EXISTS idx_%1_updated ON %1(updated,id)"_s.arg(table));
    QSqlQuery query(database);
    query.exec(u"SELECT t.id FROM %1 AS t LEFT JOIN %2 AS o ON o.id=t.id AND o.updated=t.updated WHERE o.id IS NULL "
               "ORDER BY t.rowid"_s.arg(table, outlines));
    check(query);
    QStringList missing;
    while (query.next())
        missing.append(query.value(0).toString());
    query.finish();
    for (const QString &id : std::as_const(missing))
        addOutline(table, id);
}

void Store::addOutline(const QString &table, const QString &id)
{
    QSqlQuery query(database);
    query.prepare(u"SELECT task,CAST(body AS BLOB),updated FROM %1 WHERE id=?"_s.arg(table));
    query.bindValue(0, id);
    query.exec();
    check(query);
    if (!query.next())
        return;
    const QString owner = query.value(0).toString();
    const QJsonObject body = parsed(query.value(1).toByteArray());
    const QString time = query.value(2).toString();
    query.finish();
    QJsonObject outline = outlineOf(table, body);
    outline["id"_L1] = id;
    write(Statement::PutOutline, outlinesOf(table), id, owner, jsonBytes(outline), time);
}

/// By file and number: those of one file are a handful among all that a project has had. What is missing is made up
/// for, as above.
void Store::openRevisions()
{
    execute(u"CREATE TABLE IF NOT EXISTS revision_keys (id TEXT PRIMARY KEY, task TEXT NOT NULL, body TEXT NOT NULL, "
            "updated TEXT NOT NULL)"_s);
    execute(u"CREATE INDEX IF NOT EXISTS idx_revision_keys_task ON revision_keys(task)"_s);
    execute(u"INSERT INTO revision_keys SELECT id,json_extract(body,'$.file_id'),"
            "CAST(json_extract(body,'$.revision') AS TEXT),updated FROM file_revisions WHERE id NOT IN (SELECT id FROM "
            "revision_keys) AND json_valid(body) AND json_extract(body,'$.file_id') IS NOT NULL AND "
            "json_extract(body,'$.revision') IS NOT NULL"_s);
}

void Store::execute(const QString &sql) const
{
    QSqlQuery query(database);
    query.exec(sql);
    check(query);
}

QString Store::sqlOf(Statement kind)
{
    switch (kind) {
    case Statement::Put:
        // The body is bound as UTF-8 bytes and cast, which changes nothing in them: bound as text, every record would
        // be converted to UTF-16 and back on its way.
        return u"INSERT INTO %1(id,task,body,updated) VALUES(?,?,CAST(? AS TEXT),?) ON CONFLICT(id) DO UPDATE SET "
               "task=excluded.task,body=excluded.body,updated=excluded.updated"_s;
    case Statement::PutOutline:
        return sqlOf(Statement::Put);
    case Statement::PutRevision:
        return u"INSERT OR REPLACE INTO revision_keys(id,task,body,updated) VALUES(?,?,?,?)"_s;
    case Statement::Get:
        return u"SELECT CAST(body AS BLOB) FROM %1 WHERE id=?"_s;
    case Statement::ListAll:
        return u"SELECT CAST(body AS BLOB) FROM %1 ORDER BY updated,rowid"_s;
    case Statement::ListOwner:
        return u"SELECT CAST(body AS BLOB) FROM %1 WHERE task=? ORDER BY updated,rowid"_s;
    case Statement::RowsAfter:
        return u"SELECT rowid,CAST(body AS BLOB) FROM %1 WHERE task=? AND rowid>? ORDER BY rowid"_s;
    case Statement::LastRows:
        return u"SELECT rowid,CAST(body AS BLOB) FROM %1 WHERE task=? AND rowid>? ORDER BY rowid DESC LIMIT ?"_s;
    case Statement::Outlines:
        return u"SELECT CAST(body AS BLOB) FROM %1 WHERE task=? OR ?='' ORDER BY updated,rowid"_s;
    case Statement::OutlinesByPlace:
        return u"SELECT CAST(body AS BLOB) FROM %1 WHERE task=? OR ?='' ORDER BY rowid"_s;
    case Statement::FileRevisions:
        return u"SELECT CAST(r.body AS BLOB) FROM revision_keys AS k JOIN file_revisions AS r ON r.id=k.id "
               "WHERE k.task=? ORDER BY CAST(k.body AS INTEGER)"_s;
    case Statement::FileRevision:
        return u"SELECT CAST(r.body AS BLOB) FROM revision_keys AS k JOIN file_revisions AS r ON r.id=k.id "
               "WHERE k.task=? AND k.body=? LIMIT 1"_s;
    }
    return {};
}

QSqlQuery &Store::statement(Statement kind, const QString &table) const
{
    const QString key = QString::number(int(kind)) + table;
    const auto known = prepared.find(key);
    if (known != prepared.end())
        return known->second;

    QSqlQuery query(database);
    query.setForwardOnly(true);
    query.prepare(sqlOf(kind).replace(u"%1"_s, table));
    check(query);
    return prepared.emplace(key, std::move(query)).first->second;
}

void Store::put(const QString &table, const QString &id, const QString &task, const QJsonObject &body)
{
    requireTable(table);
    const QByteArray text = jsonBytes(body);
    const QString time = write(Statement::Put, table, id, task, text);
    if (const QString outlines = outlinesOf(table); !outlines.isEmpty())
        write(Statement::PutOutline, outlines, id, task, jsonBytes(outlineOf(table, body)), time);
    if (table == "file_revisions"_L1)
        putRevision(id, body);
    records.insert(cacheKey(table, id), new QJsonObject(body), costOf(text.size(), 512));
}

void Store::putText(const QString &table, const QString &id, const QString &task, const QByteArray &body)
{
    requireTable(table);
    const QString time = write(Statement::Put, table, id, task, body);
    if (const QString outlines = outlinesOf(table); !outlines.isEmpty())
        write(Statement::PutOutline, outlines, id, task, jsonBytes(outlineOf(table, parsed(body))), time);
    if (table == "file_revisions"_L1)
        putRevision(id, parsed(body));
}

void Store::putTask(const QString &id, const QString &project, const QByteArray &body, const QJsonObject &head)
{
    const QString time = write(Statement::Put, u"tasks"_s, id, project, body);
    write(Statement::PutOutline, outlinesOf(u"tasks"_s), id, project, jsonBytes(taskOutline(head)), time);
}

void Store::putRevision(const QString &id, const QJsonObject &body)
{
    const QString file = body["file_id"_L1].toString();
    if (file.isEmpty())
        return;
    QSqlQuery &query = statement(Statement::PutRevision, u"revision_keys"_s);
    query.bindValue(0, boundKey(id));
    query.bindValue(1, file);
    query.bindValue(2, QString::number(body["revision"_L1].toInt()));
    query.bindValue(3, now());
    query.exec();
    query.finish();
    check(query);
}

/// Executes one of the two writing statements; gives the time that the row bears.
QString Store::write(Statement kind, const QString &table, const QString &id, const QString &task,
                     const QByteArray &body, const QString &time)
{
    const QString updated = time.isEmpty() ? now() : time;
    QSqlQuery &query = statement(kind, table);
    query.bindValue(0, boundKey(id));
    query.bindValue(1, boundKey(task));
    query.bindValue(2, body);
    query.bindValue(3, updated);
    query.exec();
    query.finish();
    check(query);
    if (kind == Statement::Put) {
        ++revisions[table];
        records.remove(cacheKey(table, id));
        forgetLists(table);
    }
    return updated;
}

/// All cached lists of a table go at once, since a changed owner could affect any of them.
void Store::forgetLists(const QString &table)
{
    const QSet<QString> keys = listKeys.take(table);
    for (const QString &key : keys)
        lists.remove(key);
}

QJsonObject Store::get(const QString &table, const QString &id) const
{
    requireTable(table);
    const QString key = cacheKey(table, id);
    if (const QJsonObject *hit = records.object(key))
        return *hit;

    QSqlQuery &query = statement(Statement::Get, table);
    query.bindValue(0, boundKey(id));
    query.exec();
    check(query);
    if (!query.next()) {
        query.finish();
        return {};
    }
    const QByteArray body = query.value(0).toByteArray();
    query.finish();

    const QJsonObject record = parsed(body);
    records.insert(key, new QJsonObject(record), costOf(body.size(), 1024));
    return record;
}

QJsonArray Store::list(const QString &table, const QString &task) const
{
    requireTable(table);
    const QString key = cacheKey(table, task);
    if (const QJsonArray *hit = lists.object(key))
        return *hit;

    QSqlQuery &query = statement(task.isEmpty() ? Statement::ListAll : Statement::ListOwner, table);
    if (!task.isEmpty())
        query.bindValue(0, task);
    query.exec();
    check(query);

    QJsonArray array;
    qsizetype bytes = 0;
    while (query.next()) {
        const QByteArray body = query.value(0).toByteArray();
        bytes += body.size();
        array.append(parsed(body));
    }
    check(query); // A page that can't be read ends the rows early.
    query.finish();

    lists.insert(key, new QJsonArray(array), costOf(bytes, 1024));
    listKeys[table].insert(key);
    return array;
}

QList<Store::Row> Store::rowsAfter(const QString &table, const QString &task, qint64 place, int limit) const
{
    requireTable(table);
    QSqlQuery &query = statement(limit < 0 ? Statement::RowsAfter : Statement::LastRows, table);
    query.bindValue(0, boundKey(task));
    query.bindValue(1, place);
    if (limit >= 0)
        query.bindValue(2, limit);
    query.exec();
    check(query);
    QList<Row> rows;
    while (query.next())
        rows.append({query.value(0).toLongLong(), parsed(query.value(1).toByteArray())});
    check(query);
    query.finish();
    if (limit >= 0)
        std::ranges::reverse(rows);
    return rows;
}

QJsonArray Store::fileRevisions(const QString &file) const
{
    QSqlQuery &query = statement(Statement::FileRevisions, u"revision_keys"_s);
    query.bindValue(0, boundKey(file));
    query.exec();
    check(query);
    QJsonArray revisions;
    while (query.next())
        revisions.append(parsed(query.value(0).toByteArray()));
    check(query);
    query.finish();
    return revisions;
}

QJsonObject Store::fileRevision(const QString &file, int revision) const
{
    QSqlQuery &query = statement(Statement::FileRevision, u"revision_keys"_s);
    query.bindValue(0, boundKey(file));
    query.bindValue(1, QString::number(revision));
    query.exec();
    check(query);
    const QJsonObject found = query.next() ? parsed(query.value(0).toByteArray()) : QJsonObject();
    query.finish();
    return found;
}

QJsonArray Store::taskOutlines(const QString &project) const
{
    return outlines(Statement::Outlines, u"tasks"_s, project);
}

QJsonArray Store::checkpointOutlines(const QString &project) const
{
    return project.isEmpty() ? QJsonArray() : outlines(Statement::OutlinesByPlace, u"checkpoints"_s, project);
}

QJsonArray Store::outlines(Statement order, const QString &table, const QString &project) const
{
    QSqlQuery &query = statement(order, outlinesOf(table));
    query.bindValue(0, boundKey(project));
    query.bindValue(1, boundKey(project));
    query.exec();
    check(query);
    QJsonArray all;
    while (query.next())
        all.append(parsed(query.value(0).toByteArray()));
    check(query);
    query.finish();
    return all;
}

QJsonArray Store::search(const QString &query) const
{
    QJsonArray found;
    if (query.trimmed().isEmpty())
        return found;

    for (const QString &table : tables) {
        if (table == "settings"_L1 || table == "model_profiles"_L1)
            continue;
        const QJsonArray rows = list(table, {});
        for (const QJsonValue &row : rows) {
            const QJsonObject record = row.toObject();
            if (!json(record).contains(query, Qt::CaseInsensitive))
                continue;
            found.append(QJsonObject{{u"table"_s, table}, {u"record"_s, record}});
            if (found.size() == searchLimit)
                return found;
        }
    }
    return found;
}

void Store::atomic(const std::function<void()> &work)
{
    require(database.transaction(), u"Cannot start transaction"_s);
    try {
        work();
        require(database.commit(), u"Commit failed"_s);
    } catch (...) {
        database.rollback();
        // put() fills the caches before the commit.
        records.clear();
        lists.clear();
        listKeys.clear();
        for (quint64 &revision : revisions)
            ++revision;
        throw;
    }
}

void Store::atomicDurable(const std::function<void()> &work)
{
    // One flush of the log a transaction, which is not worth its time for what can be made again.
    execute(u"PRAGMA synchronous=FULL"_s);
    const auto back = qScopeGuard([this] { QSqlQuery(database).exec(u"PRAGMA synchronous=NORMAL"_s); });
    atomic(work);
}

void Store::check(const QSqlQuery &query) const
{
    const QSqlError error = query.lastError();
    require(!error.isValid(), u"SQLite: "_s + error.text());
}

} // namespace vesk
