#pragma once

#include "llm_provider.h"
#include "wire_server.h"

#include <functional>

/// A chat completions server on loopback that answers each role by a function, as a real model would be asked: the
/// role is found by its prompt.
class ModelServer : public WireServer {
    Q_OBJECT
public:
    /// Answers with the content of a reply, normally one JSON object.
    using Answer = std::function<QString(const vesk::LLMRequest &)>;

    explicit ModelServer(Answer answer);

    /// The request behind a body, its role found by the system prompt; an unknown prompt gives an empty role.
    static vesk::LLMRequest requestOf(const QJsonObject &body);

    /// What the demonstration answers, without its questions to the user.
    static QString unasking(const vesk::LLMRequest &request);
};
