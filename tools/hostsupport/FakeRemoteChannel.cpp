// Copyright (C) 2026 The libvircam Authors

#include "hostsupport/FakeRemoteChannel.h"

#include "utils/VirCamClock.h"

namespace vircam_fakes {

namespace {

using android::hardware::RemoteProcess;
using vircam::VirCamOptRet;

constexpr VirCamOptRet kSuccess[] = {
    VirCamOptRet::OPT_CTRL_SESSION_OK, VirCamOptRet::OPT_CONFIG_STREAM_OK,
    VirCamOptRet::OPT_DATA_SESSION_OK, VirCamOptRet::OPT_CONFIG_STREAM_OK};
constexpr VirCamOptRet kFailure[] = {
    VirCamOptRet::OPT_CTRL_SESSION_FAILED, VirCamOptRet::OPT_CONFIG_STREAM_FAILED,
    VirCamOptRet::OPT_DATA_SESSION_FAILED, VirCamOptRet::OPT_CONFIG_STREAM_FAILED};

}  // namespace

int32_t FakeRemoteChannel::SuccessOf(RemoteStep step) {
    return static_cast<int32_t>(kSuccess[static_cast<int>(step)]);
}

int32_t FakeRemoteChannel::FailureOf(RemoteStep step) {
    return static_cast<int32_t>(kFailure[static_cast<int>(step)]);
}

FakeRemoteChannel::FakeRemoteChannel(uint32_t firstSessionId) : mNextSessionId(firstSessionId) {}

FakeRemoteChannel::~FakeRemoteChannel() {
    StopThreads();
}

void FakeRemoteChannel::StopThreads() {
    JoinAnswers();
    {
        std::lock_guard<std::mutex> lock(mLock);
        mEchoStopping = true;
        mImagesQueued.notify_all();
    }
    if (mEcho.joinable()) {
        mEcho.join();
    }
}

void FakeRemoteChannel::EchoImages() {
    std::lock_guard<std::mutex> lock(mLock);
    if (!mEcho.joinable()) {
        mEcho = std::thread([this] { RunImageEcho(); });
    }
}

void FakeRemoteChannel::RunImageEcho() {
    std::unique_lock<std::mutex> lock(mLock);
    while (true) {
        mImagesQueued.wait(lock, [this] { return mEchoStopping || !mImages.empty(); });
        if (mImages.empty()) {
            return;
        }
        const vircam::VirImageResult image = mImages.front();
        mImages.pop_front();
        android::sp<vircam::IVirCameraChannel> service = mService;
        android::sp<RemoteProcess> process = mProcess.promote();
        lock.unlock();
        if (service != nullptr) {
            RemoteProcess::ThreadScope inRemote(process.get());
            service->onVirImageBufferDone(0, image).isOk();
        }
        lock.lock();
    }
}

void FakeRemoteChannel::SetService(const android::sp<vircam::IVirCameraChannel>& service) {
    std::lock_guard<std::mutex> lock(mLock);
    mService = service;
}

void FakeRemoteChannel::AttachProcess(const android::sp<RemoteProcess>& process) {
    std::lock_guard<std::mutex> lock(mLock);
    mProcess = process;
}

void FakeRemoteChannel::Script(RemoteStep step, const StepScript& script) {
    std::lock_guard<std::mutex> lock(mLock);
    mScripts[step] = script;
}

void FakeRemoteChannel::RejectUnknownSessions(bool reject) {
    std::lock_guard<std::mutex> lock(mLock);
    mRejectUnknownSessions = reject;
}

void FakeRemoteChannel::JoinAnswers() {
    std::vector<std::thread> answers;
    {
        std::lock_guard<std::mutex> lock(mLock);
        answers.swap(mAnswers);
    }
    for (auto& answer : answers) {
        answer.join();
    }
}

void FakeRemoteChannel::StopAnswers() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopAnswers = true;
        mAnswersStopped.notify_all();
    }
    JoinAnswers();
}

bool FakeRemoteChannel::Dead() const {
    android::sp<RemoteProcess> process = mProcess.promote();
    return process != nullptr && process->isDead();
}

void FakeRemoteChannel::Kill(const std::string& /*why*/) {
    android::sp<RemoteProcess> process = mProcess.promote();
    if (process != nullptr) {
        process->kill();
    }
    std::lock_guard<std::mutex> lock(mLock);
    mOpenSessions.clear();
}

void FakeRemoteChannel::ForgetRecords() {
    std::lock_guard<std::mutex> lock(mLock);
    mCalls.clear();
    mStreams.clear();
    mRequests.clear();
}

