#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Installs what the arm64 cross build needs beside the host build's packages:
# the cross compiler, qemu-user and the arm64 builds of the same libraries.
# Skips apt-get entirely when everything is already there. $1 is the folder
# into which the arm64 7z.so is unpacked (see cmake/aarch64-linux-gnu.cmake).
set -euo pipefail
libs_dir=$1

packages=(cmake ninja-build hidl-gen g++-aarch64-linux-gnu qemu-user android-libutils-dev:arm64
          android-liblog-dev:arm64 android-libcutils-dev:arm64 android-libbase-dev:arm64 libjsoncpp-dev:arm64
          libgtest-dev:arm64 libgmock-dev:arm64 libbenchmark-dev:arm64)

if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    dpkg --add-architecture arm64
fi
source "$(dirname "$0")/install-missing.sh"
install_missing setup-arm64 "${packages[@]}"

# p7zip-full:arm64 conflicts with the host's p7zip-full, so its 7z.so is
# unpacked into the build instead of installed.
if [ ! -f "$libs_dir/usr/lib/p7zip/7z.so" ]; then
    mkdir -p "$libs_dir"
    download=$(mktemp -d)
    (cd "$download" && apt-get download -qq p7zip-full:arm64)
    dpkg -x "$download"/p7zip-full_*_arm64.deb "$libs_dir"
    rm -rf "$download"
fi
