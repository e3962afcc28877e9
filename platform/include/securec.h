// Copyright (C) 2026 The libvircam Authors

// Host stand-in for the bounds-checked formatting of the device's
// libboundscheck: sprintf_s writes at most destMax bytes including the
// terminator and reports truncation instead of silently cutting.
#pragma once

#include <cstddef>

extern "C" {
// Returns the number of characters written (without the terminator), or -1
// when the arguments are invalid or the text does not fit; on -1 the
// destination holds an empty string (when it can hold anything at all).
int sprintf_s(char* dest, size_t destMax, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
}
