// Host build of vendor.travik.hardware.camera.vircamera@1.0::IVirCameraChannelCallback, as the HIDL
// generator produces it from IVirCameraChannelCallback.hal (methods in binding slot order).
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

struct IVirCameraChannelCallback : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
        "vendor.travik.hardware.camera.vircamera@1.0::IVirCameraChannelCallback";

    using openControlSession_cb = std::function<void(
        ::android::hardware::camera::common::V1_0::Status status, uint32_t sessionId)>;
    virtual ::android::hardware::Return<void> openControlSession(
        const ::android::hardware::hidl_string& deviceId,
        const ::android::hardware::hidl_string& name, openControlSession_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    closeControlSession(uint32_t controlSessionId) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    configStream(uint32_t sessionId, const ::android::hardware::hidl_vec<VirStream>& streams) = 0;
    using openDataSession_cb = std::function<void(
        ::android::hardware::camera::common::V1_0::Status status, uint32_t sessionId)>;
    virtual ::android::hardware::Return<void> openDataSession(
        const ::android::hardware::hidl_string& deviceId,
        const ::android::hardware::hidl_string& name, openDataSession_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    closeDataSession(uint32_t dataSessionId) = 0;
    using processCaptureRequest_cb = std::function<void(
        ::android::hardware::camera::common::V1_0::Status status, uint32_t numRequestProcessed)>;
    virtual ::android::hardware::Return<void> processCaptureRequest(
        uint32_t dataSessionId, const ::android::hardware::hidl_vec<VirImageBuffer>& buffers,
        processCaptureRequest_cb _hidl_cb) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    processMetaRequest(uint32_t dataSessionId, const VirMetaRequest& request) = 0;
    virtual ::android::hardware::Return<void> reserved8() = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status> flush(
        uint32_t dataSessionId) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        _hidl_cb({descriptor, ::android::hidl::base::V1_0::IBase::descriptor});
        return ::android::hardware::Void();
    }

    static ::android::hardware::Return<::android::sp<IVirCameraChannelCallback>> castFrom(
        const ::android::sp<IVirCameraChannelCallback>& parent, bool /*emitError*/ = false) {
        return parent;
    }
    static ::android::hardware::Return<::android::sp<IVirCameraChannelCallback>> castFrom(
        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false) {
        return ::android::hardware::details::castInterface<IVirCameraChannelCallback>(
            parent, descriptor, emitError);
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
