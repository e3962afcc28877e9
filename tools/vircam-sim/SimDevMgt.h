// Copyright (C) 2026 The libvircam Authors

// The device-management service: registers its switch callback, tells the
// library the physical camera id, commands switches and records every result
// with its sequence number.
#pragma once

#include <hostproxy/HostProxyVirCameraChannel.h>
#include <hostproxy/HostProxyVirCameraSwitchCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Recorder.h"
#include "Scenario.h"

namespace vircam_sim {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

struct SwitchCommand {
    bool on;
    std::string remote;
    android::hardware::camera::common::V1_0::Status status;
    uint32_t seqNum;
    int64_t atUs;
};

struct SwitchResult {
    bool on;
    uint32_t seqNum;
    int32_t code;
    int64_t atUs;
};

class SimDevMgt : public vircam::IVirCameraSwitchCallback {
public:
    using CameraStatus = android::hardware::camera::common::V1_0::Status;
    template <typename T>
    using Return = android::hardware::Return<T>;

    SimDevMgt(const android::sp<vircam::IVirCameraChannel>& service, Recorder& recorder);

    // Registers the switch callback and sends the physical camera id.
    void Start(const std::string& physicalCameraId);
    // Again after a remote's death, which makes the library forget it.
    void RegisterCallback();
    // Runner thread, before any command: how long each result is held
    // before it is answered.
    void SetResultReturnDelay(std::chrono::milliseconds delay) { mReturnDelay = delay; }
    SwitchCommand SwitchOn(const RemoteConfig& remote);
    SwitchCommand SwitchOff(const RemoteConfig& remote);
    std::optional<SwitchResult> WaitForResult(uint32_t seqNum, std::chrono::milliseconds timeout);
    // As above, but gives up early once `gone` has held for `grace`: a peer
    // whose death makes the library forget this callback.
    std::optional<SwitchResult> WaitForResult(uint32_t seqNum, std::chrono::milliseconds timeout,
                                              const std::function<bool()>& gone,
                                              std::chrono::milliseconds grace);
    // A result for a sequence number nobody commanded, not yet claimed: the
    // switch-off that a remote's death starts.
    std::optional<SwitchResult> WaitForUnasked(bool on, std::chrono::milliseconds timeout);
    std::vector<SwitchResult> Results() const;
    // Drops the proxy that holds this object; the library may keep its own.
    void Shutdown();

    Return<CameraStatus> notifySwitchOnResult(uint32_t seqNum, int32_t result) override;
    Return<CameraStatus> notifySwitchOffResult(uint32_t seqNum, int32_t result) override;

private:
    SwitchCommand Command(bool on, const RemoteConfig& remote);
    Return<CameraStatus> Record(bool on, uint32_t seqNum, int32_t code);
    // Closes a result's span on the devmgt track and the open switch steps.
    void EndSpan(const SwitchResult& result);
    void Say(const std::string& text) { mRecorder.Event("devmgt", text); }

    android::sp<vircam::IVirCameraChannel> mService;
    Recorder& mRecorder;
    android::sp<android::hardware::RemoteProcess> mProcess;
    android::sp<vircam::HostProxyVirCameraSwitchCallback> mProxy;

    std::chrono::milliseconds mReturnDelay{0};

    mutable std::mutex mLock;
    std::condition_variable mArrived;
    std::vector<SwitchResult> mResults;
    std::set<uint32_t> mCommanded;
    // Results that came inside a command's call, before its answer.
    bool mInCommand = false;
    std::map<uint32_t, SwitchResult> mEarly;
    std::set<uint32_t> mClaimed;
};

}  // namespace vircam_sim
