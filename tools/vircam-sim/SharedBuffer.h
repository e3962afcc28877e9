// Copyright (C) 2026 The libvircam Authors

// Image memory as gralloc would hand it out: a memfd, mapped by the pipeline
// and lent to the library in a native handle; the remote maps the same file
// from the handle it receives.
#pragma once

#include <cutils/native_handle.h>

#include <cstddef>
#include <cstdint>

namespace vircam_sim {

class SharedBuffer {
public:
    explicit SharedBuffer(size_t size);
    ~SharedBuffer();
    SharedBuffer(const SharedBuffer&) = delete;
    SharedBuffer& operator=(const SharedBuffer&) = delete;

    bool valid() const { return mData != nullptr; }
    const native_handle_t* handle() const { return mHandle; }
    uint8_t* data() const { return mData; }
    size_t size() const { return mSize; }

private:
    native_handle_t* mHandle = nullptr;
    uint8_t* mData = nullptr;
    size_t mSize;
};

// The remote's view of a lent buffer; the mapping outlives the call that lent
// it, as the remote paints after its latency.
class BufferMapping {
public:
    explicit BufferMapping(const native_handle_t* handle);
    ~BufferMapping();
    BufferMapping(const BufferMapping&) = delete;
    BufferMapping& operator=(const BufferMapping&) = delete;

    uint8_t* data() const { return mData; }
    size_t size() const { return mSize; }

private:
    uint8_t* mData = nullptr;
    size_t mSize = 0;
};

}  // namespace vircam_sim
