// Copyright (C) 2026 The libvircam Authors

// What both served interfaces share to answer `lshal debug`: the options,
// a time budget for the locks a dump reads under, and writing the text out.
#pragma once

#include <hidl/HidlSupport.h>

#include <chrono>
#include <mutex>
#include <string>

#include "utils/ThreadAnnotations.h"

namespace pelcamera {

enum class DebugRequest {
    EVERYTHING,  // no option
    HISTORY,     // --history
    HELP,        // --help
    UNKNOWN,     // anything else, or more than one option
};

// Any thread.
DebugRequest ParseDebugOptions(
    const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options);

// A dump must never wait on a remote, and some of the locks it reads under
// are held through a remote call or a step's wait. Every lock of one dump is
// tried until a shared deadline, so a dump returns within about the budget
// however many of them are busy.
class DumpDeadline {
public:
    static constexpr std::chrono::milliseconds kBudget{100};

    // The dumping binder thread; no lock. The budget starts now.
    DumpDeadline();

    // Any thread; takes nothing but `mutex`, which it only tries. True when
    // it holds `mutex`: the caller adopts it into a guard.
    bool TryLock(std::mutex& mutex) const TRY_ACQUIRE(true, mutex);

private:
    std::chrono::steady_clock::time_point mEnd;
};

// Writes `text` to the first descriptor of `fd`. An empty handle, a closed
// or invalid descriptor, or a reader gone away ends it quietly: no signal
// reaches the process and nothing is logged. A reader that stops reading is
// given about half a second. Any thread; takes no lock.
void WriteDebugText(const ::android::hardware::hidl_handle& fd, const std::string& text);

// printf into the end of `out`. Any thread.
void AppendFormat(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));

// "12.345 ms" or "1.203 s". Any thread.
std::string FormatDuration(std::chrono::steady_clock::duration duration);

}  // namespace pelcamera
