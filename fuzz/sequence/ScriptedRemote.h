// Copyright (C) 2026 The libvircam Authors

// A remote device's channel for the call-sequence fuzzer: answers each step
// as scripted, on the virtual clock, and keeps count of the sessions it has
// open so that a sequence can check nothing was left open.
#pragma once

#include <hostproxy/HostProxyVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <functional>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "Script.h"
#include "support/RemotePeer.h"
#include "utils/ThreadAnnotations.h"

namespace vircam_fuzz {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

class ScriptedRemote : public vircam::IVirCameraChannelCallback {
public:
    using CameraStatus = android::hardware::camera::common::V1_0::Status;
    template <typename T>
    using Return = android::hardware::Return<T>;
    using hidl_string = android::hardware::hidl_string;

    // The fuzzer's thread; no lock.
    ScriptedRemote(uint32_t firstSessionId, const android::sp<vircam::IVirCameraChannel>& service,
                   const Answer (&script)[kSteps]);
    // The fuzzer's thread once the clock has settled; joins the answers.
    ~ScriptedRemote() override;

    // The fuzzer's thread, before the library can call; no lock.
    void AttachProcess(const android::sp<android::hardware::RemoteProcess>& process);
    // The fuzzer's thread; takes mLock.
    void SetScript(RemoteStep step, Answer answer) EXCLUDES(mLock);
    // The fuzzer's thread once settled; takes mLock.
    std::set<uint32_t> OpenControl() const EXCLUDES(mLock);
    std::set<uint32_t> OpenData() const EXCLUDES(mLock);
    // The fuzzer's thread once settled: joins the answer threads.
    void JoinAnswers() EXCLUDES(mLock);

    // The library's threads (through the host proxy); each takes mLock briefly.
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
    // A library thread inside an open or configure call; takes mLock briefly.
    // False when the call is to fail (error status or death).
    bool StartStep(RemoteStep step, uint32_t sessionId, Answer* answer) EXCLUDES(mLock);
    // Either open call, on the caller's thread: answers it and schedules the
    // step's result as scripted. mLock briefly.
    void OpenSession(RemoteStep step, const std::function<void(CameraStatus, uint32_t)>& cb)
        EXCLUDES(mLock);
    // Any thread; reports a step's result to the library unless dead.
    void Notify(RemoteStep step, uint32_t sessionId, bool ok) EXCLUDES(mLock);
    bool Dead() const;

    const android::sp<vircam::IVirCameraChannel> mService;
    android::wp<android::hardware::RemoteProcess> mProcess;
    mutable std::mutex mLock;
    Answer mScript[kSteps] GUARDED_BY(mLock);
    uint32_t mNextSessionId GUARDED_BY(mLock);
    std::set<uint32_t> mOpenControl GUARDED_BY(mLock);
    std::set<uint32_t> mOpenData GUARDED_BY(mLock);
    std::vector<std::thread> mAnswers GUARDED_BY(mLock);
};

struct RemotePeer
    : vircam_test::RemotePeer<ScriptedRemote, vircam::HostProxyVirCameraChannelCallback> {
    RemotePeer(uint32_t firstSessionId, const android::sp<vircam::IVirCameraChannel>& service,
               const Answer (&script)[kSteps])
        : vircam_test::RemotePeer<ScriptedRemote, vircam::HostProxyVirCameraChannelCallback>(
              firstSessionId, service, script) {
        fake->AttachProcess(process);
    }
};

}  // namespace vircam_fuzz
