#!/bin/sh
# Copyright (C) 2026 The libvircam Authors
# The library leaves exactly its three C entry points in the dynamic symbol
# table: nothing of its C++ internals may be linked against by the host.
set -eu
expected="CreateVirtualCameraStreamChange
CreateVirtualCameraTranslator
RegisterVirCamStreamChangeLazyService"
actual=$(nm -D --defined-only "$1" | awk '{print $3}' | sort)
if [ "$actual" != "$expected" ]; then
    echo "exported symbols differ:"; echo "$actual"
    exit 1
fi
echo "exported symbols: $(echo "$actual" | tr '\n' ' ')"
