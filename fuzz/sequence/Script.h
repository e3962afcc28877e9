// Copyright (C) 2026 The libvircam Authors

// What a scripted remote does with each step of a switch: when its answer
// lands relative to the step's 3 s wait, and with which result.
#pragma once

#include <chrono>
#include <cstdint>

namespace vircam_fuzz {

// Virtual nanoseconds since the start of a sequence.
using Ns = int64_t;

constexpr Ns kMs = 1000 * 1000;
constexpr Ns kSecond = 1000 * kMs;
// The product's constants, as the contract states them.
constexpr Ns kStepTimeout = 3 * kSecond;
constexpr Ns kPollInterval = 5 * kMs;
constexpr int kPollAttempts = 300;

enum RemoteStep : int { kControl = 0, kConfig = 1, kData = 2, kSteps = 3 };

enum class Answer : uint8_t {
    kAtOnce,        // from a thread of its own, the moment the call returns
    kBeforeReturn,  // inside the call, before it returns
    kLate1ms,
    kLate1s,
    kLate2900ms,
    kJustBefore,  // 1 ns before the step's deadline
    kAtDeadline,  // on it: either outcome is allowed
    kJustAfter,   // 1 ns after it
    kNever,
    kFail,       // at once, with a failure code
    kCallError,  // the call itself returns an error status
    kDieOnCall,  // the remote's process dies inside the call
    kCount
};

// Null for the answers that are not sent from a thread after a delay.
inline bool DelayedAnswer(Answer answer, Ns* delay) {
    switch (answer) {
        case Answer::kAtOnce:
        case Answer::kFail:
            *delay = 0;
            return true;
        case Answer::kLate1ms:
            *delay = kMs;
            return true;
        case Answer::kLate1s:
            *delay = kSecond;
            return true;
        case Answer::kLate2900ms:
            *delay = 2900 * kMs;
            return true;
        case Answer::kJustBefore:
            *delay = kStepTimeout - 1;
            return true;
        case Answer::kAtDeadline:
            *delay = kStepTimeout;
            return true;
        case Answer::kJustAfter:
            *delay = kStepTimeout + 1;
            return true;
        default:
            return false;
    }
}

inline bool AnswerOk(Answer answer) {
    return answer != Answer::kFail;
}

}  // namespace vircam_fuzz
