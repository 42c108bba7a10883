#pragma once

#include "budget.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace vesk {

/// What "--run" was asked to do.
struct RunOptions {
    QString request;
    QString projectFolder; ///< Absolute.
    qint64 budget = defaultTaskTokens; ///< Tokens.
    QJsonObject buildCommand; ///< {"program", "arguments"} or empty.
    QString endpoint; ///< Base address of a model server; empty for what the window has connected.
    QString model;
    QString keyVariable; ///< Environment variable that holds the key.
    QStringList answers; ///< For questions, in order.
    bool mock = false; ///< The demonstration model, whatever is connected.
    bool simulate = false;
    bool allowCommands = false;
    bool takeIn = false; ///< A folder of the user's becomes a project with the files that it has.
    bool acceptEdits = false; ///< Files that the user has changed count as they are.
    bool workflowDemo = false; ///< With the chain of the example team.
    bool json = false;
    bool strict = false; ///< What is not proved does not end well.
    int mockDelayMs = 300;
};

/// Reads the arguments of "--run". Unlike the other modes it knows all of its options: a mistyped one throws
/// std::runtime_error with a text for people, instead of starting a task that was meant otherwise.
RunOptions parseRunOptions(const QStringList &arguments);

} // namespace vesk
