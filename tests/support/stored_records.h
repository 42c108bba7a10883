#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QTemporaryDir>

/// What a data folder holds, read from a copy and without the program's own code: looking at a database that a killed
/// process has left repairs it.
class StoredRecords {
public:
    explicit StoredRecords(const QString &dataFolder);
    ~StoredRecords();
    Q_DISABLE_COPY_MOVE(StoredRecords)

    /// Why the database, or a record in it, can't be read; empty when all is well.
    QString problem() const { return trouble; }
    /// In the order of their places; none for a table that isn't there yet.
    QList<QJsonObject> rows(const QString &table) const { return tables.value(table); }
    /// The last task; empty when there is none.
    QJsonObject lastTask() const;

private:
    void copy(const QString &dataFolder);
    void read();

    QTemporaryDir folder;
    QString trouble;
    QHash<QString, QList<QJsonObject>> tables;
};
