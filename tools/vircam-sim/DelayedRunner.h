// Copyright (C) 2026 The libvircam Authors

// A peer's own thread that runs jobs once their time has come, in time order:
// how a remote device answers "after its latency" without a thread per answer.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace vircam_sim {

class DelayedRunner {
public:
    DelayedRunner();
    ~DelayedRunner();
    DelayedRunner(const DelayedRunner&) = delete;
    DelayedRunner& operator=(const DelayedRunner&) = delete;

    void Post(int64_t dueUs, std::function<void()> job);
    // Jobs not yet run are dropped: the peer is gone.
    void Stop();

private:
    void Run();

    std::mutex mLock;
    std::condition_variable mChanged;
    std::multimap<int64_t, std::function<void()>> mJobs;
    bool mStopping = false;
    std::thread mThread;
};

}  // namespace vircam_sim
