// What a killed application leaves of conversations, queue and projects: everything that was done is there, once, and
// the next start finds it in order.

#include "backend.h"
#include "credential_store.h"
#include "roles.h"
#include "sandbox.h"
#include "stored_records.h"

#include <QDir>
#include <QProcess>
#include <QRandomGenerator>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int kills = 32;

/// A data folder, and what was said to be done in it.
struct Scene {
    QTemporaryDir folder{sandbox::memoryTemplate()};
    QHash<QString, QStringList> done; ///< By kind of step, in order.
    QString tracer = QStandardPaths::findExecutable(u"strace"_s);

    QString path(const QString &name) const { return folder.filePath(name); }

    /// Lets the driver work and kills it at this write to the database, where that can be traced, or else, and at the
    /// latest, after so many milliseconds.
    void work(int seed, int write, int ms)
    {
        QStringList command{QStringLiteral(BACKEND_DRIVER_PROGRAM), path(u"data"_s), path(u"projects"_s),
                            QString::number(seed)};
        if (write > 0 && !tracer.isEmpty())
            command = QStringList{tracer,   u"-f"_s,
                                  u"-qq"_s, u"--kill-on-exit"_s,
                                  u"-o"_s,  u"/dev/null"_s,
                                  u"-e"_s,  u"trace=pwrite64"_s,
                                  u"-e"_s,  u"inject=pwrite64:signal=KILL:when=%1"_s.arg(write)}
                + command;
        QProcess driver;
        driver.start(command.takeFirst(), command);
        driver.waitForReadyRead(10000);
        if (!driver.waitForFinished(ms)) {
            driver.kill();
            driver.waitForFinished();
        }
        QStringList lines = QString::fromUtf8(driver.readAllStandardOutput()).split(u'\n');
        lines.removeLast(); // cut off, or empty
        for (const QString &line : std::as_const(lines))
            done[line.section(u' ', 0, 0)].append(line.section(u' ', 1));
    }
};

QStringList field(const QList<QJsonObject> &rows, const QString &name)
{
    QStringList values;
    for (const QJsonObject &row : rows)
        values.append(row[name].toString());
    return values;
}

/// The first that was done and is not there.
QString missing(const QStringList &done, const QStringList &there)
{
    const auto lost = std::ranges::find_if(done, [&](const QString &value) { return !there.contains(value); });
    return lost == done.end() ? QString() : *lost;
}

QStringList requestsOf(const StoredRecords &stored)
{
    QStringList requests;
    const QList<QJsonObject> settings = stored.rows(u"settings"_s);
    for (const QJsonObject &row : settings) {
        const QJsonArray items = row["items"_L1].toArray();
        for (const QJsonValue &item : items)
            requests.append(item["request"_L1].toString());
    }
    const QList<QJsonObject> tasks = stored.rows(u"tasks"_s);
    for (const QJsonObject &task : tasks)
        requests.append(task["spec"_L1]["original_request"_L1].toString());
    return requests;
}

} // namespace

class BackendCrashTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        registerPrompts();
        qputenv("VESK_SECRETS", "file");
    }

    /// One folder is worked in and killed again and again: what one round leaves is what the next one finds.
    void aKilledApplicationLosesNothingThatWasDone()
    {
        Scene scene;
        qputenv("PATH", "/nowhere"); // No browser is found there: checking pages is not the matter here.
        QDir().mkpath(scene.path(u"data"_s));
        QDir().mkpath(scene.path(u"projects"_s));
        QRandomGenerator random(20);
        for (int round = 0; round < kills; ++round) {
            // Half of them anywhere, half exactly between one write and the next.
            const bool atWrite = round % 4 > 1;
            scene.work(round, atWrite ? 1 + random.bounded(600) : 0, atWrite ? 3000 : random.bounded(350));
            compareRecords(scene);
            compareNextStart(scene);
            if (QTest::currentTestFailed())
                return;
        }
        qInfo("%d requests, %d of them ran", int(scene.done[u"asked"_s].size()),
              int(StoredRecords(scene.path(u"data"_s)).rows(u"tasks"_s).size()));
        for (const QString &kind : {u"project"_s, u"said"_s, u"asked"_s, u"renamed"_s, u"remembered"_s, u"width"_s})
            QVERIFY2(scene.done[kind].size() > 3, qPrintable(kind));
    }

