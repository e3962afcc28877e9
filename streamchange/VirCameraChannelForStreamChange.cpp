#include "streamchange/VirCameraChannelForStreamChange.h"

#include "translator/CVirtualSwitchCameraTranslator.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

VirCameraChannelForStreamChange::VirCameraChannelForStreamChange()
    : mChannelCallbackMap(std::make_shared<ChannelCallbackMap>()),
      mDeathRecipientMap(std::make_shared<DeathRecipientMap>()),
      mVirCamSessionMap(std::make_shared<SessionMap>()),
      mSwitchOnTasks(std::make_shared<std::vector<SwitchTask>>()),
      mSwitchOffTasks(std::make_shared<std::vector<SwitchTask>>()) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: construct VirCameraChannelForStreamChange()");
    InitCameraTrans();
}

VirCameraChannelForStreamChange::~VirCameraChannelForStreamChange() {
    StopSwitchThreads();
    {
        std::lock_guard<std::mutex> lock(mChannelCallbackMutex);
        mChannelCallbackMap->clear();
    }
    {
        std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
        mDeathRecipientMap->clear();
    }
    {
        std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
        mSwitchCallback = nullptr;
    }
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        mVirCamSessionMap->clear();
    }
    if (mCamTrans != nullptr) {
        mCamTrans->SetChannel(nullptr);
        mCamTrans = nullptr;
    }
    // With the translator already unlinked this never touches the property.
    {
        std::lock_guard<std::mutex> lock(mModeMutex);
        SetToPhysicalMode();
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: deconstruct ~VirCameraChannelForStreamChange()");
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

extern "C" pelcamera::VirCameraChannelForStreamChange* CreateVirtualCameraStreamChange() {
    static pelcamera::VirCameraChannelForStreamChange* const instance = [] {
        static pelcamera::VirCameraChannelForStreamChange channel;
        // Death recipients hold strong references to the service; this one is
        // never released, so reference counting never deletes the static.
        channel.incStrong(&channel);
        return &channel;
    }();
    return instance;
}
