#!/usr/bin/env bash
# Builds the fuzzers with clang (libFuzzer, ASan, UBSan) and runs each for
# the given number of seconds (default 60) on a copy of its checked-in seed
# corpus. Usage: scripts/fuzz.sh [seconds]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DVIRCAM_FUZZ=ON -DVIRCAM_SANITIZE=fuzzer-no-link,address,undefined >/dev/null
cmake --build build-fuzz

# notify: room for documents nested past the JSON reader's 1,000-level stack
# limit, as the whole command and inside "notifyMsgData", with a dictionary
# of the command's keys and of nesting.

for target in notify:notify_fuzzer sequence:call_sequence_fuzzer; do
    corpus=${target%%:*}
    fuzzer=${target##*:}
    options=()
    [ "$corpus" = notify ] && options=(-max_len=8192 -dict=fuzz/notify.dict)
    # VIRCAM_SEQUENCE_REPLAY=1: the sequence fuzzer only replays its corpus.
    if [ "$corpus" = sequence ] && [ -n "${VIRCAM_SEQUENCE_REPLAY:-}" ]; then
        options=(-runs=0)
    fi
    work=build-fuzz/corpus-$corpus
    mkdir -p "$work"
    cp -n fuzz/corpus/"$corpus"/* "$work"/ 2>/dev/null || true
    echo "== $fuzzer for ${seconds}s"
    # The sequence fuzzer runs on virtual time: an input takes milliseconds.
    ./build-fuzz/fuzz/"$fuzzer" "${options[@]}" -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
        "$work" 2>&1 | grep -E "^(#|==|INFO: -|stat::|Done)|^ +#[0-9]+ |ERROR|SUMMARY|inconsistent" | tail -n 60
done