private:
    void compareRecords(const Scene &scene) const
    {
        const StoredRecords stored(scene.path(u"data"_s));
        QCOMPARE(stored.problem(), QString());
        const QList<QJsonObject> projects = stored.rows(u"projects"_s);
        QCOMPARE(missing(scene.done[u"project"_s], field(projects, u"name"_s)), QString());
        for (const QJsonObject &project : projects)
            QVERIFY(QDir(project["root"_L1].toString()).exists(u"VESK-project.json"_s));

        const QStringList messages = field(stored.rows(u"messages"_s), u"content"_s);
        QCOMPARE(missing(scene.done[u"said"_s], messages), QString());
        QCOMPARE(missing(scene.done[u"asked"_s], requestsOf(stored) + scene.done[u"cancelled"_s]), QString());
        QCOMPARE(missing(scene.done[u"remembered"_s], field(stored.rows(u"memory_entries"_s), u"text"_s)), QString());
        QCOMPARE(stored.rows(u"decision_logs"_s).size(),
                 std::ranges::count_if(stored.rows(u"memory_entries"_s), [](const QJsonObject &entry) {
                     return entry["category"_L1].toString() == "User Decisions"_L1;
                 }));
        QHash<QString, QString> titles;
        for (const QString &renamed : scene.done[u"renamed"_s])
            titles[renamed.section(u' ', 0, 0)] = renamed.section(u' ', 1);
        QStringList archived;
        const QStringList known = field(projects, u"id"_s);
        const QList<QJsonObject> tasks = stored.rows(u"tasks"_s);
        for (const QJsonObject &task : tasks) {
            const QString id = task["id"_L1].toString();
            QVERIFY2(known.contains(task["project_id"_L1].toString()), qPrintable(id));
            if (task["archived"_L1].toBool())
                archived.append(id);
            // One more name may have been given than was told.
            const QString title = task["spec"_L1]["title"_L1].toString();
            const bool told = scene.done[u"renamed"_s].contains(id + u' ' + title);
            QVERIFY2(!titles.contains(id) || titles[id] == title || (title.startsWith(u"Имя "_s) && !told),
                     qPrintable(titles[id] + u" is "_s + title));
        }
        QCOMPARE(missing(scene.done[u"archived"_s], archived), QString());
    }

    void compareNextStart(const Scene &scene) const
    {
        CredentialStore::setDataFolder(scene.path(u"data"_s));
        Backend backend(scene.path(u"data"_s));
        QCOMPARE(backend.property("message").toString(), QString());
        const QString width = scene.done[u"width"_s].isEmpty() ? QString() : scene.done[u"width"_s].last();
        if (!width.isEmpty())
            QVERIFY(backend.property("preferences").toMap()[u"sidebar_width"_s].toInt() >= width.toInt());

        const QVariantList projects = backend.projects();
        for (const QVariant &project : projects) {
            backend.selectProject(project.toMap()[u"id"_s].toString());
            QCOMPARE(backend.property("message").toString(), QString());
            QCOMPARE(backend.property("queuePaused").toBool(), !backend.property("queue").toList().isEmpty());
            const QVariantList tasks = backend.tasks();
            for (const QVariant &task : tasks) {
                backend.selectTask(task.toMap()[u"id"_s].toString());
                compareTask(backend.state(), backend.chat());
            }
        }
    }

    /// A task has ended, its runs with it, and its conversation says nothing twice.
    void compareTask(const QVariantMap &task, const QVariantList &chat) const
    {
        const QString phase = task[u"phase"_s].toString();
        QVERIFY2((QStringList{u"COMPLETED"_s, u"FAILED"_s, u"CANCELLED"_s, u"INTERRUPTED"_s}.contains(phase)),
                 qPrintable(phase));
        if (phase == "INTERRUPTED"_L1)
            QCOMPARE(
                task[u"error"_s].toString(),
                u"Предыдущий сеанс был прерван. История сохранена; незавершённую задачу нужно запустить заново."_s);
        QCOMPARE(task[u"pending"_s].toList(), QVariantList());
        const QVariantList runs = task[u"runs"_s].toList();
        for (const QVariant &run : runs) {
            const QString status = run.toMap()[u"status"_s].toString();
            QVERIFY2((QStringList{u"COMPLETED"_s, u"ERROR"_s, u"CANCELLED"_s, u"INTERRUPTED"_s}.contains(status)),
                     qPrintable(status));
        }
        QSet<QString> seen;
        int reports = 0;
        for (const QVariant &row : chat) {
            const QVariantMap line = row.toMap();
            const QString content = line[u"content"_s].toString();
            reports += line[u"kind"_s] == u"report"_s;
            if (line[u"role"_s] != u"user"_s || content == u"Да"_s) // An answer may be given twice.
                continue;
            QVERIFY2(!seen.contains(content), qPrintable(content));
            seen.insert(content);
        }
        QCOMPARE(reports, 1);
    }
};

QTEST_GUILESS_MAIN(BackendCrashTest)
#include "tst_backend_crash.moc"
