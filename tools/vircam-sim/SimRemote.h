// Copyright (C) 2026 The libvircam Authors

// A remote device: the fake remote channel, which opens the sessions the
// library asks for and reports each result after the device's latency, with
// the device's timeline and trace around it, and images painted with the
// frame's test pattern for every capture request. It fails on cue: no
// answer, a failure code, or death.
#pragma once

#include <hostproxy/HostProxyVirCameraChannel.h>
#include <hostproxy/HostProxyVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "DelayedRunner.h"
#include "FramePattern.h"
#include "Recorder.h"
#include "Scenario.h"
#include "SharedBuffer.h"
#include "hostsupport/FakeRemoteChannel.h"

namespace vircam_sim {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

class SimRemote : public vircam_fakes::FakeRemoteChannel {
public:
    using RemoteStep = vircam_fakes::RemoteStep;

    SimRemote(const RemoteConfig& config, const android::sp<vircam::IVirCameraChannel>& service,
              Recorder& recorder, uint32_t firstSessionId);
    ~SimRemote() override;

    // The proxy through which the library calls this device, in a process of
    // its own that can die.
    const android::sp<vircam::HostProxyVirCameraChannelCallback>& proxy() const { return mProxy; }
    const RemoteConfig& config() const { return mConfig; }

    void Register();
    void Unregister();
    // The same from the remote's own thread, `ms` from now; the caller goes on.
    void RegisterIn(int ms);
    void WithdrawIn(int ms);
    void Kill(const std::string& why) override;
    size_t DeathLinks() const { return mProcess->liveRecipients(); }
    // Ends the device's threads and its hold on the library.
    void Shutdown();

    // The switch steps as the fake remote answers them, on the timeline.
    void Report(RemoteStep step, uint32_t sessionId, int32_t result) override;
    Return<void> openControlSession(const hidl_string& deviceId, const hidl_string& name,
                                    openControlSession_cb cb) override;
    Return<CameraStatus> closeControlSession(uint32_t controlSessionId) override;
    Return<CameraStatus> configStream(uint32_t sessionId,
                                      const hidl_vec<vircam::VirStream>& streams) override;
    Return<void> openDataSession(const hidl_string& deviceId, const hidl_string& name,
                                 openDataSession_cb cb) override;
    Return<CameraStatus> closeDataSession(uint32_t dataSessionId) override;
    // Images painted with the frame's test pattern, after their latency.
    Return<void> processCaptureRequest(uint32_t dataSessionId,
                                       const hidl_vec<vircam::VirImageBuffer>& buffers,
                                       processCaptureRequest_cb cb) override;
    Return<CameraStatus> flush(uint32_t dataSessionId) override;

protected:
    void OnOpened(RemoteStep step, const char* call, const hidl_string& name,
                  uint32_t sessionId) override;
    void OnAnswerPlanned(RemoteStep step, uint32_t sessionId,
                         const vircam_fakes::StepScript& script) override;
    void OnUnknownSession(const char* call, uint32_t sessionId) override;

private:
    struct PendingImage {
        int64_t dueUs;
        std::unique_ptr<BufferMapping> mapping;
        FrameStamp stamp;
    };

    bool FaultAt(Stage stage, FaultKind kind) const;
    // How the fake answers each step: after the latency, or as the fault says.
    void ScriptSteps();
    std::string Actor() const { return "remote " + mConfig.name; }
    void Say(const std::string& text) { mRecorder.Event(Actor(), text); }
    void CallSpan(const char* call, int64_t startUs);
    template <typename Close>
    Return<CameraStatus> CloseSession(const char* call, uint32_t sessionId, Close close);
    // Takes the request's buffers; false when this request is to fail.
    bool AcceptCapture(const hidl_vec<vircam::VirImageBuffer>& buffers);
    void RunImages();
    void SendImage(PendingImage& image, bool flushed);

    const RemoteConfig mConfig;
    android::sp<vircam::IVirCameraChannel> mService;
    Recorder& mRecorder;
    android::sp<android::hardware::RemoteProcess> mProcess;
    android::sp<vircam::HostProxyVirCameraChannelCallback> mProxy;
    static constexpr int64_t kSlowCallUs = 50 * 1000;
    static std::string Took(int64_t startUs);
    DelayedRunner mLater;

    mutable std::mutex mLock;
    int mCaptureRequests = 0;
    int mFailuresLeft = 0;
    bool mStalled = false;

    std::condition_variable mImagesChanged;
    std::deque<PendingImage> mImages;
    bool mSending = false;
    bool mStopping = false;
    std::thread mImageThread;
};

}  // namespace vircam_sim
