// Copyright (C) 2026 The libvircam Authors

// Moving the camera from the local sensor to a remote channel, in the order
// it runs: the HAL-init check, the preparation, the three remote steps (one
// row each), Step4 and Step5, and the result to device management. Every
// failing step reports its code and undoes what it opened.
//
// Elsewhere: the task comes from the switch-on worker (SwitchWorkers.cpp);
// a step's wait and the remote's result notice are StepResults.cpp; the
// mode and the property are the core's (VirCameraChannelForStreamChange.cpp).
#include <chrono>

#include "streamchange/RemoteStep.h"
#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "utils/Anonymize.h"
#include "utils/VirCamClock.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {

constexpr int32_t kHalPixelFormatImplementationDefined = 34;
constexpr int32_t kHalPixelFormatYv12 = 0x32315659;
constexpr int32_t kStreamPollAttempts = 300;
constexpr std::chrono::milliseconds kStreamPollInterval{5};

// What an open call on the remote returned.
struct OpenReply {
    bool transportOk = false;
    CameraStatus status = CameraStatus::INTERNAL_ERROR;
    uint32_t sessionId = 0;
    bool Ok() const { return transportOk && status == CameraStatus::OK; }
};

template <typename Open>
OpenReply CallOpen(Open&& open) {
    OpenReply reply;
    reply.transportOk = open([&reply](CameraStatus status, uint32_t sessionId) {
                            reply.status = status;
                            reply.sessionId = sessionId;
                        }).isOk();
    return reply;
}

}  // namespace

Return<void> VirCameraChannelForStreamChange::DoSwitchOnVirtualCamera(const hidl_string& deviceId,
                                                                      const hidl_string& serviceId,
                                                                      uint32_t seqNum) {
    VIRCAM_LOGI(kStreamChangeLog, "[Step0] %s: start switch task, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    ClearReturnedFlags();
    SetToSwitchingMode();
    BindCameraHal();
    const ChannelKey key(deviceId, serviceId);
    bool switched = false;
    SwitchHistory::PhaseClock phases(mHistory, seqNum);
    phases.Enter(SwitchPhase::HAL_INIT);
    if (!CheckHalInitStatus(seqNum)) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: hal init err");
    } else if (phases.Enter(SwitchPhase::PREPARE); !PrepareSwitchOn(seqNum, key)) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: prepare switch on failed");
    } else {
        auto session = std::make_shared<VirCamSession>();
        switched = true;
        for (const RemoteStep* step : {&kOpenControlStep, &kConfigStreamStep, &kOpenDataStep}) {
            phases.Enter(step->phase);
            if (!(this->*step->run)(seqNum, key, session)) {
                kStreamChangeLog.E(step->sequenceFailed, __func__);
                switched = false;
                break;
            }
        }
        if (switched) {
            phases.Enter(SwitchPhase::SWITCH);
            if (!DoSwitchWork(seqNum, key, session)) {
                VIRCAM_LOGE(kStreamChangeLog, "%s: switch phy cam to vir cam failed");
                switched = false;
            }
        }
    }
    if (switched) {
        phases.Enter(SwitchPhase::CLEAR_OLD);
        DoWorkAfterSwitch(key, seqNum);
        SetToVirtualMode();
    } else {
        BackToPhysicalMode();
    }
    ClearReturnedFlags();
    return ::android::hardware::Void();
}

bool VirCameraChannelForStreamChange::CheckHalInitStatus(uint32_t seqNum) {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: mCamTrans nullptr");
        return false;
    }
    if (mCamTrans->CheckTranslatorCallback()) {
        VIRCAM_LOGD(kStreamChangeLog, "%s: callback already register");
        return true;
    }
    std::unique_lock<std::mutex> lock(mHalInit.mutex);
    android::base::ScopedLockAssertion held(mHalInit.mutex);
    if (WaitForChannelOptReturnLocked(lock, mHalInit, nullptr, kHalInitTimeoutSeconds, HAL_INIT) ==
        0) {
        return true;
    }
    VIRCAM_LOGE(kStreamChangeLog, "%s: wait for hal init timeout, return: %d", -1);
    NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_CONFIG);
    return false;
}

