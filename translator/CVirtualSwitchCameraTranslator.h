// Copyright (C) 2026 The libvircam Authors

// The one object in the camera HAL process that knows whether the open
// camera is fed by the local sensor or by a virtual camera, and translates
// the pipeline's traffic while it is virtual.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/types.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "translator/TranslatorCounters.h"
#include "translator/TranslatorLocks.h"
#include "translator/VirCameraStatus.h"
#include "translator/VirtualImageBuffer.h"
#include "utils/ThreadAnnotations.h"

namespace pelcamera {

class VirCameraChannelForStreamChange;
class HidlCallbackMgrTranslator;
class DumpDeadline;

class CVirtualSwitchCameraTranslator {
public:
    using VirImageBufferVec = ::android::hardware::hidl_vec<
        ::vendor::travik::hardware::camera::vircamera::V1_0::VirImageBuffer>;
    using VirStreamVec = ::android::hardware::hidl_vec<
        ::vendor::travik::hardware::camera::vircamera::V1_0::VirStream>;
    using VirImageResult = ::vendor::travik::hardware::camera::vircamera::V1_0::VirImageResult;
    using VirMetaRequest = ::vendor::travik::hardware::camera::vircamera::V1_0::VirMetaRequest;
    using TranslatorCallback =
        ::vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslatorCallback;
    using SwitchType = ::vendor::travik::hardware::camera::vircamera::V1_0::VirtualCamSwitchTypeT;

    // The process-wide translator, made on first use; any thread.
    static CVirtualSwitchCameraTranslator* GetInstance();

    // Once, in GetInstance, on the first caller's thread; no lock.
    CVirtualSwitchCameraTranslator();
    // Never runs: the one translator lives until the process ends.
    virtual ~CVirtualSwitchCameraTranslator() = default;
    CVirtualSwitchCameraTranslator(const CVirtualSwitchCameraTranslator&) = delete;
    CVirtualSwitchCameraTranslator& operator=(const CVirtualSwitchCameraTranslator&) = delete;

    // Link to the channel service: its constructor, destructor and switch-on
    // worker; the link is atomic, no lock.
    bool NeedSetChannel() const { return m_channel.load() == nullptr; }
    void SetChannel(VirCameraChannelForStreamChange* channel) { m_channel = channel; }
    // The pipeline's binder thread (callback registration); the channel
    // service's HAL-init handshake, no lock here.
    void SetHalInitStatus();

    // Pipeline callbacks: the pipeline's binder threads (and the
    // death-notification thread, through its unregistration), the switch-on
    // worker for the check; each under g_callbackMutex.
    void SetTransCallback(const ::android::sp<TranslatorCallback>& callback, int32_t camRearOrFront)
        EXCLUDES(g_callbackMutex);
    void DelTransCallback(int32_t camRearOrFront) EXCLUDES(g_callbackMutex);
    bool CheckTranslatorCallback() EXCLUDES(g_callbackMutex);

    // The physical camera's stream configuration.

    // The pipeline's binder thread: g_configStreamMutex for the backup (the
    // snapshot's leaf lock inside it), released before UpdateConfigureStreams.
    int32_t BackupPhyConfigStreams(const VirStreamVec& streams) EXCLUDES(g_configStreamMutex);
    // Tests: the reference outlives g_configStreamMutex, so it may only be
    // read while nothing reconfigures or closes.
    const VirStreamVec& GetCachedConfigStreams() EXCLUDES(g_configStreamMutex);
    // The backup as last published, for the switch-on worker. It takes only a
    // leaf lock, never g_configStreamMutex: a reconfiguration while virtual
    // holds that lock while it calls into the channel service, whose Step2
    // reads the backup with the channel registry held. The snapshot is never
    // changed once published, so the worker may read it with no lock at all,
    // even while Close() or a new backup replaces it.
    std::shared_ptr<const VirStreamVec> ConfigStreamsSnapshot() const EXCLUDES(m_snapshotMutex);
    // The pipeline's binder thread: m_statusMutex briefly, then
    // g_configStreamMutex through the channel service's ConfigureStreams and
    // its wait for the remote.
    int32_t UpdateConfigureStreams() EXCLUDES(g_configStreamMutex);

    // Camera status and switching.

    // Any thread; m_statusMutex.
    bool IsVirtualStatus() const EXCLUDES(m_statusMutex);
    // The pipeline's binder thread; g_flushStateMutex.
    bool IsFlushing() EXCLUDES(g_flushStateMutex);
    // The pipeline's binder thread; m_statusMutex.
    void RecordCameraMode(int32_t camId, SwitchType type) EXCLUDES(m_statusMutex);
    // The switch workers (with their sequence locks): m_statusMutex; the way
    // back takes the locks of FlushAndSetToPhyMode.
    int32_t TriggerSwitchCamera(uint32_t virCamId, int32_t unused)
        EXCLUDES(m_statusMutex, g_requestMutex, g_flushStateMutex, g_callbackMutex);
    // The switch-off worker: g_flushStateMutex, then g_requestMutex through
    // the channel's flush, then g_callbackMutex for the notification, then
    // g_flushStateMutex again; never two at once.
    int32_t FlushAndSetToPhyMode(int32_t virCamId)
        EXCLUDES(g_requestMutex, g_flushStateMutex, g_callbackMutex);
    // The pipeline's binder thread (and the destructor): g_requestMutex
    // through the channel's flush, g_flushStateMutex inside it.
    int32_t Flush() EXCLUDES(g_requestMutex, g_flushStateMutex);
    // The switch workers and the pipeline's Close; the system property, no lock.
    void EnableProperity(const std::string& value);
    void DisableProperity();

    // Buffers and requests.

