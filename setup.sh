#!/usr/bin/env bash
# Installs what the host build needs on a fresh Debian 12 machine; skips
# apt-get entirely when everything is already there.
set -euo pipefail

packages=(cmake g++ ninja-build googletest libgtest-dev libgmock-dev libbenchmark-dev
          libjsoncpp-dev android-libutils-dev android-liblog-dev android-libcutils-dev
          android-libbase-dev clang libclang-rt-14-dev hidl-gen blueprint-tools)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get -o DPkg::Lock::Timeout=600 update -qq
    apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
