#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Builds libvircam.so and vircam-sim, then runs the simulator with the given
# arguments (none: the default handover). See ./scripts/sim.sh --help.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target vircam-sim >/dev/null
exec ./build/vircam-sim "$@"