bool VirCameraChannelForStreamChange::PrepareSwitchOn(uint32_t /*seqNum*/, const ChannelKey& key) {
    if (!HasSwitchCallback()) {
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: the DevMgt callback not exist, deviceid: %s, serviceid: %s",
                    GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str());
        return false;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: init Camera Device Session for set translator");
    InitCameraTrans();
    if (GetVirCamSession(key.first, key.second) == nullptr) {
        return true;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: old switch on session exist, clear it");
    std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
    // The inserting lookup can leave an empty entry; every lookup treats it as missing.
    ClearChannelResource((*mChannelCallbackMap)[key], key.first, key.second);
    PublishCallbacksLocked();
    EraseSession(key);
    return true;
}

// Step1 to Step3, one row each. A row holds what its step does and says; the
// step's functions below only follow it.
using Service = VirCameraChannelForStreamChange;

const Service::RemoteStep Service::kOpenControlStep = {
    .kind = OPEN_CONTROL_SESSION,
    .phase = SwitchPhase::CONTROL,
    .run = &Service::OpenControlSession,
    .name = "OpenControlSession",
    .started = "[Step1] %s: start open control session, seqNum: %s",
    .sequenceFailed = "%s: open control session failed",
    .failureCode = SWITCH_ON_ERR_CONTROL,
    .call = &Service::CallOpenSession,
    .open = &vircam::IVirCameraChannelCallback::openControlSession,
    .sessionId = &VirCamSession::controlSessionId,
    .openFailed = "%s: open control session failed, deviceid: %s, serviceid: %s, return status: %d",
    .after = &Service::AfterOpenCtrSession,
    .result = &Service::mOpenCtrlSession,
    .waiter = "AfterOpenCtrSession",
    .noWait = "%s: open control session has return, no wait",
    .timedOut = "%s: wait for open control channel timeout, return: %d",
    .failedAtLast = "%s: send open control session request, but return failed at last",
    .flag = &VirCamSession::openCtrlSessionOk,
    .notifier = "notifyOpenControlSessionResult",
    .lookup = CONTROL_SESSION,
    .success = vircam::VirCamOptRet::OPT_CTRL_SESSION_OK,
    .notFound = "%s: can not find virtual camera session info by control session id: %s, ret: %d",
    .notFoundWithRet = true,
    .resultFailed = "%s: the channel open contorl session failed, SessionId: %s, ret: %d",
    .resultOk = "%s: open control control session success",
};

const Service::RemoteStep Service::kConfigStreamStep = {
    .kind = CONFIG_STREAM,
    .phase = SwitchPhase::CONFIGURATION,
    .run = &Service::ConfigStream,
    .name = "ConfigStream",
    .started = "[Step2] %s: start configstream, seqNum: %s",
    .sequenceFailed = "%s: config steam failed",
    .failureCode = SWITCH_ON_ERR_CONFIG,
    .call = &Service::CallConfigStream,
    .open = nullptr,
    .sessionId = nullptr,
    .openFailed = nullptr,
    .after = nullptr,
    .result = &Service::mConfigStream,
    .waiter = "DealConfigStreamResult",
    .noWait = "%s: config stream has return, no wait",
    .timedOut = "%s: wait for config stream timeout, return: %d",
    .failedAtLast = "%s: send config stream request, but return failed at last",
    .flag = &VirCamSession::configStreamOk,
    .notifier = "notifyConfigStreamResult",
    .lookup = CONTROL_SESSION,
    .success = vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK,
    .notFound = "%s: can not find virtual camera session info by control session id: %s",
    .notFoundWithRet = false,
    .resultFailed = "%s: the channel config stream failed, SessionId: %s, ret: %d",
    .resultOk = "%s: the channel config stream success",
};

const Service::RemoteStep Service::kOpenDataStep = {
    .kind = OPEN_DATA_SESSION,
    .phase = SwitchPhase::DATA,
    .run = &Service::OpenDataSession,
    .name = "OpenDataSession",
    .started = "[Step3] %s: start opendata session, seqNum: %s",
    .sequenceFailed = "%s: open data session failed",
    .failureCode = SWITCH_ON_ERR_DATA,
    .call = &Service::CallOpenSession,
    .open = &vircam::IVirCameraChannelCallback::openDataSession,
    .sessionId = &VirCamSession::dataSessionId,
    .openFailed = "%s: open data session failed, deviceid: %s, serviceid: %s, return status: %d",
    .after = &Service::DealOpenDataSessionResult,
    .result = &Service::mOpenDataSession,
    .waiter = "DealOpenDataSessionResult",
    .noWait = "%s: open data session has return, no wait",
    .timedOut = "%s: wait for open data channel timeout, return: %d",
    .failedAtLast = "%s: send open data session request, but return failed at last",
    .flag = &VirCamSession::openDataSessionOk,
    .notifier = "notifyOpenDataSessionResult",
    .lookup = DATA_SESSION,
    .success = vircam::VirCamOptRet::OPT_DATA_SESSION_OK,
    .notFound = "%s: can not find virtual camera session info by data session id: %s, ret: %d",
    .notFoundWithRet = true,
    .resultFailed = "%s: the channel open data session failed, SessionId: %s, ret: %d",
    .resultOk = "%s: the channel open data session success",
};

// HAL_INIT has no row: its wait never asks.
const Service::RemoteStep& Service::StepOf(SwitchStep step) {
    switch (step) {
        case OPEN_CONTROL_SESSION:
            return kOpenControlStep;
        case CONFIG_STREAM:
            return kConfigStreamStep;
        case OPEN_DATA_SESSION:
        case HAL_INIT:
            break;
    }
    return kOpenDataStep;
}

// Step1 also enters the new session into the table, before its first line.
bool VirCameraChannelForStreamChange::OpenControlSession(uint32_t seqNum, const ChannelKey& key,
                                                         std::shared_ptr<VirCamSession>& session) {
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        session->deviceId = key.first;
        session->serviceId = key.second;
        mVirCamSessionMap->emplace(key, session);
    }
    return RunRemoteStep(kOpenControlStep, seqNum, key, session);
}

