// Host build of vendor.travik.hardware.camera.vircamera@1.0::IVirCameraTranslatorCallback, as the
// HIDL generator produces it from IVirCameraTranslatorCallback.hal (methods in binding slot order).
#pragma once

#include <android/hardware/camera/common/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/types.h>

#include <functional>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

struct IVirCameraTranslatorCallback : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
        "vendor.travik.hardware.camera.vircamera@1.0::IVirCameraTranslatorCallback";

    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    ProcessCaptureResult(const VirImageResult& result) = 0;
    virtual ::android::hardware::Return<void> reserved2() = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    NotifyCommonCmd(uint32_t cmdId, const ::android::hardware::hidl_string& value) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        _hidl_cb({descriptor, ::android::hidl::base::V1_0::IBase::descriptor});
        return ::android::hardware::Void();
    }

    static ::android::hardware::Return<::android::sp<IVirCameraTranslatorCallback>> castFrom(
        const ::android::sp<IVirCameraTranslatorCallback>& parent, bool /*emitError*/ = false) {
        return parent;
    }
    static ::android::hardware::Return<::android::sp<IVirCameraTranslatorCallback>> castFrom(
        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false) {
        return ::android::hardware::details::castInterface<IVirCameraTranslatorCallback>(
            parent, descriptor, emitError);
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
