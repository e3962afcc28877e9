// Copyright (C) 2026 The libvircam Authors

// Chrome trace-event JSON (the format Perfetto and chrome://tracing open):
// one track per actor and per frame stream, a span per switch step, remote
// call and frame. Collection costs nothing until Enable() is called.
#pragma once

#include <json/json.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace vircam_sim {

class TraceWriter {
public:
    void Enable() { mEnabled = true; }
    bool Enabled() const { return mEnabled; }

    // A span whose start and end are both known.
    void Complete(const std::string& track, const std::string& name, int64_t startUs, int64_t endUs,
                  const Json::Value& args = Json::Value());
    void Instant(const std::string& track, const std::string& name, int64_t atUs);
    // A span that one thread opens and another closes (a call and its
    // asynchronous result). Closing an unknown key does nothing.
    void Begin(const std::string& key, const std::string& track, const std::string& name,
               int64_t atUs);
    void End(const std::string& key, int64_t atUs, const Json::Value& args = Json::Value());
    // Spans still open when the run ends never got their answer: they end
    // here, marked as such.
    void EndAll(int64_t atUs);

    bool WriteTo(const std::string& path);

private:
    struct OpenSpan {
        std::string track;
        std::string name;
        int64_t startUs = 0;
    };
    int TrackId(const std::string& track);  // caller holds mLock
    void Push(Json::Value event);           // caller holds mLock

    std::atomic<bool> mEnabled{false};
    std::mutex mLock;
    std::map<std::string, int> mTracks;
    std::map<std::string, OpenSpan> mOpen;
    std::vector<Json::Value> mEvents;
};

}  // namespace vircam_sim
