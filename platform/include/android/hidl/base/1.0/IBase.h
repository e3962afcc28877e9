// Host stand-in for android.hidl.base@1.0::IBase: the part of it that a
// service and its peers use (interface chain, casting, death links).
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <functional>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

struct IBase : virtual public ::android::RefBase {
    static constexpr const char* descriptor = "android.hidl.base@1.0::IBase";

    ~IBase() override = default;
    virtual bool isRemote() const { return false; }

    using interfaceChain_cb =
        std::function<void(const ::android::hardware::hidl_vec<::android::hardware::hidl_string>&)>;
    // NOLINTNEXTLINE(performance-unnecessary-value-param): the generated signature
    virtual ::android::hardware::Return<void> interfaceChain(interfaceChain_cb _hidl_cb) {
        _hidl_cb({descriptor});
        return ::android::hardware::Void();
    }

    // An object in this process never dies on its own: linking succeeds and
    // nothing is ever delivered. Proxies of remote objects override both.
    virtual ::android::hardware::Return<bool> linkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& /*recipient*/,
        uint64_t /*cookie*/) {
        return true;
    }
    virtual ::android::hardware::Return<bool> unlinkToDeath(
        const ::android::sp<::android::hardware::hidl_death_recipient>& /*recipient*/) {
        return true;
    }
    virtual ::android::hardware::Return<void> ping() { return ::android::hardware::Void(); }

    static ::android::hardware::Return<::android::sp<IBase>> castFrom(
        const ::android::sp<IBase>& parent, bool /*emitError*/ = false) {
        return parent;
    }
};

}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {
namespace details {

// The generated castFrom of every interface: same type passes through, null
// stays null, anything else is checked against the object's interface chain.
// A transport error during the check yields null, or a failed Return when
// the caller asked for errors.
template <typename IChild, typename IParent>
Return<sp<IChild>> castInterface(const sp<IParent>& parent, const char* childDescriptor,
                                 bool emitError) {
    if (parent == nullptr) {
        return sp<IChild>(nullptr);
    }
    bool canCast = false;
    auto chainRet = parent->interfaceChain([&](const hidl_vec<hidl_string>& chain) {
        for (const auto& name : chain) {
            if (name == childDescriptor) {
                canCast = true;
            }
        }
    });
    if (!chainRet.isOk()) {
        if (emitError) {
            return Status::fromStatusT(chainRet.isDeadObject() ? DEAD_OBJECT : UNKNOWN_ERROR);
        }
        return sp<IChild>(nullptr);
    }
    if (!canCast) {
        return sp<IChild>(nullptr);
    }
    return sp<IChild>(static_cast<IChild*>(parent.get()));
}

}  // namespace details
}  // namespace hardware
}  // namespace android
