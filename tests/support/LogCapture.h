// Copyright (C) 2026 The libvircam Authors

// Captures the lines that go to the Android log while it is alive, and still
// lets them through to stderr so a failing test shows its log.
#pragma once

#include <android/log.h>

#include <mutex>
#include <string>
#include <vector>

namespace vircam_test {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    std::vector<LogLine> Lines(const std::string& tag) const;
    // Lines of the tag whose message contains `text`.
    size_t Count(const std::string& tag, const std::string& text) const;
    bool Has(const std::string& tag, const std::string& text) const { return Count(tag, text) > 0; }
    bool Has(int priority, const std::string& tag, const std::string& message) const;
    void Clear();

private:
    static void Sink(const struct __android_logger_data* data, const char* message);

    mutable std::mutex mLock;
    std::vector<LogLine> mLines;
};

}  // namespace vircam_test
