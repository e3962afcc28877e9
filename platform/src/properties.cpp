// property_set of libcutils, over the host property store of libbase (the
// Debian libcutils does not carry the property functions).
#include <android-base/properties.h>
#include <cutils/properties.h>

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr) {
        return -1;
    }
    return android::base::SetProperty(key, value == nullptr ? "" : value) ? 0 : -1;
}
