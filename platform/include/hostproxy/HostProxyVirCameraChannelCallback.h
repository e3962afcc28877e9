// Host only: the proxy through which a process calls a remote IVirCameraChannelCallback
// living in a RemoteProcess. (A device uses hidl-gen's BpHw class instead.)
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannelCallback.h>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

class HostProxyVirCameraChannelCallback
    : public ::android::hardware::details::RemoteProxy<IVirCameraChannelCallback> {
public:
    using RemoteProxy::RemoteProxy;

private:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;

public:
    Return<void> openControlSession(const hidl_string& deviceId, const hidl_string& name,
                                    openControlSession_cb cb) override {
        return transact(__func__, [&] { return mImpl->openControlSession(deviceId, name, cb); });
    }
    Return<CameraStatus> closeControlSession(uint32_t id) override {
        return transact(__func__, [&] { return mImpl->closeControlSession(id); });
    }
    Return<CameraStatus> configStream(uint32_t id, const hidl_vec<VirStream>& streams) override {
        return transact(__func__, [&] { return mImpl->configStream(id, streams); });
    }
    Return<void> openDataSession(const hidl_string& deviceId, const hidl_string& name,
                                 openDataSession_cb cb) override {
        return transact(__func__, [&] { return mImpl->openDataSession(deviceId, name, cb); });
    }
    Return<CameraStatus> closeDataSession(uint32_t id) override {
        return transact(__func__, [&] { return mImpl->closeDataSession(id); });
    }
    Return<void> processCaptureRequest(uint32_t id, const hidl_vec<VirImageBuffer>& buffers,
                                       processCaptureRequest_cb cb) override {
        return transact(__func__, [&] { return mImpl->processCaptureRequest(id, buffers, cb); });
    }
    Return<CameraStatus> processMetaRequest(uint32_t id, const VirMetaRequest& request) override {
        return transact(__func__, [&] { return mImpl->processMetaRequest(id, request); });
    }
    Return<void> reserved8() override {
        return transact(__func__, [&] { return mImpl->reserved8(); });
    }
    Return<CameraStatus> flush(uint32_t id) override {
        return transact(__func__, [&] { return mImpl->flush(id); });
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor

template <>
struct android::hardware::details::HostProxyOf<
    vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraChannelCallback> {
    using type =
        vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraChannelCallback;
};
