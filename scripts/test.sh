#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Builds and runs every test. With "asan" or "tsan" the same suite runs under
# AddressSanitizer+UndefinedBehaviorSanitizer or ThreadSanitizer, each in a
# build folder of its own. With "arm64" it is built for the phone's
# architecture with the cross compiler and runs under qemu-user (installing
# what that needs first).
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-plain}
cross=()
case "$mode" in
    plain) dir=build; sanitize="" ;;
    asan) dir=build-asan; sanitize="address,undefined" ;;
    tsan) dir=build-tsan; sanitize="thread" ;;
    arm64)
        dir=build-arm64; sanitize=""
        ./scripts/setup-arm64.sh "$dir/arm64-libs"
        cross=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux-gnu.cmake")
        ;;
    *) echo "usage: $0 [plain|asan|tsan|arm64]" >&2; exit 2 ;;
esac

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# Without the second stack of each lock-order edge, a deadlock suppression
# (tools/hostsupport/SanitizerDefaults.cpp) matches only the frame that took the
# lock, not every later edge from a lock that frame once took.
# atexit_sleep_ms=0: TSan otherwise sleeps a second at exit while other
# threads live, which the exit tests would take for the library waiting.
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=0:atexit_sleep_ms=0}

cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVIRCAM_SANITIZE="$sanitize" \
    ${cross[@]+"${cross[@]}"} >/dev/null
cmake --build "$dir"
# Most slow tests sleep through the product's real time-outs, so run many
# at once even on two cores.
ctest --test-dir "$dir" -j 8 --output-on-failure
