// Copyright (C) 2026 The libvircam Authors

// What a run leaves behind: the timeline on stdout, as it happens, and the
// trace for Perfetto / chrome://tracing. Every actor reports through here.
#pragma once

#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "TraceWriter.h"

namespace vircam_sim {

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

class Recorder {
public:
    explicit Recorder(FILE* out) : mOut(out) {}

    // One timeline line: seconds since start, who, what.
    void Event(const std::string& actor, const std::string& text);
    // A library log line, when --log asked for them.
    void LibraryLog(int priority, const char* tag, const char* message);
    void SetShowLibraryLog(bool show) { mShowLibraryLog = show; }
    bool ShowLibraryLog() const { return mShowLibraryLog; }
    // Long runs report how far they are on stderr, which a pipe may discard.
    void Progress(const std::string& text);

    TraceWriter& trace() { return mTrace; }

private:
    void Line(int64_t atUs, const std::string& actor, const std::string& text);

    FILE* mOut;
    std::mutex mLock;
    bool mShowLibraryLog = false;
    TraceWriter mTrace;
};

}  // namespace vircam_sim
