// Copyright (C) 2026 The libvircam Authors

#include "SimRemote.h"

#include "Names.h"
#include "SimClock.h"
#include "utils/Anonymize.h"

namespace vircam_sim {

namespace {

using pelcamera::GetAnonyString;
using pelcamera::GetAnonyUInt32;

constexpr const char* kStepTrack = "library switch steps";
// Longer than the library's 3 s step wait: the remote that hangs.
constexpr int64_t kHangUs = int64_t{3500} * 1000;
// Requests refused in a row when the remote fails while streaming.
constexpr int kFailedRequests = 5;
constexpr int32_t kBufferStatusError = 1;
constexpr int64_t kHandOverDeathUs = int64_t{20} * 1000;

// The reconfiguration's answer ends the configuration step's span.
int StepIndex(vircam_fakes::RemoteStep step) {
    return step == vircam_fakes::RemoteStep::kReconfigure ? 1 : static_cast<int>(step);
}

const char* StepKey(int step) {
    static constexpr const char* kKeys[] = {"step1", "step2", "step3"};
    return kKeys[step];
}

const char* StepName(int step) {
    static constexpr const char* kNames[] = {"Step1 open control session",
                                             "Step2 configure streams", "Step3 open data session"};
    return kNames[step];
}

}  // namespace

SimRemote::SimRemote(const RemoteConfig& config,
                     const android::sp<vircam::IVirCameraChannel>& service, Recorder& recorder,
                     uint32_t firstSessionId)
    : FakeRemoteChannel(firstSessionId),
      mConfig(config),
      mService(new vircam::HostProxyVirCameraChannel(service, android::hardware::thisProcess())),
      mRecorder(recorder),
      mProcess(new android::hardware::RemoteProcess()),
      mProxy(new vircam::HostProxyVirCameraChannelCallback(this, mProcess)),
      mImageThread([this] { RunImages(); }) {
    SetService(mService);
    AttachProcess(mProcess);
    RejectUnknownSessions(config.rejectsUnknownSessions);
    ScriptSteps();
}

SimRemote::~SimRemote() {
    Shutdown();
}

void SimRemote::ScriptSteps() {
    static constexpr struct {
        RemoteStep step;
        Stage stage;
    } kSteps[] = {{RemoteStep::kControlSession, Stage::kControlSession},
                  {RemoteStep::kConfigStream, Stage::kConfigStream},
                  {RemoteStep::kDataSession, Stage::kDataSession},
                  {RemoteStep::kReconfigure, Stage::kReconfigure}};
    for (const auto& entry : kSteps) {
        vircam_fakes::StepScript script;
        script.mode = FaultAt(entry.stage, FaultKind::kTimeout) ? vircam_fakes::AnswerMode::kNever
                                                                : vircam_fakes::AnswerMode::kLate;
        script.delay = std::chrono::milliseconds(mConfig.resultLatencyMs);
        if (FaultAt(entry.stage, FaultKind::kFailure)) {
            script.result = FailureOf(entry.step);
        }
        script.dieOnCall = FaultAt(entry.stage, FaultKind::kDeath);
        Script(entry.step, script);
    }
}

void SimRemote::Shutdown() {
    // The proxy holds this device: letting it go breaks the cycle.
    android::sp<vircam::HostProxyVirCameraChannelCallback> proxy = std::move(mProxy);
    mLater.Stop();
    StopAnswers();
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        mImages.clear();
        mImagesChanged.notify_all();
    }
    if (mImageThread.joinable() && mImageThread.get_id() != std::this_thread::get_id()) {
        mImageThread.join();
    }
}

bool SimRemote::FaultAt(Stage stage, FaultKind kind) const {
    return mConfig.fault.stage == stage && mConfig.fault.kind == kind;
}

// A call the library took long to answer: it waited for a lock or for a
// free binder thread of the camera HAL's process.
std::string SimRemote::Took(int64_t startUs) {
    const int64_t tookUs = NowUs() - startUs;
    return tookUs < kSlowCallUs
               ? std::string()
               : Printf(" (answered after %.3f s)", static_cast<double>(tookUs) / 1e6);
}

