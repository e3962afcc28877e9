// Copyright (C) 2026 The libvircam Authors

#include <securec.h>

#include <cstdarg>
#include <cstdio>

extern "C" int sprintf_s(char* dest, size_t destMax, const char* format, ...) {
    if (dest == nullptr || destMax == 0 || format == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int written = vsnprintf(dest, destMax, format, args);
    va_end(args);
    if (written < 0 || static_cast<size_t>(written) >= destMax) {
        dest[0] = '\0';
        return -1;
    }
    return written;
}
