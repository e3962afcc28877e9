// Copyright (C) 2026 The libvircam Authors

#include "VirtualClock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace vircam_testclock {

namespace {

// A thread may go from one wait to the next through a moment in which the
// kernel already reports it as sleeping and the thread it woke not yet as
// runnable; a few scans apart close that gap.
// Two scans let a sequence of the fuzzer through about once in a few thousand
// with a worker still on its way (seen on a loaded two-core machine); three
// have not.
constexpr int kIdleScans = 3;
constexpr auto kScanGap = std::chrono::microseconds(10);
constexpr auto kRetry = std::chrono::microseconds(20);
// What a blocked thread may still spend (a futex wake-up's tail) while the
// others are taken for idle.
constexpr int64_t kCpuSlack = 2000;

constexpr const char* kTaskDir = "/proc/self/task";

// Reads a stat file afresh into `buffer`; false when it cannot be read (its
// thread has gone).
template <size_t N>
bool ReadStat(int fd, char (&buffer)[N]) {
    const ssize_t n = pread(fd, buffer, N - 1, 0);
    buffer[n > 0 ? n : 0] = '\0';
    return n > 0;
}

// Where field `index` of a stat file's text starts, numbered from 1 as in
// proc(5) (the 3rd is the state letter); empty when the text is cut short.
// Fields are counted from the command name's closing parenthesis: the name
// itself may hold spaces and parentheses.
const char* StatField(const char* stat, int index) {
    const char* field = strrchr(stat, ')');
    for (int at = 2; field != nullptr && at < index; ++at) {
        field = strchr(field + 1, ' ');
    }
    return field == nullptr ? "" : field + 1;
}

// Whether a thread in `state` waits: its state is known and neither running
// nor uninterruptible.
bool Waits(const char* state) {
    return *state != '\0' && *state != 'R' && *state != 'D' && *state != 'W';
}

// -1: the thread has gone (or its file cannot be read). Otherwise 1 when it
// waits, else 0.
int ThreadBlocked(int fd) {
    char buffer[512];
    if (!ReadStat(fd, buffer)) {
        return -1;
    }
    return Waits(StatField(buffer, 3)) ? 1 : 0;
}

// CPU time of every thread but the calling one: a cheap sign of work.
int64_t OthersCpuNs() {
    timespec process{};
    timespec self{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &process);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &self);
    return (process.tv_sec - self.tv_sec) * 1000000000LL + (process.tv_nsec - self.tv_nsec);
}

}  // namespace

VirtualClock::VirtualClock(Pace pace) : mPace(pace), mTime([this] { Run(); }) {}

void VirtualClock::Pause(std::chrono::microseconds duration) const {
    if (mPace == Pace::kSleep) {
        std::this_thread::sleep_for(duration);
        return;
    }
    const auto until = std::chrono::steady_clock::now() + duration;
    while (std::chrono::steady_clock::now() < until) {
        sched_yield();
    }
}

VirtualClock::~VirtualClock() {
    mStop.store(true);
    {
        std::lock_guard<std::mutex> guard(mLock);
        mChanged.notify_all();
    }
    mTime.join();
    CloseThreadFiles();
    if (mMainThreadStat >= 0) {
        close(mMainThreadStat);
    }
}

void VirtualClock::CloseThreadFiles() {
    for (const ThreadFile& file : mThreadFiles) {
        if (file.fd >= 0) {
            close(file.fd);
        }
    }
    mThreadFiles.clear();
}

void VirtualClock::ListThreads() {
    DIR* dir = opendir(kTaskDir);
    if (dir == nullptr) {
        abort();  // the clock cannot work without it
    }
    // Neither the time thread nor the main thread, which is read apart. The
    // files of threads still listed stay open: opening costs more than reading.
    const int main = static_cast<int>(getpid());
    std::vector<ThreadFile> listed;
    while (const dirent* entry = readdir(dir)) {
        const int tid = atoi(entry->d_name);
        if (tid <= 0 || tid == mTimeTid || tid == main) {
            continue;
        }
        auto known = std::find_if(mThreadFiles.begin(), mThreadFiles.end(),
                                  [tid](const ThreadFile& file) { return file.tid == tid; });
        if (known != mThreadFiles.end()) {
            listed.push_back(*known);
            *known = mThreadFiles.back();
            mThreadFiles.pop_back();
            continue;
        }
        const std::string path = std::string(entry->d_name) + "/stat";
        const int fd = openat(dirfd(dir), path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            listed.push_back({tid, fd});
        }
    }
    closedir(dir);
    CloseThreadFiles();
    mThreadFiles.swap(listed);
}

