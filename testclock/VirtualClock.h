// Copyright (C) 2026 The libvircam Authors

// A clock for tests, fuzzers and the simulator: time stands still while any
// thread of the process can run, and jumps to the next deadline once every
// thread is blocked. The product's own time-outs (3 s per step, 1 s HAL init,
// 300 polls of 5 ms) then pass in microseconds of real time while every
// ordering they decide stays the one real time would give: a remote answer due
// 1 ns before a step's deadline is delivered, and handled, before that
// deadline is reached.
//
// "Blocked" is read from the kernel (/proc/self/task/*/stat): a thread that
// waits on a mutex, a condition variable or this clock is sleeping, one that
// was just woken is runnable. A thread that sleeps in real time outside the
// clock counts as blocked, so peers that mean to act later must wait through
// the clock, not through std::this_thread::sleep_for.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

#include "utils/ThreadAnnotations.h"
#include "utils/VirCamClock.h"

namespace vircam_testclock {

// How the time thread waits between its looks at the process: asleep, or
// yielding in a loop. Yielding keeps a core busy while anything waits on the
// clock, but on a virtual machine a sleep of a few microseconds costs as much
// CPU as the yields and takes several times its length: a process that moves
// time all the time (a fuzzer) goes faster yielding, one that mostly sleeps
// in real time beside it (a test) leaves the core to others asleep.
enum class Pace { kSleep, kSpin };

class VirtualClock final : public pelcamera::VirCamClock {
public:
    // Any thread; starts the thread that moves time.
    explicit VirtualClock(Pace pace = Pace::kSleep);
    // The owner, once nothing waits on the clock any more; joins that thread.
    ~VirtualClock() override;
    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

    // Any thread; no lock.
    TimePoint Now() override;
    // Any thread, holding no lock that another thread needs to make progress
    // (it would wait for that thread forever: time only moves when all are
    // blocked). Takes mLock.
    void SleepFor(Duration duration) override;
    // Any thread, with `lock` held; takes mLock. Time reaches `deadline` only
    // once every thread is blocked.
    std::cv_status WaitUntil(std::condition_variable& cond, std::unique_lock<std::mutex>& lock,
                             TimePoint deadline) override;

    // Any thread holding no lock: returns once every other thread is blocked
    // and no thread waits on the clock, that is once nothing more can happen
    // without a new outside event. Takes mLock.
    void Settle();

    // Any thread; how often time has jumped so far.
    uint64_t Jumps() const { return mJumps.load(std::memory_order_relaxed); }

private:
    struct Waiter {
        TimePoint deadline;
        std::condition_variable* cond;
        std::mutex* mutex;  // the caller's; null for SleepFor, which waits on mLock
        bool due = false;
        bool notifying = false;
    };

    // The time thread.
    void Run();
    // The time thread, holding no lock: true when every thread but itself is
    // blocked, seen on several scans apart. `busySince`: the others' CPU time
    // when the last look found the process busy, -1 if it did not.
    bool ProcessIdle(int64_t busySince);
    // The time thread, holding no lock: one scan of the process's threads.
    bool ScanOnce();
    // The time thread: (re)opens the stat file of every thread but itself and
    // the main thread.
    void ListThreads();
    void CloseThreadFiles();
    // The time thread: the process's thread count, -1 if unreadable, and
    // whether the main thread waits, both from the main thread's stat file.
    int ReadMainThread(bool* blocked) const;
    // The time thread, holding no lock.
    void Pause(std::chrono::microseconds duration) const;

    const Pace mPace;
    std::atomic<int64_t> mNowNs{0};
    std::atomic<uint64_t> mJumps{0};
    std::atomic<bool> mStop{false};
    int mTimeTid = 0;  // written by the time thread before it first scans
    // The time thread's own (the destructor's once it has joined it): the main
    // thread's stat file and every other thread's.
    int mMainThreadStat = -1;
    struct ThreadFile {
        int tid;
        int fd;
    };
    std::vector<ThreadFile> mThreadFiles;

    std::mutex mLock;
    std::condition_variable mChanged;  // waiters, settlers, or their state changed
    std::condition_variable mSleepers;
    std::list<Waiter> mWaiters GUARDED_BY(mLock);
    int mSettlers GUARDED_BY(mLock) = 0;
    uint64_t mSettledRound GUARDED_BY(mLock) = 0;
    uint64_t mActivity GUARDED_BY(mLock) = 0;

    std::thread mTime;
};

// Installs a process-wide virtual clock for the library, never removed (the
// library's worker threads outlive every test). Any thread, before the
// library's first use.
VirtualClock& InstallVirtualClock(Pace pace = Pace::kSleep);

}  // namespace vircam_testclock
