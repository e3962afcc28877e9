// Host build of vendor.travik.hardware.camera.vircamera@1.0 types, as the
// HIDL generator produces them from types.hal. Offsets are part of the wire
// contract with the peers and are checked below.
#pragma once

#include <hidl/HidlSupport.h>

#include <cstddef>
#include <cstdint>

namespace vendor {
namespace travik {
namespace hardware {
namespace camera {
namespace vircamera {
namespace V1_0 {

enum class VirCamOptRet : int32_t {
    OPT_CTRL_SESSION_OK = 0,
    OPT_CTRL_SESSION_FAILED = 1,
    OPT_CONFIG_STREAM_OK = 100,
    OPT_CONFIG_STREAM_FAILED = 101,
    OPT_DATA_SESSION_OK = 200,
    OPT_DATA_SESSION_FAILED = 201,
};

enum class VirtualCamSwitchTypeT : int32_t {
    PHY_TO_VIR = 0,
    VIR_TO_VIR = 1,
    VIR_TO_PHY = 2,
};

struct KeyValue final {
    ::android::hardware::hidl_string key;
    ::android::hardware::hidl_string value;
};

struct VirStream final {
    int32_t streamId = 0;
    int32_t extraAttr1 = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    int32_t format = 0;
    uint32_t formatFlags = 0;
    int32_t extraAttr2 = 0;
    ::android::hardware::hidl_vec<KeyValue> extras;
};

struct VirImageBuffer final {
    int32_t frameNumber = 0;
    int32_t streamId = 0;
    uint64_t bufferId = 0;
    ::android::hardware::hidl_handle buffer;
};

struct VirImageResult final {
    uint32_t frameNumber = 0;
    uint64_t bufferId = 0;
    int32_t streamId = 0;
    ::android::hardware::hidl_handle releaseFence;
    int32_t bufferStatus = 0;
    uint64_t timestamp = 0;
    uint8_t lastImage = 0;
};

struct VirMetaRequest final {
    int32_t frameNumber = 0;
    ::android::hardware::hidl_vec<uint8_t> settings;
};

struct CameraFormat final {
    int32_t format = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

struct MetaItem final {
    uint32_t tag = 0;
    ::android::hardware::hidl_vec<uint8_t> data;
};

static_assert(sizeof(KeyValue) == 32 && offsetof(KeyValue, value) == 16, "KeyValue layout");
static_assert(sizeof(VirStream) == 48 && alignof(VirStream) == 8, "VirStream size");
static_assert(offsetof(VirStream, extraAttr1) == 4 && offsetof(VirStream, width) == 8 &&
                  offsetof(VirStream, height) == 12 && offsetof(VirStream, format) == 16 &&
                  offsetof(VirStream, formatFlags) == 20 && offsetof(VirStream, extraAttr2) == 24 &&
                  offsetof(VirStream, extras) == 32,
              "VirStream offsets");
static_assert(sizeof(VirImageBuffer) == 32 && offsetof(VirImageBuffer, streamId) == 4 &&
                  offsetof(VirImageBuffer, bufferId) == 8 && offsetof(VirImageBuffer, buffer) == 16,
              "VirImageBuffer layout");
static_assert(sizeof(VirImageResult) == 64 && offsetof(VirImageResult, bufferId) == 8 &&
                  offsetof(VirImageResult, streamId) == 16 &&
                  offsetof(VirImageResult, releaseFence) == 24 &&
                  offsetof(VirImageResult, bufferStatus) == 40 &&
                  offsetof(VirImageResult, timestamp) == 48 &&
                  offsetof(VirImageResult, lastImage) == 56,
              "VirImageResult layout");
static_assert(offsetof(VirMetaRequest, frameNumber) == 0, "VirMetaRequest layout");

inline bool operator==(const KeyValue& a, const KeyValue& b) {
    return a.key == b.key && a.value == b.value;
}

}  // namespace V1_0
}  // namespace vircamera
}  // namespace camera
}  // namespace hardware
}  // namespace travik
}  // namespace vendor