    // The pipeline's binder thread; g_bufferMutex, g_bufferCacheMutex for the
    // insert.
    int32_t RegisterBuffer(uint64_t streamId, uint64_t bufferId,
                           const ::android::hardware::hidl_handle& buffer)
        EXCLUDES(g_bufferMutex, g_bufferCacheMutex);
    // The pipeline's binder thread; g_requestMutex through the channel's
    // remote call, g_bufferCacheMutex for the lookups. Waits for no other
    // thread's remote call or timed wait.
    int32_t ProcessCaptureRequest(const VirImageBufferVec& request) EXCLUDES(g_requestMutex);
    // The pipeline's binder thread; g_metaMutex through the channel's remote call.
    int32_t ProcessMetaRequest(const VirMetaRequest& request) EXCLUDES(g_metaMutex);
    // A remote channel's binder thread (onVirImageBufferDone); g_callbackMutex
    // through the calls into the pipeline.
    int32_t OnImageBufferDone(const VirImageResult& result, int32_t unused)
        EXCLUDES(g_callbackMutex);
    void onTranslatorImageBufferDone(const VirImageResult& result, int32_t unused)
        EXCLUDES(g_callbackMutex);
    // The pipeline's binder thread: g_bufferMutex throughout, with
    // g_bufferCacheMutex and then g_configStreamMutex inside it briefly, then
    // the channel service's Close.
    int32_t Close(int32_t cameraId, std::shared_ptr<HidlCallbackMgrTranslator>& callbackMgr)
        EXCLUDES(g_bufferMutex, g_bufferCacheMutex, g_configStreamMutex);

    // State reads for diagnostics and tests: any thread, each under the one
    // lock of what it reads.
    VirCameraStatus GetCamStatus() const EXCLUDES(m_statusMutex);
    size_t CachedBufferCount() const EXCLUDES(g_bufferCacheMutex);
    const native_handle_t* CachedHandle(int32_t streamId, uint64_t bufferId) const
        EXCLUDES(g_bufferCacheMutex);

private:
    // The switch workers; m_statusMutex.
    bool ValidSwitchCameraParam(uint32_t virCamId) EXCLUDES(m_statusMutex);
    void SetStatus(int32_t camId, int32_t camMode) EXCLUDES(m_statusMutex);
    // The switch-off worker, g_requestMutex released; g_callbackMutex through
    // the calls into the pipeline.
    void NotifyFlushToPipeline() EXCLUDES(g_callbackMutex, g_requestMutex);
    // No lock: the request is the caller's.
    static VirImageBufferVec BorrowingCopy(const VirImageBufferVec& request);
    // The pipeline's binder thread inside ProcessCaptureRequest; takes
    // g_bufferCacheMutex for the lookups alone, so that a registration or a
    // Close never changes the map under the search and a Close waiting on a
    // remote never holds the request up.
    void FillCachedHandles(VirImageBufferVec& request) REQUIRES(g_requestMutex)
        EXCLUDES(g_bufferCacheMutex);
    // The pipeline's binder thread, inside g_requestMutex or g_metaMutex;
    // m_statusMutex.
    VirCameraChannelForStreamChange* VirtualChannel(const char* caller, VirCameraStatus& status)
        EXCLUDES(m_statusMutex);
    // The pipeline's binder thread with g_configStreamMutex held, so that
    // snapshots are published in the order the backup changes; takes the
    // snapshot's leaf lock.
    void PublishConfigStreamsLocked() REQUIRES(g_configStreamMutex) EXCLUDES(m_snapshotMutex);

    // The pipeline's buffers by (stream id, buffer id).
    std::map<std::pair<int32_t, uint64_t>, std::shared_ptr<VirtualImageBuffer>> m_cachedBuffers
        GUARDED_BY(g_bufferCacheMutex);
    // The physical camera's streams, as the pipeline last configured them.
    VirStreamVec m_phyConfigStreams GUARDED_BY(g_configStreamMutex);
    // The status and the flush record are shared between the pipeline's
    // threads and the switch workers; a leaf lock and atomics keep them whole
    // without adding to the lock order.
    mutable std::mutex m_statusMutex;
    std::shared_ptr<VirCameraStatus> m_camStatus PT_GUARDED_BY(m_statusMutex);
    std::atomic<VirCameraChannelForStreamChange*> m_channel{nullptr};
    bool m_isFlushing GUARDED_BY(g_flushStateMutex) = false;
    std::atomic<bool> flushEventStatus{false};
    std::map<int32_t, ::android::sp<TranslatorCallback>> m_cbTranslatorCallback
        GUARDED_BY(g_callbackMutex);

    // A copy of m_phyConfigStreams, replaced whole whenever the backup
    // changes (under g_configStreamMutex, then this leaf lock).
    mutable std::mutex m_snapshotMutex;
    std::shared_ptr<const VirStreamVec> m_configStreamsSnapshot GUARDED_BY(m_snapshotMutex);

public:
    // For `lshal debug` (TranslatorDebugDump.cpp): the translator's state as
    // text. A binder thread. g_callbackMutex, g_bufferCacheMutex and
    // g_flushStateMutex are only tried through `deadline`, one at a time;
    // the status and the stream snapshot take their leaf locks.
    std::string DumpState(const DumpDeadline& deadline) const;
    // The channel service linked now, or null. Any thread; lock-free.
    VirCameraChannelForStreamChange* LinkedChannel() const { return m_channel.load(); }

private:
    void DumpCallbacks(std::string& out, const DumpDeadline& deadline) const;
    void DumpStreamsAndBuffers(std::string& out, const DumpDeadline& deadline) const;
    // DumpState's binder thread; lock-free reads of the counters.
    void DumpCounters(std::string& out) const;
    // Bumped by the frame path without a lock.
    TranslatorCounters m_counters;
};

}  // namespace pelcamera
