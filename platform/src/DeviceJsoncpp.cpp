// Copyright (C) 2026 The libvircam Authors

// jsoncpp as the device builds it (JSON_USE_EXCEPTION=0): where Debian's build
// throws, the device's prints its message and aborts the process. Every host
// program that loads the library loads this runtime too, so no host run can
// survive, by catching it, what would end the camera HAL on a phone.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <typeinfo>

namespace {

using ThrowFunction = void (*)(void*, std::type_info*, void (*)(void*));

bool IsJsoncppException(const std::type_info& type) {
    // Json::Exception and everything derived from it.
    return std::strstr(type.name(), "N4Json") != nullptr;
}

}  // namespace

extern "C" [[noreturn]] void __cxa_throw(  // NOLINT(bugprone-reserved-identifier)
    void* object, std::type_info* type, void (*destroy)(void*)) {
    if (IsJsoncppException(*type)) {
        std::fprintf(stderr, "jsoncpp (as on a device, which aborts here): %s\n",
                     static_cast<const std::exception*>(object)->what());
        std::abort();
    }
    static const auto next = reinterpret_cast<ThrowFunction>(dlsym(RTLD_NEXT, "__cxa_throw"));
    next(object, type, destroy);
    std::abort();  // the real one never returns
}