void SimRemote::Register() {
    const std::string serviceId = "W_" + mConfig.serviceId;
    android::hardware::RemoteProcess::ThreadScope inRemote(mProcess.get());
    const int64_t start = NowUs();
    const auto status =
        mService->registerVirtualChannelCallback(mConfig.deviceId, serviceId, mProxy);
    Say(Printf("offers its camera: registerVirtualChannelCallback(%s, %s) -> %s%s",
               GetAnonyString(mConfig.deviceId).c_str(), GetAnonyString(serviceId).c_str(),
               status.isOk() ? StatusName(status) : status.description().c_str(),
               Took(start).c_str()));
}

void SimRemote::RegisterIn(int ms) {
    mLater.Post(NowUs() + int64_t{ms} * 1000, [this] { Register(); });
}

void SimRemote::WithdrawIn(int ms) {
    mLater.Post(NowUs() + int64_t{ms} * 1000, [this] { Unregister(); });
}

void SimRemote::Unregister() {
    if (Dead()) {
        return;
    }
    android::hardware::RemoteProcess::ThreadScope inRemote(mProcess.get());
    const int64_t start = NowUs();
    mService->unregisterVirtualChannelCallback(mConfig.deviceId, "W_" + mConfig.serviceId).isOk();
    Say("withdraws its camera: unregisterVirtualChannelCallback" + Took(start));
}

void SimRemote::Kill(const std::string& why) {
    if (Dead()) {
        return;
    }
    Say("dies " + why);
    FakeRemoteChannel::Kill(why);
    std::lock_guard<std::mutex> lock(mLock);
    // Whatever the device was about to send dies with it.
    mImages.clear();
}

void SimRemote::OnUnknownSession(const char* call, uint32_t sessionId) {
    Say(Printf("%s names session %s, which this device does not have open%s", call,
               GetAnonyUInt32(sessionId).c_str(),
               mConfig.rejectsUnknownSessions ? ": ILLEGAL_ARGUMENT" : ": answered OK"));
}

void SimRemote::CallSpan(const char* call, int64_t startUs) {
    mRecorder.trace().Complete(Actor(), call, startUs, NowUs());
}

void SimRemote::OnOpened(RemoteStep step, const char* call, const hidl_string& name,
                         uint32_t sessionId) {
    const int index = StepIndex(step);
    mRecorder.trace().Begin(StepKey(index), kStepTrack, StepName(index), NowUs());
    Say(Printf("%s(%s) -> session %s", call, GetAnonyString(name).c_str(),
               GetAnonyUInt32(sessionId).c_str()));
}

void SimRemote::OnAnswerPlanned(RemoteStep step, uint32_t /*sessionId*/,
                                const vircam_fakes::StepScript& script) {
    if (script.mode == vircam_fakes::AnswerMode::kNever) {
        Say("will never report this result");
        return;
    }
    if (step == RemoteStep::kDataSession && FaultAt(Stage::kSwitch, FaultKind::kDeath)) {
        // Late enough that the open call has returned, so the death lands in
        // the hand-over and not in the step.
        mLater.Post(NowUs() + int64_t{mConfig.resultLatencyMs} * 1000 + kHandOverDeathUs, [this] {
            Kill("20 ms after its data session opened, while the library hands over");
        });
    }
}

void SimRemote::Report(RemoteStep step, uint32_t sessionId, int32_t result) {
    if (Dead()) {
        return;
    }
    const std::string id = GetAnonyUInt32(sessionId);
    const int64_t now = NowUs();
    const int index = StepIndex(step);
    const bool ok = result == SuccessOf(step);
    Json::Value args(Json::objectValue);
    args["result"] = ok ? "ok" : "failed";
    mRecorder.trace().End(StepKey(index), now, args);
    if (step == RemoteStep::kDataSession && ok) {
        mRecorder.trace().Begin("step4", kStepTrack, "Step4 switch translator, report", now);
    }
    static constexpr const char* kReports[] = {"notifyOpenControlSessionResult",
                                               "notifyConfigStreamResult",
                                               "notifyOpenDataSessionResult"};
    const char* report = kReports[index];
    Say(Printf("%s(%s, %s)", report, id.c_str(),
               OptRetName(static_cast<vircam::VirCamOptRet>(result))));
    const int64_t start = NowUs();
    FakeRemoteChannel::Report(step, sessionId, result);
    const std::string took = Took(start);
    if (!took.empty()) {
        Say(std::string(report) + " returned" + took);
    }
}

