// Host build of vendor.travik.hardware.camera.vircamera@1.0::IVirCameraChannel, as the HIDL
// generator produces it from IVirCameraChannel.hal (methods in binding slot order).
#pragma once

#include <android/hardware/camera/common/1.0/types.h>
#include <android/hidl/base/1.0/IBase.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraSwitchCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/types.h>
#include <functional>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

struct IVirCameraChannel : public ::android::hidl::base::V1_0::IBase {
    static constexpr const char* descriptor =
        "vendor.travik.hardware.camera.vircamera@1.0::IVirCameraChannel";

    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    registerVirtualChannelCallback(const ::android::hardware::hidl_string& deviceId,
                                   const ::android::hardware::hidl_string& serviceId,
                                   const ::android::sp<IVirCameraChannelCallback>& cb) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    unregisterVirtualChannelCallback(const ::android::hardware::hidl_string& deviceId,
                                     const ::android::hardware::hidl_string& serviceId) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    registerCameraSwitchCallback(const ::android::sp<IVirCameraSwitchCallback>& cb) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    unregisterCameraSwitchCallback() = 0;
    virtual ::android::hardware::Return<void> notifyOpenControlSessionResult(uint32_t sessionId,
                                                                             VirCamOptRet ret) = 0;
    virtual ::android::hardware::Return<void> notifyConfigStreamResult(uint32_t sessionId,
                                                                       VirCamOptRet ret) = 0;
    virtual ::android::hardware::Return<void> notifyOpenDataSessionResult(uint32_t sessionId,
                                                                          VirCamOptRet ret) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    onVirImageBufferDone(uint32_t sessionId, const VirImageResult& result) = 0;
    virtual ::android::hardware::Return<void> notify(
        uint32_t id, const ::android::hardware::hidl_string& msg) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    registerVirtualCameraDevice(const ::android::hardware::hidl_string& deviceId,
                                const ::android::hardware::hidl_string& serviceId,
                                const ::android::hardware::hidl_vec<CameraFormat>& formats,
                                const ::android::hardware::hidl_vec<MetaItem>& metas) = 0;
    virtual ::android::hardware::Return<::android::hardware::camera::common::V1_0::Status>
    unregisterVirtualCameraDevice(const ::android::hardware::hidl_string& deviceId,
                                  const ::android::hardware::hidl_string& serviceId) = 0;
    using switchOnVirtualCamera_cb = std::function<void(
        ::android::hardware::camera::common::V1_0::Status status, uint32_t seqNum)>;
    virtual ::android::hardware::Return<void> switchOnVirtualCamera(
        const ::android::hardware::hidl_string& deviceId,
        const ::android::hardware::hidl_string& serviceId, switchOnVirtualCamera_cb _hidl_cb) = 0;
    using switchOffVirtualCamera_cb = std::function<void(
        ::android::hardware::camera::common::V1_0::Status status, uint32_t seqNum)>;
    virtual ::android::hardware::Return<void> switchOffVirtualCamera(
        const ::android::hardware::hidl_string& deviceId,
        const ::android::hardware::hidl_string& serviceId, switchOffVirtualCamera_cb _hidl_cb) = 0;
    using getVirtualCameraIdList_cb = std::function<void(
        ::android::hardware::camera::common::V1_0::Status status,
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& ids)>;
    virtual ::android::hardware::Return<void> getVirtualCameraIdList(
        getVirtualCameraIdList_cb _hidl_cb) = 0;

    ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) override {
        _hidl_cb({descriptor, ::android::hidl::base::V1_0::IBase::descriptor});
        return ::android::hardware::Void();
    }

    static ::android::hardware::Return<::android::sp<IVirCameraChannel>> castFrom(
        const ::android::sp<IVirCameraChannel>& parent, bool /*emitError*/ = false) {
        return parent;
    }
    static ::android::hardware::Return<::android::sp<IVirCameraChannel>> castFrom(
        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError = false) {
        return ::android::hardware::details::castInterface<IVirCameraChannel>(parent, descriptor,
                                                                              emitError);
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
