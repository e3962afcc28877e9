// Copyright (C) 2026 The libvircam Authors

// The pipeline callbacks registered through one translator channel, each
// watched for the death of the process that holds it.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "utils/ThreadAnnotations.h"

namespace pelcamera {

class VirCameraChannelForTranslator;

class HidlCallbackMgrTranslator {
public:
    using TranslatorCallback =
        ::vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraTranslatorCallback;
    using Key = std::pair<std::string, std::string>;

    class ListenerDeathRecipient : public ::android::hardware::hidl_death_recipient {
    public:
        // The registering binder thread; no lock.
        ListenerDeathRecipient(const ::android::sp<VirCameraChannelForTranslator>& channel,
                               const std::string& deviceId, const std::string& serviceId);
        // The death-notification thread, the only one that touches the
        // members after construction; takes no lock itself, the channel's
        // unregistration takes the registry's (DeleteCallback).
        void serviceDied(uint64_t cookie,
                         const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;
        // The thread that drops the last reference; no lock.
        ~ListenerDeathRecipient() override = default;

    private:
        ::android::sp<VirCameraChannelForTranslator> mChannel;
        std::string mDeviceId;
        std::string mServiceId;
        bool mDied = false;
    };

    // The translator channel's constructor; no lock.
    explicit HidlCallbackMgrTranslator(VirCameraChannelForTranslator* channel);
    // The last owner's thread; each map's mutex alone.
    ~HidlCallbackMgrTranslator();

    // The pipeline's binder thread. Holds mCallbackMutex while it replaces the
    // entry (mDeathRecipientMutex inside it), then links the new recipient
    // with no lock and records it under mDeathRecipientMutex.
    bool AddCallback(const ::android::hardware::hidl_string& deviceId,
                     const ::android::hardware::hidl_string& serviceId,
                     const ::android::sp<TranslatorCallback>& cb)
        EXCLUDES(mCallbackMutex, mDeathRecipientMutex);
    // The pipeline's binder thread or the death-notification thread;
    // mCallbackMutex, then mDeathRecipientMutex inside it.
    bool DeleteCallback(const ::android::hardware::hidl_string& deviceId,
                        const ::android::hardware::hidl_string& serviceId)
        EXCLUDES(mCallbackMutex, mDeathRecipientMutex);

    // State reads for diagnostics and tests: any thread, each map's mutex.
    bool HasCallback(const Key& key) EXCLUDES(mCallbackMutex);
    bool HasDeathRecipient(const Key& key) EXCLUDES(mDeathRecipientMutex);

private:
    // AddCallback after mCallbackMutex is released: linkToDeath with no lock,
    // then mDeathRecipientMutex (the unlink of a replaced recipient inside it).
    void SaveLinkToDeath(const Key& key, const ::android::sp<TranslatorCallback>& cb)
        EXCLUDES(mCallbackMutex, mDeathRecipientMutex);
    // Inside mCallbackMutex: mDeathRecipientMutex twice, the unlink between.
    void ClearLinkToDeath(const ::android::sp<TranslatorCallback>& cb, const std::string& deviceId,
                          const std::string& serviceId) REQUIRES(mCallbackMutex)
        EXCLUDES(mDeathRecipientMutex);

    // The translator channel that owns this registry; set at construction.
    VirCameraChannelForTranslator* mChannel;
    // Lock order: mCallbackMutex before mDeathRecipientMutex.
    // The pipeline callbacks by (deviceId, serviceId from its third character).
    std::mutex mCallbackMutex;
    std::map<Key, ::android::sp<TranslatorCallback>> mCallbackMap GUARDED_BY(mCallbackMutex);
    // Their death recipients, under the same keys.
    std::mutex mDeathRecipientMutex;
    std::map<Key, ::android::sp<ListenerDeathRecipient>> mDeathRecipientMap
        GUARDED_BY(mDeathRecipientMutex);
};

}  // namespace pelcamera
