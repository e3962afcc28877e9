// Copyright (C) 2026 The libvircam Authors

// The wait/notify protocol of a remote step's result: the primitive
// (AwaitedResult), the waiting side, and the notifying side. What each step
// waits for and says is its row (RemoteStep.h).
#include <algorithm>
#include <chrono>

#include "streamchange/AwaitedResult.h"
#include "streamchange/RemoteStep.h"
#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "utils/Anonymize.h"
#include "utils/VirCamClock.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

bool AwaitedResult::Deliver(Subject subject) {
    const auto sleeper = std::find_if(mSleepers.begin(), mSleepers.end(), [subject](Sleeper* s) {
        return !s->delivered && (s->subject == nullptr || s->subject == subject);
    });
    if (sleeper == mSleepers.end()) {
        returned = true;
        return false;
    }
    (*sleeper)->delivered = true;
    // Every sleeper wakes and looks at its own entry; the ones still waiting
    // sleep on.
    cond.notify_all();
    return true;
}

bool AwaitedResult::SleepUntil(std::unique_lock<std::mutex>& lock, Subject subject,
                               VirCamClock::TimePoint deadline) {
    Sleeper self{subject, false};
    mSleepers.push_back(&self);
    while (!self.delivered) {
        if (Clock().WaitUntil(cond, lock, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    mSleepers.erase(std::find(mSleepers.begin(), mSleepers.end(), &self));
    return self.delivered;
}

// The waiting side.

// The HAL-init wait never looks at its flag: only a notification that comes
// while it sleeps ends it early.
int32_t VirCameraChannelForStreamChange::WaitForChannelOptReturnLocked(
    std::unique_lock<std::mutex>& lock, AwaitedResult& result, AwaitedResult::Subject subject,
    int32_t timeoutSeconds, SwitchStep step) {
    if (step != HAL_INIT && result.returned) {
        kStreamChangeLog.I(StepOf(step).noWait, __func__);
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

// True when the step's result came and the session records success; the
// caller keeps the step's lock for whatever undo follows.
bool VirCameraChannelForStreamChange::AwaitStepResult(
    const char* caller, std::unique_lock<std::mutex>& lock, AwaitedResult& result,
    const RemoteStep& step, const std::shared_ptr<VirCamSession>& session) {
    if (WaitForChannelOptReturnLocked(lock, result, session.get(), kChannelOptTimeoutSeconds,
                                      step.kind) != 0) {
        kStreamChangeLog.E(step.timedOut, caller, -1);
        return false;
    }
    if (SessionFlag(session, step.flag)) {
        return true;
    }
    kStreamChangeLog.E(step.failedAtLast, caller);
    return false;
}

void VirCameraChannelForStreamChange::ReleaseChannelOpt() {
    if (mChannelOptOwner.load() == std::this_thread::get_id()) {
        mChannelOptMutex.unlock();
    }
}

// Out of line so that the sanitizer's suppression of the cycles through
// mChannelOptMutex can name just this frame.
[[gnu::noinline]] void VirCameraChannelForStreamChange::ReacquireChannelOpt() {
    if (mChannelOptOwner.load() == std::this_thread::get_id()) {
        mChannelOptMutex.lock();
    }
}

// Each flag under its own step's mutex, one at a time.
void VirCameraChannelForStreamChange::ClearReturnedFlags() {
    for (AwaitedResult* result :
         {&mOpenCtrlSession, &mConfigStream, &mOpenDataSession, &mHalInit}) {
        std::lock_guard<std::mutex> lock(result->mutex);
        result->returned = false;
    }
}

// The notifying side.

Return<void> VirCameraChannelForStreamChange::notifyOpenControlSessionResult(
    uint32_t sessionId, vircam::VirCamOptRet ret) {
    RecordResult(kOpenControlStep, sessionId, ret);
    return ::android::hardware::Void();
}

Return<void> VirCameraChannelForStreamChange::notifyConfigStreamResult(uint32_t sessionId,
                                                                       vircam::VirCamOptRet ret) {
    RecordResult(kConfigStreamStep, sessionId, ret);
    return ::android::hardware::Void();
}

Return<void> VirCameraChannelForStreamChange::notifyOpenDataSessionResult(
    uint32_t sessionId, vircam::VirCamOptRet ret) {
    RecordResult(kOpenDataStep, sessionId, ret);
    return ::android::hardware::Void();
}

void VirCameraChannelForStreamChange::RecordResult(const RemoteStep& step, uint32_t sessionId,
                                                   vircam::VirCamOptRet ret) {
    AwaitedResult& result = this->*step.result;
    std::lock_guard<std::mutex> hold(result.mutex);
    const int32_t code = static_cast<int32_t>(ret);
    const std::string anonyId = GetAnonyInt32(static_cast<int32_t>(sessionId));
    std::shared_ptr<VirCamSession> session = GetVirCamSessionBySessionId(sessionId, step.lookup);
    if (session == nullptr) {
        // Nothing is flagged: the waiting step runs into its time-out.
        if (step.notFoundWithRet) {
            kStreamChangeLog.E(step.notFound, step.notifier, anonyId.c_str(), code);
        } else {
            kStreamChangeLog.E(step.notFound, step.notifier, anonyId.c_str());
        }
        return;
    }
    const bool ok = ret == step.success;
    if (ok) {
        kStreamChangeLog.I(step.resultOk, step.notifier);
    } else {
        kStreamChangeLog.E(step.resultFailed, step.notifier, anonyId.c_str(), code);
    }
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        (*session).*step.flag = ok;
    }
    FlagReturned(step.notifier, result, session.get());
}

void VirCameraChannelForStreamChange::SetHalInitStatus() {
    std::lock_guard<std::mutex> lock(mHalInit.mutex);
    FlagReturned(__func__, mHalInit, nullptr);
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

}  // namespace pelcamera
