// Copyright (C) 2026 The libvircam Authors

// A native handle over a memfd, as a gralloc buffer would be; owned by the
// test, lent to the library.
#pragma once

#include <cutils/native_handle.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "hostsupport/FakeRemoteChannel.h"

namespace vircam_test {

using vircam_fakes::FileOf;

class NativeBuffer {
public:
    NativeBuffer() : mHandle(native_handle_create(1, 0)) {
        mHandle->data[0] = memfd_create("vircam-test", MFD_CLOEXEC);
    }
    ~NativeBuffer() {
        native_handle_close(mHandle);
        native_handle_delete(mHandle);
    }
    NativeBuffer(const NativeBuffer&) = delete;
    NativeBuffer& operator=(const NativeBuffer&) = delete;
    const native_handle_t* get() const { return mHandle; }
    ino_t file() const { return FileOf(mHandle); }

private:
    native_handle_t* mHandle;
};

}  // namespace vircam_test
