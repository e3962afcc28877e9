#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Sequences a second of a built sequence fuzzer: replays every checked-in
# seed RUNS times (default 5) and divides by the wall time. The machine's
# load average is printed with it: the figure halves on two busy cores.
# Usage: fuzz/sequence/speed.sh [fuzzer=build-fuzz-seq/fuzz/call_sequence_fuzzer] [runs]
set -euo pipefail
cd "$(dirname "$0")/../.."
fuzzer=${1:-build-fuzz-seq/fuzz/call_sequence_fuzzer}
runs=${2:-5}
mapfile -t seeds < <(ls fuzz/corpus/sequence/* | sort)
start=$(date +%s.%N)
"$fuzzer" -runs="$runs" "${seeds[@]}" >/dev/null 2>&1
end=$(date +%s.%N)
python3 -c "n = ${#seeds[@]} * $runs; t = $end - $start
print('%d sequences in %.2f s: %.0f sequences/s (load %s)' % (n, t, n / t, '$(cut -d' ' -f1-3 /proc/loadavg)'))"
