#include "utils/JsonUtil.h"

#include <exception>

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
    // The reader throws instead of failing once nesting passes its stack limit
    // (1,000 levels). The text comes from a peer, and an exception leaving a
    // served method would end the whole camera HAL process: whatever the
    // cause, a parse that does not finish is a parse failure.
    bool parsed = false;
    try {
        Json::Value parsedValue;
        parsed = reader.parse(text, parsedValue, true);
        if (parsed) {
            target.swap(parsedValue);
        }
    } catch (const std::exception&) {
        parsed = false;
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