bool VirCameraChannelForStreamChange::ConfigStream(uint32_t seqNum, const ChannelKey& key,
                                                   std::shared_ptr<VirCamSession>& session) {
    return RunRemoteStep(kConfigStreamStep, seqNum, key, session);
}

bool VirCameraChannelForStreamChange::OpenDataSession(uint32_t seqNum, const ChannelKey& key,
                                                      std::shared_ptr<VirCamSession>& session) {
    return RunRemoteStep(kOpenDataStep, seqNum, key, session);
}

// A step that finds no callback for its remote reports nothing and undoes
// nothing; the sequence only falls back to the physical camera.
bool VirCameraChannelForStreamChange::RunRemoteStep(const RemoteStep& step, uint32_t seqNum,
                                                    const ChannelKey& key,
                                                    std::shared_ptr<VirCamSession>& session) {
    kStreamChangeLog.I(step.started, step.name, GetAnonyUInt32(seqNum).c_str());
    std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
    sp<vircam::IVirCameraChannelCallback> callback =
        FindChannelCallbackOrLog(step.name, kCbNotRegisted, key);
    if (callback == nullptr) {
        return false;
    }
    return (this->*step.call)(step, seqNum, key, callback, session);
}

bool VirCameraChannelForStreamChange::CallOpenSession(
    const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
    const sp<vircam::IVirCameraChannelCallback>& callback,
    std::shared_ptr<VirCamSession>& session) {
    const OpenReply reply = CallOpen([&](auto&& cb) {
        return ((*callback).*step.open)(key.first, kSessionNamePrefix + key.second, cb);
    });
    if (!reply.Ok()) {
        kStreamChangeLog.E(step.openFailed, step.name, GetAnonyString(key.first).c_str(),
                           GetAnonyString(key.second).c_str(), static_cast<int32_t>(reply.status));
        return FailRemoteStep(step, seqNum, key, callback);
    }
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        (*session).*step.sessionId = reply.sessionId;
    }
    return (this->*step.after)(seqNum, key, callback, session);
}

