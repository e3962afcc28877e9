// The translator's process-wide locks, one per concern. Where two are held:
// g_requestMutex before g_flushStateMutex, g_bufferMutex before
// g_configStreamMutex; g_callbackMutex is never taken with g_requestMutex held.
#pragma once

#include <mutex>

namespace pelcamera {

extern std::mutex g_requestMutex;       // the request / flush sequence
extern std::mutex g_bufferMutex;        // the buffer cache and the close sequence
extern std::mutex g_metaMutex;          // metadata requests
extern std::mutex g_flushStateMutex;    // m_isFlushing
extern std::mutex g_callbackMutex;      // the pipeline callbacks
extern std::mutex g_configStreamMutex;  // the physical stream backup

}  // namespace pelcamera
