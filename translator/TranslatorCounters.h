// Copyright (C) 2026 The libvircam Authors

// What the translator has handled since the process started, for `lshal
// debug`. The frame path only adds: relaxed atomics, no lock, no ordering.
#pragma once

#include <atomic>
#include <cstdint>

namespace pelcamera {

// Each on a cache line of its own: the capture path and the image path bump
// theirs on different threads, usually on different cores, every frame.
class alignas(64) TranslatorCounter {
public:
    // Any thread; lock-free.
    void Add() { mValue.fetch_add(1, std::memory_order_relaxed); }
    uint64_t Get() const { return mValue.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> mValue{0};
};

struct TranslatorCounters {
    TranslatorCounter captureForwarded;   // accepted by the channel service
    TranslatorCounter captureRefused;     // not virtual, empty, or refused by the channel
    TranslatorCounter metaRequests;       // every metadata request, forwarded or not
    TranslatorCounter imagesDelivered;    // one per pipeline callback that took an image
    TranslatorCounter deliveryFailures;   // no callback, or a callback's transport failed
    TranslatorCounter flushes;            // the pipeline's Flush
    TranslatorCounter switchBackFlushes;  // the flush of a switch back to the sensor
};

}  // namespace pelcamera
