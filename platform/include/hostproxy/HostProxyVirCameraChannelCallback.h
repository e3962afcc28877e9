// Copyright (C) 2026 The libvircam Authors

// Host only: the proxy through which a process calls a remote IVirCameraChannelCallback
// living in a RemoteProcess. (A device uses hidl-gen's BpHw class instead.)
#pragma once

#include <hidl/HidlRemote.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannelCallback.h>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

class HostProxyVirCameraChannelCallback
    : public ::android::hardware::details::RemoteProxy<IVirCameraChannelCallback> {
public:
    using RemoteProxy::RemoteProxy;

private:
    using CameraStatus = ::android::hardware::camera::common::V1_0::Status;
    template <typename... Results>
    using ReplyOf = ::android::hardware::details::ReplyOf<Results...>;

public:
    // Every call crosses into the remote's process: the callee gets copies of
    // the arguments that die when it returns; _cb results reach the caller
    // after the callee has returned and only for the callback's duration.
    Return<void> openControlSession(const hidl_string& deviceId, const hidl_string& name,
                                    openControlSession_cb cb) override {
        return openSession(__func__, &IVirCameraChannelCallback::openControlSession, deviceId, name,
                           cb);
    }
    Return<CameraStatus> closeControlSession(uint32_t id) override {
        return transactAcross(__func__, [&] { return mImpl->closeControlSession(id); });
    }
    Return<CameraStatus> configStream(uint32_t id, const hidl_vec<VirStream>& streams) override {
        return transactAcross(__func__, [&] { return mImpl->configStream(id, copyOf(streams)); });
    }
    Return<void> openDataSession(const hidl_string& deviceId, const hidl_string& name,
                                 openDataSession_cb cb) override {
        return openSession(__func__, &IVirCameraChannelCallback::openDataSession, deviceId, name,
                           cb);
    }
    Return<CameraStatus> closeDataSession(uint32_t id) override {
        return transactAcross(__func__, [&] { return mImpl->closeDataSession(id); });
    }
    Return<void> processCaptureRequest(uint32_t id, const hidl_vec<VirImageBuffer>& buffers,
                                       processCaptureRequest_cb cb) override {
        ReplyOf<CameraStatus, uint32_t> reply;
        Return<void> ret = transactAcross(__func__, [&] {
            return mImpl->processCaptureRequest(id, copyOf(buffers), reply.sink());
        });
        if (ret.isOk()) {
            reply.deliver(cb);
        }
        return ret;
    }
    Return<CameraStatus> processMetaRequest(uint32_t id, const VirMetaRequest& request) override {
        return transactAcross(__func__,
                              [&] { return mImpl->processMetaRequest(id, copyOf(request)); });
    }
    Return<void> reserved8() override {
        return transactAcross(__func__, [&] { return mImpl->reserved8(); });
    }
    Return<CameraStatus> flush(uint32_t id) override {
        return transactAcross(__func__, [&] { return mImpl->flush(id); });
    }

private:
    using OpenMethod = Return<void> (IVirCameraChannelCallback::*)(const hidl_string&,
                                                                   const hidl_string&,
                                                                   openControlSession_cb);
    Return<void> openSession(const char* method, OpenMethod open, const hidl_string& deviceId,
                             const hidl_string& name, const openControlSession_cb& cb) {
        ReplyOf<CameraStatus, uint32_t> reply;
        Return<void> ret = transactAcross(
            method, [&] { return ((*mImpl).*open)(copyOf(deviceId), copyOf(name), reply.sink()); });
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
    vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraChannelCallback> {
    using type =
        vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraChannelCallback;
};
