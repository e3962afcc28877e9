// Copyright (C) 2026 The libvircam Authors

// What hidl-gen's sources define on a device for the interfaces of
// vendor.travik.hardware.camera.vircamera@1.0, for the host build.
#include <hidl/HostInterface.h>
#include <hostproxy/HostProxyVirCameraChannel.h>
#include <hostproxy/HostProxyVirCameraChannelCallback.h>
#include <hostproxy/HostProxyVirCameraSwitchCallback.h>
#include <hostproxy/HostProxyVirCameraTranslatorCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannelCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraSwitchCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslator.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslatorCallback.h>

#define VIRCAMERA_INTERFACE(I) \
    HIDL_HOST_INTERFACE(I, "vendor.travik.hardware.camera.vircamera@1.0::" #I)

namespace vendor::travik::hardware::camera::vircamera::V1_0 {

VIRCAMERA_INTERFACE(IVirCameraChannel)
VIRCAMERA_INTERFACE(IVirCameraChannelCallback)
VIRCAMERA_INTERFACE(IVirCameraSwitchCallback)
VIRCAMERA_INTERFACE(IVirCameraTranslator)
VIRCAMERA_INTERFACE(IVirCameraTranslatorCallback)

}  // namespace vendor::travik::hardware::camera::vircamera::V1_0
