#pragma once

#include "chat_request.h"
#include "llm_provider.h"
#include "private_network.h"

#include <QSet>
#include <QString>

#include <functional>
#include <memory>

class QNetworkReply;

namespace vesk {

/// Talks HTTP to one model endpoint, in the chat completions dialect or, against the OpenAI endpoint, in the Responses
/// dialect. The connection may be changed between two requests; those in flight go on with the values they have.
///
/// Requests for the roles "chat" and "chat_router" are repeated here, at most twice; for all others the engine decides.
/// Replies are bounded by maxReplyBytes, nothing blocks, and the key never appears in a result. A callback may do
/// anything, such as ask again, cancel or delete the provider.
class OpenAICompatibleProvider : public ILLMProvider {
    Q_OBJECT
public:
    using ILLMProvider::ILLMProvider;
    ~OpenAICompatibleProvider() override;

    void request(const LLMRequest &request, std::function<void(LLMResult)> callback) override;
    void cancelAll() override;
    QString name() const override { return model; }

Q_SIGNALS:
    /// 0 right after a request was posted, then the characters of text received so far, at most twice a second.
    void responseProgress(QString role, int characters);

private:
    struct Attempt;

    void requestAttempt(LLMRequest request, std::function<void(LLMResult)> callback, int attempt, int generation);
    void post(const std::shared_ptr<Attempt> &attempt);
    void read(const std::shared_ptr<Attempt> &attempt);
    void complete(const std::shared_ptr<Attempt> &attempt);
    void end(const std::shared_ptr<Attempt> &attempt, const LLMResult &result);
    bool repeatsPlainer(const std::shared_ptr<Attempt> &attempt, int status);
    void noteAccepted(const std::shared_ptr<Attempt> &attempt, int status);
    ServerTraits known() const { return learnedUrl == url && learnedFrom == traits ? learned : traits; }
    ChatSettings settings() const;

    PrivateNetwork network;
    QSet<QNetworkReply *> active;
    int generation = 0;

public:
    // The connection.
    QString url; ///< Base address of the API.
    QString model;
    QString key; ///< May be empty for servers on this machine.
    QString root; ///< Folder of the current project.
    bool useResponses = false;
    /// A server of the user's own: its model may be slow, so it is asked for a stream, and has the whole silence for
    /// the first byte and between any two. A server that refuses to stream is asked once more without.
    bool ownServer = false;
    /// What was measured of the server at `url`. What it refuses nevertheless is noted and left out from then on.
    ServerTraits traits;
    int timeoutMs = 180000; ///< Silence after which a reply is given up.
    double temperature = 0.2;

private:
    QString learnedUrl; ///< The address of which more was learned than `traits` say.
    ServerTraits learnedFrom; ///< What they said then.
    ServerTraits learned;
};

} // namespace vesk
