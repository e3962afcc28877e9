// Copyright (C) 2026 The libvircam Authors

// One clock for every actor of a run, so that the timeline, the trace and the
// latency figures agree on what happened when.
#pragma once

#include <chrono>
#include <cstdint>

namespace vircam_sim {

// Microseconds since the first call (main makes that call first thing).
inline int64_t NowUs() {
    static const auto start = std::chrono::steady_clock::now();
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() -
                                                                 start)
        .count();
}

}  // namespace vircam_sim
