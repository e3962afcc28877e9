// Copyright (C) 2026 The libvircam Authors

// One registered buffer of the pipeline. An entry of the translator's
// buffer cache, guarded by g_bufferCacheMutex as the cache is.
#pragma once

#include <cutils/native_handle.h>

#include <cstdint>

#include "translator/TranslatorLocks.h"

namespace pelcamera {

struct VirtualImageBuffer {
    // Entries in the cache when this one was made; informational.
    int32_t index GUARDED_BY(g_bufferCacheMutex) = 0;
    int32_t streamId GUARDED_BY(g_bufferCacheMutex) = 0;
    uint64_t bufferId GUARDED_BY(g_bufferCacheMutex) = 0;
    // Borrowed: the pipeline keeps the handle valid until Close.
    const native_handle_t* handle GUARDED_BY(g_bufferCacheMutex) = nullptr;
};

}  // namespace pelcamera
