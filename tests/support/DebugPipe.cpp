// Copyright (C) 2026 The libvircam Authors

#include "support/DebugPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "utils/VirCamClock.h"

namespace vircam_test {

BorrowedFdHandle::BorrowedFdHandle(int fd) : mHandle(native_handle_create(1, 0)) {
    mHandle->data[0] = fd;
}

BorrowedFdHandle::~BorrowedFdHandle() {
    native_handle_delete(mHandle);
}

android::hardware::hidl_vec<android::hardware::hidl_string> Options(
    const std::vector<std::string>& options) {
    android::hardware::hidl_vec<android::hardware::hidl_string> out(options.size());
    for (size_t i = 0; i < options.size(); ++i) {
        out[i] = options[i];
    }
    return out;
}

DebugOutput ReadDebug(android::hidl::base::V1_0::IBase& object,
                      const std::vector<std::string>& options) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe2 failed";
        return {};
    }
    DebugOutput output;
    {
        const BorrowedFdHandle writeEnd(ends[1]);
        const auto start = pelcamera::Clock().Now();
        EXPECT_TRUE(object.debug(writeEnd.Handle(), Options(options)).isOk());
        output.took = pelcamera::Clock().Now() - start;
    }
    close(ends[1]);
    char buffer[4096];
    ssize_t n = 0;
    while ((n = read(ends[0], buffer, sizeof(buffer))) > 0) {
        output.text.append(buffer, static_cast<size_t>(n));
    }
    close(ends[0]);
    return output;
}

}  // namespace vircam_test
