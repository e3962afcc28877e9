#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Clang's thread-safety analysis over the library, as the device toolchain
# runs it: clang with libc++, whose std::mutex and std::lock_guard carry
# capability attributes, -Wthread-safety and -Werror. Compile only: Debian's
# AOSP libraries are built against libstdc++, so nothing here can be linked.
# Exits non-zero on any finding.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build hidl-gen clang-14 libc++-14-dev libc++abi-14-dev android-libutils-dev
          android-liblog-dev android-libcutils-dev android-libbase-dev libjsoncpp-dev
          libgtest-dev libgmock-dev libbenchmark-dev)
source scripts/install-missing.sh
install_missing analyze "${packages[@]}"

dir=build-analyze
# -Wexit-time-destructors: nothing of the library may be destroyed at exit,
# where binder threads and the workers still use it. With libc++, as on the
# device, where even a std::mutex has a destructor.
flags="-stdlib=libc++ -D_LIBCPP_ENABLE_THREAD_SAFETY_ANNOTATIONS -Wthread-safety -Wexit-time-destructors"
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++-14 \
    -DCMAKE_CXX_FLAGS="$flags" -DVIRCAM_SANITIZE= >/dev/null
# vircam_core is an object library: utils/, streamchange/ and translator/,
# compiled and never linked.
cmake --build "$dir" --target vircam_core -- -k 0
echo "analyze: no thread-safety finding and no exit-time destructor in utils/, streamchange/, translator/"
