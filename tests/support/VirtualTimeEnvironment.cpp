// Copyright (C) 2026 The libvircam Authors

// Built into the unit-test binaries: with VIRCAM_VIRTUAL_TIME set (ctest sets
// it for the tests that only sit out one of the product's time-outs), the
// process runs on the virtual clock, installed before the library's first use.
#include <cstdlib>

#include "VirtualClock.h"

namespace {

const bool kVirtualTime = [] {
    if (getenv("VIRCAM_VIRTUAL_TIME") == nullptr) {
        return false;
    }
    vircam_testclock::InstallVirtualClock();
    return true;
}();

}  // namespace
