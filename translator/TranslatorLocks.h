// The translator's process-wide locks, one per concern. Where two are held:
// g_requestMutex before g_flushStateMutex and before g_bufferMutex (a
// capture request's cache lookup), g_bufferMutex before g_configStreamMutex;
// g_callbackMutex is never taken with g_requestMutex held. Every one of them
// comes before the channel service's registry and what follows it (see
// VirCameraChannelForStreamChange.h), which the pipeline's calls reach
// through the translator; the translator's own leaf locks (m_statusMutex,
// m_snapshotMutex) come after everything.
#pragma once

#include <mutex>

#include "utils/ThreadAnnotations.h"

namespace pelcamera {

// Capture requests and flushes, one at a time.
extern std::mutex g_requestMutex;
// The buffer cache; registrations and the close sequence.
extern std::mutex g_bufferMutex ACQUIRED_AFTER(g_requestMutex);
// Metadata requests, one at a time (they may run during a flush).
extern std::mutex g_metaMutex;
// m_isFlushing.
extern std::mutex g_flushStateMutex ACQUIRED_AFTER(g_requestMutex);
// The pipeline callbacks, and the images and notifications sent to them.
extern std::mutex g_callbackMutex;
// The physical stream backup, and a reconfiguration sent while virtual.
extern std::mutex g_configStreamMutex ACQUIRED_AFTER(g_bufferMutex);

}  // namespace pelcamera
