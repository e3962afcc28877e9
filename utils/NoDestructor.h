// Copyright (C) 2026 The libvircam Authors

// A process-lifetime object that is never destroyed. The library's process-wide
// objects are reached from binder threads, death notices and detached workers
// that go on running while the process exits; an exit-time destructor would
// free what they still touch. Nothing of such an object runs at exit.
#pragma once

#include <new>
#include <utility>

// The same for a namespace-scope object: libc++, the device's library, gives
// std::mutex a destructor (libstdc++'s does nothing), and clang would run it
// at exit under the threads still locking the mutex.
#if defined(__clang__)
#define VIRCAM_NO_DESTROY [[clang::no_destroy]]
#else
#define VIRCAM_NO_DESTROY
#endif

namespace pelcamera {

template <typename T>
class NoDestructor {
public:
    template <typename... Args>
    explicit NoDestructor(Args&&... args) {
        ::new (static_cast<void*>(mStorage)) T(std::forward<Args>(args)...);
    }
    ~NoDestructor() = default;
    NoDestructor(const NoDestructor&) = delete;
    NoDestructor& operator=(const NoDestructor&) = delete;

    T* get() { return std::launder(reinterpret_cast<T*>(mStorage)); }
    T& operator*() { return *get(); }
    T* operator->() { return get(); }

private:
    alignas(T) unsigned char mStorage[sizeof(T)];
};

}  // namespace pelcamera
