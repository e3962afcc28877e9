// Copyright (C) 2026 The libvircam Authors

// Remote channel callbacks, their death watch, and the switch callback.
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "utils/Anonymize.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {

// Registry keys drop the first two characters of the service id ("W_cam"
// and "X_cam" name the same channel).
constexpr size_t kServiceIdCut = 2;

ChannelKey MakeKey(const std::string& deviceId, const std::string& serviceId) {
    return {deviceId, serviceId.substr(kServiceIdCut)};
}

}  // namespace

Return<CameraStatus> VirCameraChannelForStreamChange::registerVirtualChannelCallback(
    const hidl_string& deviceId, const hidl_string& serviceId,
    const sp<vircam::IVirCameraChannelCallback>& callback) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: receive registed callback request");
    if (serviceId.size() <= kServiceIdCut) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: serviceid length invalid, service id: %s",
                    GetAnonyString(serviceId).c_str());
        return CameraStatus::ILLEGAL_ARGUMENT;
    }
    if (callback == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: the registed callback is null");
        return CameraStatus::ILLEGAL_ARGUMENT;
    }
    // The same-type cast never calls the peer, so a peer that is already dead
    // still registers; its first switch-on then fails in Step1 and rolls back.
    sp<vircam::IVirCameraChannelCallback> channelCallback =
        vircam::IVirCameraChannelCallback::castFrom(callback);
    if (channelCallback == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: cast register IVirCameraChannelCallback failed");
        return CameraStatus::INTERNAL_ERROR;
    }
    const ChannelKey key = MakeKey(deviceId, serviceId);
    {
        std::lock_guard<std::mutex> lock(mChannelCallbackMutex);
        // An entry left empty by PrepareSwitchOn's inserting lookup is still an
        // entry here: it is replaced as a registration, its (missing) death
        // link cleared.
        auto existing = mChannelCallbackMap->find(key);
        if (existing == mChannelCallbackMap->end()) {
            VIRCAM_LOGI(kStreamChangeLog,
                        "%s: register virtual camera callback success, deviceid: %s, serviceid: %s",
                        GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
        } else {
            VIRCAM_LOGI(kStreamChangeLog,
                        "%s: the virtual camera has been registed, register again, deviceid: %s, "
                        "serviceid: %s",
                        GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
            ClearLinkToDeath(existing->second, key.first, key.second);
        }
        (*mChannelCallbackMap)[key] = channelCallback;
        PublishCallbacksLocked();
    }
    SaveLinkToDeath(key, channelCallback);
    return CameraStatus::OK;
}

// Takes the registry's lock, which the lookup-and-erase needs: a racing switch
// step could otherwise read the map while it is being erased from. The order
// callback map before death-recipient map is kept.
Return<CameraStatus> VirCameraChannelForStreamChange::unregisterVirtualChannelCallback(
    const hidl_string& deviceId, const hidl_string& serviceId) {
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: unregister Virtual Channel Callback, deviceid: %s, serviceid: %s",
                GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    if (serviceId.size() <= kServiceIdCut) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: service id length is invalid");
        return CameraStatus::ILLEGAL_ARGUMENT;
    }
    const ChannelKey key = MakeKey(deviceId, serviceId);
    std::lock_guard<std::mutex> lock(mChannelCallbackMutex);
    auto it = mChannelCallbackMap->find(key);
    if (it == mChannelCallbackMap->end()) {
        return CameraStatus::OK;
    }
    // Also for an entry left empty by PrepareSwitchOn: ClearLinkToDeath then
    // logs that it found nothing to unlink.
    ClearLinkToDeath(it->second, key.first, key.second);
    mChannelCallbackMap->erase(it);
    PublishCallbacksLocked();
    return CameraStatus::OK;
}

Return<CameraStatus> VirCameraChannelForStreamChange::registerCameraSwitchCallback(
    const sp<vircam::IVirCameraSwitchCallback>& callback) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: receive registed DevMgt callback request");
    if (callback == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: the registed DevMgt callback is null");
        return CameraStatus::ILLEGAL_ARGUMENT;
    }
    // Same-type cast: no call into the peer.
    sp<vircam::IVirCameraSwitchCallback> switchCallback =
        vircam::IVirCameraSwitchCallback::castFrom(callback);
    if (switchCallback == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: cast register IVirCameraSwitchCallback failed");
        return CameraStatus::INTERNAL_ERROR;
    }
    {
        std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
        mSwitchCallback = switchCallback;
    }
    bool expected = false;
    if (mSwitchThreadStarted.compare_exchange_strong(expected, true)) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: start camera switch thread");
        StartSwitchThreads();
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: register DevMgt callback success");
    return CameraStatus::OK;
}

Return<CameraStatus> VirCameraChannelForStreamChange::unregisterCameraSwitchCallback() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: unregister Camera Switch Callback");
    std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
    mSwitchCallback = nullptr;
    return CameraStatus::OK;
}

sp<vircam::IVirCameraChannelCallback> VirCameraChannelForStreamChange::FindChannelCallbackLocked(
    const ChannelKey& key) {
    auto it = mChannelCallbackMap->find(key);
    return it == mChannelCallbackMap->end() ? nullptr : it->second;
}

