// Copyright (C) 2026 The libvircam Authors

// The host runs jsoncpp as the device builds it: what Debian's build throws
// ends the process, as the device's abort does; other exceptions are as
// before.
#include <gtest/gtest.h>
#include <json/json.h>

#include <stdexcept>
#include <string>

namespace {

TEST(DeviceJsoncppTest, ThrowingFromJsoncppEndsTheProcess) {
    const Json::Value number(5);
    EXPECT_DEATH(static_cast<void>(number["member"]), "jsoncpp .*requires objectValue");
    const std::string deep = std::string(1001, '[') + std::string(1001, ']');
    EXPECT_DEATH(
        {
            Json::Reader reader;
            Json::Value doc;
            reader.parse(deep, doc);
        },
        "Exceeded stackLimit");
}

TEST(DeviceJsoncppTest, OtherExceptionsStillReachTheirCatch) {
    bool caught = false;
    try {
        throw std::runtime_error("not jsoncpp");
    } catch (const std::runtime_error&) {
        caught = true;
    }
    EXPECT_TRUE(caught);
}

}  // namespace
