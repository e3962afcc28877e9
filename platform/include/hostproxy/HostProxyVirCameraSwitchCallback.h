// Copyright (C) 2026 The libvircam Authors

// Host only: the proxy through which a process calls a remote IVirCameraSwitchCallback
// living in a RemoteProcess. (A device uses hidl-gen's BpHw class instead.)
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraSwitchCallback.h>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

class HostProxyVirCameraSwitchCallback final
    : public ::android::hardware::details::RemoteProxy<IVirCameraSwitchCallback> {
public:
    using RemoteProxy::RemoteProxy;

private:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;

public:
    // Device management lives in a process of its own: its callback runs on
    // that process's binder pool.
    Return<CameraStatus> notifySwitchOnResult(uint32_t seqNum, int32_t result) override {
        return transactAcross(__func__,
                              [&] { return mImpl->notifySwitchOnResult(seqNum, result); });
    }
    Return<CameraStatus> notifySwitchOffResult(uint32_t seqNum, int32_t result) override {
        return transactAcross(__func__,
                              [&] { return mImpl->notifySwitchOffResult(seqNum, result); });
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
    vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraSwitchCallback> {
    using type =
        vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraSwitchCallback;
};
