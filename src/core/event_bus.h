#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>

namespace vesk {

/// Stamps every noteworthy thing that happens and hands it to all subscribers, before publish() returns.
/// The bus stores nothing. A record has exactly six keys:
///
///     {"id": "<uuid>", "task_id": "<task or empty>", "type": "PhaseChanged", "message": "PLANNING",
///      "time": "2026-11-24T12:00:00.000Z", "data": {}}
class EventBus : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    void publish(const QString &task, const QString &type, const QString &message, QJsonObject data);

Q_SIGNALS:
    void event(QJsonObject record);
};

} // namespace vesk
