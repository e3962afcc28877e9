// Copyright (C) 2026 The libvircam Authors

#include "support/FakeSwitchCallback.h"

namespace vircam_test {

android::hardware::Return<FakeSwitchCallback::CameraStatus>
FakeSwitchCallback::notifySwitchOnResult(uint32_t seqNum, int32_t result) {
    Record({true, seqNum, result});
    return CameraStatus::OK;
}

android::hardware::Return<FakeSwitchCallback::CameraStatus>
FakeSwitchCallback::notifySwitchOffResult(uint32_t seqNum, int32_t result) {
    Record({false, seqNum, result});
    return CameraStatus::OK;
}

void FakeSwitchCallback::Record(const SwitchResult& result) {
    std::lock_guard<std::mutex> lock(mLock);
    mResults.push_back(result);
    mArrived.notify_all();
}

void FakeSwitchCallback::ForgetRecords() {
    std::lock_guard<std::mutex> lock(mLock);
    mResults.clear();
}

std::vector<SwitchResult> FakeSwitchCallback::Results() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mResults;
}

bool FakeSwitchCallback::WaitForResults(size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mLock);
    return mArrived.wait_for(lock, timeout, [&] { return mResults.size() >= count; });
}

}  // namespace vircam_test
