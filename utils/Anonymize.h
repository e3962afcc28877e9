// Copyright (C) 2026 The libvircam Authors

// Ids of remote devices and their sessions reach the log only masked: the
// first and last character stay, everything between becomes '*'.
#pragma once

#include <cstdint>
#include <string>

namespace pelcamera {

// Any thread; pure functions, no lock.
std::string GetAnonyString(const std::string& value);
std::string GetAnonyInt32(int32_t value);
std::string GetAnonyUInt32(uint32_t value);

}  // namespace pelcamera
