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

struct VirCameraStatus {
    int32_t camId = -1;  // virtual camera id in use; -1 for the local sensor
    int32_t camMode = PHYSICAL;
};

}  // namespace pelcamera
