// Copyright (C) 2026 The libvircam Authors

// IVirCameraTranslator as the camera HAL pipeline sees it: a thin front over
// the process-wide translator, with the pipeline's callbacks kept per camera.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslator.h>

#include <atomic>
#include <memory>
#include <string>

#include "translator/HidlCallbackMgrTranslator.h"

namespace pelcamera {

class CVirtualSwitchCameraTranslator;

class VirCameraChannelForTranslator
    : public ::vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslator {
public:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;
    template <typename T>
    using Return = ::android::hardware::Return<T>;
    using hidl_string = ::android::hardware::hidl_string;
    template <typename T>
    using hidl_vec = ::android::hardware::hidl_vec<T>;
    using VirImageBuffer = ::vendor::travik::hardware::camera::vircamera::V1_0::VirImageBuffer;
    using VirMetaRequest = ::vendor::travik::hardware::camera::vircamera::V1_0::VirMetaRequest;
    using VirStream = ::vendor::travik::hardware::camera::vircamera::V1_0::VirStream;
    using SwitchType = ::vendor::travik::hardware::camera::vircamera::V1_0::VirtualCamSwitchTypeT;
    using TranslatorCallback =
        ::vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslatorCallback;

    // CreateVirtualCameraTranslator, on the pipeline's thread; no lock.
    VirCameraChannelForTranslator();
    // The thread that drops the last reference (the pipeline's, or the death
    // thread through a recipient); no lock.
    ~VirCameraChannelForTranslator() override;

    // IVirCameraTranslator: the pipeline's binder threads, possibly in
    // parallel. The channel has no lock of its own; each method forwards to
    // the translator, which serialises with its process-wide locks (named per
    // method in CVirtualSwitchCameraTranslator.h).

    // g_requestMutex (translator).
    Return<CameraStatus> ProcessCaptureRequest(int32_t cameraId,
                                               const hidl_vec<VirImageBuffer>& buffers) override;
    // g_bufferMutex, then g_bufferCacheMutex (translator).
    Return<CameraStatus> RegisterBuffer(int32_t cameraId, uint64_t streamId, uint64_t bufferId,
                                        const ::android::hardware::hidl_handle& buffer) override;
    // g_metaMutex (translator).
    Return<CameraStatus> ProcessMetaRequest(int32_t cameraId,
                                            const VirMetaRequest& request) override;
    // g_configStreamMutex (translator), twice.
    Return<CameraStatus> BackupPhyConfigStreams(int32_t cameraId,
                                                const hidl_vec<VirStream>& streams) override;
    // The translator's status lock.
    Return<void> RecordCameraMode(int32_t cameraId, SwitchType mode) override;
    // g_bufferMutex, g_configStreamMutex inside it, then the channel service.
    Return<CameraStatus> Close(int32_t cameraId) override;
    // g_requestMutex, g_flushStateMutex inside it.
    Return<CameraStatus> Flush(int32_t cameraId) override;
    // g_callbackMutex, then the registry's locks, then the HAL-init handshake.
    Return<CameraStatus> RegisterCameraTranslatorCallback(
        int32_t cameraId, const ::android::sp<TranslatorCallback>& cb) override;
    // Also the death-notification thread; g_callbackMutex, then the registry's locks.
    Return<CameraStatus> UnregisterCameraTranslatorCallback(int32_t cameraId) override;
    // The status lock or g_flushStateMutex of the translator.
    Return<CameraStatus> RunCommonCmdTranslator(uint32_t cmdId, const hidl_string& value) override;

    // IBase, for `lshal debug`: the translator's state and counters as text
    // (TranslatorDebugDump.cpp). A binder thread. Never calls out and never
    // waits on a remote: the translator's locks that a call out holds are
    // only tried, until a deadline shared by the whole dump.
    Return<void> debug(const ::android::hardware::hidl_handle& fd,
                       const hidl_vec<hidl_string>& options) override;

    // Called by the registry, on the death-notification thread, when the
    // process holding a callback dies; the locks of the unregistration.
    void DoAfterTranslatorCallbackDead(const std::string& deviceId, const std::string& serviceId);

    // Tests; any thread, no lock (the registry is set once).
    const std::shared_ptr<HidlCallbackMgrTranslator>& CallbackMgr() const { return mCallbackMgr; }

private:
    // RunCommonCmdTranslator's binder thread; the translator's status leaf
    // lock, and g_flushStateMutex for the flush status.
    CameraStatus GetVirtualStatus();
    CameraStatus GetFlushStatus();

    // Both set once at construction.
    CVirtualSwitchCameraTranslator* mCamTrans;
    std::shared_ptr<HidlCallbackMgrTranslator> mCallbackMgr;
    // The camera registered last: written by a registration, read by an
    // unregistration that may run on the death-notification thread at the
    // same time, so it is atomic (no lock).
    std::atomic<int32_t> mCameraId{-1};
};

}  // namespace pelcamera

extern "C" {
// The pipeline's thread; a new channel each call, no lock.
__attribute__((visibility("default"))) pelcamera::VirCameraChannelForTranslator*
CreateVirtualCameraTranslator();
// Any thread; only logs, no lock.
__attribute__((visibility("default"))) int32_t RegisterVirCamStreamChangeLazyService();
}
