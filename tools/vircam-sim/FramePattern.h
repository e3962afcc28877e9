// Copyright (C) 2026 The libvircam Authors

// The test pattern a remote paints into a request's buffer. It is tied to the
// frame number, stream and buffer, so that the pipeline can tell a right
// image from a stale, misplaced or half-written one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vircam_sim {

struct FrameStamp {
    uint32_t frameNumber;
    int32_t streamId;
    uint64_t bufferId;
};

void PaintFrame(uint8_t* data, size_t size, const FrameStamp& stamp);
bool FrameMatches(const uint8_t* data, size_t size, const FrameStamp& stamp);
// Marks a buffer as not yet painted before it is handed out again.
void WipeFrame(uint8_t* data, size_t size);

}  // namespace vircam_sim
