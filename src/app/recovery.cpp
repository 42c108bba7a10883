#include "recovery.h"

#include "helpers.h"
#include "store.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

void interruptRuns(Store &store, const QString &taskId, QJsonObject &task)
{
    static const QStringList ended{u"COMPLETED"_s, u"ERROR"_s, u"CANCELLED"_s};
    QJsonArray runs = task["runs"_L1].toArray();
    for (qsizetype i = 0; i < runs.size(); ++i) {
        QJsonObject run = runs.at(i).toObject();
        if (ended.contains(run["status"_L1].toString()))
            continue;
        run["status"_L1] = u"INTERRUPTED"_s;
        runs[i] = run;
        store.put(u"agent_runs"_s, run["id"_L1].toString(), taskId, run);
    }
    task["runs"_L1] = runs;
}

} // namespace

void recoverInterruptedTasks(Store &store)
{
    static const QStringList ended{u"COMPLETED"_s, u"FAILED"_s, u"CANCELLED"_s, u"INTERRUPTED"_s};
    const QJsonArray tasks = store.list(u"tasks"_s, {});
    for (const QJsonValue &entry : tasks) {
        QJsonObject task = entry.toObject();
        if (ended.contains(task["phase"_L1].toString()))
            continue;
        const QString taskId = task["id"_L1].toString();
        store.atomic([&] {
            task["phase"_L1] = u"INTERRUPTED"_s;
            task["pending"_L1] = QJsonArray();
            task["error"_L1]
                = u"Предыдущий сеанс был прерван. История сохранена; незавершённую задачу нужно запустить заново."_s;
            interruptRuns(store, taskId, task);
            store.put(u"tasks"_s, taskId, task["project_id"_L1].toString(), task);
        });
    }
}

} // namespace vesk
