// Copyright (C) 2026 The libvircam Authors

// The service's core: construction, the mode, the property, the physical
// camera id, and the state reads.
#include "streamchange/VirCameraChannelForStreamChange.h"

#include "streamchange/StreamChangeConstants.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "utils/JsonUtil.h"
#include "utils/NoDestructor.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

VirCameraChannelForStreamChange::VirCameraChannelForStreamChange()
    : mChannelCallbackMap(std::make_shared<ChannelCallbackMap>()),
      mDeathRecipientMap(std::make_shared<DeathRecipientMap>()),
      mCallbackSnapshot(std::make_shared<const ChannelCallbackMap>()),
      mVirCamSessionMap(std::make_shared<SessionMap>()),
      mSwitchOnTasks(std::make_shared<std::vector<SwitchTask>>()),
      mSwitchOffTasks(std::make_shared<std::vector<SwitchTask>>()) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: construct VirCameraChannelForStreamChange()");
    InitCameraTrans();
}

void VirCameraChannelForStreamChange::InitCameraTrans() {
    CVirtualSwitchCameraTranslator* translator = CVirtualSwitchCameraTranslator::GetInstance();
    if (!translator->NeedSetChannel()) {
        return;
    }
    translator->SetChannel(this);
    VIRCAM_LOGI(kStreamChangeLog, "%s: Set channel in trans");
    if (mCamTrans == nullptr) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: Set trans in channel");
        mCamTrans = translator;
    }
}

Return<CameraStatus> VirCameraChannelForStreamChange::registerVirtualCameraDevice(
    const hidl_string& /*deviceId*/, const hidl_string& /*serviceId*/,
    const hidl_vec<vircam::CameraFormat>& /*formats*/,
    const hidl_vec<vircam::MetaItem>& /*metas*/) {
    return CameraStatus::OPERATION_NOT_SUPPORTED;
}

Return<CameraStatus> VirCameraChannelForStreamChange::unregisterVirtualCameraDevice(
    const hidl_string& deviceId, const hidl_string& serviceId) {
    return registerVirtualCameraDevice(deviceId, serviceId, {}, {});
}

Return<void> VirCameraChannelForStreamChange::getVirtualCameraIdList(
    getVirtualCameraIdList_cb _hidl_cb) {
    _hidl_cb(CameraStatus::OK, hidl_vec<hidl_string>());
    return ::android::hardware::Void();
}

void VirCameraChannelForStreamChange::SetToSwitchingMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    if (mCameraMode == PHYSICAL) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: set to switching mode, phy -> swt");
        mCameraMode = ON_SWITCHING;
    } else if (mCameraMode == VIRTUAL) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: set to switching mode, vir -> vir");
    } else {
        VIRCAM_LOGW(kStreamChangeLog, "%s: current not on physical mode, no need set to switching");
    }
}

void VirCameraChannelForStreamChange::SetToVirtualMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    if (mCameraMode != ON_SWITCHING) {
        VIRCAM_LOGW(kStreamChangeLog, "%s: current not on switching mode, no need set to virtual");
        return;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: set to virtual mode");
    mCameraMode = VIRTUAL;
}

void VirCameraChannelForStreamChange::SetToPhysicalMode() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: set to physical mode");
    mCameraMode = PHYSICAL;
    UnBindCameraHal();
}

void VirCameraChannelForStreamChange::BackToPhysicalMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    SetToPhysicalMode();
}

void VirCameraChannelForStreamChange::BindCameraHal() {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: mCamTrans nullptr");
        return;
    }
    mCamTrans->EnableProperity(kCameraPropertyPrefix + GetPhysicalCameraId());
}

void VirCameraChannelForStreamChange::UnBindCameraHal() {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: mCamTrans nullptr");
        return;
    }
    mCamTrans->DisableProperity();
}

// Command 101 of notify (VirCamRequestPath.cpp).
void VirCameraChannelForStreamChange::SavePhysicalCameraID(const std::string& msg) {
    Json::Value root;
    if (JsonUtil::StringToJsonValue(msg, root) != 0) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: StringToJsonValue failed");
        return;
    }
    std::vector<std::string> ids;
    // An empty list carries no id: the one saved before is kept.
    if (JsonUtil::JsonParseArrayStr(root, kVirCamInfoKey, ids) != 0 || ids.empty()) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: prase jsonArray failed");
        return;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: save physicalId[%s]", ids.front().c_str());
    std::lock_guard<std::mutex> lock(mPhysicalCameraIdMutex);
    mPhysicalCameraId = ids.front();
}

std::string VirCameraChannelForStreamChange::GetPhysicalCameraId() const {
    std::lock_guard<std::mutex> lock(mPhysicalCameraIdMutex);
    return mPhysicalCameraId;
}

int32_t VirCameraChannelForStreamChange::GetCameraMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    return mCameraMode;
}

bool VirCameraChannelForStreamChange::HasChannelCallback(const ChannelKey& key) {
    std::lock_guard<std::mutex> lock(mChannelCallbackMutex);
    return FindChannelCallbackLocked(key) != nullptr;
}

bool VirCameraChannelForStreamChange::HasDeathRecipient(const ChannelKey& key) {
    std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
    return mDeathRecipientMap->count(key) != 0;
}

bool VirCameraChannelForStreamChange::HasSwitchCallback() {
    std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
    return mSwitchCallback != nullptr;
}

}  // namespace pelcamera

// The service is never destroyed. Binder threads, death notices and the
// detached workers go on calling into it while the process exits; nothing of
// it may be freed under them, and a worker stuck in a remote call must not
// hold up the exit.
extern "C" pelcamera::VirCameraChannelForStreamChange* CreateVirtualCameraStreamChange() {
    static pelcamera::VirCameraChannelForStreamChange* const instance = [] {
        static pelcamera::NoDestructor<pelcamera::VirCameraChannelForStreamChange> channel;
        // Death recipients hold strong references to the service; this one is
        // never released, so reference counting never deletes it either.
        channel->incStrong(channel.get());
        return channel.get();
    }();
    return instance;
}
