// Copyright (C) 2026 The libvircam Authors

#include "utils/JsonUtil.h"

#include <cstddef>

#include "utils/VirCamLog.h"

using pelcamera::kStreamChangeLog;

namespace JsonUtil {

namespace {

// Looks the member up without inserting it; null when absent or JSON null,
// after logging why.
const Json::Value* FindMember(const char* caller, const Json::Value& object,
                              const std::string& key) {
    if (!object.isObject() || !object.isMember(key)) {
        kStreamChangeLog.W("%s convert failed. because no member %s", caller, key.c_str());
        return nullptr;
    }
    const Json::Value* member = object.find(key.data(), key.data() + key.size());
    if (member == nullptr || member->isNull()) {
        kStreamChangeLog.W("%s convert failed. because member %s is null", caller, key.c_str());
        return nullptr;
    }
    return member;
}

// jsoncpp's reader gives up on a value nested inside this many arrays and
// objects, and not by failing: Debian's build throws, the device's (built
// without exceptions) aborts the whole camera HAL process.
constexpr size_t kReaderNestingLimit = 1000;

// Whether the reader would meet a value nested past its limit in the
// document's root value. Brackets inside strings (escapes included) do not
// count, as the reader reads them as text; whatever follows the root value
// is never read. At the limit, anything but a closing bracket is either such
// a value or a syntax error: a parse failure either way.
bool NestsPastReaderLimit(const std::string& text) {
    size_t depth = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            continue;
        }
        if (c == ']' || c == '}') {
            if (depth == 0 || --depth == 0) {
                return false;  // the root value ends here
            }
            continue;
        }
        if (depth >= kReaderNestingLimit) {
            return true;
        }
        if (c == '[' || c == '{') {
            ++depth;
        } else if (c == '"') {
            inString = true;
        } else if (depth == 0) {
            return false;  // a bare root value: nothing nests in it
        }
    }
    return false;
}

void LogTypeError(const char* caller, const std::string& key, const Json::Value& member) {
    kStreamChangeLog.W("%s convert failed. because member %s type err %d", caller, key.c_str(),
                       static_cast<int>(member.type()));
}

}  // namespace

int32_t StringToJsonValue(const std::string& text, Json::Value& target) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::Reader reader(Json::Features::strictMode());
#pragma GCC diagnostic pop
    // A text from a peer must never reach the reader's throw (an abort on a
    // device): nesting past its limit is a parse failure like any other.
    Json::Value parsedValue;
    const bool parsed = !NestsPastReaderLimit(text) && reader.parse(text, parsedValue, true);
    if (parsed) {
        target.swap(parsedValue);
    }
    if (!parsed) {
        VIRCAM_LOGW(kStreamChangeLog, "%s convert (%s) failed.", text.c_str());
        return -1;
    }
    return 0;
}

int32_t JsonParseInt32(const Json::Value& object, const std::string& key, int32_t& out) {
    const Json::Value* member = FindMember(__func__, object, key);
    if (member == nullptr) {
        return -1;
    }
    if (!member->isInt()) {
        LogTypeError(__func__, key, *member);
        return -1;
    }
    out = member->asInt();
    return 0;
}

int32_t JsonParseString(const Json::Value& object, const std::string& key, std::string& out) {
    const Json::Value* member = FindMember(__func__, object, key);
    if (member == nullptr) {
        return -1;
    }
    if (!member->isString()) {
        LogTypeError(__func__, key, *member);
        return -1;
    }
    out = member->asString();
    return 0;
}

int32_t JsonParseArrayStr(const Json::Value& object, const std::string& key,
                          std::vector<std::string>& out) {
    const Json::Value* member = FindMember(__func__, object, key);
    if (member == nullptr) {
        return -1;
    }
    if (!member->isArray()) {
        LogTypeError(__func__, key, *member);
        return -1;
    }
    for (Json::ArrayIndex i = 0; i < member->size(); ++i) {
        const Json::Value& element = (*member)[i];
        if (element.isString()) {
            out.push_back(element.asString());
        } else {
            VIRCAM_LOGW(kStreamChangeLog, "%s convert failed. because arr member type err %d",
                        static_cast<int>(element.type()));
        }
    }
    return 0;
}

}  // namespace JsonUtil