std::vector<std::string> FakeRemoteChannel::Calls() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mCalls;
}

std::vector<vircam::VirStream> FakeRemoteChannel::LastConfiguredStreams() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mStreams;
}

std::vector<SeenBuffer> FakeRemoteChannel::CaptureRequests() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mRequests;
}

size_t FakeRemoteChannel::OpenSessions() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mOpenSessions.size();
}

int64_t FakeRemoteChannel::UnknownSessionCalls() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mUnknownSessionCalls;
}

bool FakeRemoteChannel::KnownSession(const char* call, uint32_t sessionId) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mOpenSessions.count(sessionId) != 0) {
            return true;
        }
        ++mUnknownSessionCalls;
    }
    OnUnknownSession(call, sessionId);
    return false;
}

bool FakeRemoteChannel::Configured(uint32_t sessionId) const {
    std::lock_guard<std::mutex> lock(mLock);
    return mConfiguredSessions.count(sessionId) != 0;
}

FakeRemoteChannel::CameraStatus FakeRemoteChannel::StatusFor(bool known) const {
    std::lock_guard<std::mutex> lock(mLock);
    return known || !mRejectUnknownSessions ? CameraStatus::OK : CameraStatus::ILLEGAL_ARGUMENT;
}

StepScript FakeRemoteChannel::ScriptOf(RemoteStep step) const {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mScripts.find(step);
    if (it == mScripts.end() && step == RemoteStep::kReconfigure) {
        it = mScripts.find(RemoteStep::kConfigStream);
    }
    StepScript script = it == mScripts.end() ? StepScript{} : it->second;
    if (script.result == -1) {
        script.result = SuccessOf(step);
    }
    return script;
}

void FakeRemoteChannel::Record(const std::string& call) {
    std::lock_guard<std::mutex> lock(mLock);
    mCalls.push_back(call);
}

bool FakeRemoteChannel::DieIfScripted(const StepScript& script, const char* call) {
    while (script.hangOnCall) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
    if (script.dieOnCall) {
        Kill(std::string("on ") + call);
    }
    return script.dieOnCall;
}

template <typename Callback>
void FakeRemoteChannel::OpenSession(RemoteStep step, const char* call, const hidl_string& name,
                                    Callback cb) {
    const StepScript script = ScriptOf(step);
    Record(std::string(call) + " " + std::string(name));
    uint32_t sessionId = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        sessionId = mNextSessionId++;
        mOpenSessions.insert(sessionId);
    }
    OnOpened(step, call, name, sessionId);
    if (DieIfScripted(script, call)) {
        return;  // a dead peer never replies
    }
    if (script.callStatus != CameraStatus::OK) {
        cb(script.callStatus, 0);
        return;
    }
    if (script.mode == AnswerMode::kBeforeReturn) {
        Report(step, sessionId, script.result);
    }
    cb(CameraStatus::OK, sessionId);
    Answer(step, sessionId, script);
}

void FakeRemoteChannel::Answer(RemoteStep step, uint32_t sessionId, const StepScript& script) {
    if (script.mode == AnswerMode::kBeforeReturn) {
        return;
    }
    OnAnswerPlanned(step, sessionId, script);
    if (script.mode == AnswerMode::kNever) {
        return;
    }
    // The remote answers from a thread of its own, as a binder peer would.
    std::lock_guard<std::mutex> lock(mLock);
    mAnswers.emplace_back([this, step, sessionId, script] {
        {
            // Through the library's clock, so that on a virtual one the
            // answer keeps its place against the step's deadline.
            std::unique_lock<std::mutex> lock(mLock);
            const auto deadline = pelcamera::Clock().Now() + script.delay;
            while (!mStopAnswers && pelcamera::Clock().WaitUntil(mAnswersStopped, lock, deadline) ==
                                        std::cv_status::no_timeout) {
            }
            if (mStopAnswers) {
                return;
            }
        }
        Report(step, sessionId, script.result);
    });
}

