#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Installs what the host build needs on a fresh Debian 12 machine; skips
# apt-get entirely when everything is already there.
set -euo pipefail

packages=(cmake g++ ninja-build googletest libgtest-dev libgmock-dev libbenchmark-dev
          libjsoncpp-dev android-libutils-dev android-liblog-dev android-libcutils-dev
          android-libbase-dev clang libclang-rt-14-dev hidl-gen blueprint-tools)

source "$(dirname "$0")/scripts/install-missing.sh"
install_missing setup "${packages[@]}"
