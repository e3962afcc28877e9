// Copyright (C) 2026 The libvircam Authors

// The camera HAL pipeline's translator callback: records images and commands.
#pragma once

#include <hostproxy/HostProxyVirCameraTranslatorCallback.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/RemotePeer.h"

namespace vircam_test {

class FakeTranslatorCallback
    : public vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslatorCallback {
public:
    using CameraStatus = android::hardware::camera::common::V1_0::Status;
    using VirImageResult = vendor::travik::hardware::camera::vircamera::V1_0::VirImageResult;

    android::hardware::Return<CameraStatus> ProcessCaptureResult(
        const VirImageResult& result) override;
    android::hardware::Return<void> reserved2() override;
    android::hardware::Return<CameraStatus> NotifyCommonCmd(
        uint32_t cmdId, const android::hardware::hidl_string& value) override;

    // Frame numbers of the images received, in order.
    std::vector<uint32_t> Frames() const;
    void ForgetRecords();
    std::vector<std::pair<uint32_t, std::string>> Commands() const;
    bool WaitForFrames(size_t count, std::chrono::milliseconds timeout) const;

private:
    mutable std::mutex mLock;
    mutable std::condition_variable mArrived;
    std::vector<uint32_t> mFrames;
    std::vector<std::pair<uint32_t, std::string>> mCommands;
};

using RemoteTranslatorCallback = RemotePeer<
    FakeTranslatorCallback,
    vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraTranslatorCallback>;

}  // namespace vircam_test
