// Copyright (C) 2026 The libvircam Authors

// What libhidlbase defines on a device for android.hidl.base@1.0::IBase, for
// objects in this process. Host proxies override the parts that cross into
// another process.
#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HostInterface.h>

#include <unistd.h>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {

using ::android::hardware::hidl_death_recipient;
using ::android::hardware::hidl_handle;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using ::android::hardware::Void;

const char* IBase::descriptor("android.hidl.base@1.0::IBase");

// The callbacks are taken by value because the generated signatures say so.
// NOLINTBEGIN(performance-unnecessary-value-param)

Return<void> IBase::interfaceChain(interfaceChain_cb _hidl_cb) {
    _hidl_cb({descriptor});
    return Void();
}

// Every interface answers debug() by writing nothing.
Return<void> IBase::debug(const hidl_handle& /*fd*/, const hidl_vec<hidl_string>& /*options*/) {
    return Void();
}

Return<void> IBase::interfaceDescriptor(interfaceDescriptor_cb _hidl_cb) {
    _hidl_cb(descriptor);
    return Void();
}

Return<void> IBase::getHashChain(getHashChain_cb _hidl_cb) {
    _hidl_cb(::android::hardware::details::zeroHashes(1));
    return Void();
}

Return<void> IBase::setHALInstrumentation() {
    return Void();
}

// An object in this process never dies on its own: a link to a recipient
// succeeds and nothing is ever delivered; a null recipient is refused.
Return<bool> IBase::linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t /*cookie*/) {
    return recipient != nullptr;
}

Return<void> IBase::ping() {
    return Void();
}

Return<void> IBase::getDebugInfo(getDebugInfo_cb _hidl_cb) {
    DebugInfo info = {};
    info.pid = getpid();
    info.ptr = 0;
    info.arch =
        sizeof(void*) == 8 ? DebugInfo::Architecture::IS_64BIT : DebugInfo::Architecture::IS_32BIT;
    _hidl_cb(info);
    return Void();
}

Return<void> IBase::notifySyspropsChanged() {
    return Void();
}

Return<bool> IBase::unlinkToDeath(const sp<hidl_death_recipient>& recipient) {
    return recipient != nullptr;
}

// NOLINTEND(performance-unnecessary-value-param)

Return<sp<IBase>> IBase::castFrom(const sp<IBase>& parent, bool /*emitError*/) {
    return parent;
}

}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {
namespace details {

Return<bool> canCastInterface(hidl::base::V1_0::IBase* parent, const char* childDescriptor) {
    bool canCast = false;
    Return<void> chain = parent->interfaceChain([&](const hidl_vec<hidl_string>& descriptors) {
        for (const auto& descriptor : descriptors) {
            canCast = canCast || descriptor == childDescriptor;
        }
    });
    if (!chain.isOk()) {
        return StatusOf<void, bool>(chain);
    }
    return canCast;
}

hidl_vec<hidl_array<uint8_t, 32>> zeroHashes(size_t count) {
    return hidl_vec<hidl_array<uint8_t, 32>>(count);
}

}  // namespace details
}  // namespace hardware
}  // namespace android
