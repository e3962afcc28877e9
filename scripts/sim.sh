#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Builds libvircam.so and vircam-sim, then runs the simulator with the given
# arguments (none: the default handover). See ./scripts/sim.sh --help.
# With --virtual-time first, builds and runs vircam-sim-virtual instead: the
# same simulator on the virtual clock, around the library's code linked in.
set -euo pipefail
cd "$(dirname "$0")/.."

program=vircam-sim
if [[ "${1:-}" == "--virtual-time" ]]; then
    program=vircam-sim-virtual
    shift
fi
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target "$program" >/dev/null
exec "./build/$program" "$@"
