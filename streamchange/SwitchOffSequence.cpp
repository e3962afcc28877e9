// Copyright (C) 2026 The libvircam Authors

// Bringing the camera back to the local sensor and closing a remote
// channel's sessions.
#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "utils/Anonymize.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {
constexpr uint32_t kPhysicalCameraTarget = static_cast<uint32_t>(-1);
}  // namespace

void VirCameraChannelForStreamChange::DoSwitchOffVirtualCamera(uint32_t seqNum,
                                                               const std::string& deviceId,
                                                               const std::string& serviceId) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: start switch off task, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    SetToSwitchingMode();
    if (!HasSwitchCallback()) {
        // Not a reason to keep the camera remote: switch back all the same.
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: the DevMgt callback not exist, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    }
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: the translator is null, can not switch");
        SetToVirtualMode();
        return;
    }
    const int32_t ret = mCamTrans->TriggerSwitchCamera(kPhysicalCameraTarget, mCameraId);
    if (ret != 0) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: switch to local camera failed, ret: %d", ret);
        NotifySwitchOffResult(seqNum, SWITCH_RESULT_FAILED);
        SetToVirtualMode();
        return;
    }
    ClearChannelResource(deviceId, serviceId);
    // The remote must register its callback again before the next switch-on.
    DirectClearLinkToDeath(deviceId, serviceId);
    EraseSession(ChannelKey(deviceId, serviceId));
    NotifySwitchOffResult(seqNum, SWITCH_RESULT_OK);
    BackToPhysicalMode();
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: switch back to local camera success, deviceid: %s, serviceid: %s",
                GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
}

void VirCameraChannelForStreamChange::NotifySwitchOffResult(uint32_t seqNum, int32_t code) {
    NotifySwitchResult(__func__, &vircam::IVirCameraSwitchCallback::notifySwitchOffResult,
                       "%s: notify switch off failed", seqNum, code);
}

bool VirCameraChannelForStreamChange::ClearChannelResource(const std::string& deviceId,
                                                           const std::string& serviceId) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: start clear channel resource, deviceId: %s, serviceId: %s",
                GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    std::shared_ptr<VirCamSession> session = GetVirCamSession(deviceId, serviceId);
    if (session == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: the VirCamSession not exist, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
        return false;
    }
    std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
    sp<vircam::IVirCameraChannelCallback> callback =
        FindChannelCallbackOrLog(__func__, kCbNotRegisted, ChannelKey(deviceId, serviceId));
    if (callback == nullptr) {
        return false;
    }
    CloseRemoteSessions(callback, *session);
    return true;
}

// For callers that already hold the registry's lock.
bool VirCameraChannelForStreamChange::ClearChannelResource(
    const sp<vircam::IVirCameraChannelCallback>& callback, const std::string& deviceId,
    const std::string& serviceId) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: start clear channel resource, deviceId: %s, serviceId: %s",
                GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    std::shared_ptr<VirCamSession> session = GetVirCamSession(deviceId, serviceId);
    if (session == nullptr || callback == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: the VirCamSession or channel cb not exist, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
        return false;
    }
    CloseRemoteSessions(callback, *session);
    return true;
}

// Both sessions are closed, data first, even while an id is still 0; a
// failure is logged and the teardown goes on.
void VirCameraChannelForStreamChange::CloseRemoteSessions(
    const sp<vircam::IVirCameraChannelCallback>& callback, const VirCamSession& session) {
    const SessionRoute route = RouteOf(session);
    kStreamChangeLog.I("%s: close data session, id: %s", "ClearChannelResource",
                       GetAnonyInt32(static_cast<int32_t>(route.dataSessionId)).c_str());
    if (!callback->closeDataSession(route.dataSessionId).isOk()) {
        kStreamChangeLog.E("%s: closeDataSession failed", "ClearChannelResource");
    }
    kStreamChangeLog.I("%s: close control session, id: %s", "ClearChannelResource",
                       GetAnonyInt32(static_cast<int32_t>(route.controlSessionId)).c_str());
    if (!callback->closeControlSession(route.controlSessionId).isOk()) {
        kStreamChangeLog.E("%s: closeControlSession failed", "ClearChannelResource");
    }
}

}  // namespace pelcamera
