// IVirCameraTranslator as the camera HAL pipeline sees it: a thin front over
// the process-wide translator, with the pipeline's callbacks kept per camera.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslator.h>

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

    VirCameraChannelForTranslator();
    ~VirCameraChannelForTranslator() override;

    Return<CameraStatus> ProcessCaptureRequest(int32_t cameraId,
                                               const hidl_vec<VirImageBuffer>& buffers) override;
    Return<CameraStatus> RegisterBuffer(int32_t cameraId, uint64_t streamId, uint64_t bufferId,
                                        const ::android::hardware::hidl_handle& buffer) override;
    Return<CameraStatus> ProcessMetaRequest(int32_t cameraId,
                                            const VirMetaRequest& request) override;
    Return<CameraStatus> BackupPhyConfigStreams(int32_t cameraId,
                                                const hidl_vec<VirStream>& streams) override;
    Return<void> RecordCameraMode(int32_t cameraId, SwitchType mode) override;
    Return<CameraStatus> Close(int32_t cameraId) override;
    Return<CameraStatus> Flush(int32_t cameraId) override;
    Return<CameraStatus> RegisterCameraTranslatorCallback(
        int32_t cameraId, const ::android::sp<TranslatorCallback>& cb) override;
    Return<CameraStatus> UnregisterCameraTranslatorCallback(int32_t cameraId) override;
    Return<CameraStatus> RunCommonCmdTranslator(uint32_t cmdId, const hidl_string& value) override;

    // Called by the registry when the process holding a callback dies.
    void DoAfterTranslatorCallbackDead(const std::string& deviceId, const std::string& serviceId);

    const std::shared_ptr<HidlCallbackMgrTranslator>& CallbackMgr() const { return mCallbackMgr; }

private:
    CameraStatus GetVirtualStatus();
    CameraStatus GetFlushStatus();

    CVirtualSwitchCameraTranslator* mCamTrans;
    std::shared_ptr<HidlCallbackMgrTranslator> mCallbackMgr;
    int32_t mCameraId = -1;
};

}  // namespace pelcamera

extern "C" {
__attribute__((visibility("default"))) pelcamera::VirCameraChannelForTranslator*
CreateVirtualCameraTranslator();
__attribute__((visibility("default"))) int32_t RegisterVirCamStreamChangeLazyService();
}
