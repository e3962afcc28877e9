// Copyright (C) 2026 The libvircam Authors

// Host stand-in for the HIDL runtime's containers and death-recipient base.
// Layouts match libhidlbase on a 64-bit device: every container is 16 bytes,
// 8-byte aligned, so structures built from them keep their wire offsets.
#pragma once

#include <cutils/native_handle.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace android {
namespace hidl {
namespace base {
namespace V1_0 {
struct IBase;
}  // namespace V1_0
}  // namespace base
}  // namespace hidl

namespace hardware {

namespace details {
// A pointer padded to 8 bytes, as in the wire format.
template <typename T>
union hidl_pointer {
    T* mPointer;
    uint64_t _pad;
};

// Marks a generated interface class (the generated headers tag each one).
struct i_tag {};

// The generated headers specialise this for every enum of a package, in
// every translation unit that includes them (without `inline`): declared in
// an unnamed namespace, the specialisations have internal linkage and cannot
// clash at link time, with clang as with gcc.
inline namespace {
template <typename T>
constexpr std::array<T, 0> hidl_enum_values = {};
}  // namespace
}  // namespace details

// The integer that a bit set of an enum is carried in.
template <typename Enum>
using hidl_bitfield = std::underlying_type_t<Enum>;

class hidl_string {
public:
    hidl_string();
    ~hidl_string();
    hidl_string(const hidl_string& other);
    hidl_string(hidl_string&& other) noexcept;
    hidl_string(const char* s);  // NOLINT(google-explicit-constructor): null becomes ""
    hidl_string(const char* s, size_t length);
    hidl_string(const std::string& s);  // NOLINT(google-explicit-constructor)

    hidl_string& operator=(const hidl_string& other);
    hidl_string& operator=(hidl_string&& other) noexcept;
    hidl_string& operator=(const char* s);
    hidl_string& operator=(const std::string& s);

    const char* c_str() const { return mBuffer.mPointer; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    void clear();
    // data[size] must be the terminating NUL; the runtime aborts otherwise.
    void setToExternal(const char* data, size_t size);

    operator std::string() const { return std::string(c_str(), mSize); }  // NOLINT

private:
    void copyFrom(const char* data, size_t size);
    void moveFrom(hidl_string&& other);

    details::hidl_pointer<const char> mBuffer;
    uint32_t mSize;
    bool mOwnsBuffer;
};

inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return strcmp(a.c_str(), b.c_str()) == 0;
}
inline bool operator!=(const hidl_string& a, const hidl_string& b) {
    return !(a == b);
}
inline bool operator<(const hidl_string& a, const hidl_string& b) {
    return strcmp(a.c_str(), b.c_str()) < 0;
}
inline bool operator==(const hidl_string& a, const char* b) {
    return strcmp(a.c_str(), b) == 0;
}
inline bool operator!=(const hidl_string& a, const char* b) {
    return !(a == b);
}

template <typename T>
class hidl_vec {
public:
    hidl_vec() = default;
    hidl_vec(size_t size) : hidl_vec() { resize(size); }  // NOLINT: not explicit, as on a device
    hidl_vec(std::initializer_list<T> list) : hidl_vec(list.begin(), list.end()) {}
    hidl_vec(const std::vector<T>& v) : hidl_vec(v.begin(), v.end()) {}  // NOLINT
    template <typename It>
    hidl_vec(It first, It last) : hidl_vec() {
        assignRange(first, last);
    }
    hidl_vec(const hidl_vec& other) : hidl_vec() { assignRange(other.begin(), other.end()); }
    hidl_vec(hidl_vec&& other) noexcept : hidl_vec() { moveFrom(std::move(other)); }
    ~hidl_vec() { release(); }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) {
            release();
            assignRange(other.begin(), other.end());
        }
        return *this;
    }
    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this != &other) {
            release();
            moveFrom(std::move(other));
        }
        return *this;
    }

    // Points at memory the vector does not own unless told so.
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        release();
        mBuffer.mPointer = data;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = shouldOwn;
    }

    size_t size() const { return mSize; }
    T* data() { return mBuffer.mPointer; }
    const T* data() const { return mBuffer.mPointer; }
    T& operator[](size_t i) { return mBuffer.mPointer[i]; }
    const T& operator[](size_t i) const { return mBuffer.mPointer[i]; }
    T* begin() { return mBuffer.mPointer; }
    T* end() { return mBuffer.mPointer + mSize; }
    const T* begin() const { return mBuffer.mPointer; }
    const T* end() const { return mBuffer.mPointer + mSize; }

    // Always reallocates and moves the elements, as the device runtime does;
    // even an empty vector then has a buffer.
    void resize(size_t size) {
        T* fresh = new T[size]();
        for (size_t i = 0; i < std::min(size, static_cast<size_t>(mSize)); ++i) {
            fresh[i] = std::move(mBuffer.mPointer[i]);
        }
        release();
        mBuffer.mPointer = fresh;
        mSize = static_cast<uint32_t>(size);
        mOwnsBuffer = true;
    }

    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }  // NOLINT