android::hardware::Return<void> SimRemote::openControlSession(const hidl_string& deviceId,
                                                              const hidl_string& name,
                                                              openControlSession_cb cb) {
    const int64_t start = NowUs();
    FakeRemoteChannel::openControlSession(deviceId, name, cb);
    CallSpan("openControlSession", start);
    return android::hardware::Void();
}

android::hardware::Return<void> SimRemote::openDataSession(const hidl_string& deviceId,
                                                           const hidl_string& name,
                                                           openDataSession_cb cb) {
    const int64_t start = NowUs();
    FakeRemoteChannel::openDataSession(deviceId, name, cb);
    CallSpan("openDataSession", start);
    return android::hardware::Void();
}

android::hardware::Return<SimRemote::CameraStatus> SimRemote::configStream(
    uint32_t sessionId, const hidl_vec<vircam::VirStream>& streams) {
    const int64_t start = NowUs();
    // A reconfiguration of a running virtual camera is no switch step.
    const bool again = Configured(sessionId);
    if (!again) {
        mRecorder.trace().Begin(StepKey(1), kStepTrack, StepName(1), start);
    }
    std::string list;
    for (const auto& stream : streams) {
        list += Printf("%s%ux%u fmt %d", list.empty() ? "" : ", ", stream.width, stream.height,
                       stream.format);
    }
    Say(Printf("configStream(%s, %zu streams: %s)%s", GetAnonyUInt32(sessionId).c_str(),
               streams.size(), list.c_str(), again ? ": a reconfiguration" : ""));
    const CameraStatus status = FakeRemoteChannel::configStream(sessionId, streams);
    CallSpan("configStream", start);
    return status;
}

template <typename Close>
android::hardware::Return<SimRemote::CameraStatus> SimRemote::CloseSession(const char* call,
                                                                           uint32_t sessionId,
                                                                           Close close) {
    const int64_t start = NowUs();
    Say(Printf("%s(%s)", call, GetAnonyUInt32(sessionId).c_str()));
    const CameraStatus status = close();
    CallSpan(call, start);
    return status;
}

android::hardware::Return<SimRemote::CameraStatus> SimRemote::closeControlSession(
    uint32_t controlSessionId) {
    return CloseSession("closeControlSession", controlSessionId,
                        [&] { return FakeRemoteChannel::closeControlSession(controlSessionId); });
}

android::hardware::Return<SimRemote::CameraStatus> SimRemote::closeDataSession(
    uint32_t dataSessionId) {
    return CloseSession("closeDataSession", dataSessionId,
                        [&] { return FakeRemoteChannel::closeDataSession(dataSessionId); });
}

bool SimRemote::AcceptCapture(const hidl_vec<vircam::VirImageBuffer>& buffers) {
    std::unique_lock<std::mutex> lock(mLock);
    const bool trigger = ++mCaptureRequests == mConfig.fault.afterRequests &&
                         mConfig.fault.stage == Stage::kStreaming;
    if (trigger && mConfig.fault.kind == FaultKind::kFailure) {
        mFailuresLeft = kFailedRequests;
        lock.unlock();
        Say(Printf("fails the next %d capture requests", kFailedRequests));
        lock.lock();
    } else if (trigger && mConfig.fault.kind == FaultKind::kTimeout) {
        mStalled = true;
        lock.unlock();
        Say("stalls: keeps every buffer from now on and returns none");
        lock.lock();
    }
    if (mFailuresLeft > 0) {
        --mFailuresLeft;
        return false;
    }
    const int64_t due = NowUs() + int64_t{mConfig.imageLatencyMs} * 1000;
    for (const auto& buffer : buffers) {
        PendingImage image{
            due,
            std::make_unique<BufferMapping>(buffer.buffer.getNativeHandle()),
            {static_cast<uint32_t>(buffer.frameNumber), buffer.streamId, buffer.bufferId}};
        mImages.push_back(std::move(image));
    }
    mImagesChanged.notify_all();
    return true;
}

