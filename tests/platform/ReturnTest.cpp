// Copyright (C) 2026 The libvircam Authors

#include <hidl/Status.h>

#include <gtest/gtest.h>

using android::hardware::Return;
using android::hardware::Status;
using android::hardware::Void;

namespace {

Return<int> FailedCall() {
    return Status::fromStatusT(android::DEAD_OBJECT);
}

TEST(ReturnDeathTest, FailedStatusDestroyedUncheckedAborts) {
    EXPECT_DEATH({ FailedCall(); }, "Failed HIDL return status not checked");
    EXPECT_DEATH(
        {
            Return<void> ret = Status::fromExceptionCode(Status::EX_TRANSACTION_FAILED);
            ret = Void();  // assigning over an unchecked failure is the same fault
        },
        "not checked");
    EXPECT_DEATH({ static_cast<void>(static_cast<int>(FailedCall())); }, "failed HIDL call");
}

TEST(ReturnTest, CheckedFailuresAndUncheckedSuccessesAreFine) {
    {
        Return<int> ret = FailedCall();
        EXPECT_FALSE(ret.isOk());
    }
    {
        Return<int> ret = FailedCall();
        EXPECT_TRUE(ret.isDeadObject());
        EXPECT_EQ(-1, ret.withDefault(-1));
    }
    {
        Return<int> ok = 5;  // never checked: fine
        Return<int> moved = std::move(ok);
        EXPECT_EQ(5, static_cast<int>(moved));
    }
    {
        // Not dead, only failed: isDeadObject() does not count as a check.
        Return<void> ret = Status::fromStatusT(android::FAILED_TRANSACTION);
        EXPECT_FALSE(ret.isDeadObject());
        EXPECT_NE(std::string::npos, ret.description().find("EX_TRANSACTION_FAILED"));
        EXPECT_FALSE(ret.isOk());
    }
}

}  // namespace