int VirtualClock::ReadMainThread(bool* blocked) const {
    char buffer[1024];
    if (!ReadStat(mMainThreadStat, buffer)) {
        return -1;
    }
    const char* count = StatField(buffer, 20);
    if (*count == '\0') {
        return -1;
    }
    *blocked = Waits(StatField(buffer, 3));
    return atoi(count);
}

VirtualClock::TimePoint VirtualClock::Now() {
    return TimePoint(std::chrono::nanoseconds(mNowNs.load(std::memory_order_acquire)));
}

void VirtualClock::SleepFor(Duration duration) {
    if (duration <= Duration::zero()) {
        return;
    }
    std::unique_lock<std::mutex> guard(mLock);
    auto waiter = mWaiters.insert(mWaiters.end(), Waiter{Now() + duration, &mSleepers, nullptr});
    ++mActivity;
    mChanged.notify_all();
    mSleepers.wait(guard, [&]() REQUIRES(mLock) { return waiter->due; });
    mWaiters.erase(waiter);
    ++mActivity;
    mChanged.notify_all();
}

std::cv_status VirtualClock::WaitUntil(std::condition_variable& cond,
                                       std::unique_lock<std::mutex>& lock, TimePoint deadline) {
    if (Now() >= deadline) {
        return std::cv_status::timeout;
    }
    std::list<Waiter>::iterator waiter;
    {
        std::lock_guard<std::mutex> guard(mLock);
        waiter = mWaiters.insert(mWaiters.end(), Waiter{deadline, &cond, lock.mutex()});
        ++mActivity;
        mChanged.notify_all();
    }
    cond.wait(lock);
    {
        std::unique_lock<std::mutex> guard(mLock);
        // The time thread may be about to take `lock` to notify: it gives up
        // once it sees the waiter has left, and the entry must live until then.
        waiter->cond = nullptr;
        mChanged.notify_all();
        mChanged.wait(guard, [&]() REQUIRES(mLock) { return !waiter->notifying; });
        mWaiters.erase(waiter);
        ++mActivity;
        mChanged.notify_all();
    }
    return Now() >= deadline ? std::cv_status::timeout : std::cv_status::no_timeout;
}

void VirtualClock::Settle() {
    std::unique_lock<std::mutex> guard(mLock);
    ++mSettlers;
    ++mActivity;
    const uint64_t round = mSettledRound;
    mChanged.notify_all();
    mSleepers.wait(guard, [&]() REQUIRES(mLock) { return mSettledRound != round; });
    --mSettlers;
}

bool VirtualClock::ScanOnce() {
    // The open stat files are read again as long as the process has as many
    // threads as were listed (and the time and main threads) and none of them
    // has gone; else list anew. A thread that ended and one that started in
    // its place show as a gone one.
    for (int attempt = 0; attempt < 2; ++attempt) {
        bool mainBlocked = false;
        const int threads = ReadMainThread(&mainBlocked);
        if (threads != static_cast<int>(mThreadFiles.size()) + 2) {
            ListThreads();
            continue;
        }
        if (!mainBlocked) {
            return false;
        }
        bool gone = false;
        for (size_t i = 0; i < mThreadFiles.size(); ++i) {
            const int blocked = ThreadBlocked(mThreadFiles[i].fd);
            if (blocked == 0) {
                // Most likely still running at the next look: read it first.
                std::swap(mThreadFiles[0], mThreadFiles[i]);
                return false;
            }
            if (blocked < 0) {
                // Its id may come back with a new thread, which needs a new file.
                close(mThreadFiles[i].fd);
                mThreadFiles[i] = {-1, -1};
                gone = true;
            }
        }
        if (!gone) {
            return true;
        }
        ListThreads();
    }
    return false;  // threads come and go: something runs
}

