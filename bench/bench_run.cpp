// A whole run of 64 files against a model that answers at once: what the engine itself costs per model call, and
// whether a call late in the run costs more than an early one. Figures are processor time.

#include "engine_fixture.h"

#include <QTest>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int nodeCount = 64;

double processorMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
}

/// What the last eight steps cost, as a multiple of the first eight.
double growth(const QList<double> &marks)
{
    return (marks[marks.size() - 1] - marks[marks.size() - 9]) / (marks[8] - marks[0]);
}

QJsonArray manyFiles()
{
    QJsonArray nodes;
    for (int i = 0; i < nodeCount; ++i)
        nodes.append(ScriptedProvider::node(u"n%1"_s.arg(i), u"code"_s, {{u"path"_s, u"docs/file%1.txt"_s.arg(i)}}));
    return nodes;
}

} // namespace

class RunBenchmark : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aRunOfManyFiles_data();
    void aRunOfManyFiles();
};

void RunBenchmark::aRunOfManyFiles_data()
{
    QTest::addColumn<int>("bytes");
    QTest::newRow("1 KiB files") << 1024;
    QTest::newRow("50 KiB files") << 50 * 1024;
}

void RunBenchmark::aRunOfManyFiles()
{
    QFETCH(int, bytes);
    EngineFixture run;
    QObject::connect(&run.events, &EventBus::event, &run.events, [&](const QJsonObject &event) {
        run.store.put(u"events"_s, event["id"_L1].toString(), event["task_id"_L1].toString(), event);
    });
    const QString content = u"Строка текста на русском языке, и ещё немного.\n"_s.repeated(bytes).left(bytes);
    run.model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
    run.model.answer(u"planner"_s, ScriptedProvider::plan(manyFiles()));
    run.model.respond(u"coding"_s, [&](const LLMRequest &request) {
        const QString path = request.input["artifact"_L1]["node"_L1]["input"_L1]["path"_L1].toString();
        return ScriptedProvider::result(ScriptedProvider::file(path, content));
    });

    // All files are written first, all reviews follow: two stretches of equal steps.
    QList<double> written;
    QList<double> reviewed;
    QObject::connect(&run.events, &EventBus::event, &run.events, [&](const QJsonObject &event) {
        const QString type = event["type"_L1].toString();
        if (type == "FileModified"_L1)
            written.append(processorMs());
        else if (type == "AgentFinished"_L1 && event["message"_L1].toString() == "integration_reviewer"_L1)
            reviewed.append(processorMs());
    });
    const double begin = processorMs();
    run.start(u"Напиши 64 файла"_s);
    QVERIFY(run.runToEnd(300000));
    const double total = processorMs() - begin;
    QVERIFY2(run.phase() == "COMPLETED"_L1, qPrintable(run.error()));

    qInfo(
        "%lld model calls, %.3f ms each; the last 8 of 64 cost %.2f times the first 8 when written, %.2f when reviewed",
        static_cast<long long>(run.model.requests.size()), total / double(run.model.requests.size()), growth(written),
        growth(reviewed));
}

QTEST_GUILESS_MAIN(RunBenchmark)
#include "bench_run.moc"
