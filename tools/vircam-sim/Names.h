// Copyright (C) 2026 The libvircam Authors

// Words for the codes a timeline shows.
#pragma once

#include <android/hardware/camera/common/1.0/types.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/types.h>

#include <cstdint>
#include <string>

namespace vircam_sim {

const char* StatusName(android::hardware::camera::common::V1_0::Status status);
const char* OptRetName(vendor::travik::hardware::camera::vircamera::V1_0::VirCamOptRet ret);
// "300 switched", "201 data session failed", ...
std::string SwitchResultText(int32_t code);

}  // namespace vircam_sim
