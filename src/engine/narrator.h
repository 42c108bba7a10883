#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk {

/// Puts the engine's codes and a task's state document into Russian for the user. Every sentence follows from a
/// recorded fact; the report says as well what nobody has verified.
class Narrator {
public:
    /// Labels. A code that the table does not hold comes back unchanged.
    static QString phase(const QString &code);
    static QString status(const QString &code);
    static QString role(const QString &code);

    /// What to say in the conversation when the phase has changed; empty when nothing.
    /// `state` is the document of Engine::snapshot(): "phase", "decision", "plan", "structure", ...
    static QString progress(const QJsonObject &state);

    /// The closing report, several lines; just the answer for a task that was only a question.
    static QString report(const QJsonObject &state);
};

} // namespace vesk
