// Copyright (C) 2026 The libvircam Authors

#include "utils/JsonUtil.h"

#include <gtest/gtest.h>

#include "support/LogCapture.h"

namespace {

using vircam_test::LogCapture;

constexpr const char* kTag = "VirCam_StreamChange";

TEST(JsonUtilTest, StrictParseRefusesWhatIsNotAnObjectOrArray) {
    LogCapture log;
    Json::Value value;
    EXPECT_EQ(-1, JsonUtil::StringToJsonValue("", value));
    EXPECT_EQ(-1, JsonUtil::StringToJsonValue("5", value));
    EXPECT_EQ(-1, JsonUtil::StringToJsonValue("// comment\n{\"a\":1}", value));
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag, "StringToJsonValue convert (5) failed."));
    EXPECT_EQ(0, JsonUtil::StringToJsonValue("[1, 2]", value));
    EXPECT_EQ(0, JsonUtil::StringToJsonValue("{\"notifyKey\": 101}", value));
    EXPECT_EQ(101, value["notifyKey"].asInt());
}

TEST(JsonUtilTest, TypedReadsFailWithTheJsonTypeNumberAndKeepTheOutput) {
    LogCapture log;
    Json::Value doc;
    ASSERT_EQ(0, JsonUtil::StringToJsonValue(
                     R"({"s": "5", "b": true, "n": null, "i": 7, "o": {}, "t": "text"})", doc));
    int32_t number = -3;
    EXPECT_EQ(-1, JsonUtil::JsonParseInt32(doc, "s", number));
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "JsonParseInt32 convert failed. because member s type err 4"));
    EXPECT_EQ(-1, JsonUtil::JsonParseInt32(doc, "b", number));
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "JsonParseInt32 convert failed. because member b type err 5"));
    EXPECT_EQ(-1, JsonUtil::JsonParseInt32(doc, "n", number));
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_WARN, kTag, "JsonParseInt32 convert failed. because member n is null"));
    EXPECT_EQ(-3, number);
    EXPECT_EQ(0, JsonUtil::JsonParseInt32(doc, "i", number));
    EXPECT_EQ(7, number);

    std::string text = "kept";
    EXPECT_EQ(-1, JsonUtil::JsonParseString(doc, "i", text));
    EXPECT_EQ("kept", text);
    EXPECT_EQ(0, JsonUtil::JsonParseString(doc, "t", text));
    EXPECT_EQ("text", text);

    std::vector<std::string> items = {"old"};
    EXPECT_EQ(-1, JsonUtil::JsonParseArrayStr(doc, "o", items));
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "JsonParseArrayStr convert failed. because member o type err 7"));
    EXPECT_EQ(std::vector<std::string>{"old"}, items);
}

TEST(JsonUtilTest, MissingKeyInsertsNothing) {
    LogCapture log;
    Json::Value doc;
    ASSERT_EQ(0, JsonUtil::StringToJsonValue(R"({"a": 1})", doc));
    int32_t number = 0;
    std::string text;
    std::vector<std::string> items;
    EXPECT_EQ(-1, JsonUtil::JsonParseInt32(doc, "virCamInfo", number));
    EXPECT_EQ(-1, JsonUtil::JsonParseString(doc, "virCamInfo", text));
    EXPECT_EQ(-1, JsonUtil::JsonParseArrayStr(doc, "virCamInfo", items));
    EXPECT_FALSE(doc.isMember("virCamInfo"));
    EXPECT_EQ(1u, doc.size());
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "JsonParseArrayStr convert failed. because no member virCamInfo"));
}

TEST(JsonUtilTest, ArrayReadSkipsNonStringElementsAndAppends) {
    LogCapture log;
    Json::Value doc;
    ASSERT_EQ(0,
              JsonUtil::StringToJsonValue(R"({"virCamInfo": ["a", 1, null, "b"], "e": []})", doc));
    std::vector<std::string> items = {"x"};
    EXPECT_EQ(0, JsonUtil::JsonParseArrayStr(doc, "virCamInfo", items));
    EXPECT_EQ((std::vector<std::string>{"x", "a", "b"}), items);
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "JsonParseArrayStr convert failed. because arr member type err 1"));
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "JsonParseArrayStr convert failed. because arr member type err 0"));
    EXPECT_EQ(0, JsonUtil::JsonParseArrayStr(doc, "e", items));
    EXPECT_EQ(3u, items.size());
}

std::string Nested(size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

// The reader throws past its stack limit; a peer's text must never get an
// exception out of the helpers, only the ordinary parse failure.
TEST(JsonUtilTest, NestingPastTheReadersLimitIsAParseFailure) {
    LogCapture log;
    Json::Value doc(7);
    EXPECT_EQ(0, JsonUtil::StringToJsonValue(Nested(900), doc));
    doc = 7;
    for (size_t depth : {size_t{1001}, size_t{100000}}) {
        log.Clear();
        EXPECT_EQ(-1, JsonUtil::StringToJsonValue(Nested(depth), doc)) << depth;
        EXPECT_EQ(1u, log.Count(kTag, "StringToJsonValue convert ([[[")) << depth;
        EXPECT_EQ(7, doc.asInt()) << "a failed parse leaves the target as it was";
        const std::string inMember =
            R"({"notifyKey": 101, "notifyMsgData": )" + Nested(depth) + "}";
        EXPECT_EQ(-1, JsonUtil::StringToJsonValue(inMember, doc)) << depth;
    }
}

// Exactly where the reader's limit lies: a value inside 1,000 arrays or
// objects is past it, an empty 1,000th one is not. Any miss in the permissive
// direction reaches the reader's throw, which ends this process as it would
// the camera HAL.
TEST(JsonUtilTest, TheNestingLimitIsTheReadersOwn) {
    const auto wrapped = [](size_t depth, const std::string& inner) {
        return std::string(depth, '[') + inner + std::string(depth, ']');
    };
    struct Case {
        std::string text;
        int32_t result;
    };
    const std::string deepBrackets(5000, '[');
    for (const Case& c : {
             Case{wrapped(1000, ""), 0},
             Case{wrapped(999, "1"), 0},
             Case{wrapped(1000, "1"), -1},
             Case{wrapped(999, R"({"a": 1})"), -1},
             Case{wrapped(998, R"({"a": 1})"), 0},
             Case{wrapped(1000, ","), -1},
             // Brackets in strings, escaped quotes included, are text.
             Case{R"(["\"[[[", ")" + deepBrackets + R"("])", 0},
             Case{wrapped(999, R"("]]]\\")"), 0},
             // The reader never reads past the root value.
             Case{"{} " + deepBrackets, 0},
         }) {
        Json::Value doc;
        EXPECT_EQ(c.result, JsonUtil::StringToJsonValue(c.text, doc)) << c.text.substr(0, 40);
    }
}

}  // namespace
