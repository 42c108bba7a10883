// Whether a failed request is repeated.

#include "retry.h"

#include "llm_provider.h"

#include <algorithm>

namespace vesk {

namespace {

constexpr int maxRepeats = 2;
constexpr int maxOutputTokens = 16384;
constexpr int baseDelayMs = 250;

} // namespace

RetryDecision retryAfter(const LLMResult &result, int attempts, int maxTokens)
{
    if (!(result.retryable || result.truncated) || attempts > maxRepeats)
        return {};
    return {true, std::max(baseDelayMs << attempts, result.waitMs),
            result.truncated ? std::min(maxTokens * 2, maxOutputTokens) : maxTokens};
}

} // namespace vesk