void VirCameraChannelForStreamChange::PublishCallbacksLocked() {
    auto copy = std::make_shared<const ChannelCallbackMap>(*mChannelCallbackMap);
    std::lock_guard<std::mutex> lock(mCallbackSnapshotMutex);
    mCallbackSnapshot = std::move(copy);
}

sp<vircam::IVirCameraChannelCallback> VirCameraChannelForStreamChange::PublishedCallback(
    const ChannelKey& key) {
    std::shared_ptr<const ChannelCallbackMap> snapshot;
    {
        std::lock_guard<std::mutex> lock(mCallbackSnapshotMutex);
        snapshot = mCallbackSnapshot;
    }
    auto it = snapshot->find(key);
    return it == snapshot->end() ? nullptr : it->second;
}

sp<vircam::IVirCameraChannelCallback> VirCameraChannelForStreamChange::FindChannelCallbackOrLog(
    const char* caller, const char* format, const ChannelKey& key) {
    sp<vircam::IVirCameraChannelCallback> callback = FindChannelCallbackLocked(key);
    if (callback == nullptr) {
        kStreamChangeLog.E(format, caller, GetAnonyString(key.first).c_str(),
                           GetAnonyString(key.second).c_str());
    }
    return callback;
}

void VirCameraChannelForStreamChange::SaveLinkToDeath(
    const ChannelKey& key, const sp<vircam::IVirCameraChannelCallback>& callback) {
    sp<ListenerDeathRecipient> recipient = new ListenerDeathRecipient(this, key.first, key.second);
    // The runtime keeps only a weak reference: the map below holds the strong one.
    callback->linkToDeath(recipient, 0).isOk();
    std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
    auto it = mDeathRecipientMap->find(key);
    if (it == mDeathRecipientMap->end()) {
        VIRCAM_LOGI(kStreamChangeLog,
                    "%s: register linkToDeath success, deviceid: %s, serviceid: %s",
                    GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str());
        mDeathRecipientMap->emplace(key, recipient);
        return;
    }
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: the vircam lnk2death registerd, clear and register again, deviceid: %s, "
                "serviceid: %s",
                GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str());
    callback->unlinkToDeath(it->second).isOk();
    it->second = recipient;
}

void VirCameraChannelForStreamChange::ClearLinkToDeath(
    const sp<vircam::IVirCameraChannelCallback>& callback, const std::string& deviceId,
    const std::string& serviceId) {
    const ChannelKey key(deviceId, serviceId);
    sp<ListenerDeathRecipient> recipient;
    {
        std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
        auto it = mDeathRecipientMap->find(key);
        if (it != mDeathRecipientMap->end()) {
            recipient = it->second;
        }
    }
    if (recipient == nullptr || callback == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: can not find callback and linkToDeath info, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    } else {
        callback->unlinkToDeath(recipient).isOk();
        VIRCAM_LOGI(kStreamChangeLog,
                    "%s: clear linkToDeath listener success, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    }
    std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
    mDeathRecipientMap->erase(key);
}

void VirCameraChannelForStreamChange::DirectClearLinkToDeath(const std::string& deviceId,
                                                             const std::string& serviceId) {
    VIRCAM_LOGI(
        kStreamChangeLog,
        "%s: Direct clear linkToDeath listener and its callback, deviceid: %s, serviceid: %s",
        GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    const ChannelKey key(deviceId, serviceId);
    {
        std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
        mDeathRecipientMap->erase(key);
    }
    std::lock_guard<std::mutex> lock(mChannelCallbackMutex);
    mChannelCallbackMap->erase(key);
    PublishCallbacksLocked();
}

void VirCameraChannelForStreamChange::DirectClearMgtCb() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: Direct clear Mgt callback");
    std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
    mSwitchCallback = nullptr;
}

VirCameraChannelForStreamChange::ListenerDeathRecipient::ListenerDeathRecipient(
    const sp<VirCameraChannelForStreamChange>& channel, const std::string& deviceId,
    const std::string& serviceId)
    : mChannel(channel), mDeviceId(deviceId), mServiceId(serviceId) {}

void VirCameraChannelForStreamChange::ListenerDeathRecipient::serviceDied(
    uint64_t /*cookie*/, const ::android::wp<::android::hidl::base::V1_0::IBase>& /*who*/) {
    VIRCAM_LOGE(kStreamChangeLog, "%s: transport channel callback service died");
    mDied = true;
    if (mChannel == nullptr) {
        return;
    }
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: transport channel died, switch back, switch on vircam deviceid: %s, "
                "serviceid: %s",
                GetAnonyString(mDeviceId).c_str(), GetAnonyString(mServiceId).c_str());
    // Only queues the switch-off; the worker brings the camera back.
    mChannel->switchOffVirtualCamera(mDeviceId, mServiceId, [](CameraStatus, uint32_t) {}).isOk();
    mChannel->DirectClearLinkToDeath(mDeviceId, mServiceId);
    // The device-management side must register its switch callback again.
    mChannel->DirectClearMgtCb();
    mChannel = nullptr;
}

}  // namespace pelcamera
