#include "engine_fixture.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

bool EngineFixture::runUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QEventLoop loop;
    QDeadlineTimer deadline(timeoutMs);
    // Asked once each time: a condition may take what it finds.
    bool met = condition();
    while (!met && !deadline.hasExpired()) {
        // A timer wakes the loop, so that a run that stands still is noticed.
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.processEvents(QEventLoop::WaitForMoreEvents);
        met = condition();
    }
    return met;
}

void EngineFixture::settle()
{
    for (int turn = 0; turn < 20; ++turn)
        QCoreApplication::processEvents();
}

void EngineFixture::scriptOneFile(bool asks)
{
    if (asks)
        model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec({u"Какой формат?"_s}));
    model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
    model.answer(u"planner"_s,
                 ScriptedProvider::plan({ScriptedProvider::node(u"notes"_s, u"code"_s, {{u"path"_s, u"notes.md"_s}})}));
    model.answer(u"coordinator"_s, {{u"needs_user"_s, false}, {u"summary"_s, u"Исправляем"_s}});
}

bool EngineFixture::reach(const QString &wanted)
{
    scriptOneFile(wanted == "CLARIFICATION"_L1);
    model.holding = true;
    start(u"Сделай файл"_s, wanted == "PREVIEW"_L1);
    const bool waits = wanted == "CLARIFICATION"_L1 || wanted == "PREVIEW"_L1;
    return runUntil([&] {
        if (phase() == wanted && (waits || model.held() > 0))
            return true;
        model.release();
        return false;
    });
}

QJsonArray EngineFixture::stored(const QString &table) const
{
    return Store(databasePath).list(table, task());
}

QJsonObject EngineFixture::storedTask() const
{
    return Store(databasePath).get(u"tasks"_s, task());
}

void EngineFixture::sql(const QStringList &statements) const
{
    const QString connection = id();
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, connection);
        database.setDatabaseName(databasePath);
        require(database.open(), database.lastError().text());
        QSqlQuery query(database);
        for (const QString &statement : statements)
            require(query.exec(statement), statement + u": "_s + query.lastError().text());
    }
    QSqlDatabase::removeDatabase(connection);
}

void EngineFixture::breakStore(const QString &condition, const QString &table)
{
    QStringList statements;
    for (const QString &name : table.isEmpty() ? tables : QStringList{table})
        statements.append(u"CREATE TRIGGER break_%1 BEFORE INSERT ON %1 WHEN %2 "
                          "BEGIN SELECT RAISE(ABORT, 'disk gone'); END"_s.arg(name, condition));
    sql(statements);
}

void EngineFixture::breakStoreAfter(int count)
{
    QStringList statements{u"BEGIN"_s, u"CREATE TABLE IF NOT EXISTS written(n INTEGER)"_s, u"DELETE FROM written"_s,
                           u"INSERT INTO written VALUES(0)"_s};
    for (const QString &name : tables)
        statements.append(u"CREATE TRIGGER break_%1 BEFORE INSERT ON %1 BEGIN UPDATE written SET n=n+1; "
                          "SELECT RAISE(ABORT, 'disk gone') WHERE (SELECT n FROM written)>%2; END"_s.arg(name)
                              .arg(count));
    sql(statements << u"COMMIT"_s);
}

void EngineFixture::mendStore()
{
    QStringList statements{u"BEGIN"_s};
    for (const QString &name : tables)
        statements.append(u"DROP TRIGGER IF EXISTS break_"_s + name);
    sql(statements << u"COMMIT"_s);
}

QJsonObject EngineFixture::node(const QString &id) const
{
    const QJsonArray nodes = state(u"graph"_s).toArray();
    for (const QJsonValue &node : nodes) {
        if (node["id"_L1].toString() == id)
            return node.toObject();
    }
    return {};
}

QString EngineFixture::agentOf(const LLMRequest &request) const
{
    const QJsonArray runs = state(u"runs"_s).toArray();
    const auto found
        = std::ranges::find_if(runs, [&](const QJsonValue &run) { return run["id"_L1].toString() == request.id; });
    return found == runs.end() ? QString() : (*found)["role"_L1].toString();
}

QStringList EngineFixture::messages(const QString &type) const
{
    QStringList list;
    for (const QJsonObject &event : eventsOf(type))
        list.append(event["message"_L1].toString());
    return list;
}

QList<QJsonObject> EngineFixture::eventsOf(const QString &type) const
{
    QList<QJsonObject> list;
    for (const QJsonObject &event : log) {
        if (event["type"_L1].toString() == type)
            list.append(event);
    }
    return list;
}

QByteArray EngineFixture::fileContent(const QString &path) const
{
    QFile file(projectFile(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