private:
    template <typename It>
    void assignRange(It first, It last) {
        const auto count = static_cast<size_t>(std::distance(first, last));
        mBuffer.mPointer = count == 0 ? nullptr : new T[count]();
        mSize = static_cast<uint32_t>(count);
        mOwnsBuffer = true;
        for (size_t i = 0; first != last; ++first, ++i) {
            mBuffer.mPointer[i] = *first;
        }
    }
    // As on a device, the moved-from vector keeps its size and still points,
    // without owning it, at the buffer it gave away.
    void moveFrom(hidl_vec&& other) {
        mBuffer = other.mBuffer;
        mSize = other.mSize;
        mOwnsBuffer = other.mOwnsBuffer;
        other.mOwnsBuffer = false;
    }
    void release() {
        if (mOwnsBuffer) {
            delete[] mBuffer.mPointer;
        }
        mBuffer.mPointer = nullptr;
        mSize = 0;
        mOwnsBuffer = true;
    }

    details::hidl_pointer<T> mBuffer{};
    uint32_t mSize = 0;
    bool mOwnsBuffer = true;
};

template <typename T>
bool operator==(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (!(a[i] == b[i])) {
            return false;
        }
    }
    return true;
}
template <typename T>
bool operator!=(const hidl_vec<T>& a, const hidl_vec<T>& b) {
    return !(a == b);
}

// Owns its native handle only when made to: a copy clones the handle (the
// file descriptors are duplicated) and owns the clone.
class hidl_handle {
public:
    hidl_handle();
    ~hidl_handle();
    hidl_handle(const native_handle_t* handle);  // NOLINT: not owning
    hidl_handle(const hidl_handle& other);
    hidl_handle(hidl_handle&& other) noexcept;
    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(hidl_handle&& other) noexcept;
    hidl_handle& operator=(const native_handle_t* handle);

    void setTo(native_handle_t* handle, bool shouldOwn = false);
    const native_handle_t* getNativeHandle() const { return mHandle.mPointer; }
    const native_handle_t* operator->() const { return mHandle.mPointer; }
    operator const native_handle_t*() const { return mHandle.mPointer; }  // NOLINT

private:
    void freeHandle();

    details::hidl_pointer<const native_handle_t> mHandle;
    bool mOwnsHandle;
};

static_assert(sizeof(hidl_string) == 16 && alignof(hidl_string) == 8, "hidl_string layout");
static_assert(sizeof(hidl_vec<int>) == 16 && alignof(hidl_vec<int>) == 8, "hidl_vec layout");
static_assert(sizeof(hidl_handle) == 16 && alignof(hidl_handle) == 8, "hidl_handle layout");

// A fixed-size array field (the generated IBase's hash chain uses one).
template <typename T, size_t N>
class hidl_array {
public:
    T* data() { return mBuffer; }
    const T* data() const { return mBuffer; }
    T& operator[](size_t i) { return mBuffer[i]; }
    const T& operator[](size_t i) const { return mBuffer[i]; }
    static constexpr size_t size() { return N; }

private:
    T mBuffer[N] = {};
};

// The printers that the generated toString() functions call.
namespace details {
template <typename T>
std::string toHexString(T value, bool prefix = true) {
    static_assert(std::is_integral<T>::value, "an integer");
    char buffer[2 + 2 * sizeof(T) + 1];
    snprintf(buffer, sizeof(buffer), prefix ? "0x%llx" : "%llx",
             static_cast<unsigned long long>(static_cast<std::make_unsigned_t<T>>(value)));
    return buffer;
}
}  // namespace details

inline std::string toString(bool value) {
    return value ? "true" : "false";
}
template <typename T, typename = std::enable_if_t<std::is_arithmetic<T>::value>>
std::string toString(T value) {
    // Small integers print as numbers, with their own signedness.
    using Printed =
        std::conditional_t<std::is_integral<T>::value && (sizeof(T) < sizeof(int)),
                           std::conditional_t<std::is_signed<T>::value, int, unsigned int>, T>;
    return std::to_string(static_cast<Printed>(value));
}
inline std::string toString(const hidl_string& s) {
    return "\"" + std::string(s) + "\"";
}
std::string toString(const hidl_handle& handle);
template <typename T>
std::string toString(const hidl_vec<T>& v) {
    using ::android::hardware::toString;
    std::string out = "[" + std::to_string(v.size()) + "]{";
    for (size_t i = 0; i < v.size(); ++i) {
        out += (i == 0 ? "" : ", ") + toString(v[i]);
    }
    return out + "}";
}
template <typename T, size_t N>
std::string toString(const hidl_array<T, N>& a) {
    using ::android::hardware::toString;
    std::string out = "[" + std::to_string(N) + "]{";
    for (size_t i = 0; i < N; ++i) {
        out += (i == 0 ? "" : ", ") + toString(a[i]);
    }
    return out + "}";
}

// Told by the runtime when a peer that it was linked to has died.
struct hidl_death_recipient : virtual public RefBase {
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

}  // namespace hardware
}  // namespace android
