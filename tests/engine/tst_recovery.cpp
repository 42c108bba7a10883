#include "core.h"
#include "json_text.h"
#include "recovery.h"
#include "store.h"

#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonObject run(const QString &id, const QString &status)
{
    return {{u"id"_s, id}, {u"status"_s, status}};
}

QJsonObject task(const QString &phase, const QJsonArray &runs = {})
{
    QJsonObject task
        = object(u"{'id':'t','project_id':'p','error':'','pending':[{'id':'approval'}],'decision':{'question':'?'}}"_s);
    task[u"phase"_s] = phase;
    task[u"runs"_s] = runs;
    return task;
}

} // namespace

class RecoveryTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aTaskIsInterruptedUnlessItHasEnded()
    {
        QJsonObject expected = task(u"INTERRUPTED"_s);
        expected["pending"_L1] = QJsonArray();
        expected["error"_L1]
            = u"Предыдущий сеанс был прерван. История сохранена; незавершённую задачу нужно запустить заново."_s;
        const QStringList ends{u"COMPLETED"_s, u"FAILED"_s, u"CANCELLED"_s, u"INTERRUPTED"_s};
        for (const QString &phase :
             QStringList{u"INTAKE"_s, u"CLARIFICATION"_s, u"PREVIEW"_s, u"VALIDATION"_s} + ends) {
            Store store(newFile());
            const QJsonObject before = task(phase);
            store.put(u"tasks"_s, u"t"_s, u"p"_s, before);
            recoverInterruptedTasks(store);
            QCOMPARE(store.get(u"tasks"_s, u"t"_s), ends.contains(phase) ? before : expected);
        }
    }

    void runsThatHaveNotEndedAreInterruptedInBothPlaces()
    {
        Store store(newFile());
        QJsonArray runs;
        QJsonArray expected;
        for (const QString &status : {u"WAITING"_s, u"USING_TOOL"_s, u"COMPLETED"_s, u"ERROR"_s, u"CANCELLED"_s}) {
            runs.append(run(status, status));
            if (status != "WAITING"_L1) // was never stored
                store.put(u"agent_runs"_s, status, u"t"_s, run(status, status));
            expected.append(run(status, expected.size() < 2 ? u"INTERRUPTED"_s : status));
        }
        store.put(u"tasks"_s, u"t"_s, u"p"_s, task(u"PLANNING"_s, runs));
        recoverInterruptedTasks(store);
        QCOMPARE(store.get(u"tasks"_s, u"t"_s)["runs"_L1].toArray(), expected);
        for (const QJsonValue &entry : std::as_const(expected))
            QCOMPARE(store.get(u"agent_runs"_s, entry["id"_L1].toString()), entry.toObject());
    }

    void aRunThatIsNewerThanTheDocumentKeepsWhatItHas()
    {
        Store store(newFile());
        const QJsonObject finished = object(u"{'id':'known','status':'COMPLETED','context':{'much':true},"
                                            "'output':{'summary':'готово','files':[1]}}"_s);
        QJsonObject fresh = object(u"{'id':'new','status':'WORKING','context':{'much':true}}"_s);
        store.put(u"agent_runs"_s, u"known"_s, u"t"_s, finished);
        store.put(u"agent_runs"_s, u"new"_s, u"t"_s, fresh);
        store.put(u"agent_runs"_s, u"foreign"_s, u"other"_s, run(u"foreign"_s, u"WORKING"_s));
        store.put(u"tasks"_s, u"t"_s, u"p"_s, task(u"EXECUTION"_s, {run(u"known"_s, u"WORKING"_s)}));

        recoverInterruptedTasks(store);

        QCOMPARE(store.get(u"agent_runs"_s, u"known"_s), finished);
        fresh["status"_L1] = u"INTERRUPTED"_s;
        QCOMPARE(store.get(u"agent_runs"_s, u"new"_s), fresh);
        QCOMPARE(store.get(u"agent_runs"_s, u"foreign"_s), run(u"foreign"_s, u"WORKING"_s));
        QCOMPARE(store.get(u"tasks"_s, u"t"_s)["runs"_L1].toArray(),
                 array(u"[{'id':'known','status':'COMPLETED','output':{'summary':'готово'}},"
                       "{'id':'new','status':'INTERRUPTED'}]"_s));
    }

    void nodesAreTakenAsTheyWereLastStored()
    {
        Store store(newFile());
        QJsonObject stored = task(u"EXECUTION"_s);
        stored["graph"_L1] = array(u"[{'id':'a','status':'RUNNING'},{'id':'b','status':'QUEUED'}]"_s);
        store.put(u"tasks"_s, u"t"_s, u"p"_s, stored);
        store.put(u"task_nodes"_s, u"t:a"_s, u"t"_s, object(u"{'id':'a','status':'COMPLETED'}"_s));
        store.put(u"task_nodes"_s, u"t:c"_s, u"t"_s, object(u"{'id':'c','status':'QUEUED'}"_s));
        store.put(u"task_nodes"_s, u"o:d"_s, u"o"_s, object(u"{'id':'d'}"_s));
        recoverInterruptedTasks(store);
        QCOMPARE(
            store.get(u"tasks"_s, u"t"_s)["graph"_L1].toArray(),
            array(u"[{'id':'a','status':'COMPLETED'},{'id':'b','status':'QUEUED'},{'id':'c','status':'QUEUED'}]"_s));
    }

    void whatCannotBeReadIsLeftAlone()
    {
        Store store(newFile());
        store.putText(u"tasks"_s, u"broken"_s, u"p"_s, "{\"id\":");
        store.put(u"tasks"_s, u"t"_s, u"p"_s, task(u"INTAKE"_s));
        recoverInterruptedTasks(store);
        QCOMPARE(store.list(u"tasks"_s, {}).size(), 2);
        QCOMPARE(store.get(u"tasks"_s, u"t"_s)["phase"_L1].toString(), "INTERRUPTED");
        QCOMPARE(store.get(u"tasks"_s, u"broken"_s), QJsonObject());
    }

    void whatCannotBePutInOrderIsToldAndStaysReadable()
    {
        const QString file = newFile();
        Core core(file, nullptr);
        core.store.put(u"tasks"_s, u"t"_s, u"p"_s, task(u"INTAKE"_s));
        const auto sql = [&](const QString &statement) {
            QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
            other.setDatabaseName(file);
            QVERIFY(other.open() && QSqlQuery(other).exec(statement));
        };
        sql(u"CREATE TRIGGER full BEFORE INSERT ON tasks BEGIN SELECT RAISE(ABORT, 'disk full'); END"_s);
        QVERIFY(core.recover().startsWith(u"Незаконченные задачи не удалось привести в порядок: "_s));
        QCOMPARE(core.store.get(u"tasks"_s, u"t"_s)["phase"_L1].toString(), u"INTAKE"_s);
        sql(u"DROP TRIGGER full"_s);
        QCOMPARE(core.recover(), QString());
        QCOMPARE(core.store.get(u"tasks"_s, u"t"_s)["phase"_L1].toString(), u"INTERRUPTED"_s);
        QSqlDatabase::removeDatabase(u"other"_s);
    }

private:
    QTemporaryDir folder;
    int files = 0;

    QString newFile() { return folder.filePath(u"%1.sqlite"_s.arg(++files)); }
};

QTEST_GUILESS_MAIN(RecoveryTest)

#include "tst_recovery.moc"
