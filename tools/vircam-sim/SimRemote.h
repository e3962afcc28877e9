// A remote device: offers its camera as a channel, opens the sessions the
// library asks for and reports each result after its latency, and answers
// every capture request with an image painted with the frame's test pattern.
// It fails on cue: no answer, a failure code, or death.
#pragma once

#include <hostproxy/HostProxyVirCameraChannel.h>
#include <hostproxy/HostProxyVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "DelayedRunner.h"
#include "FramePattern.h"
#include "Recorder.h"
#include "Scenario.h"
#include "SharedBuffer.h"

namespace vircam_sim {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

class SimRemote : public vircam::IVirCameraChannelCallback {
public:
    using CameraStatus = android::hardware::camera::common::V1_0::Status;
    template <typename T>
    using Return = android::hardware::Return<T>;
    using hidl_string = android::hardware::hidl_string;
    template <typename T>
    using hidl_vec = android::hardware::hidl_vec<T>;

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
    void Kill(const std::string& why);
    bool Dead() const { return mProcess->isDead(); }
    // Sessions this device opened that the library has not closed.
    size_t OpenSessions() const;
    size_t DeathLinks() const { return mProcess->liveRecipients(); }
    // Flushes, captures and closes that named a session this device did not
    // have open: one it closed already, a predecessor's, or 0. Any thread;
    // takes mLock.
    int64_t UnknownSessionCalls() const;
    // Ends the device's threads and its hold on the library.
    void Shutdown();

    Return<void> openControlSession(const hidl_string& deviceId, const hidl_string& name,
                                    openControlSession_cb cb) override;
    Return<CameraStatus> closeControlSession(uint32_t controlSessionId) override;
    Return<CameraStatus> configStream(uint32_t sessionId,
                                      const hidl_vec<vircam::VirStream>& streams) override;
    Return<void> openDataSession(const hidl_string& deviceId, const hidl_string& name,
                                 openDataSession_cb cb) override;
    Return<CameraStatus> closeDataSession(uint32_t dataSessionId) override;
    Return<void> processCaptureRequest(uint32_t dataSessionId,
                                       const hidl_vec<vircam::VirImageBuffer>& buffers,
                                       processCaptureRequest_cb cb) override;
    Return<CameraStatus> processMetaRequest(uint32_t dataSessionId,
                                            const vircam::VirMetaRequest& request) override;
    Return<void> reserved8() override;
    Return<CameraStatus> flush(uint32_t dataSessionId) override;

private:
    struct PendingImage {
        int64_t dueUs;
        std::unique_ptr<BufferMapping> mapping;
        FrameStamp stamp;
    };
    enum class SwitchStep { kControl, kConfig, kData };

    bool FaultAt(Stage stage, FaultKind kind) const;
    std::string Actor() const { return "remote " + mConfig.name; }
    void Say(const std::string& text) { mRecorder.Event(Actor(), text); }
    void CallSpan(const char* call, int64_t startUs);
    // Reports a switch step's result after the latency, as scripted.
    // The binder thread of the library's call; posts the report to mAnswers.
    void AnswerStep(SwitchStep step, uint32_t sessionId, Stage stage);
    // Any binder thread, takes mLock. False (and counted) when the call names
    // a session this device does not have open.
    bool KnownSession(const char* call, uint32_t sessionId);
    void Notify(SwitchStep step, uint32_t sessionId, bool ok);
    template <typename Callback>
    void OpenSession(SwitchStep step, Stage stage, const char* call, const hidl_string& name,
                     Callback cb);
    CameraStatus CloseSession(const char* call, uint32_t sessionId);
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
    DelayedRunner mAnswers;

    mutable std::mutex mLock;
    uint32_t mNextSessionId;
    std::set<uint32_t> mOpenSessions;
    std::set<uint32_t> mConfiguredSessions;
    int64_t mUnknownSessionCalls = 0;
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
