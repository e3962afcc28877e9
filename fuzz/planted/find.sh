#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Puts a known fault back into a scratch copy of the committed tree, builds the
# sequence fuzzer there as scripts/fuzz.sh does, and times how long the
# fuzzer takes to find it from the checked-in corpus.
# Usage: fuzz/planted/find.sh [seconds=600] [patch...]   (default: every patch here)
# Prints one line per patch: found after N s (M sequences), or not found.
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-600}
shift || true
patches=("$@")
[ ${#patches[@]} -eq 0 ] && patches=(fuzz/planted/*.patch)
scratch=$(mktemp -d /tmp/vircam-planted.XXXXXX)
trap 'rm -rf "$scratch"' EXIT

# The committed tree, with `patch` applied when given.
build() {
    local tree=$1 patch=${2:-}
    mkdir -p "$tree"
    git archive HEAD | tar -x -C "$tree"
    [ -n "$patch" ] && (cd "$tree" && git apply) <"$patch"
    cmake -S "$tree" -B "$tree/build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
          -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVIRCAM_FUZZ=ON \
          -DVIRCAM_SANITIZE=fuzzer-no-link,undefined >/dev/null
    cmake --build "$tree/build" --target call_sequence_fuzzer >/dev/null
}

# A finding counts only if the library without the fault passes the same input.
build "$scratch/clean"
clean="$scratch/clean/build/fuzz/call_sequence_fuzzer"

for patch in "${patches[@]}"; do
    name=$(basename "$patch" .patch)
    tree="$scratch/$name"
    build "$tree" "$patch"
    mkdir -p "$tree/corpus" "$tree/out"
    cp fuzz/corpus/sequence/* "$tree/corpus/"
    start=$(date +%s.%N)
    (cd "$tree/out" && "$tree/build/fuzz/call_sequence_fuzzer" -max_total_time="$seconds" \
        -timeout=30 -print_final_stats=1 "$tree/corpus" >"$tree/log" 2>&1) || true
    took=$(python3 -c "print('%.0f' % ($(date +%s.%N) - $start))")
    runs=$(grep -oE "stat::number_of_executed_units: *[0-9]+" "$tree/log" | grep -oE "[0-9]+$" || true)
    crash=$(ls "$tree/out"/crash-* 2>/dev/null | head -n 1 || true)
    if [ -n "$crash" ]; then
        why=$(grep -m1 "broke the contract" "$tree/log" | sed 's/^== //')
        load=$(cut -d' ' -f1-3 /proc/loadavg)
        if (cd "$tree/out" && "$clean" -runs=5 "$crash" >/dev/null 2>&1); then
            echo "$name: found after ${took} s (${runs:-?} sequences; load $load): $why"
        else
            echo "$name: after ${took} s an input that fails without the fault too ($crash): $why"
            cp "$crash" "fuzz/planted/$name.false-finding"
        fi
    else
        echo "$name: not found in ${took} s (${runs:-?} sequences)"
    fi
done
