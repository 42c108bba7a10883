// Events, stored and told.

#include "event_bus.h"

#include "helpers.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

void EventBus::publish(const QString &task, const QString &type, const QString &message, QJsonObject data)
{
    Q_EMIT event(QJsonObject{
        {u"id"_s, id()},
        {u"task_id"_s, task},
        {u"type"_s, type},
        {u"message"_s, message},
        {u"time"_s, now()},
        {u"data"_s, std::move(data)},
    });
}

} // namespace vesk