android::hardware::Return<void> SimRemote::processCaptureRequest(
    uint32_t dataSessionId, const hidl_vec<vircam::VirImageBuffer>& buffers,
    processCaptureRequest_cb cb) {
    if (StatusFor(KnownSession("processCaptureRequest", dataSessionId)) != CameraStatus::OK) {
        cb(CameraStatus::ILLEGAL_ARGUMENT, 0);
        return android::hardware::Void();
    }
    bool die = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        die = mCaptureRequests + 1 == mConfig.fault.afterRequests &&
              FaultAt(Stage::kStreaming, FaultKind::kDeath);
    }
    if (die) {
        Kill("while streaming");
        return android::hardware::Void();
    }
    if (!AcceptCapture(buffers)) {
        cb(CameraStatus::INTERNAL_ERROR, 0);
        return android::hardware::Void();
    }
    cb(CameraStatus::OK, static_cast<uint32_t>(buffers.size()));
    return android::hardware::Void();
}

// A flush returns every buffer still held before it returns, as a camera
// device must; the pipeline then counts them flushed, not lost.
android::hardware::Return<SimRemote::CameraStatus> SimRemote::flush(uint32_t dataSessionId) {
    const int64_t start = NowUs();
    Say(Printf("flush(%s)", GetAnonyUInt32(dataSessionId).c_str()));
    if (StatusFor(KnownSession("flush", dataSessionId)) != CameraStatus::OK) {
        CallSpan("flush", start);
        return CameraStatus::ILLEGAL_ARGUMENT;
    }
    if (FaultAt(Stage::kSwitchOff, FaultKind::kDeath)) {
        Kill("on flush");
        return CameraStatus::OK;
    }
    if (FaultAt(Stage::kSwitchOff, FaultKind::kFailure)) {
        Say("flush fails: INTERNAL_ERROR, buffers kept");
        CallSpan("flush", start);
        return CameraStatus::INTERNAL_ERROR;
    }
    if (FaultAt(Stage::kSwitchOff, FaultKind::kTimeout)) {
        // A finite hang: on the virtual clock too it lasts its 3.5 s, so the
        // library's step wait runs out first either way.
        Say("hangs in flush for 3.5 s");
        SleepFor(std::chrono::microseconds(kHangUs));
    }
    std::deque<PendingImage> held;
    {
        std::unique_lock<std::mutex> lock(mLock);
        mImagesChanged.wait(lock, [this] { return !mSending; });
        held.swap(mImages);
        mStalled = false;
    }
    for (auto& image : held) {
        SendImage(image, true);
    }
    if (!held.empty()) {
        Say(Printf("flush returned %zu held buffers with an error status", held.size()));
    }
    CallSpan("flush", start);
    return CameraStatus::OK;
}

void SimRemote::RunImages() {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStopping) {
        if (mImages.empty() || mStalled) {
            mImagesChanged.wait(lock);
            continue;
        }
        const int64_t wait = mImages.front().dueUs - NowUs();
        if (wait > 0) {
            WaitUntil(mImagesChanged, lock, Now() + std::chrono::microseconds(wait));
            continue;
        }
        PendingImage image = std::move(mImages.front());
        mImages.pop_front();
        mSending = true;
        lock.unlock();
        SendImage(image, false);
        lock.lock();
        mSending = false;
        mImagesChanged.notify_all();
    }
}

void SimRemote::SendImage(PendingImage& image, bool flushed) {
    if (Dead()) {
        return;
    }
    vircam::VirImageResult result{};
    result.frameNumber = image.stamp.frameNumber;
    result.bufferId = image.stamp.bufferId;
    result.streamId = image.stamp.streamId;
    result.timestamp = static_cast<uint64_t>(NowUs()) * 1000;
    if (flushed || image.mapping->data() == nullptr) {
        result.bufferStatus = kBufferStatusError;
    } else {
        PaintFrame(image.mapping->data(), image.mapping->size(), image.stamp);
    }
    image.mapping.reset();
    android::hardware::RemoteProcess::ThreadScope inRemote(mProcess.get());
    mService->onVirImageBufferDone(0, result).isOk();
}

}  // namespace vircam_sim
