// The backend on a long history: opening it, one refresh of everything the interface reads, choosing a task.

#include "backend.h"
#include "helpers.h"
#include "roles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QMetaProperty>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int projectCount = 200;
constexpr int taskCount = 500;
constexpr int messageCount = 2000;
constexpr int eventCount = 20000;
constexpr int taskBytes = 330 * 1024;

QString taskId(int number)
{
    return u"task-%1"_s.arg(number, 4, 10, QChar(u'0'));
}

QJsonObject taskDocument(int number, const QString &project, const QString &text)
{
    QJsonArray runs;
    for (int i = 0; i < 60; ++i)
        runs.append(QJsonObject{{u"id"_s, u"run-%1-%2"_s.arg(number).arg(i)},
                                {u"role"_s, u"coding"_s},
                                {u"status"_s, u"COMPLETED"_s},
                                {u"output"_s, QJsonObject{{u"summary"_s, text.left(500)}}}});
    const QJsonObject node{{u"id"_s, u"n"_s},
                           {u"title"_s, u"Узел"_s},
                           {u"kind"_s, u"code"_s},
                           {u"status"_s, u"COMPLETED"_s},
                           {u"output"_s, QJsonObject{{u"path"_s, u"a.txt"_s}, {u"content"_s, text}}}};
    return {{u"id"_s, taskId(number)},
            {u"project_id"_s, project},
            // A few of them were cut off by a crash.
            {u"phase"_s, number % 100 == 7 ? u"EXECUTION"_s : u"COMPLETED"_s},
            {u"spec"_s, QJsonObject{{u"title"_s, u"Задача %1"_s.arg(number)}, {u"original_request"_s, text.left(400)}}},
            {u"graph"_s, QJsonArray{node}},
            {u"runs"_s, runs}};
}

void fill(const QString &dataFolder, const QString &projectFolder)
{
    Store store(dataFolder + u"/vesk.sqlite"_s);
    const QString project = u"project"_s;
    const QString text = u"Строка текста на русском языке, и ещё немного.\n"_s.repeated(taskBytes / 80);
    store.atomic([&] {
        for (int i = 0; i < projectCount; ++i)
            store.put(u"projects"_s, u"other-%1"_s.arg(i), {},
                      {{u"id"_s, u"other-%1"_s.arg(i)}, {u"name"_s, u"Проект"_s}, {u"root"_s, projectFolder}});
        store.put(u"projects"_s, project, {},
                  {{u"id"_s, project}, {u"name"_s, u"Главный"_s}, {u"root"_s, projectFolder}});
        for (int i = 0; i < taskCount; ++i)
            store.put(u"tasks"_s, taskId(i), project, taskDocument(i, project, text));
        for (int i = 0; i < messageCount; ++i) {
            const QString row = u"m%1"_s.arg(i);
            store.put(u"messages"_s, row, taskId(taskCount - 1),
                      {{u"id"_s, row},
                       {u"role"_s, i % 2 ? u"user"_s : u"assistant"_s},
                       {u"content"_s, text.left(300)},
                       {u"kind"_s, u"message"_s},
                       {u"time"_s, now()}});
        }
        for (int i = 0; i < eventCount; ++i) {
            const QString row = u"e%1"_s.arg(i);
            store.put(u"events"_s, row, taskId(i % 10 ? i % taskCount : taskCount - 1),
                      {{u"id"_s, row},
                       {u"type"_s, u"AgentFinished"_s},
                       {u"message"_s, u"coding"_s},
                       {u"time"_s, now()},
                       {u"data"_s, QJsonObject{{u"text"_s, text.left(1000)}}}});
        }
    });
}

double milliseconds(const std::function<void()> &work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    return double(clock.nsecsElapsed()) / 1e6;
}

/// Everything that `changed` and `chatChanged` announce, read once.
void refresh(Backend &backend)
{
    const QMetaObject &meta = Backend::staticMetaObject;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        const QByteArray notify = meta.property(i).notifySignal().name();
        if (notify == "changed" || notify == "chatChanged")
            meta.property(i).read(&backend);
    }
}

} // namespace

class BackendBenchmark : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aLongHistory();
};

void BackendBenchmark::aLongHistory()
{
    registerPrompts();
    QTemporaryDir folder;
    const QString data = folder.filePath(u"data"_s);
    QVERIFY(QDir().mkpath(data) && QDir().mkpath(folder.filePath(u"p"_s)));
    fill(data, folder.filePath(u"p"_s));
    const qint64 size = QFileInfo(data + u"/vesk.sqlite"_s).size();

    std::unique_ptr<Backend> backend;
    const double recovering = milliseconds([&] { backend = std::make_unique<Backend>(data); });
    backend.reset();
    const double opening = milliseconds([&] { backend = std::make_unique<Backend>(data); });
    const double first = milliseconds([&] { refresh(*backend); });
    QList<double> repeats;
    for (int i = 0; i < 9; ++i) {
        backend->addMemory(u"Note"_s, u"x"_s);
        repeats.append(milliseconds([&] { refresh(*backend); }));
    }
    std::ranges::sort(repeats);
    QList<double> choices;
    for (int i = 0; i < 9; ++i) {
        const QString task = taskId(100 + i);
        choices.append(milliseconds([&] {
            backend->selectTask(task);
            refresh(*backend);
        }));
    }
    std::ranges::sort(choices);
    qInfo("%lld MB: opening %.0f ms, with %d tasks to recover %.0f ms; first refresh %.1f ms, then %.2f ms; choosing a "
          "task %.1f ms",
          static_cast<long long>(size / 1000000), opening, taskCount / 100, recovering, first, repeats[4], choices[4]);
}

QTEST_GUILESS_MAIN(BackendBenchmark)
#include "bench_backend.moc"
