// Copyright (C) 2026 The libvircam Authors

// Host only: the proxy through which a process calls a remote IVirCameraTranslatorCallback
// living in a RemoteProcess. (A device uses hidl-gen's BpHw class instead.)
// The HAL reaches the translator inside its own process, so its calls stay
// plain calls on the caller's thread with the caller's own arguments; the
// proxy only adds the peer's death and injected transport failures.
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

class HostProxyVirCameraTranslatorCallback
    : public ::android::hardware::details::RemoteProxy<IVirCameraTranslatorCallback> {
public:
    using RemoteProxy::RemoteProxy;

private:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;

public:
    Return<CameraStatus> ProcessCaptureResult(const VirImageResult& result) override {
        return transact(__func__, [&] { return mImpl->ProcessCaptureResult(result); });
    }
    Return<void> reserved2() override {
        return transact(__func__, [&] { return mImpl->reserved2(); });
    }
    Return<CameraStatus> NotifyCommonCmd(uint32_t cmdId, const hidl_string& value) override {
        return transact(__func__, [&] { return mImpl->NotifyCommonCmd(cmdId, value); });
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
    vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslatorCallback> {
    using type =
        vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraTranslatorCallback;
};
