// Copyright (C) 2026 The libvircam Authors

// The camera HAL pipeline of the phone: opens its camera with a few streams,
// lends memfd-backed buffers to the library, and sends capture and metadata
// requests at its frame rate. While the camera is virtual every image that
// comes back is checked against the test pattern of its frame and buffer;
// while it is physical the local sensor serves the frames.
#pragma once

#include <hostproxy/HostProxyVirCameraTranslatorCallback.h>
#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraTranslator.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Recorder.h"
#include "Scenario.h"
#include "SharedBuffer.h"

namespace vircam_sim {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

class PipelineCallback;

// Buffers of a run, by what became of them. Every buffer the library accepts
// ends up delivered, corrupted, flushed or lost.
struct FrameStats {
    int64_t sent = 0;               // accepted by the library for the remote
    int64_t delivered = 0;          // came back painted right
    int64_t corrupted = 0;          // came back with the wrong pattern or buffer
    int64_t flushedByRemote = 0;    // returned with an error status by a flush
    int64_t flushedByPipeline = 0;  // given up at the flush notice
    int64_t lost = 0;               // never came back
    int64_t refused = 0;            // the library said no; served by the local sensor
    int64_t skipped = 0;            // no free buffer at the frame's time
    int64_t late = 0;               // came back after being given up or refused
    int64_t stray = 0;              // an image for no outstanding buffer
    int64_t local = 0;              // served by the local sensor while physical
    int64_t metaSent = 0;
};

class SimPipeline {
public:
    SimPipeline(const PipelineConfig& config, Recorder& recorder);
    ~SimPipeline();
    SimPipeline(const SimPipeline&) = delete;
    SimPipeline& operator=(const SimPipeline&) = delete;

    // Streams backed up, buffers registered, translator callback registered
    // (at once, or after halReadyAfterMs).
    bool Open();
    void StartStreaming();
    void StopStreaming();
    // Waits until no buffer is out with the remote.
    bool Drain(std::chrono::milliseconds timeout);
    // The camera closes: Close, then the callback goes.
    void Close();
    // Configures the same streams again, as a HAL does when the app
    // reconfigures; while virtual the library passes them to the remote.
    // Runner thread (or a thread of its own), no lock of the pipeline's; true
    // when the library says OK.
    bool Reconfigure();
    // An app's flush. Runner thread, no lock of the pipeline's; true when the
    // library says OK.
    bool Flush();

    bool Virtual();
    FrameStats Stats();  // counts what is still out as lost
    size_t DeathLinks() const { return mProcess->liveRecipients(); }
    double RequestRate() const;
    // Capture requests per second that went to the library while virtual.
    double VirtualRequestRate() const;

    void OnImage(const vircam::VirImageResult& result);
    void OnCommand(uint32_t cmdId);

private:
    struct Outstanding {
        int bufferIndex;
        int64_t sentUs;
    };
    using FrameKey = std::pair<uint32_t, int32_t>;  // frame number, stream id

    void RegisterCallback();
    // The configured streams, and their description in `list`. Any thread;
    // reads only the configuration.
    android::hardware::hidl_vec<vircam::VirStream> Streams(std::string& list) const;
    void RunCapture();
    void Tick(uint32_t frameNumber);
    void SendToLibrary(uint32_t frameNumber);
    void Refused(const std::vector<FrameKey>& keys);
    int TakeFreeBuffer(int32_t streamId);  // caller holds mLock
    void Resolve(const FrameKey& key, const Outstanding& out, const char* outcome);
    void ReportProgress(int64_t nowUs);
    std::string StreamText(int32_t streamId) const;
    std::string StreamTrack(int32_t streamId) const;
    static uint64_t BufferId(int32_t streamId, int index) { return streamId * 1000ull + index; }
    void Say(const std::string& text) { mRecorder.Event("pipeline", text); }

    const PipelineConfig mConfig;
    Recorder& mRecorder;
    android::sp<vircam::IVirCameraTranslator> mTranslator;
    android::sp<PipelineCallback> mCallback;
    android::sp<android::hardware::RemoteProcess> mProcess;
    android::sp<vircam::HostProxyVirCameraTranslatorCallback> mProxy;
    std::thread mHalReady;

    mutable std::mutex mLock;
    std::condition_variable mResolved;
    std::vector<std::vector<std::unique_ptr<SharedBuffer>>> mBuffers;
    std::vector<std::vector<bool>> mBusy;
    std::map<FrameKey, Outstanding> mOutstanding;
    // Given up at a flush notice, or refused by the library: a remote whose
    // flush failed, or that died after taking a request but before its
    // reply, may still return them, and a HAL drops such a late result.
    std::set<FrameKey> mAbandoned;
    FrameStats mStats;
    bool mWasVirtual = false;
    int64_t mStreamingUs = 0;
    int64_t mTicks = 0;
    int64_t mLastTickUs = 0;
    int64_t mVirtualUs = 0;
    int64_t mVirtualRequests = 0;

    std::atomic<bool> mStreaming{false};
    std::thread mCapture;
    uint32_t mNextFrame = 0;
};

}  // namespace vircam_sim
