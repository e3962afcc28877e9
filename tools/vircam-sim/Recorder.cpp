// Copyright (C) 2026 The libvircam Authors

#include "Recorder.h"

#include <android/log.h>
#include <unistd.h>

#include <cstdarg>
#include <vector>

#include "SimClock.h"

namespace vircam_sim {

std::string Printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text;
    if (length > 0) {
        std::vector<char> buffer(static_cast<size_t>(length) + 1);
        vsnprintf(buffer.data(), buffer.size(), format, args);
        text.assign(buffer.data(), static_cast<size_t>(length));
    }
    va_end(args);
    return text;
}

void Recorder::Event(const std::string& actor, const std::string& text) {
    const int64_t now = NowUs();
    Line(now, actor, text);
    mTrace.Instant(actor, text, now);
}

void Recorder::LibraryLog(int priority, const char* tag, const char* message) {
    static constexpr char kLetters[] = "??VDIWEF";
    const char letter = priority >= 0 && priority < 8 ? kLetters[priority] : '?';
    Line(NowUs(), Printf("  %c %s", letter, tag ? tag : ""), message ? message : "");
}

void Recorder::Progress(const std::string& text) {
    if (isatty(STDERR_FILENO)) {
        std::lock_guard<std::mutex> lock(mLock);
        fprintf(stderr, "\r\033[K%s", text.c_str());
        fflush(stderr);
    }
}

void Recorder::Line(int64_t atUs, const std::string& actor, const std::string& text) {
    std::lock_guard<std::mutex> lock(mLock);
    fprintf(mOut, "%9.3f  %-10s %s\n", static_cast<double>(atUs) / 1e6, actor.c_str(),
            text.c_str());
    fflush(mOut);
}

}  // namespace vircam_sim
