// Host build of vendor.travik.hardware.camera.vircamera@1.0::IVirCameraSwitchCallback, as the HIDL
// generator produces it from IVirCameraSwitchCallback.hal (methods in binding slot order).
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

struct IVirCameraSwitchCallback : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
        "vendor.travik.hardware.camera.vircamera@1.0::IVirCameraSwitchCallback";

    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    notifySwitchOnResult(uint32_t seqNum, int32_t result) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    notifySwitchOffResult(uint32_t seqNum, int32_t result) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        _hidl_cb({descriptor, ::android::hidl::base::V1_0::IBase::descriptor});
        return ::android::hardware::Void();
    }

    static ::android::hardware::Return<::android::sp<IVirCameraSwitchCallback>> castFrom(
        const ::android::sp<IVirCameraSwitchCallback>& parent, bool /*emitError*/ = false) {
        return parent;
    }
    static ::android::hardware::Return<::android::sp<IVirCameraSwitchCallback>> castFrom(
        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false) {
        return ::android::hardware::details::castInterface<IVirCameraSwitchCallback>(
            parent, descriptor, emitError);
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
