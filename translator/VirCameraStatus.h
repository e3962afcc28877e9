// Copyright (C) 2026 The libvircam Authors

// Which camera feeds the open camera: the local sensor or a virtual camera.
// The channel service and the translator share the numbering.
#pragma once

#include <cstdint>

namespace pelcamera {

enum VirCameraMode : int32_t {
    PHYSICAL = 0,
    VIRTUAL = 1,
    ON_SWITCHING = 2,
};

// The mode by the name a person reads in a dump.
inline const char* CameraModeName(int32_t mode) {
    switch (mode) {
        case PHYSICAL:
            return "PHYSICAL";
        case VIRTUAL:
            return "VIRTUAL";
        case ON_SWITCHING:
            return "ON_SWITCHING";
        default:
            return "UNKNOWN";
    }
}

// A value; the translator's own copy is guarded by its status lock.
struct VirCameraStatus {
    int32_t camId = -1;  // virtual camera id in use; -1 for the local sensor
    int32_t camMode = PHYSICAL;
};

}  // namespace pelcamera
