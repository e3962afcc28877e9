// Copyright (C) 2026 The libvircam Authors

#include "support/FakeTranslatorCallback.h"

namespace vircam_test {

android::hardware::Return<FakeTranslatorCallback::CameraStatus>
FakeTranslatorCallback::ProcessCaptureResult(const VirImageResult& result) {
    std::lock_guard<std::mutex> lock(mLock);
    mFrames.push_back(result.frameNumber);
    mArrived.notify_all();
    return CameraStatus::OK;
}

android::hardware::Return<void> FakeTranslatorCallback::reserved2() {
    return android::hardware::Void();
}

android::hardware::Return<FakeTranslatorCallback::CameraStatus>
FakeTranslatorCallback::NotifyCommonCmd(uint32_t cmdId,
                                        const android::hardware::hidl_string& value) {
    std::lock_guard<std::mutex> lock(mLock);
    mCommands.emplace_back(cmdId, value);
    return CameraStatus::OK;
}

void FakeTranslatorCallback::ForgetRecords() {
    std::lock_guard<std::mutex> lock(mLock);
    mFrames.clear();
    mCommands.clear();
}

std::vector<uint32_t> FakeTranslatorCallback::Frames() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mFrames;
}

std::vector<std::pair<uint32_t, std::string>> FakeTranslatorCallback::Commands() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mCommands;
}

bool FakeTranslatorCallback::WaitForFrames(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mLock);
    return mArrived.wait_for(lock, timeout, [&] { return mFrames.size() >= count; });
}

}  // namespace vircam_test