bool VirCameraChannelForStreamChange::CallConfigStream(
    const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
    const sp<vircam::IVirCameraChannelCallback>& callback,
    std::shared_ptr<VirCamSession>& session) {
    if (mCamTrans == nullptr) {
        kStreamChangeLog.E("%s: mCamTrans ptr is null", step.name);
        return FailRemoteStep(step, seqNum, key, callback);
    }
    hidl_vec<vircam::VirStream> streams = WaitForCachedConfigStreams();
    ConvertToHidlVirStream(streams);
    Return<CameraStatus> result =
        callback->configStream(RouteOf(*session).controlSessionId, streams);
    return DealConfigStreamResult(result, callback, seqNum, key, session);
}

// The pipeline may not have configured its streams yet; after about 1.5 s
// the switch goes on with an empty configuration. The copy is the worker's
// own: the snapshot it came from may be replaced meanwhile.
hidl_vec<vircam::VirStream> VirCameraChannelForStreamChange::WaitForCachedConfigStreams() {
    std::shared_ptr<const hidl_vec<vircam::VirStream>> snapshot =
        mCamTrans->ConfigStreamsSnapshot();
    for (int32_t attempt = 1; snapshot == nullptr && attempt <= kStreamPollAttempts; ++attempt) {
        snapshot = mCamTrans->ConfigStreamsSnapshot();
        kStreamChangeLog.W("%s: wait for configstream %d times", "ConfigStream", attempt);
        Clock().SleepFor(kStreamPollInterval);
    }
    return snapshot == nullptr ? hidl_vec<vircam::VirStream>() : *snapshot;
}

void VirCameraChannelForStreamChange::ConvertToHidlVirStream(hidl_vec<vircam::VirStream>& streams) {
    for (auto& stream : streams) {
        VIRCAM_LOGI(kStreamChangeLog,
                    "%s: convert stream, streamid: %d, width: %d, height: %d, pixel format: %d",
                    stream.streamId, static_cast<int32_t>(stream.width),
                    static_cast<int32_t>(stream.height), stream.format);
        ConvertOneToHidlVirStream(stream);
    }
}

// Remote channels speak their own format numbers.
void VirCameraChannelForStreamChange::ConvertOneToHidlVirStream(vircam::VirStream& stream) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: get PixelFormat %d", stream.format);
    if (stream.format == kHalPixelFormatImplementationDefined) {
        stream.format = 1;
        stream.formatFlags = 0x200;
    } else if (stream.format == kHalPixelFormatYv12) {
        stream.format = 5;
    } else {
        stream.format = 2;
        stream.formatFlags = 0x40;
    }
}

bool VirCameraChannelForStreamChange::AfterOpenCtrSession(
    uint32_t seqNum, const ChannelKey& key, const sp<vircam::IVirCameraChannelCallback>& callback,
    std::shared_ptr<VirCamSession>& session) {
    return AwaitRemoteStep(kOpenControlStep, seqNum, key, callback, session);
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
        return FailRemoteStep(kConfigStreamStep, seqNum, key, callback);
    }
    return AwaitRemoteStep(kConfigStreamStep, seqNum, key, callback, session);
}

bool VirCameraChannelForStreamChange::DealOpenDataSessionResult(
    uint32_t seqNum, const ChannelKey& key, const sp<vircam::IVirCameraChannelCallback>& callback,
    std::shared_ptr<VirCamSession>& session) {
    return AwaitRemoteStep(kOpenDataStep, seqNum, key, callback, session);
}

