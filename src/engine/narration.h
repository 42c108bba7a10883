#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk {

/// What an event says to the user while a run goes on; empty for most events. `state` is the task state document, which
/// only "PhaseChanged" is told from.
QString narration(const QJsonObject &event, const QJsonObject &state);

/// The kind of message that this is in the conversation of the task.
QString narrationKind(const QJsonObject &event);

} // namespace vesk
