// Waiting for a remote channel's asynchronous results, and recording them.
//
// No result is lost: a waiter looks at its step's returned-flag and goes to
// sleep under the step's own mutex, which a notifier holds for its whole
// call. A result that comes first is flagged; one that comes while the waiter
// sleeps is handed to it (AwaitedResult). Waiters of other steps never stand
// in the way.
#include <chrono>

#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "utils/Anonymize.h"
#include "utils/VirCamClock.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

// The per-step texts of a result notification.
struct ResultNotice {
    const char* name;
    SwitchStep step;
    SessionType lookup;
    vircam::VirCamOptRet success;
    bool VirCamSession::*flag;
    const char* notFound;
    bool notFoundWithRet;
    const char* failed;
    const char* succeeded;
};

namespace {

constexpr ResultNotice kOpenCtrlNotice = {
    "notifyOpenControlSessionResult",
    OPEN_CONTROL_SESSION,
    CONTROL_SESSION,
    vircam::VirCamOptRet::OPT_CTRL_SESSION_OK,
    &VirCamSession::openCtrlSessionOk,
    "%s: can not find virtual camera session info by control session id: %s, ret: %d",
    true,
    "%s: the channel open contorl session failed, SessionId: %s, ret: %d",
    "%s: open control control session success"};

constexpr ResultNotice kConfigStreamNotice = {
    "notifyConfigStreamResult",
    CONFIG_STREAM,
    CONTROL_SESSION,
    vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK,
    &VirCamSession::configStreamOk,
    "%s: can not find virtual camera session info by control session id: %s",
    false,
    "%s: the channel config stream failed, SessionId: %s, ret: %d",
    "%s: the channel config stream success"};

constexpr ResultNotice kOpenDataNotice = {
    "notifyOpenDataSessionResult",
    OPEN_DATA_SESSION,
    DATA_SESSION,
    vircam::VirCamOptRet::OPT_DATA_SESSION_OK,
    &VirCamSession::openDataSessionOk,
    "%s: can not find virtual camera session info by data session id: %s, ret: %d",
    true,
    "%s: the channel open data session failed, SessionId: %s, ret: %d",
    "%s: the channel open data session success"};

const char* NoWaitMessage(SwitchStep step) {
    switch (step) {
        case OPEN_CONTROL_SESSION:
            return "%s: open control session has return, no wait";
        case CONFIG_STREAM:
            return "%s: config stream has return, no wait";
        case OPEN_DATA_SESSION:
            return "%s: open data session has return, no wait";
        default:
            return nullptr;
    }
}

}  // namespace

AwaitedResult& VirCameraChannelForStreamChange::ResultOf(SwitchStep step) {
    switch (step) {
        case OPEN_CONTROL_SESSION:
            return mOpenCtrlSession;
        case CONFIG_STREAM:
            return mConfigStream;
        case OPEN_DATA_SESSION:
            return mOpenDataSession;
        case HAL_INIT:
            break;
    }
    return mHalInit;
}

void VirCameraChannelForStreamChange::ReleaseChannelOpt() {
    if (mChannelOptOwner.load() == std::this_thread::get_id()) {
        mChannelOptMutex.unlock();
    }
}

// Out of line so that the sanitizer's suppression of the cycles through
// mChannelOptMutex can name just this frame: the lock is the switch-on
// worker's alone, so no cycle through it can deadlock.
[[gnu::noinline]] void VirCameraChannelForStreamChange::ReacquireChannelOpt() {
    if (mChannelOptOwner.load() == std::this_thread::get_id()) {
        mChannelOptMutex.lock();
    }
}

// The HAL-init wait never looks at its flag: only a notification that comes
// while it sleeps ends it early.
int32_t VirCameraChannelForStreamChange::WaitForChannelOptReturnLocked(
    std::unique_lock<std::mutex>& lock, AwaitedResult& result, AwaitedResult::Subject subject,
    int32_t timeoutSeconds, SwitchStep step) {
    const char* noWait = NoWaitMessage(step);
    if (noWait != nullptr && result.returned) {
        kStreamChangeLog.I(noWait, __func__);
        return 0;
    }
    const VirCamClock::TimePoint deadline = Clock().Now() + std::chrono::seconds(timeoutSeconds);
    ReleaseChannelOpt();
    const bool delivered = result.SleepUntil(lock, subject, deadline);
    ReacquireChannelOpt();
    if (!delivered) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: async channel operation timeout");
        return -1;
    }
    return 0;
}

