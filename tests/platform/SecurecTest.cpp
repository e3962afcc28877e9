#include <securec.h>

#include <gtest/gtest.h>

namespace {

TEST(SprintfSTest, ReportsTruncationInsteadOfCutting) {
    char buffer[4];
    EXPECT_EQ(3, sprintf_s(buffer, sizeof(buffer), "%d", 123));
    EXPECT_STREQ("123", buffer);
    EXPECT_EQ(-1, sprintf_s(buffer, sizeof(buffer), "%d", 1234));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(-1, sprintf_s(buffer, 0, "%d", 1));
    EXPECT_EQ(-1, sprintf_s(nullptr, 4, "%d", 1));
    EXPECT_EQ(0, sprintf_s(buffer, sizeof(buffer), "%s", ""));
}

}  // namespace
