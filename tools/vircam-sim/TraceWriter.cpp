// Copyright (C) 2026 The libvircam Authors

#include "TraceWriter.h"

#include <fstream>

namespace vircam_sim {

namespace {

constexpr int kPid = 1;

}  // namespace

int TraceWriter::TrackId(const std::string& track) {
    const auto found = mTracks.find(track);
    if (found != mTracks.end()) {
        return found->second;
    }
    const int id = static_cast<int>(mTracks.size()) + 1;
    mTracks.emplace(track, id);
    Json::Value name(Json::objectValue);
    name["ph"] = "M";
    name["name"] = "thread_name";
    name["pid"] = kPid;
    name["tid"] = id;
    name["args"]["name"] = track;
    mEvents.push_back(name);
    // Tracks keep the order in which they first appeared.
    Json::Value order = name;
    order["name"] = "thread_sort_index";
    order["args"] = Json::Value(Json::objectValue);
    order["args"]["sort_index"] = id;
    mEvents.push_back(order);
    return id;
}

void TraceWriter::Push(Json::Value event) {
    event["pid"] = kPid;
    mEvents.push_back(std::move(event));
}

void TraceWriter::Complete(const std::string& track, const std::string& name, int64_t startUs,
                           int64_t endUs, const Json::Value& args) {
    if (!mEnabled) {
        return;
    }
    std::lock_guard<std::mutex> lock(mLock);
    Json::Value event(Json::objectValue);
    event["ph"] = "X";
    event["name"] = name;
    event["tid"] = TrackId(track);
    event["ts"] = Json::Int64(startUs);
    event["dur"] = Json::Int64(endUs > startUs ? endUs - startUs : 0);
    if (!args.isNull()) {
        event["args"] = args;
    }
    Push(std::move(event));
}

void TraceWriter::Instant(const std::string& track, const std::string& name, int64_t atUs) {
    if (!mEnabled) {
        return;
    }
    std::lock_guard<std::mutex> lock(mLock);
    Json::Value event(Json::objectValue);
    event["ph"] = "i";
    event["s"] = "t";
    event["name"] = name;
    event["tid"] = TrackId(track);
    event["ts"] = Json::Int64(atUs);
    Push(std::move(event));
}

void TraceWriter::Begin(const std::string& key, const std::string& track, const std::string& name,
                        int64_t atUs) {
    if (!mEnabled) {
        return;
    }
    std::lock_guard<std::mutex> lock(mLock);
    mOpen[key] = OpenSpan{track, name, atUs};
}

void TraceWriter::End(const std::string& key, int64_t atUs, const Json::Value& args) {
    if (!mEnabled) {
        return;
    }
    OpenSpan span;
    {
        std::lock_guard<std::mutex> lock(mLock);
        const auto found = mOpen.find(key);
        if (found == mOpen.end()) {
            return;
        }
        span = found->second;
        mOpen.erase(found);
    }
    Complete(span.track, span.name, span.startUs, atUs, args);
}

void TraceWriter::EndAll(int64_t atUs) {
    std::vector<std::string> keys;
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (const auto& [key, span] : mOpen) {
            keys.push_back(key);
        }
    }
    Json::Value args(Json::objectValue);
    args["outcome"] = "no answer before the run ended";
    for (const auto& key : keys) {
        End(key, atUs, args);
    }
}

bool TraceWriter::WriteTo(const std::string& path) {
    Json::Value root(Json::objectValue);
    root["displayTimeUnit"] = "ms";
    Json::Value& events = root["traceEvents"] = Json::Value(Json::arrayValue);
    {
        std::lock_guard<std::mutex> lock(mLock);
        for (const auto& event : mEvents) {
            events.append(event);
        }
    }
    std::ofstream out(path);
    if (!out) {
        return false;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    out << Json::writeString(builder, root) << '\n';
    return static_cast<bool>(out);
}

}  // namespace vircam_sim
