// Copyright (C) 2026 The libvircam Authors

#include "utils/DebugDump.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <thread>

#include "utils/VirCamClock.h"

namespace pelcamera {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{1};
constexpr std::chrono::milliseconds kWriteBudget{500};

// A pipe whose reader is gone raises SIGPIPE, which would end the camera
// HAL. It is blocked on this thread for the write, and one it raised is
// taken back before the mask is restored.
class SigPipeGuard {
public:
    SigPipeGuard() {
        sigemptyset(&mPipeSet);
        sigaddset(&mPipeSet, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
        mBlocked = pthread_sigmask(SIG_BLOCK, &mPipeSet, &mOldMask) == 0;
    }
    ~SigPipeGuard() {
        if (!mBlocked) {
            return;
        }
        if (mRaised && !mWasPending) {
            const timespec noWait = {0, 0};
            sigtimedwait(&mPipeSet, nullptr, &noWait);
        }
        pthread_sigmask(SIG_SETMASK, &mOldMask, nullptr);
    }
    SigPipeGuard(const SigPipeGuard&) = delete;
    SigPipeGuard& operator=(const SigPipeGuard&) = delete;

    void Raised() { mRaised = true; }

private:
    sigset_t mPipeSet{};
    sigset_t mOldMask{};
    bool mWasPending = false;
    bool mBlocked = false;
    bool mRaised = false;
};

int DebugFdOf(const ::android::hardware::hidl_handle& handle) {
    const native_handle_t* native = handle.getNativeHandle();
    if (native == nullptr || native->numFds < 1 || native->data[0] < 0) {
        return -1;
    }
    return fcntl(native->data[0], F_GETFD) == -1 ? -1 : native->data[0];
}

}  // namespace

DebugRequest ParseDebugOptions(
    const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options) {
    if (options.size() == 0) {
        return DebugRequest::EVERYTHING;
    }
    if (options.size() > 1) {
        return DebugRequest::UNKNOWN;
    }
    if (options[0] == "--history") {
        return DebugRequest::HISTORY;
    }
    if (options[0] == "--help") {
        return DebugRequest::HELP;
    }
    return DebugRequest::UNKNOWN;
}

DumpDeadline::DumpDeadline() : mEnd(Clock().Now() + kBudget) {}

bool DumpDeadline::TryLock(std::mutex& mutex) const {
    while (!mutex.try_lock()) {
        if (Clock().Now() >= mEnd) {
            return false;
        }
        Clock().SleepFor(kRetryInterval);
    }
    return true;
}

void WriteDebugText(const ::android::hardware::hidl_handle& fd, const std::string& text) {
    const int out = DebugFdOf(fd);
    if (out < 0) {
        return;
    }
    SigPipeGuard guard;
    // A reader's pace is real time, whatever clock the library runs on.
    const auto end = std::chrono::steady_clock::now() + kWriteBudget;
    size_t written = 0;
    while (written < text.size()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd ready = {out, POLLOUT, 0};
        if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0 ||
            (ready.revents & POLLOUT) == 0) {
            // Closed, broken, or a reader that does not read.
            return;
        }
        const ssize_t n = write(out, text.data() + written, text.size() - written);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            if (errno == EPIPE) {
                guard.Raised();
            }
            return;
        }
        written += static_cast<size_t>(n);
    }
}

void AppendFormat(std::string& out, const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length > 0) {
        const size_t start = out.size();
        out.resize(start + static_cast<size_t>(length) + 1);
        vsnprintf(&out[start], static_cast<size_t>(length) + 1, format, args);
        out.resize(start + static_cast<size_t>(length));
    }
    va_end(args);
}

std::string FormatDuration(std::chrono::steady_clock::duration duration) {
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(duration).count();
    char text[32];
    if (micros >= 1000000) {
        snprintf(text, sizeof(text), "%" PRId64 ".%03" PRId64 " s",
                 static_cast<int64_t>(micros / 1000000),
                 static_cast<int64_t>((micros % 1000000) / 1000));
    } else {
        snprintf(text, sizeof(text), "%" PRId64 ".%03" PRId64 " ms",
                 static_cast<int64_t>(micros / 1000), static_cast<int64_t>(micros % 1000));
    }
    return text;
}

}  // namespace pelcamera
