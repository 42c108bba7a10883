#pragma once

#include "llm_provider.h"

#include <QJsonObject>

namespace vesk {

/// Answers every role with a fixed document, so that a whole run works offline: a browser calculator, whose first
/// page is rejected for its division by zero and then fixed, or the build of the project. It never fails.
class MockProvider : public ILLMProvider {
    Q_OBJECT
public:
    using ILLMProvider::ILLMProvider;

    /// Milliseconds from a request to its answer, so that a run can be watched.
    int delayMs = 300;

    /// Token counts are a quarter of the characters of the input and of the answer.
    void request(const LLMRequest &request, std::function<void(LLMResult)> callback) override;
    void cancelAll() override;
    QString name() const override;

    /// The document for a request, drawn from its `role` and `input` alone; missing keys read as empty.
    static QJsonObject respond(const LLMRequest &request);

private:
    int generation = 0; ///< Raised by cancelAll(); a timer of an older one fires in vain.
};

} // namespace vesk
