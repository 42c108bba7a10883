#include "error_of.h"
#include "files.h"
#include "json_text.h"
#include "store.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonObject numbered(int number)
{
    return {{u"n"_s, number}};
}

QList<int> numbers(const QJsonArray &array)
{
    QList<int> list;
    for (const QJsonValue &value : array)
        list.append(value["n"_L1].toInt());
    return list;
}

} // namespace

class StoreTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void theRevisionsOfAFileAreFoundByTheirNumbers()
    {
        const QTemporaryDir folder;
        const QString file = folder.filePath(u"x.sqlite"_s);
        const auto revision = [](const QString &path, int number) {
            return QJsonObject{{u"file_id"_s, path}, {u"revision"_s, number}, {u"n"_s, number}};
        };
        const auto verify = [](const Store &store) {
            QCOMPARE(numbers(store.fileRevisions(u"p:a"_s)), (QList<int>{1, 2, 3}));
            QCOMPARE(store.fileRevision(u"p:a"_s, 2)["n"_L1].toInt(), 2);
            QVERIFY(store.fileRevision(u"p:a"_s, 4).isEmpty());
        };
        {
            Store store(file);
            for (const int number : {2, 1, 3})
                store.put(u"file_revisions"_s, u"a%1"_s.arg(number), u"p"_s, revision(u"p:a"_s, number));
            store.put(u"file_revisions"_s, u"b4"_s, u"p"_s, revision(u"p:b"_s, 4));
            verify(store);
        }
        {
            // An older version knows nothing of the keys; what can't be read is in nobody's way.
            QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"older"_s);
            database.setDatabaseName(file);
            QVERIFY(database.open());
            QSqlQuery query(database);
            QVERIFY(query.exec(u"DROP TABLE revision_keys"_s));
            QVERIFY(query.exec(u"INSERT INTO file_revisions VALUES('odd','p','{no','')"_s));
        }
        QSqlDatabase::removeDatabase(u"older"_s);
        verify(Store(file));
    }

    void theDatabaseIsItsUsersAlone()
    {
        const QTemporaryDir folder;
        const QString file = folder.filePath(u"x.sqlite"_s);
        constexpr auto owner = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser;
        for (int round = 0; round < 2; ++round) {
            Store store(file);
            store.put(u"tasks"_s, u"t"_s, u"p"_s, {});
            for (const QString &name : {file, file + u"-wal"_s, file + u"-shm"_s})
                QCOMPARE(QFile::permissions(name), owner);
            QFile::setPermissions(file, owner | QFile::ReadOther); // as an older version has left it
        }
    }

    void aRecordComesBackAsItWasPut()
    {
        const QJsonObject body{{u"текст"_s, u"\"quoted\"\n\x01 и 🙂"_s},
                               {u"deep"_s, QJsonObject{{u"a"_s, QJsonArray{1, 2.5}}}}};
        {
            Store store(file());
            QCOMPARE(store.get(u"tasks"_s, u"none"_s), QJsonObject());
            store.put(u"tasks"_s, u"1"_s, u"p"_s, body);
            QCOMPARE(store.get(u"tasks"_s, u"1"_s), body);
        }
        Store again(file());
        QCOMPARE(again.get(u"tasks"_s, u"1"_s), body);
        again.putText(u"tasks"_s, u"1"_s, u"p"_s, "{\"n\":7}");
        QCOMPARE(again.get(u"tasks"_s, u"1"_s), numbered(7));
        // A null string is an id like the empty one.
        again.putText(u"plans"_s, {}, {}, "{\"n\":1}");
        again.putText(u"plans"_s, u""_s, {}, "{\"n\":2}");
        QCOMPARE(again.get(u"plans"_s, {}), numbered(2));
    }

    void listsFollowTheTimeOfTheLastPut()
    {
        Store store(folder.filePath(u"order.sqlite"_s));
        const auto listed = [&](const QString &owner) { return numbers(store.list(u"messages"_s, owner)); };
        for (int i = 1; i <= 3; ++i)
            store.put(u"messages"_s, QString::number(i), i == 2 ? u"other"_s : u"mine"_s, numbered(i));
        QCOMPARE(listed({}), (QList<int>{1, 2, 3}));
        // The time of a put has milliseconds; two within one are ordered by place.
        const QString before = now();
        QTRY_VERIFY(now() != before);
        store.put(u"messages"_s, u"1"_s, u"mine"_s, numbered(1));
        QCOMPARE(listed({}), (QList<int>{2, 3, 1}));
        QCOMPARE(listed(u"mine"_s), (QList<int>{3, 1}));
        store.put(u"messages"_s, u"1"_s, u"other"_s, numbered(1));
        QCOMPARE(listed(u"mine"_s), (QList<int>{3}));
    }

    void anUnknownTableIsRefused()
    {
        Store store(folder.filePath(u"whitelist.sqlite"_s));
        const QString bad = u"tasks; DROP TABLE tasks"_s;
        for (const std::function<void()> &work : {std::function<void()>([&] { store.put(bad, u"1"_s, {}, {}); }),
                                                  {[&] { store.get(bad, u"1"_s); }},
                                                  {[&] { store.list(bad, {}); }}})
            QCOMPARE(errorOf(work), u"Invalid table"_s);
    }

    void aFailedTransactionLeavesNothing()
    {
        Store store(folder.filePath(u"atomic.sqlite"_s));
        store.put(u"tasks"_s, u"1"_s, u"p"_s, numbered(1));
        const QString error = errorOf([&] {
            store.atomic([&] {
                store.put(u"tasks"_s, u"1"_s, u"p"_s, numbered(2));
                store.put(u"tasks"_s, u"2"_s, u"p"_s, numbered(3));
                QCOMPARE(numbers(store.list(u"tasks"_s, u"p"_s)), (QList<int>{2, 3}));
                require(false, u"stop"_s);
            });
        });
        QCOMPARE(error, u"stop"_s);
        QCOMPARE(store.get(u"tasks"_s, u"1"_s), numbered(1));
        QCOMPARE(store.get(u"tasks"_s, u"2"_s), QJsonObject());
        QCOMPARE(numbers(store.list(u"tasks"_s, u"p"_s)), (QList<int>{1}));
        store.atomic([&] { store.put(u"tasks"_s, u"2"_s, u"p"_s, numbered(4)); });
        QCOMPARE(store.list(u"tasks"_s, u"p"_s).size(), 2);
    }

    void searchStopsAtTwoHundredHits()
    {
        Store store(folder.filePath(u"search.sqlite"_s));
        store.atomic([&] {
            for (int i = 0; i < 150; ++i) {
                store.put(u"events"_s, u"e%1"_s.arg(i), u"t"_s, {{u"text"_s, u"Калькулятор"_s}});
                store.put(u"messages"_s, u"m%1"_s.arg(i), u"t"_s, {{u"калькулятор"_s, true}});
            }
            store.put(u"settings"_s, u"s"_s, {}, {{u"text"_s, u"калькулятор"_s}});
        });
        QCOMPARE(store.search(u"  "_s).size(), 0);
        const QJsonArray hits = store.search(u"КАЛЬКУЛЯТОР"_s);
        QCOMPARE(hits.size(), 200);
        QCOMPARE(hits[149]["table"_L1].toString(), u"messages"_s);
        QCOMPARE(hits[150]["table"_L1].toString(), u"events"_s);
    }

    void aBodyThatNoLongerParsesReadsAsEmpty()
    {
        const QString path = folder.filePath(u"broken.sqlite"_s);
        Store store(path);
        store.putText(u"tasks"_s, u"1"_s, u"p"_s, "{\"half\":");
        QCOMPARE(store.get(u"tasks"_s, u"1"_s), QJsonObject());
        QCOMPARE(store.list(u"tasks"_s, u"p"_s), (QJsonArray{QJsonObject()}));
    }

    void outlinesFollowTheTasks()
    {
        const QString path = folder.filePath(u"outlines.sqlite"_s);
        const QString keys = u"0.id 0.phase 1"_s;
        {
            Store store(path);
            store.putText(u"tasks"_s, u"1"_s, u"p"_s,
                          "{\"id\":\"1\",\"phase\":\"PLANNING\",\"spec\":{\"original_request\":\""
                              + QByteArray(300, 'x') + "\"}}");
            QCOMPARE(fields(store.taskOutlines(u"p"_s), keys), u"1 PLANNING "_s);
            QCOMPARE(fields(store.taskOutlines({}), u"0.spec.original_request"_s), QString(200, u'x'));
            store.putText(u"tasks"_s, u"1"_s, u"p"_s, "{\"id\":\"1\",\"phase\":\"FAILED\"}");
            QCOMPARE(fields(store.taskOutlines(u"p"_s), keys), u"1 FAILED "_s);
        }
        {
            // Written by somebody who knows nothing of outlines.
            QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
            other.setDatabaseName(path);
            QVERIFY(other.open());
            QVERIFY(QSqlQuery(other).exec(
                u"UPDATE tasks SET body='{\"phase\":\"COMPLETED\"}',updated='2099' WHERE id='1'"_s));
            other.close();
        }
        QSqlDatabase::removeDatabase(u"other"_s);
        QCOMPARE(fields(Store(path).taskOutlines(u"p"_s), keys), u"1 COMPLETED "_s);
    }

    void newRowsAreReadWithoutTheOld()
    {
        Store store(folder.filePath(u"rows.sqlite"_s));
        for (int i = 1; i <= 5; ++i)
            store.put(u"events"_s, QString::number(i), i == 3 ? u"other"_s : u"t"_s, numbered(i));
        const QList<Store::Row> last = store.rowsAfter(u"events"_s, u"t"_s, 0, 2);
        QCOMPARE(last.size(), 2);
        QCOMPARE(last[0].body, numbered(4));
        QVERIFY(store.rowsAfter(u"events"_s, u"t"_s, last[1].place).isEmpty());
        const quint64 before = store.revision(u"events"_s);
        store.put(u"events"_s, u"6"_s, u"t"_s, numbered(6));
        QVERIFY(store.revision(u"events"_s) != before);
        QCOMPARE(store.rowsAfter(u"events"_s, u"t"_s, last[1].place).value(0).body, numbered(6));
    }

    void whatIsNoDatabaseIsRefusedAndLeftAlone()
    {
        const QString path = folder.filePath(u"letter.sqlite"_s);
        const QByteArray letter = QByteArray("Dear reader, this is no database. ").repeated(100);
        save(path, letter);

        const QString error = errorOf([&] { Store store(path); });
        QVERIFY2(error.startsWith("SQLite: "_L1), qPrintable(error));
        QCOMPARE(contentOf(path), letter);

        QVERIFY(errorOf([&] {
                    Store store(folder.filePath(u"no/such/folder/x"_s));
                }).startsWith("SQLite open failed: "_L1));
        QVERIFY(QSqlDatabase::connectionNames().isEmpty());
    }

private:
    QString file() const { return folder.filePath(u"vesk.sqlite"_s); }
    QTemporaryDir folder;
};

QTEST_GUILESS_MAIN(StoreTest)
#include "tst_store.moc"
