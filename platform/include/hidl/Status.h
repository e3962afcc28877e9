// Copyright (C) 2026 The libvircam Authors

// Host stand-in for the HIDL transport status and Return<T>.
// As on a device, a failed Return whose status nobody checked aborts the
// process when it is destroyed: that is the crash a camera HAL would see.
#pragma once

#include <utils/Errors.h>

#include <string>
#include <utility>

namespace android {
namespace hardware {

class Status final {
public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_NULL_POINTER = -4,
        EX_TRANSACTION_FAILED = -129,
    };

    Status() = default;
    static Status ok() { return Status(); }
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromStatusT(status_t status);

    bool isOk() const { return mException == EX_NONE; }
    int32_t exceptionCode() const { return mException; }
    status_t transactionError() const { return mErrorCode; }
    std::string description() const;

private:
    int32_t mException = EX_NONE;
    status_t mErrorCode = OK;
};

template <typename T>
class Return;

namespace details {

// Aborts the process with the runtime's own message.
[[noreturn]] void returnStatusNotChecked(const Status& status);
[[noreturn]] void readValueOfFailedReturn(const Status& status);

class return_status {
public:
    return_status() = default;
    explicit return_status(const Status& s) : mStatus(s) {}
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    return_status(return_status&& other) noexcept { *this = std::move(other); }
    return_status& operator=(return_status&& other) noexcept {
        assertChecked();
        mStatus = other.mStatus;
        mCheckedStatus = other.mCheckedStatus;
        other.mCheckedStatus = true;
        return *this;
    }
    ~return_status() { assertChecked(); }

    bool isOk() const {
        mCheckedStatus = true;
        return mStatus.isOk();
    }
    bool isDeadObject() const {
        const bool dead = !mStatus.isOk() && mStatus.transactionError() == DEAD_OBJECT;
        if (dead) {
            mCheckedStatus = true;
        }
        return dead;
    }
    std::string description() const { return mStatus.description(); }

protected:
    // A failed call's status, passed on unchanged as another call's result.
    template <typename T, typename U>
    friend Return<U> StatusOf(const Return<T>& ret);

    void assertOk() const {
        if (!isOk()) {
            readValueOfFailedReturn(mStatus);
        }
    }

private:
    void assertChecked() const {
        if (!mCheckedStatus && !mStatus.isOk()) {
            returnStatusNotChecked(mStatus);
        }
    }

    Status mStatus;
    mutable bool mCheckedStatus = false;
};

}  // namespace details

template <typename T>
class Return : public details::return_status {
public:
    Return(T value) : mVal(std::move(value)) {}                             // NOLINT
    Return(const Status& error) : details::return_status(error), mVal{} {}  // NOLINT
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;

    T withDefault(T t) const { return isOk() ? mVal : t; }
    operator T() const {  // NOLINT
        assertOk();
        return mVal;
    }

private:
    T mVal;
};

template <>
class Return<void> : public details::return_status {
public:
    Return() = default;
    Return(const Status& error) : details::return_status(error) {}  // NOLINT
    Return(Return&&) noexcept = default;
    Return& operator=(Return&&) noexcept = default;
};

namespace details {
template <typename T, typename U>
Return<U> StatusOf(const Return<T>& ret) {
    return Return<U>(static_cast<const return_status&>(ret).mStatus);
}
}  // namespace details

inline Return<void> Void() {
    return Return<void>();
}

}  // namespace hardware
}  // namespace android
