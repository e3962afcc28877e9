// Copyright (C) 2026 The libvircam Authors

// Typed reads of single members of a JSON command. Each returns 0 or -1 and
// logs one warning on failure, so callers can chain reads and stop at the
// first failure; on failure the out argument is left as it was.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

namespace JsonUtil {

// Any thread; no shared state, no lock.
int32_t StringToJsonValue(const std::string& text, Json::Value& target);
int32_t JsonParseInt32(const Json::Value& object, const std::string& key, int32_t& out);
int32_t JsonParseString(const Json::Value& object, const std::string& key, std::string& out);
// Appends every string element; other elements are skipped with a warning.
int32_t JsonParseArrayStr(const Json::Value& object, const std::string& key,
                          std::vector<std::string>& out);

}  // namespace JsonUtil
