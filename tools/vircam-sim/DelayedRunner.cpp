// Copyright (C) 2026 The libvircam Authors

#include "DelayedRunner.h"

#include "SimClock.h"

namespace vircam_sim {

DelayedRunner::DelayedRunner() : mThread([this] { Run(); }) {}

DelayedRunner::~DelayedRunner() {
    Stop();
}

void DelayedRunner::Post(int64_t dueUs, std::function<void()> job) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mStopping) {
        return;
    }
    mJobs.emplace(dueUs, std::move(job));
    mChanged.notify_all();
}

void DelayedRunner::Stop() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        mJobs.clear();
        mChanged.notify_all();
    }
    if (mThread.joinable() && mThread.get_id() != std::this_thread::get_id()) {
        mThread.join();
    }
}

void DelayedRunner::Run() {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStopping) {
        if (mJobs.empty()) {
            mChanged.wait(lock);
            continue;
        }
        const int64_t wait = mJobs.begin()->first - NowUs();
        if (wait > 0) {
            WaitUntil(mChanged, lock, Now() + std::chrono::microseconds(wait));
            continue;
        }
        std::function<void()> job = std::move(mJobs.begin()->second);
        mJobs.erase(mJobs.begin());
        lock.unlock();
        job();
        lock.lock();
    }
}

}  // namespace vircam_sim
