// The whole program against a model server on this machine: what it costs beside the waiting for the model.
// Figures are those of the system for the ended process; the server's own time is measured and taken off the wall time.

#include "helpers.h"
#include "mock_provider.h"
#include "model_server.h"
#include "scripted_provider.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

using namespace Qt::StringLiterals;
using namespace vesk;

extern char **environ;

namespace {

/// Starts the program by its own means, so that the system's account of it alone can be read.
pid_t startProgram(const QStringList &arguments)
{
    QList<QByteArray> texts{VESK_PROGRAM};
    for (const QString &argument : arguments)
        texts.append(argument.toUtf8());
    std::vector<char *> argv;
    for (QByteArray &text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    posix_spawn(&pid, VESK_PROGRAM, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

double milliseconds(const timeval &time)
{
    return double(time.tv_sec) * 1e3 + double(time.tv_usec) / 1e3;
}

/// A model that answers at once; notes when each request came.
class Model {
public:
    explicit Model(int files)
        : server([this, files](const LLMRequest &request) {
            arrivals.append(clock.nsecsElapsed());
            return json(answer(request, files));
        })
    {
        clock.start();
    }

    QElapsedTimer clock;
    QList<qint64> arrivals;
    ModelServer server;

private:
    static QJsonObject answer(const LLMRequest &request, int files)
    {
        if (request.role == "orchestrator"_L1)
            return ScriptedProvider::taskSpec();
        if (request.role == "planner"_L1) {
            QJsonArray nodes;
            for (int i = 0; i < files; ++i)
                nodes.append(ScriptedProvider::node(u"n%1"_s.arg(i), u"code"_s, {{u"path"_s, u"file%1.txt"_s.arg(i)}}));
            return ScriptedProvider::plan(nodes);
        }
        if (request.role == "coding"_L1)
            return ScriptedProvider::file(request.input["artifact"_L1]["node"_L1]["input"_L1]["path"_L1].toString(),
                                          u"Строка текста, и ещё немного.\n"_s.repeated(40).left(560));
        return MockProvider::respond(request);
    }
};

} // namespace

class ProgramBenchmark : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aRunAgainstAServer_data();
    void aRunAgainstAServer();
};

void ProgramBenchmark::aRunAgainstAServer_data()
{
    QTest::addColumn<int>("files");
    QTest::newRow("1 file") << 1;
    QTest::newRow("8 files") << 8;
    QTest::newRow("64 files") << 64;
}

void ProgramBenchmark::aRunAgainstAServer()
{
    QFETCH(int, files);
    QTemporaryDir folder;
    Model model(files);
    const qint64 started = model.clock.nsecsElapsed();
    const pid_t pid
        = startProgram({u"--run"_s, u"Напиши файлы"_s, u"--endpoint"_s, model.server.url(), u"--model"_s, u"any"_s,
                        u"--project"_s, folder.filePath(u"p"_s), u"--data-dir"_s, folder.filePath(u"d"_s)});
    QVERIFY(pid > 0);
    rusage usage{};
    int status = -1;
    // In an event loop that never sleeps while a request waits: the server lives in it.
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (wait4(pid, &status, WNOHANG, &usage) == pid)
            loop.quit();
    });
    poll.start(20);
    loop.exec();
    QCOMPARE(WEXITSTATUS(status), 0);

    const QList<qint64> &times = model.arrivals;
    const auto count = double(times.size());
    const auto span = [&](qsizetype from, qsizetype to) { return double(times[to] - times[from]) / 1e6; };
    const double wall = span(0, times.size() - 1);
    qInfo("start to first call %.1f ms; %lld calls: %.2f ms processor and %.2f ms wall each; peak %.1f MB",
          double(times[0] - started) / 1e6, static_cast<long long>(times.size()),
          (milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)) / count, wall / count,
          double(usage.ru_maxrss) / 1024);
    if (files < 64)
        return;
    // The files come first, 64 calls that follow the 7 of plan and structure.
    qInfo("time between calls: the last 16 files take %.2f times the first 16", span(7 + 48, 7 + 63) / span(7, 7 + 15));
}

QTEST_GUILESS_MAIN(ProgramBenchmark)
#include "bench_program.moc"
