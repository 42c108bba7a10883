// Which task the user looks at, and where what is said there belongs.

#include "task_view.h"

#include "engine.h"
#include "phases.h"
#include "read_models.h"
#include "store.h"
#include "workspace.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// A stored task that nobody runs has been cut off, also where that could not be stored at the start.
QJsonObject asLeft(QJsonObject stored)
{
    if (!stored.isEmpty() && !isEndPhase(std::as_const(stored)["phase"_L1].toString()))
        stored["phase"_L1] = Phase::interrupted;
    return stored;
}

} // namespace

TaskView::TaskView(const Store &store, const Workspace &workspace, const Engine &engine)
    : store(store)
    , workspace(workspace)
    , engine(engine)
{
}

bool TaskView::showsRun() const
{
    const QString running = engine.task();
    return (chosen.isEmpty() || chosen == running) && (running.isEmpty() || engine.busy());
}

QJsonObject TaskView::selected() const
{
    if (chosen == newTask)
        return emptyState();
    // A running task is always one of the project in view: another can't be chosen meanwhile.
    if (showsRun())
        return engine.snapshot();
    if (!chosen.isEmpty() && chosen != engine.task())
        return asLeft(store.get(u"tasks"_s, chosen));
    const QJsonObject stored = asLeft(store.get(u"tasks"_s, engine.task()));
    if (stored.isEmpty())
        return engine.snapshot();
    return stored["project_id"_L1].toString() == workspace.project() ? stored : emptyState();
}

QString TaskView::id() const
{
    return showsRun() ? engine.task() : selected()["id"_L1].toString();
}

QString TaskView::conversationId() const
{
    const QString task = id();
    return task.isEmpty() ? u"chat:"_s + workspace.project() : task;
}

QString TaskView::key() const
{
    return workspace.project() + u'/' + chosen + u'/' + engine.task();
}

} // namespace vesk
