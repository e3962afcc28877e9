// Copyright (C) 2026 The libvircam Authors

// Host stand-in for what hidl-gen's C++ sources define on a device for each
// interface: its descriptor, the IBase methods, the castFrom pair and the
// service-manager helpers (there is no service manager on the host, so they
// find nothing). HIDL_HOST_INTERFACE() writes them for one interface of a
// package whose interfaces extend IBase directly.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlRemote.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <log/log.h>

#include <string>
#include <type_traits>

namespace android {
namespace hardware {
namespace details {

// Asks `parent` (through its transport when remote) whether its interface
// chain holds `childDescriptor`.
Return<bool> canCastInterface(hidl::base::V1_0::IBase* parent, const char* childDescriptor);

// A proxy of interface IChild for the remote object behind `parent`: a device
// wraps the same binder in the child's proxy class.
template <typename IChild>
sp<IChild> newRemoteProxy(const sp<hidl::base::V1_0::IBase>& parent) {
    using Proxy = typename HostProxyOf<IChild>::type;
    if constexpr (std::is_void_v<Proxy>) {
        LOG_ALWAYS_FATAL("no host proxy carries %s", IChild::descriptor);
        return nullptr;
    } else {
        auto* remote = dynamic_cast<RemoteProxyBase*>(parent.get());
        LOG_ALWAYS_FATAL_IF(remote == nullptr, "a remote object without a host proxy");
        // The object lives in the peer, where its own type implements IChild.
        sp<hidl::base::V1_0::IBase> object = remote->remoteObject();
        return new Proxy(sp<IChild>(static_cast<IChild*>(object.get())), remote->process());
    }
}

// The checked cast of castFrom(sp<IBase>): null stays null, a transport error
// gives null (or, with emitError, the call's own failed status), a mismatch
// gives null.
template <typename IChild>
Return<sp<IChild>> castInterface(const sp<hidl::base::V1_0::IBase>& parent, bool emitError) {
    if (parent == nullptr) {
        return sp<IChild>(nullptr);
    }
    Return<bool> canCast = canCastInterface(parent.get(), IChild::descriptor);
    if (!canCast.isOk()) {
        return emitError ? StatusOf<bool, sp<IChild>>(canCast)
                         : Return<sp<IChild>>(sp<IChild>(nullptr));
    }
    if (!canCast) {
        return sp<IChild>(nullptr);
    }
    if (parent->isRemote()) {
        return newRemoteProxy<IChild>(parent);
    }
    return sp<IChild>(static_cast<IChild*>(parent.get()));
}

// Hash chain entries: the host has no released hashes, so every one is zero.
hidl_vec<hidl_array<uint8_t, 32>> zeroHashes(size_t count);

}  // namespace details
}  // namespace hardware
}  // namespace android

// Defines, in the interface's namespace, what hidl-gen's sources define for
// IFACE (fully qualified name FQNAME).
#define HIDL_HOST_INTERFACE(IFACE, FQNAME)                                                         \
    const char* IFACE::descriptor(FQNAME);                                                         \
    ::android::hardware::Return<void> IFACE::interfaceChain(interfaceChain_cb _hidl_cb) {          \
        _hidl_cb({IFACE::descriptor, ::android::hidl::base::V1_0::IBase::descriptor});             \
        return ::android::hardware::Void();                                                        \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::debug(                                                \
        const ::android::hardware::hidl_handle& fd,                                                \
        const ::android::hardware::hidl_vec<::android::hardware::hidl_string>& options) {          \
        return ::android::hidl::base::V1_0::IBase::debug(fd, options);                             \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::interfaceDescriptor(                                  \
        interfaceDescriptor_cb _hidl_cb) {                                                         \
        _hidl_cb(IFACE::descriptor);                                                               \
        return ::android::hardware::Void();                                                        \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::getHashChain(getHashChain_cb _hidl_cb) {              \
        _hidl_cb(::android::hardware::details::zeroHashes(2));                                     \
        return ::android::hardware::Void();                                                        \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::setHALInstrumentation() {                             \
        return ::android::hardware::Void();                                                        \
    }                                                                                              \
    ::android::hardware::Return<bool> IFACE::linkToDeath(                                          \
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient,                 \
        uint64_t cookie) {                                                                         \
        return ::android::hidl::base::V1_0::IBase::linkToDeath(recipient, cookie);                 \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::ping() {                                              \
        return ::android::hardware::Void();                                                        \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::getDebugInfo(getDebugInfo_cb _hidl_cb) {              \
        return ::android::hidl::base::V1_0::IBase::getDebugInfo(_hidl_cb);                         \
    }                                                                                              \
    ::android::hardware::Return<void> IFACE::notifySyspropsChanged() {                             \
        return ::android::hardware::Void();                                                        \
    }                                                                                              \
    ::android::hardware::Return<bool> IFACE::unlinkToDeath(                                        \
        const ::android::sp<::android::hardware::hidl_death_recipient>& recipient) {               \
        return ::android::hidl::base::V1_0::IBase::unlinkToDeath(recipient);                       \
    }                                                                                              \
    ::android::hardware::Return<::android::sp<IFACE>> IFACE::castFrom(                             \
        const ::android::sp<IFACE>& parent, bool /*emitError*/) {                                  \
        return parent;                                                                             \
    }                                                                                              \
    ::android::hardware::Return<::android::sp<IFACE>> IFACE::castFrom(                             \
        const ::android::sp<::android::hidl::base::V1_0::IBase>& parent, bool emitError) {         \
        return ::android::hardware::details::castInterface<IFACE>(parent, emitError);              \
    }                                                                                              \
    ::android::sp<IFACE> IFACE::tryGetService(const std::string& /*serviceName*/,                  \
                                              bool /*getStub*/) {                                  \
        return nullptr;                                                                            \
    }                                                                                              \
    ::android::sp<IFACE> IFACE::getService(const std::string& /*serviceName*/, bool /*getStub*/) { \
        return nullptr;                                                                            \
    }                                                                                              \
    ::android::status_t IFACE::registerAsService(const std::string& /*serviceName*/) {             \
        return ::android::NAME_NOT_FOUND;                                                          \
    }                                                                                              \
    bool IFACE::registerForNotifications(                                                          \
        const std::string& /*serviceName*/,                                                        \
        const ::android::sp<                                                                       \
            ::android::hidl::manager::V1_0::IServiceNotification>& /*notification*/) {             \
        return false;                                                                              \
    }
