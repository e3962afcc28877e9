// Copyright (C) 2026 The libvircam Authors

// Counts heap allocations of the whole process (library included) by
// replacing the global operator new of the benchmark binary.
#pragma once

#include <cstdint>

namespace vircam_bench {

uint64_t AllocationCount();

}  // namespace vircam_bench
