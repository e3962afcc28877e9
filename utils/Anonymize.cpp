// Copyright (C) 2026 The libvircam Authors

#include "utils/Anonymize.h"

#include <securec.h>

#include <cstring>

namespace pelcamera {

namespace {

constexpr size_t kNumberTextSize = 40;

void MaskInPlace(std::string& text) {
    const size_t length = text.size();
    if (length == 1) {
        text[0] = '*';
    } else if (length == 2) {
        text[1] = '*';
    } else if (length > 2) {
        text.replace(1, length - 2, length - 2, '*');
    }
}

template <typename T>
std::string AnonymizeNumber(const char* format, T value) {
    char text[kNumberTextSize] = {0};
    if (sprintf_s(text, kNumberTextSize, format, value) <= 0) {
        return "";
    }
    std::string masked(text, strnlen(text, kNumberTextSize));
    MaskInPlace(masked);
    return masked;
}

}  // namespace

std::string GetAnonyString(const std::string& value) {
    std::string masked = value;
    MaskInPlace(masked);
    return masked;
}

std::string GetAnonyInt32(int32_t value) {
    return AnonymizeNumber("%d", value);
}

std::string GetAnonyUInt32(uint32_t value) {
    return AnonymizeNumber("%u", value);
}

}  // namespace pelcamera
