// Copyright (C) 2026 The libvircam Authors

// A queued switch command and the steps whose results a switch waits for.
#pragma once

#include <cstdint>
#include <string>

namespace pelcamera {

// Queued and taken under the worker's queue mutex.
struct SwitchTask {
    std::string deviceId;
    std::string serviceId;
    uint32_t seqNum = 0;
};

enum SwitchStep : int32_t {
    OPEN_CONTROL_SESSION = 0,
    CONFIG_STREAM = 1,
    OPEN_DATA_SESSION = 2,
    HAL_INIT = 3,  // the HAL-init wait: matches none of the returned-flags
};

// Codes sent with notifySwitchOnResult / notifySwitchOffResult.
enum SwitchResultCode : int32_t {
    SWITCH_ON_ERR_CONTROL = 1,
    SWITCH_ON_ERR_CONFIG = 101,
    SWITCH_ON_ERR_DATA = 201,
    SWITCH_RESULT_OK = 300,
    SWITCH_RESULT_FAILED = 301,
};

}  // namespace pelcamera
