// Copyright (C) 2026 The libvircam Authors

#include "support/LogCapture.h"

#include <android/log.h>

#include <atomic>

namespace vircam_test {

namespace {
std::atomic<LogCapture*> gActive{nullptr};
}  // namespace

LogCapture::LogCapture() {
    gActive.store(this);
    __android_log_set_logger(&LogCapture::Sink);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    gActive.store(nullptr);
}

void LogCapture::Sink(const struct __android_logger_data* data, const char* message) {
    __android_log_stderr_logger(data, message);
    LogCapture* active = gActive.load();
    if (active == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(active->mLock);
    active->mLines.push_back(
        {data->priority, data->tag != nullptr ? data->tag : "", message != nullptr ? message : ""});
}

std::vector<LogLine> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mLines;
}

std::vector<LogLine> LogCapture::Lines(const std::string& tag) const {
    std::vector<LogLine> result;
    for (auto& line : Lines()) {
        if (line.tag == tag) {
            result.push_back(line);
        }
    }
    return result;
}

size_t LogCapture::Count(const std::string& tag, const std::string& text) const {
    size_t count = 0;
    for (const auto& line : Lines(tag)) {
        if (line.message.find(text) != std::string::npos) {
            ++count;
        }
    }
    return count;
}

bool LogCapture::Has(int priority, const std::string& tag, const std::string& message) const {
    for (const auto& line : Lines(tag)) {
        if (line.priority == priority && line.message == message) {
            return true;
        }
    }
    return false;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mLock);
    mLines.clear();
}

}  // namespace vircam_test