// The texts say whether a waiter was asleep for this result: the notifier
// then wakes it, else it leaves the flag for the wait still to come.
void VirCameraChannelForStreamChange::FlagReturned(const char* caller, AwaitedResult& result,
                                                   AwaitedResult::Subject subject) {
    if (result.Deliver(subject)) {
        kStreamChangeLog.I("%s: main task waiting on, notify it", caller);
    } else {
        kStreamChangeLog.I("%s: get async task info lock", caller);
    }
}

bool VirCameraChannelForStreamChange::SessionFlag(const std::shared_ptr<VirCamSession>& session,
                                                  bool VirCamSession::*flag) {
    std::lock_guard<std::mutex> lock(mSessionMutex);
    return (*session).*flag;
}

Return<void> VirCameraChannelForStreamChange::notifyOpenControlSessionResult(
    uint32_t sessionId, vircam::VirCamOptRet ret) {
    std::lock_guard<std::mutex> step(mOpenCtrlSession.mutex);
    RecordResult(kOpenCtrlNotice, sessionId, ret, mOpenCtrlSession);
    return ::android::hardware::Void();
}

Return<void> VirCameraChannelForStreamChange::notifyConfigStreamResult(uint32_t sessionId,
                                                                       vircam::VirCamOptRet ret) {
    std::lock_guard<std::mutex> step(mConfigStream.mutex);
    RecordResult(kConfigStreamNotice, sessionId, ret, mConfigStream);
    return ::android::hardware::Void();
}

Return<void> VirCameraChannelForStreamChange::notifyOpenDataSessionResult(
    uint32_t sessionId, vircam::VirCamOptRet ret) {
    std::lock_guard<std::mutex> step(mOpenDataSession.mutex);
    RecordResult(kOpenDataNotice, sessionId, ret, mOpenDataSession);
    return ::android::hardware::Void();
}

void VirCameraChannelForStreamChange::RecordResult(const ResultNotice& notice, uint32_t sessionId,
                                                   vircam::VirCamOptRet ret,
                                                   AwaitedResult& result) {
    const int32_t code = static_cast<int32_t>(ret);
    const std::string anonyId = GetAnonyInt32(static_cast<int32_t>(sessionId));
    std::shared_ptr<VirCamSession> session = GetVirCamSessionBySessionId(sessionId, notice.lookup);
    if (session == nullptr) {
        // Nothing is flagged: the waiting step runs into its time-out.
        if (notice.notFoundWithRet) {
            kStreamChangeLog.E(notice.notFound, notice.name, anonyId.c_str(), code);
        } else {
            kStreamChangeLog.E(notice.notFound, notice.name, anonyId.c_str());
        }
        return;
    }
    const bool ok = ret == notice.success;
    if (ok) {
        kStreamChangeLog.I(notice.succeeded, notice.name);
    } else {
        kStreamChangeLog.E(notice.failed, notice.name, anonyId.c_str(), code);
    }
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        (*session).*notice.flag = ok;
    }
    FlagReturned(notice.name, result, session.get());
}

// What a step waits for and how it reports a missing or failed result.
struct StepWait {
    SwitchStep step;
    bool VirCamSession::*flag;
    const char* timedOut;
    const char* failedAtLast;
};

namespace {

constexpr StepWait kOpenCtrlWait = {
    OPEN_CONTROL_SESSION, &VirCamSession::openCtrlSessionOk,
    "%s: wait for open control channel timeout, return: %d",
    "%s: send open control session request, but return failed at last"};
constexpr StepWait kConfigStreamWait = {
    CONFIG_STREAM, &VirCamSession::configStreamOk, "%s: wait for config stream timeout, return: %d",
    "%s: send config stream request, but return failed at last"};
constexpr StepWait kOpenDataWait = {
    OPEN_DATA_SESSION, &VirCamSession::openDataSessionOk,
    "%s: wait for open data channel timeout, return: %d",
    "%s: send open data session request, but return failed at last"};

}  // namespace