bool VirtualClock::ProcessIdle(int64_t busySince) {
    // Threads that burned CPU since the last look are not idle: no need to read
    // their states (the reads cost the kernel more than anything else the
    // clock does). One that is runnable but waits for a CPU burns none, hence
    // the scans; one that runs between two scans burns CPU, hence the last
    // check over them all. The scans are not paused between: a scan reads
    // every thread, which takes longer than a wake-up needs to show, and a
    // pause costs the kernel more than the reads (a timer, two switches).
    const int64_t cpu = OthersCpuNs();
    if (busySince >= 0 && cpu - busySince > kCpuSlack) {
        return false;
    }
    for (int scan = 0; scan < kIdleScans; ++scan) {
        const auto start = std::chrono::steady_clock::now();
        if (!ScanOnce()) {
            return false;
        }
        // A process with few threads scans too fast for that: keep them apart.
        const auto took = std::chrono::steady_clock::now() - start;
        if (scan + 1 < kIdleScans && took < kScanGap) {
            Pause(std::chrono::duration_cast<std::chrono::microseconds>(kScanGap - took));
        }
    }
    return OthersCpuNs() - cpu <= 2 * kCpuSlack;
}

void VirtualClock::Run() {
    mTimeTid = static_cast<int>(syscall(SYS_gettid));
    // The main thread's own stat file carries the process's thread count too,
    // and unlike /proc/self/stat, qemu-user passes it through unchanged.
    char path[64];
    snprintf(path, sizeof(path), "%s/%d/stat", kTaskDir, static_cast<int>(getpid()));
    mMainThreadStat = open(path, O_RDONLY | O_CLOEXEC);
    if (mMainThreadStat < 0) {
        abort();  // the clock cannot work without it
    }
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    // The others' CPU time when the last look found the process busy, -1 when
    // it found it idle.
    int64_t busySince = -1;
    std::unique_lock<std::mutex> guard(mLock);
    while (!mStop.load()) {
        bool pending = mSettlers > 0;
        for (const Waiter& waiter : mWaiters) {
            pending = pending || !waiter.due;
        }
        if (!pending) {
            busySince = -1;
            mChanged.wait(guard);
            continue;
        }
        const uint64_t activity = mActivity;
        guard.unlock();
        const bool idle = ProcessIdle(busySince);
        guard.lock();
        if (!idle || activity != mActivity) {
            guard.unlock();
            busySince = OthersCpuNs();
            Pause(kRetry);
            guard.lock();
            continue;
        }
        busySince = -1;
        const Waiter* next = nullptr;
        for (const Waiter& waiter : mWaiters) {
            if (!waiter.due && (next == nullptr || waiter.deadline < next->deadline)) {
                next = &waiter;
            }
        }
        if (next == nullptr) {
            // Nothing waits on time and nothing runs: whoever settles may go.
            ++mSettledRound;
            mSleepers.notify_all();
            mChanged.wait(guard,
                          [&]() REQUIRES(mLock) { return mStop.load() || mActivity != activity; });
            continue;
        }
        const TimePoint now = next->deadline;
        mNowNs.store(
            std::chrono::duration_cast<std::chrono::nanoseconds>(now.time_since_epoch()).count(),
            std::memory_order_release);
        mJumps.fetch_add(1, std::memory_order_relaxed);
        std::vector<Waiter*> toWake;
        for (Waiter& waiter : mWaiters) {
            if (!waiter.due && waiter.deadline <= now) {
                waiter.due = true;
                if (waiter.mutex != nullptr) {
                    waiter.notifying = true;
                    toWake.push_back(&waiter);
                }
            }
        }
        mSleepers.notify_all();
        guard.unlock();
        for (Waiter* waiter : toWake) {
            for (;;) {
                if (waiter->mutex->try_lock()) {
                    std::condition_variable* cond = nullptr;
                    {
                        std::lock_guard<std::mutex> state(mLock);
                        cond = waiter->cond;
                    }
                    if (cond != nullptr) {
                        cond->notify_all();
                    }
                    waiter->mutex->unlock();
                    break;
                }
                {
                    std::lock_guard<std::mutex> state(mLock);
                    if (waiter->cond == nullptr) {
                        break;  // it woke on its own and holds its lock again
                    }
                }
                Pause(kRetry);
            }
        }
        guard.lock();
        for (Waiter* waiter : toWake) {
            waiter->notifying = false;
        }
        mChanged.notify_all();
    }
}

VirtualClock& InstallVirtualClock(Pace pace) {
    static VirtualClock* const clock = [pace] {
        auto* installed = new VirtualClock(pace);
        pelcamera::InstallVirCamClock(installed);
        return installed;
    }();
    return *clock;
}

}  // namespace vircam_testclock
