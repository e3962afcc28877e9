// Copyright (C) 2026 The libvircam Authors

#include "ScriptedRemote.h"

#include "utils/VirCamClock.h"

namespace vircam_fuzz {

ScriptedRemote::ScriptedRemote(uint32_t firstSessionId,
                               const android::sp<vircam::IVirCameraChannel>& service,
                               const Answer (&script)[kSteps])
    : mService(service), mNextSessionId(firstSessionId) {
    std::lock_guard<std::mutex> lock(mLock);
    for (int step = 0; step < kSteps; ++step) {
        mScript[step] = script[step];
    }
}

ScriptedRemote::~ScriptedRemote() {
    JoinAnswers();
}

void ScriptedRemote::AttachProcess(const android::sp<android::hardware::RemoteProcess>& process) {
    mProcess = process;
}

void ScriptedRemote::SetScript(RemoteStep step, Answer answer) {
    std::lock_guard<std::mutex> lock(mLock);
    mScript[step] = answer;
}

std::set<uint32_t> ScriptedRemote::OpenControl() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mOpenControl;
}

std::set<uint32_t> ScriptedRemote::OpenData() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mOpenData;
}

void ScriptedRemote::JoinAnswers() {
    std::vector<std::thread> answers;
    {
        std::lock_guard<std::mutex> lock(mLock);
        answers.swap(mAnswers);
    }
    for (auto& answer : answers) {
        answer.join();
    }
}

bool ScriptedRemote::Dead() const {
    android::sp<android::hardware::RemoteProcess> process = mProcess.promote();
    return process == nullptr || process->isDead();
}

bool ScriptedRemote::StartStep(RemoteStep step, uint32_t sessionId, Answer* answer) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        *answer = mScript[step];
    }
    if (*answer == Answer::kDieOnCall) {
        android::sp<android::hardware::RemoteProcess> process = mProcess.promote();
        if (process != nullptr) {
            process->kill();
        }
        return false;
    }
    if (*answer == Answer::kCallError) {
        return false;
    }
    if (step == kControl) {
        std::lock_guard<std::mutex> lock(mLock);
        mOpenControl.insert(sessionId);
    } else if (step == kData) {
        std::lock_guard<std::mutex> lock(mLock);
        mOpenData.insert(sessionId);
    }
    if (*answer == Answer::kBeforeReturn) {
        Notify(step, sessionId, true);
    }
    return true;
}

void ScriptedRemote::Notify(RemoteStep step, uint32_t sessionId, bool ok) {
    // A dead process sends nothing, also what it had on its way.
    if (Dead()) {
        return;
    }
    android::hardware::Return<void> status = android::hardware::Void();
    switch (step) {
        case kControl:
            status = mService->notifyOpenControlSessionResult(
                sessionId, ok ? vircam::VirCamOptRet::OPT_CTRL_SESSION_OK
                              : vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK);
            break;
        case kConfig:
            status = mService->notifyConfigStreamResult(
                sessionId, ok ? vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK
                              : vircam::VirCamOptRet::OPT_CTRL_SESSION_OK);
            break;
        default:
            status = mService->notifyOpenDataSessionResult(
                sessionId, ok ? vircam::VirCamOptRet::OPT_DATA_SESSION_OK
                              : vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK);
            break;
    }
    status.isOk();
}

ScriptedRemote::Return<void> ScriptedRemote::openControlSession(const hidl_string& /*deviceId*/,
                                                                const hidl_string& /*name*/,
                                                                openControlSession_cb cb) {
    OpenSession(kControl, cb);
    return android::hardware::Void();
}

ScriptedRemote::Return<void> ScriptedRemote::openDataSession(const hidl_string& /*deviceId*/,
                                                             const hidl_string& /*name*/,
                                                             openDataSession_cb cb) {
    OpenSession(kData, cb);
    return android::hardware::Void();
}

void ScriptedRemote::OpenSession(RemoteStep step,
                                 const std::function<void(CameraStatus, uint32_t)>& cb) {
    uint32_t sessionId = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        sessionId = mNextSessionId++;
    }
    Answer answer = Answer::kAtOnce;
    const bool started = StartStep(step, sessionId, &answer);
    // A failed call opens nothing.
    cb(started ? CameraStatus::OK : CameraStatus::INTERNAL_ERROR, started ? sessionId : 0);
    Ns delay = 0;
    if (started && DelayedAnswer(answer, &delay)) {
        std::lock_guard<std::mutex> lock(mLock);
        mAnswers.emplace_back([this, step, sessionId, answer, delay] {
            pelcamera::Clock().SleepFor(std::chrono::nanoseconds(delay));
            Notify(step, sessionId, AnswerOk(answer));
        });
    }
}

ScriptedRemote::Return<ScriptedRemote::CameraStatus> ScriptedRemote::configStream(
    uint32_t sessionId, const android::hardware::hidl_vec<vircam::VirStream>& /*streams*/) {
    Answer answer = Answer::kAtOnce;
    if (!StartStep(kConfig, sessionId, &answer)) {
        return CameraStatus::INTERNAL_ERROR;
    }
    Ns delay = 0;
    if (DelayedAnswer(answer, &delay)) {
        std::lock_guard<std::mutex> lock(mLock);
        mAnswers.emplace_back([this, sessionId, answer, delay] {
            pelcamera::Clock().SleepFor(std::chrono::nanoseconds(delay));
            Notify(kConfig, sessionId, AnswerOk(answer));
        });
    }
    return CameraStatus::OK;
}

ScriptedRemote::Return<ScriptedRemote::CameraStatus> ScriptedRemote::closeControlSession(
    uint32_t controlSessionId) {
    std::lock_guard<std::mutex> lock(mLock);
    mOpenControl.erase(controlSessionId);
    return CameraStatus::OK;
}

ScriptedRemote::Return<ScriptedRemote::CameraStatus> ScriptedRemote::closeDataSession(
    uint32_t dataSessionId) {
    std::lock_guard<std::mutex> lock(mLock);
    mOpenData.erase(dataSessionId);
    return CameraStatus::OK;
}

ScriptedRemote::Return<void> ScriptedRemote::processCaptureRequest(
    uint32_t /*dataSessionId*/, const android::hardware::hidl_vec<vircam::VirImageBuffer>& buffers,
    processCaptureRequest_cb cb) {
    cb(CameraStatus::OK, static_cast<uint32_t>(buffers.size()));
    return android::hardware::Void();
}

ScriptedRemote::Return<ScriptedRemote::CameraStatus> ScriptedRemote::processMetaRequest(
    uint32_t /*dataSessionId*/, const vircam::VirMetaRequest& /*request*/) {
    return CameraStatus::OK;
}

ScriptedRemote::Return<void> ScriptedRemote::reserved8() {
    return android::hardware::Void();
}

ScriptedRemote::Return<ScriptedRemote::CameraStatus> ScriptedRemote::flush(
    uint32_t /*dataSessionId*/) {
    return CameraStatus::OK;
}

}  // namespace vircam_fuzz
