// Host build of android.hardware.camera.common@1.0::Status, as generated.
#pragma once

#include <cstdint>

namespace android {
namespace hardware {
namespace camera {
namespace common {
namespace V1_0 {

enum class Status : uint32_t {
    OK = 0,
    ILLEGAL_ARGUMENT = 1,
    CAMERA_IN_USE = 2,
    MAX_CAMERAS_IN_USE = 3,
    METHOD_NOT_SUPPORTED = 4,
    OPERATION_NOT_SUPPORTED = 5,
    CAMERA_DISCONNECTED = 6,
    INTERNAL_ERROR = 7,
};

}  // namespace V1_0
}  // namespace common
}  // namespace camera
}  // namespace hardware
}  // namespace android
