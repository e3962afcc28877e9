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

#include "translator/VirCameraStatus.h"
#include "translator/VirtualImageBuffer.h"

namespace pelcamera {

class VirCameraChannelForStreamChange;
class HidlCallbackMgrTranslator;

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

    // The process-wide translator, made on first use.
    static CVirtualSwitchCameraTranslator* GetInstance();

    CVirtualSwitchCameraTranslator();
    virtual ~CVirtualSwitchCameraTranslator();
    CVirtualSwitchCameraTranslator(const CVirtualSwitchCameraTranslator&) = delete;
    CVirtualSwitchCameraTranslator& operator=(const CVirtualSwitchCameraTranslator&) = delete;

    // Link to the channel service.
    bool NeedSetChannel() const { return m_channel.load() == nullptr; }
    void SetChannel(VirCameraChannelForStreamChange* channel) { m_channel = channel; }
    void SetHalInitStatus();

    // Pipeline callbacks.
    void SetTransCallback(const ::android::sp<TranslatorCallback>& callback,
                          int32_t camRearOrFront);
    void DelTransCallback(int32_t camRearOrFront);
    bool CheckTranslatorCallback();

    // The physical camera's stream configuration.
    int32_t BackupPhyConfigStreams(const VirStreamVec& streams);
    const VirStreamVec& GetCachedConfigStreams();
    // A copy taken under the lock: the switch-on worker reads the backup
    // while the pipeline may close or reconfigure.
    VirStreamVec CopyCachedConfigStreams();
    int32_t UpdateConfigureStreams();

    // Camera status and switching.
    bool IsVirtualStatus() const;
    bool IsFlushing();
    void RecordCameraMode(int32_t camId, SwitchType type);
    int32_t TriggerSwitchCamera(uint32_t virCamId, int32_t unused);
    int32_t FlushAndSetToPhyMode(int32_t virCamId);
    int32_t Flush();
    void EnableProperity(const std::string& value);
    void DisableProperity();

    // Buffers and requests.
    int32_t RegisterBuffer(uint64_t streamId, uint64_t bufferId,
                           const ::android::hardware::hidl_handle& buffer);
    int32_t ProcessCaptureRequest(const VirImageBufferVec& request);
    int32_t ProcessMetaRequest(const VirMetaRequest& request);
    int32_t OnImageBufferDone(const VirImageResult& result, int32_t unused);
    void onTranslatorImageBufferDone(const VirImageResult& result, int32_t unused);
    int32_t Close(int32_t cameraId, std::shared_ptr<HidlCallbackMgrTranslator>& callbackMgr);

    // State reads for diagnostics and tests.
    VirCameraStatus GetCamStatus() const;
    size_t CachedBufferCount() const;
    const native_handle_t* CachedHandle(int32_t streamId, uint64_t bufferId) const;

private:
    bool ValidSwitchCameraParam(uint32_t virCamId);
    void SetStatus(int32_t camId, int32_t camMode);
    void NotifyFlushToPipeline();
    static VirImageBufferVec BorrowingCopy(const VirImageBufferVec& request);
    void FillCachedHandles(VirImageBufferVec& request);
    VirCameraChannelForStreamChange* VirtualChannel(const char* caller, VirCameraStatus& status);

    std::map<std::pair<int32_t, uint64_t>, std::shared_ptr<VirtualImageBuffer>> m_cachedBuffers;
    VirStreamVec m_phyConfigStreams;
    std::shared_ptr<VirCameraStatus> m_camStatus;
    // The status, the channel link and the flush record are shared between
    // the pipeline's threads and the switch workers; a leaf lock and atomics
    // keep them whole without adding to the lock order.
    mutable std::mutex m_statusMutex;
    std::atomic<VirCameraChannelForStreamChange*> m_channel{nullptr};
    bool m_isFlushing = false;
    std::atomic<bool> flushEventStatus{false};
    std::map<int32_t, ::android::sp<TranslatorCallback>> m_cbTranslatorCallback;
};

}  // namespace pelcamera
