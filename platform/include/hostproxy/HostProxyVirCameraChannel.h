// Copyright (C) 2026 The libvircam Authors

// Host only: the proxy through which a peer (device management, a remote
// channel) calls the library's IVirCameraChannel from a process of its own.
// (A device uses hidl-gen's BpHw class instead.) The calls run on the binder
// pool of the library's process, with copies of their arguments that die
// when the served method returns.
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

class HostProxyVirCameraChannel final
    : public ::android::hardware::details::RemoteProxy<IVirCameraChannel> {
public:
    using RemoteProxy::RemoteProxy;

private:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;
    template <typename... Results>
    using ReplyOf = ::android::hardware::details::ReplyOf<Results...>;

public:
    Return<CameraStatus> registerVirtualChannelCallback(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const ::android::sp<IVirCameraChannelCallback>& cb) override {
        return transactAcross(__func__, [&] {
            return mImpl->registerVirtualChannelCallback(copyOf(deviceId), copyOf(serviceId), cb);
        });
    }
    Return<CameraStatus> unregisterVirtualChannelCallback(const hidl_string& deviceId,
                                                          const hidl_string& serviceId) override {
        return transactAcross(__func__, [&] {
            return mImpl->unregisterVirtualChannelCallback(copyOf(deviceId), copyOf(serviceId));
        });
    }
    Return<CameraStatus> registerCameraSwitchCallback(
        const ::android::sp<IVirCameraSwitchCallback>& cb) override {
        return transactAcross(__func__, [&] { return mImpl->registerCameraSwitchCallback(cb); });
    }
    Return<CameraStatus> unregisterCameraSwitchCallback() override {
        return transactAcross(__func__, [&] { return mImpl->unregisterCameraSwitchCallback(); });
    }
    Return<void> notifyOpenControlSessionResult(uint32_t sessionId, VirCamOptRet ret) override {
        return transactAcross(
            __func__, [&] { return mImpl->notifyOpenControlSessionResult(sessionId, ret); });
    }
    Return<void> notifyConfigStreamResult(uint32_t sessionId, VirCamOptRet ret) override {
        return transactAcross(__func__,
                              [&] { return mImpl->notifyConfigStreamResult(sessionId, ret); });
    }
    Return<void> notifyOpenDataSessionResult(uint32_t sessionId, VirCamOptRet ret) override {
        return transactAcross(__func__,
                              [&] { return mImpl->notifyOpenDataSessionResult(sessionId, ret); });
    }
    Return<CameraStatus> onVirImageBufferDone(uint32_t sessionId,
                                              const VirImageResult& result) override {
        return transactAcross(
            __func__, [&] { return mImpl->onVirImageBufferDone(sessionId, copyOf(result)); });
    }
    Return<void> notify(uint32_t id, const hidl_string& msg) override {
        return transactAcross(__func__, [&] { return mImpl->notify(id, copyOf(msg)); });
    }
    Return<CameraStatus> registerVirtualCameraDevice(const hidl_string& deviceId,
                                                     const hidl_string& serviceId,
                                                     const hidl_vec<CameraFormat>& formats,
                                                     const hidl_vec<MetaItem>& metas) override {
        return transactAcross(__func__, [&] {
            return mImpl->registerVirtualCameraDevice(copyOf(deviceId), copyOf(serviceId),
                                                      copyOf(formats), copyOf(metas));
        });
    }
    Return<CameraStatus> unregisterVirtualCameraDevice(const hidl_string& deviceId,
                                                       const hidl_string& serviceId) override {
        return transactAcross(__func__, [&] {
            return mImpl->unregisterVirtualCameraDevice(copyOf(deviceId), copyOf(serviceId));
        });
    }
    Return<void> switchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                       switchOnVirtualCamera_cb cb) override {
        return switchCamera(__func__, &IVirCameraChannel::switchOnVirtualCamera, deviceId,
                            serviceId, cb);
    }
    Return<void> switchOffVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                        switchOffVirtualCamera_cb cb) override {
        return switchCamera(__func__, &IVirCameraChannel::switchOffVirtualCamera, deviceId,
                            serviceId, cb);
    }
    Return<void> getVirtualCameraIdList(getVirtualCameraIdList_cb cb) override {
        ReplyOf<CameraStatus, hidl_vec<hidl_string>> reply;
        Return<void> ret =
            transactAcross(__func__, [&] { return mImpl->getVirtualCameraIdList(reply.sink()); });
        if (ret.isOk()) {
            reply.deliver(cb);
        }
        return ret;
    }

private:
    using SwitchMethod = Return<void> (IVirCameraChannel::*)(const hidl_string&, const hidl_string&,
                                                             switchOnVirtualCamera_cb);
    Return<void> switchCamera(const char* method, SwitchMethod run, const hidl_string& deviceId,
                              const hidl_string& serviceId, const switchOnVirtualCamera_cb& cb) {
        ReplyOf<CameraStatus, uint32_t> reply;
        Return<void> ret = transactAcross(method, [&] {
            return ((*mImpl).*run)(copyOf(deviceId), copyOf(serviceId), reply.sink());
        });
        if (ret.isOk()) {
            reply.deliver(cb);
        }
        return ret;
    }
};

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor

template <>
struct android::hardware::details::HostProxyOf<
    vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraChannel> {
    using type = vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraChannel;
};