bool VirCameraChannelForStreamChange::AwaitRemoteStep(
    const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
    const sp<vircam::IVirCameraChannelCallback>& callback,
    const std::shared_ptr<VirCamSession>& session) {
    AwaitedResult& result = this->*step.result;
    std::unique_lock<std::mutex> lock(result.mutex);
    android::base::ScopedLockAssertion held(result.mutex);
    if (AwaitStepResult(step.waiter, lock, result, step, session)) {
        return true;
    }
    return FailRemoteStep(step, seqNum, key, callback);
}

bool VirCameraChannelForStreamChange::FailRemoteStep(
    const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
    const sp<vircam::IVirCameraChannelCallback>& callback) {
    NotifySwitchOnResult(seqNum, step.failureCode);
    return UndoSwitchStep(callback, key);
}

// Every failed step releases what the remote opened and forgets the session;
// the sequence then falls back to the physical camera.
bool VirCameraChannelForStreamChange::UndoSwitchStep(
    const sp<vircam::IVirCameraChannelCallback>& callback, const ChannelKey& key) {
    ClearChannelResource(callback, key.first, key.second);
    EraseSession(key);
    return false;
}

bool VirCameraChannelForStreamChange::DoSwitchWork(uint32_t seqNum, const ChannelKey& key,
                                                   std::shared_ptr<VirCamSession>& session) {
    VIRCAM_LOGI(kStreamChangeLog, "[Step4] %s: start do switch operation, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    int32_t virCamId = 0;
    {
        std::lock_guard<std::mutex> lock(mVirCamIdMutex);
        virCamId = ++mVirCamIdCounter;
    }
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        session->virCamId = virCamId;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: id for the vir cam switch to: %d", virCamId);
    const int32_t ret = mCamTrans == nullptr ? -1
                                             : mCamTrans->TriggerSwitchCamera(
                                                   static_cast<uint32_t>(virCamId), mCameraId);
    if (ret != 0) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: switch to virtual camera failed, ret: %d", ret);
        NotifySwitchOnResult(seqNum, SWITCH_RESULT_FAILED);
        ClearChannelResource(key.first, key.second);
        EraseSession(key);
        return false;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: switch to virtual camera success, seqnum: %s",
                GetAnonyUInt32(seqNum).c_str());
    NotifySwitchOnResult(seqNum, SWITCH_RESULT_OK);
    return true;
}

// Only the channel just switched to keeps its session.
void VirCameraChannelForStreamChange::DoWorkAfterSwitch(const ChannelKey& key, uint32_t seqNum) {
    VIRCAM_LOGI(kStreamChangeLog, "[Step5] %s: start clear old session, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    std::vector<ChannelKey> oldKeys;
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        for (const auto& entry : *mVirCamSessionMap) {
            if (entry.first == key) {
                continue;
            }
            VIRCAM_LOGE(kStreamChangeLog,
                        "%s: clear old channel resource, deviceid: %s, serviceid: %s",
                        GetAnonyString(entry.first.first).c_str(),
                        GetAnonyString(entry.first.second).c_str());
            oldKeys.push_back(entry.first);
        }
    }
    for (const auto& oldKey : oldKeys) {
        ClearChannelResource(oldKey.first, oldKey.second);
        EraseSession(oldKey);
    }
}

void VirCameraChannelForStreamChange::NotifySwitchOnResult(uint32_t seqNum, int32_t code) {
    NotifySwitchResult(__func__, &vircam::IVirCameraSwitchCallback::notifySwitchOnResult,
                       "%s: notify switch on failed", seqNum, code);
}

// With no switch callback registered the report is dropped.
void VirCameraChannelForStreamChange::NotifySwitchResult(const char* caller, SwitchReport report,
                                                         const char* failed, uint32_t seqNum,
                                                         int32_t code) {
    bool delivered = false;
    {
        std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
        if (mSwitchCallback != nullptr) {
            delivered = ((*mSwitchCallback).*report)(seqNum, code).isOk();
            if (!delivered) {
                kStreamChangeLog.E(failed, caller);
            }
        }
    }
    mHistory.Result(seqNum, code, delivered);
}

}  // namespace pelcamera
