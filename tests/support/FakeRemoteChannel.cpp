#include "support/FakeRemoteChannel.h"

namespace vircam_test {

int32_t FakeRemoteChannel::SuccessOf(RemoteStep step) {
    switch (step) {
        case RemoteStep::kControlSession:
            return static_cast<int32_t>(vircam::VirCamOptRet::OPT_CTRL_SESSION_OK);
        case RemoteStep::kConfigStream:
            return static_cast<int32_t>(vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK);
        case RemoteStep::kDataSession:
            return static_cast<int32_t>(vircam::VirCamOptRet::OPT_DATA_SESSION_OK);
    }
    return -1;
}

FakeRemoteChannel::FakeRemoteChannel(uint32_t firstSessionId) : mNextSessionId(firstSessionId) {}

FakeRemoteChannel::~FakeRemoteChannel() {
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
        lock.unlock();
        if (service != nullptr) {
            service->onVirImageBufferDone(0, image).isOk();
        }
        lock.lock();
    }
}

void FakeRemoteChannel::SetService(const android::sp<vircam::IVirCameraChannel>& service) {
    std::lock_guard<std::mutex> lock(mLock);
    mService = service;
}

void FakeRemoteChannel::AttachProcess(
    const android::sp<android::hardware::RemoteProcess>& process) {
    std::lock_guard<std::mutex> lock(mLock);
    mProcess = process;
}

void FakeRemoteChannel::Script(RemoteStep step, const StepScript& script) {
    std::lock_guard<std::mutex> lock(mLock);
    mScripts[step] = script;
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

StepScript FakeRemoteChannel::ScriptOf(RemoteStep step) const {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mScripts.find(step);
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

void FakeRemoteChannel::DieIfScripted(const StepScript& script) {
    while (script.hangOnCall) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
    if (!script.dieOnCall) {
        return;
    }
    android::sp<android::hardware::RemoteProcess> process = mProcess.promote();
    if (process != nullptr) {
        process->kill();
    }
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
    }
    DieIfScripted(script);
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
    if (script.dieOnCall ||
        (script.mode != AnswerMode::kAtOnce && script.mode != AnswerMode::kLate)) {
        return;
    }
    // The remote answers from a thread of its own, as a binder peer would.
    std::lock_guard<std::mutex> lock(mLock);
    mAnswers.emplace_back([this, step, sessionId, script] {
        std::this_thread::sleep_for(script.delay);
        Report(step, sessionId, script.result);
    });
}

void FakeRemoteChannel::Report(RemoteStep step, uint32_t sessionId, int32_t result) {
    // The service lives as long as the process, so an answer thread takes no
    // reference: one released by a thread that nothing joins would race the
    // service's destruction at exit.
    vircam::IVirCameraChannel* service = nullptr;
    {
        std::lock_guard<std::mutex> lock(mLock);
        service = mService.get();
    }
    if (service == nullptr) {
        return;
    }
    const auto ret = static_cast<vircam::VirCamOptRet>(result);
    android::hardware::Return<void> status = android::hardware::Void();
    switch (step) {
        case RemoteStep::kControlSession:
            status = service->notifyOpenControlSessionResult(sessionId, ret);
            break;
        case RemoteStep::kConfigStream:
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
    uint32_t sessionId, const android::hardware::hidl_vec<vircam::VirStream>& streams) {
    const StepScript script = ScriptOf(RemoteStep::kConfigStream);
    Record("configStream " + std::to_string(sessionId));
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStreams.assign(streams.begin(), streams.end());
    }
    DieIfScripted(script);
    if (script.callStatus != CameraStatus::OK) {
        return script.callStatus;
    }
    if (script.mode == AnswerMode::kBeforeReturn) {
        Report(RemoteStep::kConfigStream, sessionId, script.result);
    }
    Answer(RemoteStep::kConfigStream, sessionId, script);
    return CameraStatus::OK;
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::closeControlSession(
    uint32_t controlSessionId) {
    Record("closeControlSession " + std::to_string(controlSessionId));
    return CameraStatus::OK;
}

android::hardware::Return<FakeRemoteChannel::CameraStatus> FakeRemoteChannel::closeDataSession(
    uint32_t dataSessionId) {
    Record("closeDataSession " + std::to_string(dataSessionId));
    return CameraStatus::OK;
}

android::hardware::Return<void> FakeRemoteChannel::processCaptureRequest(
    uint32_t dataSessionId, const android::hardware::hidl_vec<vircam::VirImageBuffer>& buffers,
    processCaptureRequest_cb cb) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.push_back("processCaptureRequest " + std::to_string(dataSessionId));
        for (const auto& buffer : buffers) {
            mRequests.push_back({buffer.frameNumber, buffer.streamId, buffer.bufferId,
                                 FileOf(buffer.buffer.getNativeHandle())});
            if (mEcho.joinable()) {
                vircam::VirImageResult image{};
                image.frameNumber = static_cast<uint32_t>(buffer.frameNumber);
                image.bufferId = buffer.bufferId;
                image.streamId = buffer.streamId;
                mImages.push_back(image);
                mImagesQueued.notify_all();
            }
        }
    }
    cb(CameraStatus::OK, static_cast<uint32_t>(buffers.size()));
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
    return CameraStatus::OK;
}

}  // namespace vircam_test
