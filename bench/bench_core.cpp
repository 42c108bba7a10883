// The pieces that every step of a run passes through. Qt's own benchmark harness: per iteration, as many as it needs.

#include "engine_fixture.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonArray nodes(int count)
{
    QJsonArray array;
    for (int i = 0; i < count; ++i) {
        const QStringList before = i == 0 ? QStringList() : QStringList{u"n%1"_s.arg(i - 1), u"n%1"_s.arg(i / 2)};
        array.append(ScriptedProvider::node(u"n%1"_s.arg(i), u"code"_s, {{u"path"_s, u"src/file%1.cpp"_s.arg(i)}},
                                            i < 2 ? before.mid(0, 1) : before));
    }
    return array;
}

QJsonObject record(int number)
{
    return {{u"id"_s, u"r%1"_s.arg(number)}, {u"text"_s, u"Строка записи"_s.repeated(60)}, {u"number"_s, number}};
}

} // namespace

class CoreBenchmark : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void storePut();
    void storeGetCached();
    void storeGetFromDisk();
    void storeListCached();
    void storeListAfterPut();
    void persistOf64Nodes();
    void graphValidate();
    void graphReady();
    void parseObjectOfOneMebibyte();
};

void CoreBenchmark::storePut()
{
    EngineFixture core;
    int number = 0;
    QBENCHMARK
    {
        ++number;
        core.store.put(u"messages"_s, QString::number(number % 1000), u"t"_s, record(number));
    }
}

void CoreBenchmark::storeGetCached()
{
    EngineFixture core;
    core.store.put(u"messages"_s, u"1"_s, u"t"_s, record(1));
    QBENCHMARK
    {
        core.store.get(u"messages"_s, u"1"_s);
    }
}

void CoreBenchmark::storeGetFromDisk()
{
    EngineFixture core;
    const QByteArray body = jsonBytes(record(1));
    core.store.putText(u"messages"_s, u"1"_s, u"t"_s, body);
    QBENCHMARK
    {
        // The put drops the cached record; its own cost is that of storePut.
        core.store.putText(u"messages"_s, u"1"_s, u"t"_s, body);
        core.store.get(u"messages"_s, u"1"_s);
    }
}

void CoreBenchmark::storeListCached()
{
    EngineFixture core;
    for (int i = 0; i < 1000; ++i)
        core.store.put(u"messages"_s, QString::number(i), u"t"_s, record(i));
    QBENCHMARK
    {
        core.store.list(u"messages"_s, u"t"_s);
    }
}

void CoreBenchmark::storeListAfterPut()
{
    EngineFixture core;
    for (int i = 0; i < 1000; ++i)
        core.store.put(u"messages"_s, QString::number(i), u"t"_s, record(i));
    QBENCHMARK
    {
        core.store.put(u"messages"_s, u"1"_s, u"t"_s, record(1));
        core.store.list(u"messages"_s, u"t"_s);
    }
}

void CoreBenchmark::persistOf64Nodes()
{
    EngineFixture run;
    run.model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
    run.model.answer(u"planner"_s, ScriptedProvider::plan(nodes(64)));
    run.start();
    QVERIFY(run.runToPhase(u"EXECUTION"_s));
    QBENCHMARK
    {
        run.engine.persist();
    }
    run.engine.cancel();
}

void CoreBenchmark::graphValidate()
{
    TaskGraph graph;
    graph.load(nodes(64));
    QBENCHMARK
    {
        graph.validate();
    }
}

void CoreBenchmark::graphReady()
{
    TaskGraph graph;
    graph.load(nodes(64));
    for (int i = 0; i < 32; ++i)
        graph.nodes[i].status = u"COMPLETED"_s;
    QBENCHMARK
    {
        graph.ready();
    }
}

void CoreBenchmark::parseObjectOfOneMebibyte()
{
    QJsonArray files;
    while (QJsonDocument(files).toJson().size() < 1024 * 1024)
        for (int i = 0; i < 100; ++i)
            files.append(record(i));
    const QString reply = u"Ответ:\n"_s + json({{u"files"_s, files}}) + u"\nготово"_s;
    QBENCHMARK
    {
        parseObject(reply);
    }
}

QTEST_GUILESS_MAIN(CoreBenchmark)
#include "bench_core.moc"
