// Copyright (C) 2026 The libvircam Authors

// Texts the channel service shares between its source files.
#pragma once

#include <cstdint>

namespace pelcamera {

inline constexpr const char* kVirCamInfoKey = "virCamInfo";
inline constexpr const char* kNotifyKey = "notifyKey";
inline constexpr const char* kNotifyMsgDataKey = "notifyMsgData";
inline constexpr const char* kCameraPropertyPrefix = "Camera_";
inline constexpr const char* kSessionNamePrefix = "W_";

inline constexpr const char* kNotRegisted =
    "%s: the virtual camera has NOT been registed, can not find it, deviceid: %s, serviceid: %s";
inline constexpr const char* kCbNotRegisted =
    "%s: the virtual camera cb has NOT been registed, can not find it, deviceid: %s, serviceid: %s";

// How long a switch step waits for the remote channel's result.
inline constexpr int32_t kChannelOptTimeoutSeconds = 3;
inline constexpr int32_t kHalInitTimeoutSeconds = 1;

}  // namespace pelcamera
