// Moving the camera from the local sensor to a remote channel, step by step;
// every failing step reports its code and undoes what it opened.
#include <chrono>

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

// What differs between opening the control and the data session.
struct OpenSessionStep {
    const char* name;
    Return<void> (vircam::IVirCameraChannelCallback::*open)(
        const hidl_string&, const hidl_string&,
        vircam::IVirCameraChannelCallback::openControlSession_cb);
    uint32_t VirCamSession::*sessionId;
    const char* failed;
    int32_t failureCode;
};

namespace {

constexpr OpenSessionStep kOpenControl = {
    "OpenControlSession", &vircam::IVirCameraChannelCallback::openControlSession,
    &VirCamSession::controlSessionId,
    "%s: open control session failed, deviceid: %s, serviceid: %s, return status: %d",
    SWITCH_ON_ERR_CONTROL};
constexpr OpenSessionStep kOpenData = {
    "OpenDataSession", &vircam::IVirCameraChannelCallback::openDataSession,
    &VirCamSession::dataSessionId,
    "%s: open data session failed, deviceid: %s, serviceid: %s, return status: %d",
    SWITCH_ON_ERR_DATA};

}  // namespace

Return<void> VirCameraChannelForStreamChange::DoSwitchOnVirtualCamera(const hidl_string& deviceId,
                                                                      const hidl_string& serviceId,
                                                                      uint32_t seqNum) {
    using Step = bool (VirCameraChannelForStreamChange::*)(uint32_t, const ChannelKey&,
                                                           std::shared_ptr<VirCamSession>&);
    static constexpr struct {
        Step run;
        const char* failure;
        SwitchPhase phase;
    } kSteps[] = {
        {&VirCameraChannelForStreamChange::OpenControlSession, "%s: open control session failed",
         SwitchPhase::CONTROL},
        {&VirCameraChannelForStreamChange::ConfigStream, "%s: config steam failed",
         SwitchPhase::CONFIGURATION},
        {&VirCameraChannelForStreamChange::OpenDataSession, "%s: open data session failed",
         SwitchPhase::DATA},
        {&VirCameraChannelForStreamChange::DoSwitchWork, "%s: switch phy cam to vir cam failed",
         SwitchPhase::SWITCH},
    };

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
        for (const auto& step : kSteps) {
            if (mWorkersStopping) {
                // Process exit: the step that ran has settled what it opened;
                // the rest is dropped with the process, as the destructor
                // drops every remote without a call.
                kStreamChangeLog.I("%s: process exiting, switch on abandoned", __func__);
                return ::android::hardware::Void();
            }
            phases.Enter(step.phase);
            if (!(this->*step.run)(seqNum, key, session)) {
                kStreamChangeLog.E(step.failure, __func__);
                switched = false;
                break;
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

bool VirCameraChannelForStreamChange::OpenControlSession(uint32_t seqNum, const ChannelKey& key,
                                                         std::shared_ptr<VirCamSession>& session) {
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        session->deviceId = key.first;
        session->serviceId = key.second;
        mVirCamSessionMap->emplace(key, session);
    }
    VIRCAM_LOGI(kStreamChangeLog, "[Step1] %s: start open control session, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    return OpenRemoteSession(kOpenControl, seqNum, key, session);
}

bool VirCameraChannelForStreamChange::ConfigStream(uint32_t seqNum, const ChannelKey& key,
                                                   std::shared_ptr<VirCamSession>& session) {
    VIRCAM_LOGI(kStreamChangeLog, "[Step2] %s: start configstream, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
    sp<vircam::IVirCameraChannelCallback> callback =
        FindChannelCallbackOrLog(__func__, kCbNotRegisted, key);
    if (callback == nullptr) {
        return false;
    }
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: mCamTrans ptr is null");
        NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_CONFIG);
        return UndoSwitchStep(callback, key);
    }
    // The registry stays held through the poll, the call, the wait and any
    // undo, so a registration or death of this remote waits for the step and
    // the step's own failure reaches device management. The backup is read
    // as a snapshot under a leaf lock, never under the pipeline's
    // stream-configuration lock, so this order cannot invert with a
    // reconfiguration while virtual.
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

bool VirCameraChannelForStreamChange::OpenDataSession(uint32_t seqNum, const ChannelKey& key,
                                                      std::shared_ptr<VirCamSession>& session) {
    VIRCAM_LOGI(kStreamChangeLog, "[Step3] %s: start opendata session, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    return OpenRemoteSession(kOpenData, seqNum, key, session);
}

// Opens the control or the data session on the remote and waits for its
// result. The registry's lock is held through the call, the result wait and
// any undo: a registration or death of this remote waits for the step.
bool VirCameraChannelForStreamChange::OpenRemoteSession(const OpenSessionStep& step,
                                                        uint32_t seqNum, const ChannelKey& key,
                                                        std::shared_ptr<VirCamSession>& session) {
    std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
    sp<vircam::IVirCameraChannelCallback> callback =
        FindChannelCallbackOrLog(step.name, kCbNotRegisted, key);
    if (callback == nullptr) {
        return false;
    }
    const OpenReply reply = CallOpen([&](auto&& cb) {
        return ((*callback).*step.open)(key.first, kSessionNamePrefix + key.second, cb);
    });
    if (!reply.Ok()) {
        kStreamChangeLog.E(step.failed, step.name, GetAnonyString(key.first).c_str(),
                           GetAnonyString(key.second).c_str(), static_cast<int32_t>(reply.status));
        NotifySwitchOnResult(seqNum, step.failureCode);
        return UndoSwitchStep(callback, key);
    }
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        (*session).*step.sessionId = reply.sessionId;
    }
    if (step.sessionId == &VirCamSession::controlSessionId) {
        return AfterOpenCtrSession(seqNum, key, callback, session);
    }
    return DealOpenDataSessionResult(seqNum, callback, key, session);
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

}  // namespace pelcamera
