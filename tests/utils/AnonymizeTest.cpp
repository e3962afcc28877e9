// Copyright (C) 2026 The libvircam Authors

#include "utils/Anonymize.h"

#include <gtest/gtest.h>

#include <climits>

namespace pelcamera {
namespace {

TEST(AnonymizeTest, MasksEverythingButTheFirstAndLastCharacter) {
    EXPECT_EQ("", GetAnonyString(""));
    EXPECT_EQ("*", GetAnonyString("A"));
    EXPECT_EQ("A*", GetAnonyString("AB"));
    EXPECT_EQ("A*C", GetAnonyString("ABC"));
    EXPECT_EQ("W*******1", GetAnonyString("W_device1"));
    // Bytes, not characters: two 3-byte characters keep their outer bytes only.
    const std::string wide = "\xe4\xb8\xad\xe6\x96\x87";
    const std::string masked = GetAnonyString(wide);
    EXPECT_EQ(wide.size(), masked.size());
    EXPECT_EQ("\xe4****\x87", masked);
}

TEST(AnonymizeTest, NumbersAreFormattedThenMasked) {
    EXPECT_EQ("*", GetAnonyInt32(0));
    EXPECT_EQ("*", GetAnonyInt32(7));
    EXPECT_EQ("1*", GetAnonyInt32(10));
    EXPECT_EQ("1****6", GetAnonyInt32(123456));
    EXPECT_EQ("-*", GetAnonyInt32(-5));
    EXPECT_EQ("-***4", GetAnonyInt32(-1234));
    EXPECT_EQ("-*********8", GetAnonyInt32(INT32_MIN));
    EXPECT_EQ("4********5", GetAnonyUInt32(UINT32_MAX));
    EXPECT_EQ("4*", GetAnonyUInt32(42));
    EXPECT_EQ("*", GetAnonyUInt32(2));
}

}  // namespace
}  // namespace pelcamera
