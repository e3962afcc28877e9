// Host build of the proxy through which a process calls a remote IVirCameraSwitchCallback.
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraSwitchCallback.h>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

class BpHwVirCameraSwitchCallback final
    : public ::android::hardware::details::BpHwRemote<IVirCameraSwitchCallback> {
public:
    using BpHwRemote::BpHwRemote;

private:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;
    using hidl_string = ::android::hardware::hidl_string;
    template <typename T>
    using hidl_vec = ::android::hardware::hidl_vec<T>;
    template <typename T>
    using Return = ::android::hardware::Return<T>;

public:
    Return<CameraStatus> notifySwitchOnResult(uint32_t seqNum, int32_t result) override {
        return transact(__func__, [&] { return mImpl->notifySwitchOnResult(seqNum, result); });
    }
    Return<CameraStatus> notifySwitchOffResult(uint32_t seqNum, int32_t result) override {
        return transact(__func__, [&] { return mImpl->notifySwitchOffResult(seqNum, result); });
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
