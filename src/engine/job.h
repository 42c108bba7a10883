#pragma once

#include "roles.h"

#include <QJsonObject>
#include <QString>

#include <functional>

namespace vesk {

class ILLMProvider;

/// One request to a model on its way through the queue, held by shared pointer in the queue, among the active jobs and
/// in the callback of the request in flight.
struct Job {
    Agent agent; ///< A copy; changes for this job stay here.
    ILLMProvider *provider = nullptr; ///< Not owned.
    QString role; ///< What the stage asked for; decides on contract and limits.
    QJsonObject context; ///< The input of the request.
    QJsonObject run; ///< The run record.
    std::function<void(QJsonObject)> callback;
    int attempts = 0; ///< Requests dispatched so far.
    int formatRepairs = 0;
    int maxTokens = 0;
    int priority = 0; ///< Higher first.
    qint64 reserved = 0; ///< Tokens held for the request in flight.
};

} // namespace vesk
