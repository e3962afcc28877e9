// Copyright (C) 2026 The libvircam Authors

// Peers that answer at once and record nothing, so a benchmark measures the
// library and not its fakes.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraSwitchCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace vircam_bench {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;
using CameraStatus = android::hardware::camera::common::V1_0::Status;
template <typename T>
using Return = android::hardware::Return<T>;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;

// Reports every asynchronous result before its call returns.
class InstantRemote : public vircam::IVirCameraChannelCallback {
public:
    explicit InstantRemote(const android::sp<vircam::IVirCameraChannel>& service)
        : mService(service) {}

    Return<void> openControlSession(const hidl_string&, const hidl_string&,
                                    openControlSession_cb cb) override {
        const uint32_t id = ++mNextId;
        mService->notifyOpenControlSessionResult(id, vircam::VirCamOptRet::OPT_CTRL_SESSION_OK)
            .isOk();
        cb(CameraStatus::OK, id);
        return android::hardware::Void();
    }
    Return<CameraStatus> closeControlSession(uint32_t) override { return CameraStatus::OK; }
    Return<CameraStatus> configStream(uint32_t id, const hidl_vec<vircam::VirStream>&) override {
        mService->notifyConfigStreamResult(id, vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK).isOk();
        return CameraStatus::OK;
    }
    Return<void> openDataSession(const hidl_string&, const hidl_string&,
                                 openDataSession_cb cb) override {
        const uint32_t id = ++mNextId;
        mService->notifyOpenDataSessionResult(id, vircam::VirCamOptRet::OPT_DATA_SESSION_OK).isOk();
        cb(CameraStatus::OK, id);
        return android::hardware::Void();
    }
    Return<CameraStatus> closeDataSession(uint32_t) override { return CameraStatus::OK; }
    Return<void> processCaptureRequest(uint32_t, const hidl_vec<vircam::VirImageBuffer>& buffers,
                                       processCaptureRequest_cb cb) override {
        cb(CameraStatus::OK, static_cast<uint32_t>(buffers.size()));
        return android::hardware::Void();
    }
    Return<CameraStatus> processMetaRequest(uint32_t, const vircam::VirMetaRequest&) override {
        return CameraStatus::OK;
    }
    Return<void> reserved8() override { return android::hardware::Void(); }
    Return<CameraStatus> flush(uint32_t) override { return CameraStatus::OK; }

private:
    android::sp<vircam::IVirCameraChannel> mService;
    std::atomic<uint32_t> mNextId{0};
};

class CountingPipeline : public vircam::IVirCameraTranslatorCallback {
public:
    Return<CameraStatus> ProcessCaptureResult(const vircam::VirImageResult&) override {
        mImages.fetch_add(1, std::memory_order_relaxed);
        return CameraStatus::OK;
    }
    Return<void> reserved2() override { return android::hardware::Void(); }
    Return<CameraStatus> NotifyCommonCmd(uint32_t, const hidl_string&) override {
        return CameraStatus::OK;
    }
    uint64_t Images() const { return mImages.load(); }

private:
    std::atomic<uint64_t> mImages{0};
};

// Lets a benchmark wait for the next switch result.
class ResultWaiter : public vircam::IVirCameraSwitchCallback {
public:
    Return<CameraStatus> notifySwitchOnResult(uint32_t, int32_t result) override {
        return Record(result);
    }
    Return<CameraStatus> notifySwitchOffResult(uint32_t, int32_t result) override {
        return Record(result);
    }
    // Waits for a result after `seen` results; returns its code.
    int32_t WaitAfter(uint64_t seen) {
        std::unique_lock<std::mutex> lock(mLock);
        mArrived.wait(lock, [&] { return mCount > seen; });
        return mLast;
    }
    uint64_t Count() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCount;
    }

private:
    Return<CameraStatus> Record(int32_t result) {
        std::lock_guard<std::mutex> lock(mLock);
        mLast = result;
        ++mCount;
        mArrived.notify_all();
        return CameraStatus::OK;
    }

    std::mutex mLock;
    std::condition_variable mArrived;
    uint64_t mCount = 0;
    int32_t mLast = 0;
};

}  // namespace vircam_bench
