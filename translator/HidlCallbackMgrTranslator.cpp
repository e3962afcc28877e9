// Copyright (C) 2026 The libvircam Authors

#include "translator/HidlCallbackMgrTranslator.h"

#include "translator/VirCameraChannelForTranslator.h"
#include "utils/Anonymize.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {

// Only the characters from the third on name the camera: C_CameraHal_0 and
// X_CameraHal_0 are the same entry. A service id shorter than two characters
// throws out_of_range and ends the process, as the registry's callers expect
// never to happen: the only caller, the translator channel, always passes
// "C_CameraHal_" and a number, never a peer's text.
HidlCallbackMgrTranslator::Key MakeKey(const std::string& deviceId, const std::string& serviceId) {
    return {deviceId, serviceId.substr(2)};
}

}  // namespace

HidlCallbackMgrTranslator::HidlCallbackMgrTranslator(VirCameraChannelForTranslator* channel)
    : mChannel(channel) {}

HidlCallbackMgrTranslator::~HidlCallbackMgrTranslator() {
    {
        std::lock_guard<std::mutex> lock(mCallbackMutex);
        mCallbackMap.clear();
    }
    {
        std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
        mDeathRecipientMap.clear();
    }
    mChannel = nullptr;
}

bool HidlCallbackMgrTranslator::AddCallback(const ::android::hardware::hidl_string& deviceId,
                                            const ::android::hardware::hidl_string& serviceId,
                                            const ::android::sp<TranslatorCallback>& cb) {
    VIRCAM_LOGI(kTranslatorCbMgrLog, "%s: translator begin add callback");
    const Key key = MakeKey(deviceId, serviceId);
    {
        std::lock_guard<std::mutex> lock(mCallbackMutex);
        auto it = mCallbackMap.find(key);
        if (it != mCallbackMap.end()) {
            VIRCAM_LOGI(kTranslatorCbMgrLog,
                        "%s: the virtual camera has been registed, register again, deviceid: %s, "
                        "serviceid: %s",
                        GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
            ClearLinkToDeath(it->second, key.first, key.second);
            it->second = cb;
        } else {
            mCallbackMap.emplace(key, cb);
            VIRCAM_LOGI(kTranslatorCbMgrLog,
                        "%s: register virtual camera callback success, deviceid: %s, serviceid: %s",
                        GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
        }
    }
    SaveLinkToDeath(key, cb);
    VIRCAM_LOGI(kTranslatorCbMgrLog, "%s: translator end add callback");
    return true;
}

bool HidlCallbackMgrTranslator::DeleteCallback(const ::android::hardware::hidl_string& deviceId,
                                               const ::android::hardware::hidl_string& serviceId) {
    VIRCAM_LOGI(kTranslatorCbMgrLog, "%s: translator begin delete callback");
    const Key key = MakeKey(deviceId, serviceId);
    {
        std::lock_guard<std::mutex> lock(mCallbackMutex);
        auto it = mCallbackMap.find(key);
        if (it != mCallbackMap.end()) {
            ClearLinkToDeath(it->second, key.first, key.second);
            mCallbackMap.erase(it);
        }
    }
    VIRCAM_LOGI(kTranslatorCbMgrLog, "%s: translator end delete callback");
    return true;
}

void HidlCallbackMgrTranslator::SaveLinkToDeath(const Key& key,
                                                const ::android::sp<TranslatorCallback>& cb) {
    ::android::sp<ListenerDeathRecipient> recipient =
        new ListenerDeathRecipient(mChannel, key.first, key.second);
    cb->linkToDeath(recipient, 0).isOk();
    std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
    auto it = mDeathRecipientMap.find(key);
    if (it == mDeathRecipientMap.end()) {
        mDeathRecipientMap.emplace(key, recipient);
        VIRCAM_LOGI(kTranslatorCbMgrLog,
                    "%s: register linkToDeath success, deviceid: %s, serviceid: %s",
                    GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str());
        return;
    }
    // Reached only when the two maps disagree: AddCallback has already taken
    // the old recipient off the old callback.
    VIRCAM_LOGI(kTranslatorCbMgrLog,
                "%s: the vircam lnk2death registerd, clear and register again, deviceid: %s, "
                "serviceid: %s",
                GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str());
    cb->unlinkToDeath(it->second).isOk();
    it->second = recipient;
}

void HidlCallbackMgrTranslator::ClearLinkToDeath(const ::android::sp<TranslatorCallback>& cb,
                                                 const std::string& deviceId,
                                                 const std::string& serviceId) {
    const Key key(deviceId, serviceId);
    ::android::sp<ListenerDeathRecipient> recipient;
    {
        std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
        auto it = mDeathRecipientMap.find(key);
        if (it != mDeathRecipientMap.end()) {
            recipient = it->second;
        }
    }
    if (recipient == nullptr || cb == nullptr) {
        VIRCAM_LOGE(kTranslatorCbMgrLog,
                    "%s: can not find callback and linkToDeath info, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    } else {
        cb->unlinkToDeath(recipient).isOk();
        VIRCAM_LOGI(kTranslatorCbMgrLog,
                    "%s: clear linkToDeath listener success, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
    }
    std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
    mDeathRecipientMap.erase(key);
}

bool HidlCallbackMgrTranslator::HasCallback(const Key& key) {
    std::lock_guard<std::mutex> lock(mCallbackMutex);
    return mCallbackMap.count(key) != 0;
}

bool HidlCallbackMgrTranslator::HasDeathRecipient(const Key& key) {
    std::lock_guard<std::mutex> lock(mDeathRecipientMutex);
    return mDeathRecipientMap.count(key) != 0;
}

HidlCallbackMgrTranslator::ListenerDeathRecipient::ListenerDeathRecipient(
    const ::android::sp<VirCameraChannelForTranslator>& channel, const std::string& deviceId,
    const std::string& serviceId)
    : mChannel(channel), mDeviceId(deviceId), mServiceId(serviceId) {}

void HidlCallbackMgrTranslator::ListenerDeathRecipient::serviceDied(
    uint64_t /*cookie*/, const ::android::wp<::android::hidl::base::V1_0::IBase>& /*who*/) {
    VIRCAM_LOGE(kTranslatorCbMgrLog, "%s: transport translator callback service died");
    mDied = true;
    if (mChannel == nullptr) {
        return;
    }
    VIRCAM_LOGI(kTranslatorCbMgrLog,
                "%s: transport channel died, switch back, switch on vircam deviceid: %s, "
                "serviceid: %s",
                GetAnonyString(mDeviceId).c_str(), GetAnonyString(mServiceId).c_str());
    mChannel->DoAfterTranslatorCallbackDead(mDeviceId, mServiceId);
    mChannel = nullptr;
}

}  // namespace pelcamera
