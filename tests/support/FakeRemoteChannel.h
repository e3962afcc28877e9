// A remote device's channel callback, scriptable per switch step: it answers
// each asynchronous operation at once, late, never, before its open call has
// returned, with any result code, or dies when the call arrives.
#pragma once

#include <hostproxy/HostProxyVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/NativeBuffer.h"
#include "support/RemotePeer.h"

namespace vircam_test {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

enum class RemoteStep { kControlSession, kConfigStream, kDataSession };
enum class AnswerMode { kAtOnce, kLate, kNever, kBeforeReturn };

// What the remote saw of one buffer of a capture request. The handle itself
// is the remote's own copy and is gone once the call returns, so the buffer
// is known by the file its first descriptor refers to (0: no handle).
struct SeenBuffer {
    int32_t frameNumber;
    int32_t streamId;
    uint64_t bufferId;
    ino_t buffer;
};

struct StepScript {
    AnswerMode mode = AnswerMode::kAtOnce;
    // Result reported for the step; unset means the step's success value.
    int32_t result = -1;
    std::chrono::milliseconds delay{0};  // with kLate
    android::hardware::camera::common::V1_0::Status callStatus =
        android::hardware::camera::common::V1_0::Status::OK;
    bool dieOnCall = false;
    // The open call never returns (a peer stuck for good).
    bool hangOnCall = false;
};

class FakeRemoteChannel : public vircam::IVirCameraChannelCallback {
public:
    using CameraStatus = android::hardware::camera::common::V1_0::Status;
    template <typename T>
    using Return = android::hardware::Return<T>;
    using hidl_string = android::hardware::hidl_string;

    explicit FakeRemoteChannel(uint32_t firstSessionId = 10);
    ~FakeRemoteChannel() override;

    void SetService(const android::sp<vircam::IVirCameraChannel>& service);
    void AttachProcess(const android::sp<android::hardware::RemoteProcess>& process);
    void Script(RemoteStep step, const StepScript& script);
    // Waits for the answers still on their way.
    void JoinAnswers();
    // Returns a finished image for every buffer of every capture request, in
    // order, from a thread of its own.
    void EchoImages();

    // Reports a step's result now, from the caller's thread, whatever the script.
    void Report(RemoteStep step, uint32_t sessionId, int32_t result);
    static int32_t SuccessOf(RemoteStep step);

    // Long runs (the fuzzer) drop what has been recorded so far.
    void ForgetRecords();
    std::vector<std::string> Calls() const;
    std::vector<vircam::VirStream> LastConfiguredStreams() const;
    std::vector<SeenBuffer> CaptureRequests() const;

    Return<void> openControlSession(const hidl_string& deviceId, const hidl_string& name,
                                    openControlSession_cb cb) override;
    Return<CameraStatus> closeControlSession(uint32_t controlSessionId) override;
    Return<CameraStatus> configStream(
        uint32_t sessionId, const android::hardware::hidl_vec<vircam::VirStream>& streams) override;
    Return<void> openDataSession(const hidl_string& deviceId, const hidl_string& name,
                                 openDataSession_cb cb) override;
    Return<CameraStatus> closeDataSession(uint32_t dataSessionId) override;
    Return<void> processCaptureRequest(
        uint32_t dataSessionId, const android::hardware::hidl_vec<vircam::VirImageBuffer>& buffers,
        processCaptureRequest_cb cb) override;
    Return<CameraStatus> processMetaRequest(uint32_t dataSessionId,
                                            const vircam::VirMetaRequest& request) override;
    Return<void> reserved8() override;
    Return<CameraStatus> flush(uint32_t dataSessionId) override;

private:
    StepScript ScriptOf(RemoteStep step) const;
    void Record(const std::string& call);
    // Opens a session for an open call and reports its outcome as scripted.
    template <typename Callback>
    void OpenSession(RemoteStep step, const char* call, const hidl_string& name, Callback cb);
    void Answer(RemoteStep step, uint32_t sessionId, const StepScript& script);
    void DieIfScripted(const StepScript& script);

    mutable std::mutex mLock;
    android::sp<vircam::IVirCameraChannel> mService;
    android::wp<android::hardware::RemoteProcess> mProcess;
    std::map<RemoteStep, StepScript> mScripts;
    std::vector<std::string> mCalls;
    std::vector<vircam::VirStream> mStreams;
    std::vector<SeenBuffer> mRequests;
    uint32_t mNextSessionId;
    std::vector<std::thread> mAnswers;

    void RunImageEcho();
    std::condition_variable mImagesQueued;
    std::deque<vircam::VirImageResult> mImages;
    bool mEchoStopping = false;
    std::thread mEcho;
};

struct RemoteChannel : RemotePeer<FakeRemoteChannel, vircam::HostProxyVirCameraChannelCallback> {
    explicit RemoteChannel(uint32_t firstSessionId = 10) : RemotePeer(firstSessionId) {
        fake->AttachProcess(process);
    }
};

}  // namespace vircam_test
