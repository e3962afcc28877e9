#!/usr/bin/env bash
# Builds and runs every test. With "asan" or "tsan" the same suite runs under
# AddressSanitizer+UndefinedBehaviorSanitizer or ThreadSanitizer, each in a
# build folder of its own.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:-plain}
case "$mode" in
    plain) dir=build; sanitize="" ;;
    asan) dir=build-asan; sanitize="address,undefined" ;;
    tsan) dir=build-tsan; sanitize="thread" ;;
    *) echo "usage: $0 [plain|asan|tsan]" >&2; exit 2 ;;
esac

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}

cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVIRCAM_SANITIZE="$sanitize" >/dev/null
cmake --build "$dir"
# Most slow tests sleep through the product's real time-outs, so run many
# at once even on two cores.
ctest --test-dir "$dir" -j 8 --output-on-failure
