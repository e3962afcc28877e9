// Copyright (C) 2026 The libvircam Authors

#include "utils/VirCamClock.h"

#include <atomic>
#include <thread>

#include "utils/NoDestructor.h"

namespace pelcamera {

namespace {

// Never destroyed: threads may still read the clock while the process exits.
SteadyVirCamClock& SteadyClock() {
    static NoDestructor<SteadyVirCamClock> steady;
    return *steady;
}

std::atomic<VirCamClock*> gInstalled{nullptr};

}  // namespace

void SteadyVirCamClock::SleepFor(Duration duration) {
    std::this_thread::sleep_for(duration);
}

std::cv_status SteadyVirCamClock::WaitUntil(std::condition_variable& cond,
                                            std::unique_lock<std::mutex>& lock,
                                            TimePoint deadline) {
    return cond.wait_until(lock, deadline);
}

VirCamClock& Clock() {
    VirCamClock* const installed = gInstalled.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : SteadyClock();
}

void InstallVirCamClock(VirCamClock* clock) {
    gInstalled.store(clock, std::memory_order_release);
}

}  // namespace pelcamera
