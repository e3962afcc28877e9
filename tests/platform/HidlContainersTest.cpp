// Copyright (C) 2026 The libvircam Authors

#include <hidl/HidlSupport.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <vendor/travik/hardware/camera/vircamera/1.0/types.h>

using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using namespace vendor::travik::hardware::camera::vircamera::V1_0;

namespace {

bool FdIsOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

native_handle_t* HandleWithPipe() {
    int fds[2];
    EXPECT_EQ(0, pipe(fds));
    close(fds[1]);
    native_handle_t* handle = native_handle_create(1, 1);
    handle->data[0] = fds[0];
    handle->data[1] = 42;
    return handle;
}

TEST(HidlHandleTest, RawPointerIsBorrowedCopyClonesAndOwns) {
    native_handle_t* raw = HandleWithPipe();
    const int fd = raw->data[0];
    int clonedFd = -1;
    {
        hidl_handle borrowed(raw);
        EXPECT_EQ(raw, borrowed.getNativeHandle());
        hidl_handle copy = borrowed;  // NOLINT(performance-unnecessary-copy-initialization)
        ASSERT_NE(nullptr, copy.getNativeHandle());
        EXPECT_NE(raw, copy.getNativeHandle());
        clonedFd = copy->data[0];
        EXPECT_NE(fd, clonedFd);
        EXPECT_EQ(42, copy->data[1]);
        EXPECT_TRUE(FdIsOpen(clonedFd));
    }
    // The clone was owned and closed; the borrowed original was not touched.
    EXPECT_FALSE(FdIsOpen(clonedFd));
    EXPECT_TRUE(FdIsOpen(fd));

    {
        hidl_handle owner;
        owner.setTo(raw, true);
        hidl_handle moved = std::move(owner);
        EXPECT_EQ(nullptr, owner.getNativeHandle());  // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(raw, moved.getNativeHandle());
    }
    EXPECT_FALSE(FdIsOpen(fd));
}

// The generated types.h asserts every offset and size; what it cannot say is
// that the fields have no initialisers of their own, so only the vector's
// value-initialised storage makes new elements start zeroed.
TEST(HidlVecTest, NewElementsStartZeroed) {
    hidl_vec<VirImageBuffer> buffers(2);
    EXPECT_EQ(0u, buffers[1].bufferId);
    EXPECT_EQ(nullptr, buffers[1].buffer.getNativeHandle());
}

// What a device's runtime does and the earlier stand-in did not.
TEST(HidlVecTest, MovedFromKeepsItsSizeAndPointsAtTheMovedBufferWithoutOwningIt) {
    hidl_vec<int32_t> source = {1, 2, 3};
    const int32_t* buffer = source.data();
    {
        hidl_vec<int32_t> target = std::move(source);
        EXPECT_EQ(buffer, target.data());
        // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is the point
        EXPECT_EQ(3u, source.size());
        EXPECT_EQ(buffer, source.data());
        EXPECT_EQ(3, source[2]);
    }
    // The target freed the buffer; the moved-from vector must not free it again
    // (ASan would report a double free) and can be reused.
    source = {4};
    EXPECT_EQ(4, source[0]);
}

}  // namespace
