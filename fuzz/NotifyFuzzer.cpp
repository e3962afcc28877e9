// Copyright (C) 2026 The libvircam Authors

// Everything the remote side can put in a notify command: the JSON envelope,
// the nested camera-info document, and the field helpers under both.
#include <android/log.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "utils/JsonUtil.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    // Every rejected input logs a warning; stderr would be the bottleneck.
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    return 0;
}

namespace {

void ReadEveryMember(const Json::Value& object) {
    if (!object.isObject()) {
        return;
    }
    for (const auto& name : object.getMemberNames()) {
        int32_t number = 0;
        std::string text;
        std::vector<std::string> items;
        JsonUtil::JsonParseInt32(object, name, number);
        JsonUtil::JsonParseString(object, name, text);
        JsonUtil::JsonParseArrayStr(object, name, items);
    }
    int32_t number = 0;
    JsonUtil::JsonParseInt32(object, "absent", number);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    static auto* const service = CreateVirtualCameraStreamChange();
    service->notify(0, text).isOk();
    Json::Value root;
    if (JsonUtil::StringToJsonValue(text, root) == 0) {
        ReadEveryMember(root);
    }
    return 0;
}
