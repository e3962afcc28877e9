// Copyright (C) 2026 The libvircam Authors

#include "utils/VirCamLog.h"

#include <cstdarg>

namespace pelcamera {

#define VIRCAM_FORWARD(priority)                          \
    va_list args;                                         \
    va_start(args, format);                               \
    __android_log_vprint((priority), mTag, format, args); \
    va_end(args)

void VirCamLogger::D(const char* format, ...) const {
    VIRCAM_FORWARD(ANDROID_LOG_DEBUG);
}
void VirCamLogger::I(const char* format, ...) const {
    VIRCAM_FORWARD(ANDROID_LOG_INFO);
}
void VirCamLogger::W(const char* format, ...) const {
    VIRCAM_FORWARD(ANDROID_LOG_WARN);
}
void VirCamLogger::E(const char* format, ...) const {
    VIRCAM_FORWARD(ANDROID_LOG_ERROR);
}

#undef VIRCAM_FORWARD

}  // namespace pelcamera
