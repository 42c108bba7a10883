// Tests that have passed are run once more with empty files: whoever passes there, too, asserts nothing.

#include "engine_p.h"

#include "test_copy.h"
#include "test_trial.h"

#include <QDir>
#include <QFuture>
#include <QJsonDocument>
#include <QPromise>
#include <QThreadPool>

using namespace Qt::StringLiterals;

namespace vesk {

/// Goes on to the gates. Only with full access: nobody could tell why the question about a command comes twice.
void Engine::tryTests()
{
    hollowTests.clear();
    const QJsonObject package = QJsonDocument::fromJson(fileText(u"package.json"_s).toUtf8()).object();
    const QList<Trial> trials
        = computerAccess && !copiesFolder.isEmpty() ? trialsOf(graph.nodes, package, workspace.root()) : QList<Trial>();
    if (!trials.isEmpty())
        publish(u"AutomaticCorrection"_s, u"Проверяю сами тесты: запускаю их с пустыми файлами."_s);
    tryNext(trials);
}

void Engine::tryNext(QList<Trial> left)
{
    if (waiting()) {
        deferred.push_back([this, left] { tryNext(left); });
        return;
    }
    if (left.isEmpty()) {
        passGates();
        return;
    }
    const Trial trial = left.takeFirst();
    makeCopy(trial, [=, this](const std::shared_ptr<TestCopy> &copy) {
        if (!copy) {
            tryNext(left);
            return;
        }
        runTrial(trial, copy, 0, [=, this](bool passed) {
            if (passed && !copy->wasBypassed())
                hollowTests.insert(trial.node);
            tryNext(left);
        });
    });
}

/// On a thread of its own, for it may be megabytes.
void Engine::makeCopy(const Trial &trial, const std::function<void(std::shared_ptr<TestCopy>)> &next)
{
    auto promise = std::make_shared<QPromise<std::shared_ptr<TestCopy>>>();
    const auto take = whileThisRun([this, next](const std::shared_ptr<TestCopy> &copy) { step([&] { next(copy); }); });
    promise->future().then(this, [take](const std::shared_ptr<TestCopy> &copy) { take(copy); });
    promise->start();
    const CopyOrder order{workspace.root(), copiesFolder, codePaths(), trial.named};
    QThreadPool::globalInstance()->start([promise, order] {
        promise->addResult(TestCopy::make(order));
        promise->finish();
    });
}

/// The builds may fail: without its program a test that needs one does not pass.
void Engine::runTrial(const Trial &trial, const std::shared_ptr<TestCopy> &copy, qsizetype nth,
                      const std::function<void(bool passed)> &next)
{
    const QString tool = u"run_in_copy"_s;
    qint64 tookMs = 0;
    for (const Node &node : std::as_const(graph.nodes)) {
        if (node.input == trial.commands.at(nth))
            tookMs = std::max(tookMs, node.output["duration_ms"_L1].toInteger());
    }
    const QJsonObject command = movedCommand(trial.commands.at(nth), tookMs, workspace.root(), copy->path());
    permissions.grants.append(actionGrant(tool, taskId, workspace.project(), ToolRouter::fingerprint(tool, command)));
    const Agent terminal = makeAgent(u"terminal"_s, u"Terminal Agent"_s, {u"process"_s}, {u"run_command"_s});
    const QJsonObject run = terminalRun(terminal, taskId, command);
    const int noted = generation;
    saveRun(run);
    // Whoever was told of the run may have ended it.
    if (noted != generation)
        return;
    tools.execute(taskId, terminal.id, {tool}, tool, command, whileThisRun([=, this](const QJsonObject &result) {
                      step([&] {
                          // That it fails is good news: nothing in the run went wrong.
                          endTerminalRun(run, RunStatus::completed, result);
                          if (nth + 1 < trial.commands.size())
                              runTrial(trial, copy, nth + 1, next);
                          else
                              next(result["success"_L1].toBool());
                      });
                  }));
}

} // namespace vesk
