// The pipeline callbacks registered through one translator channel, each
// watched for the death of the process that holds it.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace pelcamera {

class VirCameraChannelForTranslator;

class HidlCallbackMgrTranslator {
public:
    using TranslatorCallback =
        ::vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslatorCallback;
    using Key = std::pair<std::string, std::string>;

    class ListenerDeathRecipient : public ::android::hardware::hidl_death_recipient {
    public:
        ListenerDeathRecipient(const ::android::sp<VirCameraChannelForTranslator>& channel,
                               const std::string& deviceId, const std::string& serviceId);
        void serviceDied(uint64_t cookie,
                         const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;
        ~ListenerDeathRecipient() override = default;

    private:
        ::android::sp<VirCameraChannelForTranslator> mChannel;
        std::string mDeviceId;
        std::string mServiceId;
        bool mDied = false;
    };

    explicit HidlCallbackMgrTranslator(VirCameraChannelForTranslator* channel);
    ~HidlCallbackMgrTranslator();

    bool AddCallback(const ::android::hardware::hidl_string& deviceId,
                     const ::android::hardware::hidl_string& serviceId,
                     const ::android::sp<TranslatorCallback>& cb);
    bool DeleteCallback(const ::android::hardware::hidl_string& deviceId,
                        const ::android::hardware::hidl_string& serviceId);

    // State reads for diagnostics and tests.
    bool HasCallback(const Key& key);
    bool HasDeathRecipient(const Key& key);

private:
    void SaveLinkToDeath(const Key& key, const ::android::sp<TranslatorCallback>& cb);
    void ClearLinkToDeath(const ::android::sp<TranslatorCallback>& cb, const std::string& deviceId,
                          const std::string& serviceId);

    VirCameraChannelForTranslator* mChannel;
    std::map<Key, ::android::sp<TranslatorCallback>> mCallbackMap;
    std::map<Key, ::android::sp<ListenerDeathRecipient>> mDeathRecipientMap;
    std::mutex mCallbackMutex;
    std::mutex mDeathRecipientMutex;
};

}  // namespace pelcamera