// True when the step's result came and the session records success; the
// caller keeps the step's lock for whatever undo follows.
bool VirCameraChannelForStreamChange::AwaitStepResult(
    const char* caller, std::unique_lock<std::mutex>& lock, AwaitedResult& result,
    const StepWait& wait, const std::shared_ptr<VirCamSession>& session) {
    if (WaitForChannelOptReturnLocked(lock, result, session.get(), kChannelOptTimeoutSeconds,
                                      wait.step) != 0) {
        kStreamChangeLog.E(wait.timedOut, caller, -1);
        return false;
    }
    if (SessionFlag(session, wait.flag)) {
        return true;
    }
    kStreamChangeLog.E(wait.failedAtLast, caller);
    return false;
}

bool VirCameraChannelForStreamChange::AfterOpenCtrSession(
    uint32_t seqNum, const ChannelKey& key, const sp<vircam::IVirCameraChannelCallback>& callback,
    std::shared_ptr<VirCamSession>& session) {
    std::unique_lock<std::mutex> lock(mOpenCtrlSession.mutex);
    android::base::ScopedLockAssertion held(mOpenCtrlSession.mutex);
    if (AwaitStepResult(__func__, lock, mOpenCtrlSession, kOpenCtrlWait, session)) {
        return true;
    }
    NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_CONTROL);
    return UndoSwitchStep(callback, key);
}

bool VirCameraChannelForStreamChange::DealConfigStreamResult(
    Return<CameraStatus>& callResult, const sp<vircam::IVirCameraChannelCallback>& callback,
    uint32_t seqNum, const ChannelKey& key, std::shared_ptr<VirCamSession>& session) {
    if (!callResult.isOk() || static_cast<CameraStatus>(callResult) != CameraStatus::OK) {
        const uint32_t controlSessionId = RouteOf(*session).controlSessionId;
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: config stream failed, deviceId: %s, serviceId: %s, sessionId: %s",
                    GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str(),
                    GetAnonyInt32(static_cast<int32_t>(controlSessionId)).c_str());
        NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_CONFIG);
        return UndoSwitchStep(callback, key);
    }
    std::unique_lock<std::mutex> lock(mConfigStream.mutex);
    android::base::ScopedLockAssertion held(mConfigStream.mutex);
    if (AwaitStepResult(__func__, lock, mConfigStream, kConfigStreamWait, session)) {
        return true;
    }
    NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_CONFIG);
    return UndoSwitchStep(callback, key);
}

bool VirCameraChannelForStreamChange::DealOpenDataSessionResult(
    uint32_t seqNum, const sp<vircam::IVirCameraChannelCallback>& callback, const ChannelKey& key,
    const std::shared_ptr<VirCamSession>& session) {
    std::unique_lock<std::mutex> lock(mOpenDataSession.mutex);
    android::base::ScopedLockAssertion held(mOpenDataSession.mutex);
    if (AwaitStepResult(__func__, lock, mOpenDataSession, kOpenDataWait, session)) {
        return true;
    }
    NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_DATA);
    return UndoSwitchStep(callback, key);
}

// A stream reconfiguration of a running virtual camera waits as Step2 does.
bool VirCameraChannelForStreamChange::AwaitReconfiguration(
    const std::shared_ptr<VirCamSession>& session) {
    std::unique_lock<std::mutex> lock(mConfigStream.mutex);
    android::base::ScopedLockAssertion held(mConfigStream.mutex);
    return AwaitStepResult("ConfigureStreams", lock, mConfigStream, kConfigStreamWait, session);
}

// Every failed step releases what the remote opened and forgets the session;
// the sequence then falls back to the physical camera.
bool VirCameraChannelForStreamChange::UndoSwitchStep(
    const sp<vircam::IVirCameraChannelCallback>& callback, const ChannelKey& key) {
    ClearChannelResource(callback, key.first, key.second);
    EraseSession(key);
    return false;
}

}  // namespace pelcamera
