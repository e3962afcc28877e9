// Host build of vendor.travik.hardware.camera.vircamera@1.0::IVirCameraTranslator, as the HIDL
// generator produces it from IVirCameraTranslator.hal (methods in binding slot order).
#pragma once

#include <android/hardware/camera/common/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/types.h>
#include <functional>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

struct IVirCameraTranslator : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
        "vendor.travik.hardware.camera.vircamera@1.0::IVirCameraTranslator";

    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    ProcessCaptureRequest(int32_t cameraId,
                          const ::android::hardware::hidl_vec<VirImageBuffer>& buffers) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    RegisterBuffer(int32_t cameraId, uint64_t streamId, uint64_t bufferId,
                   const ::android::hardware::hidl_handle& buffer) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    ProcessMetaRequest(int32_t cameraId, const VirMetaRequest& request) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    BackupPhyConfigStreams(int32_t cameraId,
                           const ::android::hardware::hidl_vec<VirStream>& streams) = 0;
    virtual ::android::hardware::Return<void> RecordCameraMode(int32_t cameraId,
                                                               VirtualCamSwitchTypeT mode) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status> Close(
        int32_t cameraId) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status> Flush(
        int32_t cameraId) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    RegisterCameraTranslatorCallback(int32_t cameraId,
                                     const ::android::sp<IVirCameraTranslatorCallback>& cb) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    UnregisterCameraTranslatorCallback(int32_t cameraId) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    RunCommonCmdTranslator(uint32_t cmdId, const ::android::hardware::hidl_string& value) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        _hidl_cb({descriptor, ::android::hidl::base::V1_0::IBase::descriptor});
        return ::android::hardware::Void();
    }

    static ::android::hardware::Return<::android::sp<IVirCameraTranslator>> castFrom(
        const ::android::sp<IVirCameraTranslator>& parent, bool /*emitError*/ = false) {
        return parent;
    }
    static ::android::hardware::Return<::android::sp<IVirCameraTranslator>> castFrom(
        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false) {
        return ::android::hardware::details::castInterface<IVirCameraTranslator>(parent, descriptor,
                                                                                 emitError);
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
