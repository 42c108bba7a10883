#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>

namespace vesk {

/// One request to a model. No field has a default that means anything: each caller sets all five.
struct LLMRequest {
    QString id; ///< Identifier of the call; providers don't read it.
    QString role; ///< Role code; never sent to the model.
    QString system; ///< System instructions.
    QJsonObject input; ///< The working context, sent as compact JSON in the user message.
    int maxTokens; ///< Upper limit of output tokens.
};

/// What became of a request. A success exactly when `error` is empty; a reply that broke off has both texts.
struct LLMResult {
    QString content; ///< The model's text, normally one JSON object.
    QString error; ///< Why it failed, in Russian.
    int promptTokens = 0; ///< As reported by the endpoint; 0 when it did not.
    int completionTokens = 0; ///< As reported by the endpoint; 0 when it did not.
    bool retryable = false; ///< A repeat may help.
    bool truncated = false; ///< Cut by the output limit.
    int waitMs = 0; ///< What the server asks to be left alone for before a repeat, at most a minute.
    int httpStatus = 0; ///< 0 when there was none.
    int networkError = 0; ///< QNetworkReply::NetworkError.
    bool foreign = false; ///< What came is no answer of a model server at all, such as a web page.
};

/// How many requests are under way at a time, at most.
constexpr int maxParallelRequests = 8;

/// A source of model answers, used on the thread that owns it.
///
/// request() returns at once and the callback runs later, exactly once, unless cancelAll() comes first: then it never
/// runs. After cancelAll() the provider takes new requests.
class ILLMProvider : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    virtual void request(const LLMRequest &request, std::function<void(LLMResult)> callback) = 0;
    virtual void cancelAll() = 0;
    /// Short text for people.
    virtual QString name() const = 0;
};

} // namespace vesk
