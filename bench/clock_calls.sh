#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Counts the library's reads of its clock seam (pelcamera::Clock) while each
# per-frame benchmark runs a short and a long time: equal counts mean the
# per-frame path never reads the clock, so the seam costs it nothing (the
# reads counted are the switch that sets the benchmark up).
# Usage: bench/clock_calls.sh [build dir=build]   (needs gdb and a -g build)
set -euo pipefail
cd "$(dirname "$0")/.."
bench=${1:-build}/bench/vircam_bench
script=$(mktemp)
trap 'rm -f "$script"' EXIT
cat >"$script" <<'GDB'
set pagination off
set breakpoint pending on
break pelcamera::Clock
commands
silent
continue
end
run
info breakpoints
GDB
for filter in 'BM_CaptureRequest/1/16$' 'BM_ImageDelivery/1$' 'BM_MetaRequest$'; do
    for seconds in 0.01 0.2; do
        out=$(gdb -q -batch -x "$script" --args "$bench" --benchmark_filter="$filter" \
              --benchmark_min_time="$seconds" 2>&1 | sed 's/\x1b\[[0-9;]*m//g')
        iterations=$(echo "$out" | grep -E "^BM_" | awk '{print $6}')
        calls=$(echo "$out" | grep -oE "already hit [0-9]+" | grep -oE "[0-9]+" || echo 0)
        echo "${filter%\$}: ${iterations} iterations, ${calls} clock reads"
    done
done
