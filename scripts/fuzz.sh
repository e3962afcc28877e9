#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Builds the fuzzers with clang (libFuzzer, UBSan, and ASan where it pays) and
# runs each for the given number of seconds (default 60) on a copy of its
# checked-in seed corpus. Usage: scripts/fuzz.sh [seconds]
#
# The sequence fuzzer searches in a build without ASan: its harness starts a
# thread per remote answer and per binder call, which ASan makes about twice
# as slow, and what it looks for are broken results, not memory errors. Its
# corpus is replayed under ASan first. VIRCAM_SEQUENCE_REPLAY=1: the sequence
# fuzzer only replays its corpus (under both builds).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

configure() {
    cmake -S . -B "$1" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
          -DVIRCAM_FUZZ=ON -DVIRCAM_SANITIZE="$2" >/dev/null
}
configure build-fuzz fuzzer-no-link,address,undefined
cmake --build build-fuzz
configure build-fuzz-seq fuzzer-no-link,undefined
cmake --build build-fuzz-seq --target call_sequence_fuzzer

filter() {
    grep -E "^(#|==|INFO: -|stat::|Done)|^ +#[0-9]+ |ERROR|SUMMARY|inconsistent" | tail -n 60
}

# notify: room for documents nested past the JSON reader's 1,000-level stack
# limit, as the whole command and inside "notifyMsgData", with a dictionary
# of the command's keys and of nesting.
mkdir -p build-fuzz/corpus-notify
cp -n fuzz/corpus/notify/* build-fuzz/corpus-notify/ 2>/dev/null || true
echo "== notify_fuzzer for ${seconds}s"
./build-fuzz/fuzz/notify_fuzzer -max_len=8192 -dict=fuzz/notify.dict -max_total_time="$seconds" \
    -timeout=30 -print_final_stats=1 build-fuzz/corpus-notify 2>&1 | filter

# The sequence fuzzer runs on virtual time: an input takes milliseconds.
echo "== call_sequence_fuzzer: the corpus under ASan"
./build-fuzz/fuzz/call_sequence_fuzzer -runs=0 -timeout=30 fuzz/corpus/sequence 2>&1 | filter
work=build-fuzz-seq/corpus-sequence
mkdir -p "$work"
cp -n fuzz/corpus/sequence/* "$work"/ 2>/dev/null || true
options=(-max_total_time="$seconds")
[ -n "${VIRCAM_SEQUENCE_REPLAY:-}" ] && options=(-runs=0)
echo "== call_sequence_fuzzer for ${seconds}s"
./build-fuzz-seq/fuzz/call_sequence_fuzzer "${options[@]}" -timeout=30 -print_final_stats=1 \
    "$work" 2>&1 | filter
