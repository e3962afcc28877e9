// Copyright (C) 2026 The libvircam Authors

#include <hidl/HidlSupport.h>

#include <log/log.h>

#include <memory>

namespace android {
namespace hardware {

namespace {
const char kEmpty[] = "";
}  // namespace

hidl_string::hidl_string() : mBuffer{}, mSize(0), mOwnsBuffer(false) {
    mBuffer.mPointer = kEmpty;
}

hidl_string::~hidl_string() {
    clear();
}

hidl_string::hidl_string(const hidl_string& other) : hidl_string() {
    copyFrom(other.c_str(), other.size());
}

hidl_string::hidl_string(hidl_string&& other) noexcept : hidl_string() {
    moveFrom(std::move(other));
}

hidl_string::hidl_string(const char* s) : hidl_string() {
    if (s != nullptr) {
        copyFrom(s, strlen(s));
    }
}

hidl_string::hidl_string(const char* s, size_t length) : hidl_string() {
    copyFrom(s, length);
}

hidl_string::hidl_string(const std::string& s) : hidl_string() {
    copyFrom(s.c_str(), s.size());
}

hidl_string& hidl_string::operator=(const hidl_string& other) {
    if (this != &other) {
        clear();
        copyFrom(other.c_str(), other.size());
    }
    return *this;
}

hidl_string& hidl_string::operator=(hidl_string&& other) noexcept {
    if (this != &other) {
        clear();
        moveFrom(std::move(other));
    }
    return *this;
}

hidl_string& hidl_string::operator=(const char* s) {
    clear();
    if (s != nullptr) {
        copyFrom(s, strlen(s));
    }
    return *this;
}

hidl_string& hidl_string::operator=(const std::string& s) {
    clear();
    copyFrom(s.c_str(), s.size());
    return *this;
}

void hidl_string::clear() {
    if (mOwnsBuffer) {
        std::default_delete<const char[]>()(mBuffer.mPointer);
    }
    mBuffer.mPointer = kEmpty;
    mSize = 0;
    mOwnsBuffer = false;
}

void hidl_string::setToExternal(const char* data, size_t size) {
    if (data == nullptr || data[size] != '\0') {
        LOG_ALWAYS_FATAL("hidl_string::setToExternal: data[%zu] is not the terminating NUL", size);
    }
    clear();
    mBuffer.mPointer = data;
    mSize = static_cast<uint32_t>(size);
}

void hidl_string::copyFrom(const char* data, size_t size) {
    auto buffer = std::make_unique<char[]>(size + 1);
    memcpy(buffer.get(), data, size);
    buffer[size] = '\0';
    mBuffer.mPointer = buffer.release();
    mSize = static_cast<uint32_t>(size);
    mOwnsBuffer = true;
}

void hidl_string::moveFrom(hidl_string&& other) {
    mBuffer = other.mBuffer;
    mSize = other.mSize;
    mOwnsBuffer = other.mOwnsBuffer;
    other.mBuffer.mPointer = kEmpty;
    other.mSize = 0;
    other.mOwnsBuffer = false;
}

hidl_handle::hidl_handle() : mHandle{}, mOwnsHandle(false) {
    mHandle.mPointer = nullptr;
}

hidl_handle::~hidl_handle() {
    freeHandle();
}

hidl_handle::hidl_handle(const native_handle_t* handle) : hidl_handle() {
    mHandle.mPointer = handle;
}

hidl_handle::hidl_handle(const hidl_handle& other) : hidl_handle() {
    *this = other;
}

hidl_handle::hidl_handle(hidl_handle&& other) noexcept : hidl_handle() {
    *this = std::move(other);
}

hidl_handle& hidl_handle::operator=(const hidl_handle& other) {
    if (this == &other) {
        return *this;
    }
    freeHandle();
    if (other.mHandle.mPointer != nullptr) {
        mHandle.mPointer = native_handle_clone(other.mHandle.mPointer);
        mOwnsHandle = mHandle.mPointer != nullptr;
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(hidl_handle&& other) noexcept {
    if (this != &other) {
        freeHandle();
        mHandle = other.mHandle;
        mOwnsHandle = other.mOwnsHandle;
        other.mHandle.mPointer = nullptr;
        other.mOwnsHandle = false;
    }
    return *this;
}

hidl_handle& hidl_handle::operator=(const native_handle_t* handle) {
    freeHandle();
    mHandle.mPointer = handle;
    return *this;
}

void hidl_handle::setTo(native_handle_t* handle, bool shouldOwn) {
    freeHandle();
    mHandle.mPointer = handle;
    mOwnsHandle = shouldOwn;
}

void hidl_handle::freeHandle() {
    if (mOwnsHandle && mHandle.mPointer != nullptr) {
        auto* handle = const_cast<native_handle_t*>(mHandle.mPointer);
        native_handle_close(handle);
        native_handle_delete(handle);
    }
    mHandle.mPointer = nullptr;
    mOwnsHandle = false;
}

std::string toString(const hidl_handle& handle) {
    const native_handle_t* h = handle.getNativeHandle();
    if (h == nullptr) {
        return "(null)";
    }
    std::string out = "[fds: ";
    for (int i = 0; i < h->numFds; ++i) {
        out += (i == 0 ? "" : ", ") + std::to_string(h->data[i]);
    }
    return out + ", ints: " + std::to_string(h->numInts) + "]";
}

}  // namespace hardware
}  // namespace android
