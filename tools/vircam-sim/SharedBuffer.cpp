// Copyright (C) 2026 The libvircam Authors

#include "SharedBuffer.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vircam_sim {

namespace {

uint8_t* MapShared(int fd, size_t size) {
    void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return data == MAP_FAILED ? nullptr : static_cast<uint8_t*>(data);
}

}  // namespace

SharedBuffer::SharedBuffer(size_t size) : mSize(size) {
    const int fd = memfd_create("vircam-sim-buffer", MFD_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
        close(fd);
        return;
    }
    mData = MapShared(fd, size);
    mHandle = native_handle_create(1, 0);
    mHandle->data[0] = fd;
}

SharedBuffer::~SharedBuffer() {
    if (mData != nullptr) {
        munmap(mData, mSize);
    }
    if (mHandle != nullptr) {
        native_handle_close(mHandle);
        native_handle_delete(mHandle);
    }
}

BufferMapping::BufferMapping(const native_handle_t* handle) {
    if (handle == nullptr || handle->numFds < 1) {
        return;
    }
    struct stat info {};
    if (fstat(handle->data[0], &info) != 0 || info.st_size <= 0) {
        return;
    }
    mSize = static_cast<size_t>(info.st_size);
    mData = MapShared(handle->data[0], mSize);
}

BufferMapping::~BufferMapping() {
    if (mData != nullptr) {
        munmap(mData, mSize);
    }
}

}  // namespace vircam_sim
