// Copyright (C) 2026 The libvircam Authors

// The device-management side's switch callback: records every result.
#pragma once

#include <hostproxy/HostProxyVirCameraSwitchCallback.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "support/RemotePeer.h"

namespace vircam_test {

struct SwitchResult {
    bool switchOn;
    uint32_t seqNum;
    int32_t code;
    bool operator==(const SwitchResult& o) const {
        return switchOn == o.switchOn && seqNum == o.seqNum && code == o.code;
    }
};

class FakeSwitchCallback
    : public vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraSwitchCallback {
public:
    using CameraStatus = android::hardware::camera::common::V1_0::Status;

    android::hardware::Return<CameraStatus> notifySwitchOnResult(uint32_t seqNum,
                                                                 int32_t result) override;
    android::hardware::Return<CameraStatus> notifySwitchOffResult(uint32_t seqNum,
                                                                  int32_t result) override;

    std::vector<SwitchResult> Results() const;
    void ForgetRecords();
    // Waits until at least `count` results have arrived; false on time-out.
    bool WaitForResults(size_t count, std::chrono::milliseconds timeout) const;

private:
    void Record(const SwitchResult& result);

    mutable std::mutex mLock;
    mutable std::condition_variable mArrived;
    std::vector<SwitchResult> mResults;
};

using RemoteSwitchCallback =
    RemotePeer<FakeSwitchCallback,
               vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraSwitchCallback>;

}  // namespace vircam_test
