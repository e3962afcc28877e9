#!/usr/bin/env bash
# Copyright (C) 2026 The libvircam Authors
# Sourced by the setup scripts: install_missing NAME PACKAGE... installs the
# Debian packages that are not installed yet, and skips apt-get entirely
# when every one of them is there. NAME prefixes what it prints.
install_missing() {
    local name=$1
    shift
    local missing=()
    local p
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$p")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    echo "$name: installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get -o DPkg::Lock::Timeout=600 update -qq
    apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends "${missing[@]}" \
        >/dev/null
}
