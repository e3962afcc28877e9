// Copyright (C) 2026 The libvircam Authors

// One clock for every actor of a run, so that the timeline, the trace and the
// latency figures agree on what happened when: the library's own clock seam.
// vircam-sim leaves it on the steady clock; vircam-sim-virtual installs the
// virtual clock before anything reads it. Every actor that means to act later
// waits through these helpers, never through std::this_thread or a plain
// timed wait: on the virtual clock a thread asleep in real time counts as
// blocked, and time would jump past what it was about to do.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "utils/VirCamClock.h"

namespace vircam_sim {

using SimDuration = pelcamera::VirCamClock::Duration;
using SimTime = pelcamera::VirCamClock::TimePoint;

// Any thread; no lock.
inline SimTime Now() {
    return pelcamera::Clock().Now();
}

// Any thread; no lock. Microseconds since the first call (main makes that
// call first thing, once the clock is chosen).
inline int64_t NowUs() {
    static const SimTime start = Now();
    return std::chrono::duration_cast<std::chrono::microseconds>(Now() - start).count();
}

// Any thread, holding no lock that another actor or the library needs.
inline void SleepFor(SimDuration duration) {
    if (duration > SimDuration::zero()) {
        pelcamera::Clock().SleepFor(duration);
    }
}

inline void SleepUntil(SimTime deadline) {
    SleepFor(deadline - Now());
}

// Any thread, with `lock` held on the mutex that guards what `done` reads;
// released while waiting. True once `done` holds, false if `deadline` came
// first.
template <typename Predicate>
bool WaitUntil(std::condition_variable& cond, std::unique_lock<std::mutex>& lock, SimTime deadline,
               Predicate done) {
    while (!done()) {
        if (pelcamera::Clock().WaitUntil(cond, lock, deadline) == std::cv_status::timeout) {
            return done();
        }
    }
    return true;
}

template <typename Predicate>
bool WaitFor(std::condition_variable& cond, std::unique_lock<std::mutex>& lock, SimDuration timeout,
             Predicate done) {
    return WaitUntil(cond, lock, Now() + timeout, done);
}

// Same, for a waiter that rechecks its own state after every wake-up.
inline void WaitUntil(std::condition_variable& cond, std::unique_lock<std::mutex>& lock,
                      SimTime deadline) {
    pelcamera::Clock().WaitUntil(cond, lock, deadline);
}

}  // namespace vircam_sim
