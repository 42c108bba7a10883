#include "stored_records.h"

#include <QFile>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

using namespace Qt::StringLiterals;

StoredRecords::StoredRecords(const QString &dataFolder)
{
    copy(dataFolder);
    if (QFile::exists(folder.filePath(u"vesk.sqlite"_s)))
        read();
    QSqlDatabase::removeDatabase(folder.path());
}

StoredRecords::~StoredRecords() = default;

QJsonObject StoredRecords::lastTask() const
{
    const QList<QJsonObject> tasks = rows(u"tasks"_s);
    return tasks.isEmpty() ? QJsonObject() : tasks.last();
}

void StoredRecords::copy(const QString &dataFolder)
{
    for (const QString &name : {u"vesk.sqlite"_s, u"vesk.sqlite-wal"_s})
        QFile::copy(dataFolder + u'/' + name, folder.filePath(name));
}

void StoredRecords::read()
{
    QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, folder.path());
    database.setDatabaseName(folder.filePath(u"vesk.sqlite"_s));
    QSqlQuery query(database);
    if (!database.open() || !query.exec(u"PRAGMA integrity_check"_s) || !query.next()
        || query.value(0).toString() != "ok"_L1)
        trouble = u"database: "_s + query.lastError().text() + query.value(0).toString();

    const QStringList names = database.tables();
    for (const QString &name : names) {
        query.exec(u"SELECT id, body FROM "_s + name + u" ORDER BY rowid"_s);
        while (query.next()) {
            const QJsonDocument body = QJsonDocument::fromJson(query.value(1).toByteArray());
            if (!body.isObject())
                trouble = name + u' ' + query.value(0).toString() + u" is no JSON object"_s;
            tables[name].append(body.object());
        }
        if (query.lastError().isValid())
            trouble = name + u": "_s + query.lastError().text();
    }
}
