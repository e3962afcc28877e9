// Copyright (C) 2026 The libvircam Authors

// Reads what a served object's debug() writes, through a real pipe, as
// `lshal debug` would.
#pragma once

#include <android/hidl/base/1.0/IBase.h>

#include <chrono>
#include <string>
#include <vector>

namespace vircam_test {

struct DebugOutput {
    std::string text;
    std::chrono::steady_clock::duration took;  // the debug() call alone, on the library's clock
};

DebugOutput ReadDebug(android::hidl::base::V1_0::IBase& object,
                      const std::vector<std::string>& options = {});

// A native handle that holds `fd` without owning it.
class BorrowedFdHandle {
public:
    explicit BorrowedFdHandle(int fd);
    ~BorrowedFdHandle();
    BorrowedFdHandle(const BorrowedFdHandle&) = delete;
    BorrowedFdHandle& operator=(const BorrowedFdHandle&) = delete;

    android::hardware::hidl_handle Handle() const { return mHandle; }

private:
    native_handle_t* mHandle;
};

android::hardware::hidl_vec<android::hardware::hidl_string> Options(
    const std::vector<std::string>& options);

}  // namespace vircam_test
