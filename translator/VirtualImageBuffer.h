// One registered buffer of the pipeline. An entry of the translator's
// buffer cache, guarded by g_bufferMutex as the cache is.
#pragma once

#include <cutils/native_handle.h>

#include <cstdint>

namespace pelcamera {

struct VirtualImageBuffer {
    int32_t index = 0;  // entries in the cache when this one was made; informational
    int32_t streamId = 0;
    uint64_t bufferId = 0;
    // Borrowed: the pipeline keeps the handle valid until Close.
    const native_handle_t* handle = nullptr;
};

}  // namespace pelcamera
