// Copyright (C) 2026 The libvircam Authors

// The translator's process-wide locks, one per concern. Where two are held:
// g_requestMutex before g_flushStateMutex, g_bufferMutex before
// g_configStreamMutex; g_bufferCacheMutex is a leaf, taken last and never
// held across a call out;
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
// Registrations and the close sequence, one at a time. Close holds it while
// it waits for a reconfiguration's remote call and the remote's close.
extern std::mutex g_bufferMutex;
// The buffer cache's data alone: a capture request's lookup waits only for
// another lookup or a registration's insert, never for a Close.
extern std::mutex g_bufferCacheMutex ACQUIRED_AFTER(g_requestMutex, g_bufferMutex);
// Metadata requests, one at a time (they may run during a flush).
extern std::mutex g_metaMutex;
// m_isFlushing.
extern std::mutex g_flushStateMutex ACQUIRED_AFTER(g_requestMutex);
// The pipeline callbacks, and the images and notifications sent to them.
extern std::mutex g_callbackMutex;
// The physical stream backup, and a reconfiguration sent while virtual.
extern std::mutex g_configStreamMutex ACQUIRED_AFTER(g_bufferMutex);

}  // namespace pelcamera