void FakeRemoteChannel::Report(RemoteStep step, uint32_t sessionId, int32_t result) {
    // The service lives as long as the process, so an answer thread takes no
    // reference: one released by a thread that nothing joins would race the
    // service's destruction at exit.
    vircam::IVirCameraChannel* service = nullptr;
    android::sp<RemoteProcess> process;
    {
        std::lock_guard<std::mutex> lock(mLock);
        service = mService.get();
        process = mProcess.promote();
    }
    if (service == nullptr || (process != nullptr && process->isDead())) {
        return;
    }
    RemoteProcess::ThreadScope inRemote(process.get());
    const auto ret = static_cast<VirCamOptRet>(result);
    android::hardware::Return<void> status = android::hardware::Void();
    switch (step) {
        case RemoteStep::kControlSession:
            status = service->notifyOpenControlSessionResult(sessionId, ret);
            break;
        case RemoteStep::kConfigStream:
        case RemoteStep::kReconfigure:
            status = service->notifyConfigStreamResult(sessionId, ret);
            break;
        case RemoteStep::kDataSession:
            status = service->notifyOpenDataSessionResult(sessionId, ret);
            break;
    }
    status.isOk();
}

android::hardware::Return<void> FakeRemoteChannel::openControlSession(
    const hidl_string& /*deviceId*/, const hidl_string& name, openControlSession_cb cb) {
    OpenSession(RemoteStep::kControlSession, "openControlSession", name, cb);
    return android::hardware::Void();
}

android::hardware::Return<void> FakeRemoteChannel::openDataSession(const hidl_string& /*deviceId*/,
                                                                   const hidl_string& name,
                                                                   openDataSession_cb cb) {
    OpenSession(RemoteStep::kDataSession, "openDataSession", name, cb);
    return android::hardware::Void();
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::configStream(
    uint32_t sessionId, const hidl_vec<vircam::VirStream>& streams) {
    bool again = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        again = !mConfiguredSessions.insert(sessionId).second;
    }
    const RemoteStep step = again ? RemoteStep::kReconfigure : RemoteStep::kConfigStream;
    const StepScript script = ScriptOf(step);
    Record("configStream " + std::to_string(sessionId));
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStreams.assign(streams.begin(), streams.end());
    }
    if (DieIfScripted(script, "configStream")) {
        return CameraStatus::OK;
    }
    if (script.callStatus != CameraStatus::OK) {
        return script.callStatus;
    }
    if (script.mode == AnswerMode::kBeforeReturn) {
        Report(step, sessionId, script.result);
    }
    Answer(step, sessionId, script);
    return CameraStatus::OK;
}

FakeRemoteChannel::CameraStatus FakeRemoteChannel::CloseSession(const char* call,
                                                                uint32_t sessionId) {
    Record(std::string(call) + " " + std::to_string(sessionId));
    const bool known = KnownSession(call, sessionId);
    {
        std::lock_guard<std::mutex> lock(mLock);
        mOpenSessions.erase(sessionId);
        mConfiguredSessions.erase(sessionId);
    }
    return StatusFor(known);
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::closeControlSession(
    uint32_t controlSessionId) {
    return CloseSession("closeControlSession", controlSessionId);
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::closeDataSession(
    uint32_t dataSessionId) {
    return CloseSession("closeDataSession", dataSessionId);
}

android::hardware::Return<void> FakeRemoteChannel::processCaptureRequest(
    uint32_t dataSessionId, const hidl_vec<vircam::VirImageBuffer>& buffers,
    processCaptureRequest_cb cb) {
    const CameraStatus status = StatusFor(KnownSession("processCaptureRequest", dataSessionId));
    {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("processCaptureRequest " + std::to_string(dataSessionId));
        for (const auto& buffer : buffers) {
            mRequests.push_back({buffer.frameNumber, buffer.streamId, buffer.bufferId,
                                 FileOf(buffer.buffer.getNativeHandle())});
            if (mEcho.joinable() && status == CameraStatus::OK) {
                vircam::VirImageResult image{};
                image.frameNumber = static_cast<uint32_t>(buffer.frameNumber);
                image.bufferId = buffer.bufferId;
                image.streamId = buffer.streamId;
                mImages.push_back(image);
                mImagesQueued.notify_all();
            }
        }
    }
    cb(status, status == CameraStatus::OK ? static_cast<uint32_t>(buffers.size()) : 0);
    return android::hardware::Void();
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::processMetaRequest(
    uint32_t dataSessionId, const vircam::VirMetaRequest& /*request*/) {
    Record("processMetaRequest " + std::to_string(dataSessionId));
    return CameraStatus::OK;
}

android::hardware::Return<void> FakeRemoteChannel::reserved8() {
    return android::hardware::Void();
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::flush(
    uint32_t dataSessionId) {
    Record("flush " + std::to_string(dataSessionId));
    return StatusFor(KnownSession("flush", dataSessionId));
}

}  // namespace vircam_fakes
