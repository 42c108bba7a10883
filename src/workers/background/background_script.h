#pragma once

#include <QJSEngine>
#include <QJSValue>
#include <QJsonObject>
#include <QString>

namespace vesk {

/// The user's script on the side of the worker: a function of time and size that gives back shapes. Compiled when its
/// text changes; what it sets globally lasts as long as this object. Nothing of the host can be seen from it.
class BackgroundScript {
public:
    /// The answer to {"generation", "code", "t", "w", "h"}: the same "generation" and "shapes", the first 200 at most,
    /// or "error", a text for the user, with "line" where the engine knows the line of `code` that it is about.
    /// May run for ever, and may die: the script is not to be trusted.
    QJsonObject answer(const QJsonObject &request);

private:
    void compile(const QString &text);

    QJSEngine engine;
    QJSValue function;
    QString code;
};

} // namespace vesk
