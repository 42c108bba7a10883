// Requests that wait for the task before them.

#include "request_queue.h"

#include "budget.h"
#include "helpers.h"
#include "store.h"

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxWaiting = 50;

QString tooMany()
{
    return u"В очереди уже 50 задач."_s;
}

QString rowOf(const QString &project)
{
    return u"queue:"_s + project;
}

StartRequest requestOf(const QJsonObject &item)
{
    return {item["request"_L1].toString(), item["preview"_L1].toBool(), item["budget"_L1].toInt(defaultTaskTokens),
            item["program"_L1].toString(), item["arguments"_L1].toString()};
}

} // namespace

RequestQueue::RequestQueue(Store &store)
    : store(store)
{
}

QJsonArray RequestQueue::stored(const QString &ofProject) const
{
    return store.get(u"settings"_s, rowOf(ofProject))["items"_L1].toArray();
}

void RequestQueue::open(const QString &next, const QJsonArray &found)
{
    project = next;
    waiting = found;
    takenOut = {};
    paused = !waiting.isEmpty();
}

qsizetype RequestQueue::add(const StartRequest &request)
{
    require(waiting.size() < maxWaiting, tooMany());
    QJsonArray longer = waiting;
    longer.append(QJsonObject{{u"id"_s, id()},
                              {u"request"_s, request.request},
                              {u"preview"_s, request.preview},
                              {u"budget"_s, request.budget},
                              {u"program"_s, request.program},
                              {u"arguments"_s, request.arguments},
                              {u"created_at"_s, now()}});
    change(longer);
    return waiting.size();
}

void RequestQueue::remove(const QString &id)
{
    const auto item = std::ranges::find_if(std::as_const(waiting),
                                           [&](const QJsonValue &entry) { return entry["id"_L1].toString() == id; });
    if (item == std::as_const(waiting).end())
        return;
    const qsizetype place = item - std::as_const(waiting).begin();
    QJsonArray shorter = waiting;
    const QJsonArray out{shorter.takeAt(place)};
    change(shorter);
    takenOut = out;
    takenFrom = place;
}

void RequestQueue::clear()
{
    if (waiting.isEmpty())
        return;
    const QJsonArray out = waiting;
    change({});
    takenOut = out;
    takenFrom = 0;
}

void RequestQueue::undo()
{
    require(waiting.size() + takenOut.size() <= maxWaiting, tooMany());
    QJsonArray longer = waiting;
    // What stood before it may have been started meanwhile.
    qsizetype place = std::min(takenFrom, longer.size());
    for (const QJsonValue &item : std::as_const(takenOut))
        longer.insert(place++, item);
    change(longer);
    takenOut = {};
}

void RequestQueue::pause()
{
    paused = true;
    saveQueue();
}

void RequestQueue::resume()
{
    const bool before = std::exchange(paused, false);
    try {
        saveQueue();
    } catch (...) {
        paused = before;
        throw;
    }
}

void RequestQueue::take(const std::function<void(const StartRequest &)> &start)
{
    const QJsonObject item = std::as_const(waiting).first().toObject();
    try {
        start(requestOf(item));
        waiting.removeFirst();
        saveQueue();
    } catch (...) {
        pause();
        throw;
    }
}

void RequestQueue::change(const QJsonArray &next)
{
    const QJsonArray before = std::exchange(waiting, next);
    try {
        saveQueue();
    } catch (...) {
        waiting = before;
        throw;
    }
}

void RequestQueue::saveQueue() const
{
    if (!project.isEmpty())
        store.put(u"settings"_s, rowOf(project), project, {{u"items"_s, waiting}, {u"paused"_s, paused}});
}

} // namespace vesk
