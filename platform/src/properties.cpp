// Copyright (C) 2026 The libvircam Authors

// property_set of libcutils, over the host property store of libbase (the
// Debian libcutils does not carry the property functions).
#include <android-base/properties.h>
#include <cutils/properties.h>

#include <cstring>

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr) {
        return -1;
    }
    const char* const text = value == nullptr ? "" : value;
    // As bionic does on a device: a value must fit PROP_VALUE_MAX with its
    // terminator, except for read-only properties, and a refused value leaves
    // the property as it was.
    if (std::strlen(text) >= PROP_VALUE_MAX && std::strncmp(key, "ro.", 3) != 0) {
        return -1;
    }
    return android::base::SetProperty(key, text) ? 0 : -1;
}
