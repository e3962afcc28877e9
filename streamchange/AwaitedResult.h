// Copyright (C) 2026 The libvircam Authors

// One asynchronous result that somebody waits for: a remote step's answer
// (control session, stream configuration, data session) or the HAL's
// initialisation. Implemented with the protocol that uses it
// (StepResults.cpp).
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "utils/ThreadAnnotations.h"
#include "utils/VirCamClock.h"

namespace pelcamera {

// The mutex is the step's own: a notifier holds it for its whole call, and a
// waiter holds it from its look at `returned` until it sleeps. So a result
// that comes at any moment is either handed to a waiter asleep for it or
// flagged for the waiter still to come; whatever other step's waiter sleeps
// meanwhile has no say in it.
class AwaitedResult {
public:
    // What a waiter waits for: the session whose result ends its wait, or
    // null for any result of this kind (the HAL-init wait).
    using Subject = const void*;

    // The notifier's binder thread, `mutex` held. Hands the result to the
    // longest-waiting sleeper for `subject` and returns true; with none, sets
    // `returned` and returns false.
    bool Deliver(Subject subject) REQUIRES(mutex);

    // The waiting thread, with `lock` holding `mutex`; released while it
    // sleeps, held again on return. True when a result for `subject` was
    // handed over before `deadline`, false on time-out. Neither a spurious
    // wake-up nor another session's result ends the wait.
    bool SleepUntil(std::unique_lock<std::mutex>& lock, Subject subject,
                    VirCamClock::TimePoint deadline) REQUIRES(mutex);

    std::mutex mutex;
    std::condition_variable cond;
    // The result came while nobody waited for it. Cleared only at the start
    // and the end of a switch-on, never by a wait.
    bool returned GUARDED_BY(mutex) = false;

private:
    struct Sleeper {
        Subject subject;
        bool delivered;
    };
    // Oldest first; each entry lives on its sleeper's stack while it waits.
    std::vector<Sleeper*> mSleepers GUARDED_BY(mutex);
};

}  // namespace pelcamera
