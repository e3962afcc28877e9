// Copyright (C) 2026 The libvircam Authors

// One remote channel's sessions while a camera is switched to it.
#pragma once

#include <cstdint>
#include <string>

namespace pelcamera {

// Which id a lookup by session id compares.
enum SessionType : int32_t {
    CONTROL_SESSION = 0,
    DATA_SESSION = 1,
};

// Guarded by the session table's mutex, fields included.
struct VirCamSession {
    std::string deviceId;
    std::string serviceId;
    int32_t virCamId = -1;
    uint32_t controlSessionId = 0;  // 0 until the open call has returned
    uint32_t dataSessionId = 0;
    bool openCtrlSessionOk = false;
    bool configStreamOk = false;
    bool openDataSessionOk = false;
};

}  // namespace pelcamera
