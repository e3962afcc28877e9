// Copyright (C) 2026 The libvircam Authors

// A remote device's channel callback, scriptable per switch step: it answers
// each asynchronous operation at once, late, never, before its open call has
// returned, with any result code, or dies when the call arrives. It keeps
// the sessions it opened, so a call naming any other one is seen. The tests
// use it as it is; the simulator builds its remote devices on it.
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace vircam_fakes {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

// kReconfigure: a configStream on a session configured before; unscripted,
// it answers as kConfigStream is scripted.
enum class RemoteStep { kControlSession, kConfigStream, kDataSession, kReconfigure };
enum class AnswerMode { kAtOnce, kLate, kNever, kBeforeReturn };

// The file behind a handle's first descriptor; 0 for no handle, no
// descriptor, or one that is not open (a handle whose fds were closed).
inline ino_t FileOf(const native_handle_t* handle) {
    struct stat st {};
    if (handle == nullptr || handle->numFds < 1 || fstat(handle->data[0], &st) != 0) {
        return 0;
    }
    return st.st_ino;
}

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
    template <typename T>
    using hidl_vec = android::hardware::hidl_vec<T>;

    explicit FakeRemoteChannel(uint32_t firstSessionId = 10);
    ~FakeRemoteChannel() override;

    // Any thread, before the first call; each takes mLock.
    void SetService(const android::sp<vircam::IVirCameraChannel>& service);
    // The process the remote lives in: its own threads run in it, and it
    // dies when a script says so.
    void AttachProcess(const android::sp<android::hardware::RemoteProcess>& process);
    void Script(RemoteStep step, const StepScript& script);
    // Calls naming a session this remote does not have open are answered
    // ILLEGAL_ARGUMENT instead of OK.
    void RejectUnknownSessions(bool reject);
    // Waits for the answers still on their way.
    void JoinAnswers();
    // Drops the answers still on their way: the peer is gone.
    void StopAnswers();
    // Returns a finished image for every buffer of every capture request, in
    // order, from a thread of its own.
    void EchoImages();
    // Waits for the answers on their way and ends the image echo, whose
    // threads hold the process while they call: an owner that lets the
    // process go before this fake calls it first.
    void StopThreads();

    // Reports a step's result now, from the caller's thread, whatever the
    // script; a dead remote reports nothing. Overridden to tell about it.
    virtual void Report(RemoteStep step, uint32_t sessionId, int32_t result);
    static int32_t SuccessOf(RemoteStep step);
    static int32_t FailureOf(RemoteStep step);
    // Kills the remote's process; whatever it had open dies with it.
    virtual void Kill(const std::string& why);
    bool Dead() const;

    // Long runs drop what has been recorded so far.
    void ForgetRecords();
    std::vector<std::string> Calls() const;
    std::vector<vircam::VirStream> LastConfiguredStreams() const;
    std::vector<SeenBuffer> CaptureRequests() const;
    // Sessions this remote opened that the library has not closed.
    size_t OpenSessions() const;
    // Closes, flushes and captures that named a session this remote did not
    // have open: one it closed already, another remote's, or 0.
    int64_t UnknownSessionCalls() const;

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

protected:
    // What a peer built on this fake adds to the calls: each runs on the
    // thread of the event, without mLock.
    // An open call has a session id; a death scripted for it comes next.
    virtual void OnOpened(RemoteStep /*step*/, const char* /*call*/, const hidl_string& /*name*/,
                          uint32_t /*sessionId*/) {}
    // A step's answer is decided: sent after `script.delay`, or never.
    virtual void OnAnswerPlanned(RemoteStep /*step*/, uint32_t /*sessionId*/,
                                 const StepScript& /*script*/) {}
    virtual void OnUnknownSession(const char* /*call*/, uint32_t /*sessionId*/) {}

    // True when the session is open; otherwise counts the call and says so.
    bool KnownSession(const char* call, uint32_t sessionId);
    bool Configured(uint32_t sessionId) const;
    CameraStatus StatusFor(bool known) const;

private:
    StepScript ScriptOf(RemoteStep step) const;
    void Record(const std::string& call);
    // Opens a session for an open call and reports its outcome as scripted.
    template <typename Callback>
    void OpenSession(RemoteStep step, const char* call, const hidl_string& name, Callback cb);
    CameraStatus CloseSession(const char* call, uint32_t sessionId);
    void Answer(RemoteStep step, uint32_t sessionId, const StepScript& script);
    // True when the script ended the call: the remote died or hangs.
    bool DieIfScripted(const StepScript& script, const char* call);

    mutable std::mutex mLock;
    android::sp<vircam::IVirCameraChannel> mService;
    android::wp<android::hardware::RemoteProcess> mProcess;
    std::map<RemoteStep, StepScript> mScripts;
    std::vector<std::string> mCalls;
    std::vector<vircam::VirStream> mStreams;
    std::vector<SeenBuffer> mRequests;
    uint32_t mNextSessionId;
    std::set<uint32_t> mOpenSessions;
    std::set<uint32_t> mConfiguredSessions;
    int64_t mUnknownSessionCalls = 0;
    bool mRejectUnknownSessions = false;

    std::condition_variable mAnswersStopped;
    bool mStopAnswers = false;
    std::vector<std::thread> mAnswers;

    void RunImageEcho();
    std::condition_variable mImagesQueued;
    std::deque<vircam::VirImageResult> mImages;
    bool mEchoStopping = false;
    std::thread mEcho;
};

}  // namespace vircam_fakes
