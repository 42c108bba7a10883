#pragma once

namespace vesk {

struct LLMResult;

/// What becomes of a failed request.
struct RetryDecision {
    bool again = false; ///< Else the run fails with the request's error.
    int delayMs = 0;
    int maxTokens = 0; ///< That the next request may answer with.
};

/// Of a request that was the `attempts`th of its job, from 1. What a provider calls passing, and an answer that was cut
/// off, is asked for again: twice, after 0.5 and 1 s or what the provider asks for, a cut off answer with twice the
/// room, up to 16384 tokens.
RetryDecision retryAfter(const LLMResult &result, int attempts, int maxTokens);

} // namespace vesk
