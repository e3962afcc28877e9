// Copyright (C) 2026 The libvircam Authors

#include <hidl/Status.h>

#include <log/log.h>

#include <cstdlib>
#include <cstring>

namespace android {
namespace hardware {

Status Status::fromExceptionCode(int32_t exceptionCode) {
    Status s;
    s.mException = exceptionCode;
    // Only a failed transaction carries a transport error; any other
    // exception is the peer's answer.
    s.mErrorCode = exceptionCode == EX_TRANSACTION_FAILED ? FAILED_TRANSACTION : OK;
    return s;
}

Status Status::fromStatusT(status_t status) {
    Status s;
    if (status != OK) {
        s.mException = EX_TRANSACTION_FAILED;
        s.mErrorCode = status;
    }
    return s;
}

std::string Status::description() const {
    if (isOk()) {
        return "No error";
    }
    if (mException != EX_TRANSACTION_FAILED) {
        const std::string name =
            mException == EX_NULL_POINTER ? "EX_NULL_POINTER" : std::to_string(mException);
        return "Status(" + name + "): ''";
    }
    std::string error;
    switch (mErrorCode) {
        case DEAD_OBJECT:
            error = "DEAD_OBJECT";
            break;
        case FAILED_TRANSACTION:
            error = "FAILED_TRANSACTION";
            break;
        case UNKNOWN_ERROR:
            error = "UNKNOWN_ERROR";
            break;
        default:
            error = strerror(-mErrorCode);
            break;
    }
    return "Status(EX_TRANSACTION_FAILED): '" + error + "'";
}

namespace details {

void returnStatusNotChecked(const Status& status) {
    __android_log_print(ANDROID_LOG_FATAL, "HidlStatus",
                        "Failed HIDL return status not checked. Usually this happens because of "
                        "a transport error (error parceling, binder driver, or from unparceling)."
                        " If you see this in code calling into \"Bn\" classes in for a HAL "
                        "server process, then it is likely that the code there is returning "
                        "transport errors there (as opposed to errors defined within its "
                        "protocol). Error is: %s",
                        status.description().c_str());
    abort();
}

void readValueOfFailedReturn(const Status& status) {
    __android_log_print(ANDROID_LOG_FATAL, "HidlStatus",
                        "Attempted to retrieve value from failed HIDL call: %s",
                        status.description().c_str());
    abort();
}

}  // namespace details
}  // namespace hardware
}  // namespace android
