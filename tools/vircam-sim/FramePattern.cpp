// Copyright (C) 2026 The libvircam Authors

#include "FramePattern.h"

#include <cstring>

namespace vircam_sim {

namespace {

constexpr uint32_t kMagic = 0x56434d46;  // "VCMF"

struct Header {
    uint32_t magic;
    uint32_t frameNumber;
    int32_t streamId;
    uint32_t reserved;
    uint64_t bufferId;
};

// Every word of the body depends on the frame, the stream and its offset.
uint32_t BodyWord(const FrameStamp& stamp, size_t index) {
    return (stamp.frameNumber * 2654435761u) ^ (static_cast<uint32_t>(stamp.streamId) << 24) ^
           static_cast<uint32_t>(index);
}

size_t BodyWords(size_t size) {
    return size < sizeof(Header) ? 0 : (size - sizeof(Header)) / sizeof(uint32_t);
}

}  // namespace

void PaintFrame(uint8_t* data, size_t size, const FrameStamp& stamp) {
    if (size < sizeof(Header)) {
        return;
    }
    const Header header{kMagic, stamp.frameNumber, stamp.streamId, 0, stamp.bufferId};
    memcpy(data, &header, sizeof(header));
    uint8_t* body = data + sizeof(Header);
    for (size_t i = 0; i < BodyWords(size); ++i) {
        const uint32_t word = BodyWord(stamp, i);
        memcpy(body + i * sizeof(word), &word, sizeof(word));
    }
}

bool FrameMatches(const uint8_t* data, size_t size, const FrameStamp& stamp) {
    if (size < sizeof(Header)) {
        return false;
    }
    Header header{};
    memcpy(&header, data, sizeof(header));
    if (header.magic != kMagic || header.frameNumber != stamp.frameNumber ||
        header.streamId != stamp.streamId || header.bufferId != stamp.bufferId) {
        return false;
    }
    const uint8_t* body = data + sizeof(Header);
    for (size_t i = 0; i < BodyWords(size); ++i) {
        uint32_t word;
        memcpy(&word, body + i * sizeof(word), sizeof(word));
        if (word != BodyWord(stamp, i)) {
            return false;
        }
    }
    return true;
}

void WipeFrame(uint8_t* data, size_t size) {
    memset(data, 0, size < sizeof(Header) ? size : sizeof(Header));
}

}  // namespace vircam_sim
