// Copyright (C) 2026 The libvircam Authors

// The library's one view of time. Every time-out, poll interval and timing
// the library reads goes through Clock(): on a phone it is the steady clock;
// tests, fuzzers and the simulator may install a virtual clock so that the
// product's own time-outs (3 s per step, 1 s HAL init, 300 polls of 5 ms)
// pass without sitting through them. The constants never change.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace pelcamera {

class VirCamClock {
public:
    using Duration = std::chrono::steady_clock::duration;
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~VirCamClock() = default;

    // Any thread; no lock.
    virtual TimePoint Now() = 0;
    // Any thread, with no lock of the library held.
    virtual void SleepFor(Duration duration) = 0;
    // Any thread, with `lock` held on the mutex that guards what the caller
    // waits for; released while sleeping, as std::condition_variable does.
    // Returns timeout once Now() has reached `deadline`; a wake-up before it
    // (a notification or a spurious one) returns no_timeout, so callers loop
    // on their own condition.
    virtual std::cv_status WaitUntil(std::condition_variable& cond,
                                     std::unique_lock<std::mutex>& lock, TimePoint deadline) = 0;
};

// The steady clock: what the shipped library always uses.
class SteadyVirCamClock final : public VirCamClock {
public:
    TimePoint Now() override { return std::chrono::steady_clock::now(); }
    void SleepFor(Duration duration) override;
    std::cv_status WaitUntil(std::condition_variable& cond, std::unique_lock<std::mutex>& lock,
                             TimePoint deadline) override;
};

// Any thread; the clock in use. One relaxed load, so a read on the frame path
// costs nothing beside the clock's own call.
VirCamClock& Clock();

// Tests, fuzzers and the simulator only, before the library's first use and
// never while one of its threads may read the clock. Null restores the
// steady clock. The clock must outlive every later use.
void InstallVirCamClock(VirCamClock* clock);

}  // namespace pelcamera
