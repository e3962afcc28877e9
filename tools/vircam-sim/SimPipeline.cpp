// Copyright (C) 2026 The libvircam Authors

#include "SimPipeline.h"

#include "FramePattern.h"
#include "Names.h"
#include "SimClock.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_sim {

using CameraStatus = android::hardware::camera::common::V1_0::Status;
template <typename T>
using Return = android::hardware::Return<T>;

namespace {

constexpr uint32_t kVirtualStateQuery = 1;
constexpr int64_t kProgressEveryUs = int64_t{1000} * 1000;

}  // namespace

// The pipeline's end of the library's callbacks. It outlives the pipeline in
// the library's hands, so it forwards only while the pipeline is attached.
class PipelineCallback : public vircam::IVirCameraTranslatorCallback {
public:
    explicit PipelineCallback(SimPipeline* pipeline) : mPipeline(pipeline) {}

    void Detach() {
        std::lock_guard<std::mutex> lock(mLock);
        mPipeline = nullptr;
    }
    Return<CameraStatus> ProcessCaptureResult(const vircam::VirImageResult& result) override {
        std::lock_guard<std::mutex> lock(mLock);
        if (mPipeline != nullptr) {
            mPipeline->OnImage(result);
        }
        return CameraStatus::OK;
    }
    Return<void> reserved2() override { return android::hardware::Void(); }
    Return<CameraStatus> NotifyCommonCmd(uint32_t cmdId,
                                         const android::hardware::hidl_string&) override {
        std::lock_guard<std::mutex> lock(mLock);
        if (mPipeline != nullptr) {
            mPipeline->OnCommand(cmdId);
        }
        return CameraStatus::OK;
    }

private:
    std::mutex mLock;
    SimPipeline* mPipeline;
};

SimPipeline::SimPipeline(const PipelineConfig& config, Recorder& recorder)
    : mConfig(config),
      mRecorder(recorder),
      mCallback(new PipelineCallback(this)),
      mProcess(new android::hardware::RemoteProcess()),
      mProxy(new vircam::HostProxyVirCameraTranslatorCallback(mCallback, mProcess)) {}

SimPipeline::~SimPipeline() {
    StopStreaming();
    if (mHalReady.joinable()) {
        mHalReady.join();
    }
    mCallback->Detach();
}

std::string SimPipeline::StreamText(int32_t streamId) const {
    const StreamConfig& stream = mConfig.streams[static_cast<size_t>(streamId)];
    return Printf("%ux%u %s", stream.width, stream.height, FormatName(stream.format));
}

std::string SimPipeline::StreamTrack(int32_t streamId) const {
    return Printf("stream %d  %s", streamId, StreamText(streamId).c_str());
}

android::hardware::hidl_vec<vircam::VirStream> SimPipeline::Streams(std::string& list) const {
    android::hardware::hidl_vec<vircam::VirStream> streams(mConfig.streams.size());
    for (size_t i = 0; i < mConfig.streams.size(); ++i) {
        streams[i].streamId = static_cast<int32_t>(i);
        streams[i].width = mConfig.streams[i].width;
        streams[i].height = mConfig.streams[i].height;
        streams[i].format = mConfig.streams[i].format;
        list += (i == 0 ? "" : ", ") + StreamText(static_cast<int32_t>(i));
    }
    return streams;
}

bool SimPipeline::Reconfigure() {
    std::string list;
    const auto streams = Streams(list);
    Say("reconfigures its streams: " + list);
    const auto status = mTranslator->BackupPhyConfigStreams(mConfig.cameraId, streams);
    const bool ok = status.isOk() && status == CameraStatus::OK;
    Say(Printf("BackupPhyConfigStreams -> %s",
               status.isOk() ? StatusName(status) : status.description().c_str()));
    return ok;
}

bool SimPipeline::Flush() {
    Say("flushes on the app's request");
    const auto status = mTranslator->Flush(mConfig.cameraId);
    const bool ok = status.isOk() && status == CameraStatus::OK;
    Say(Printf("Flush -> %s", status.isOk() ? StatusName(status) : status.description().c_str()));
    return ok;
}

bool SimPipeline::Open() {
    mTranslator = CreateVirtualCameraTranslator();
    std::string list;
    const auto streams = Streams(list);
    mTranslator->BackupPhyConfigStreams(mConfig.cameraId, streams).isOk();
    mBuffers.resize(mConfig.streams.size());
    mBusy.resize(mConfig.streams.size());
    for (size_t s = 0; s < mConfig.streams.size(); ++s) {
        for (int i = 0; i < mConfig.buffersPerStream; ++i) {
            auto buffer = std::make_unique<SharedBuffer>(mConfig.bufferBytes);
            if (!buffer->valid()) {
                Say("cannot allocate a memfd buffer");
                return false;
            }
            mTranslator
                ->RegisterBuffer(mConfig.cameraId, s, BufferId(static_cast<int32_t>(s), i),
                                 buffer->handle())
                .isOk();
            mBuffers[s].push_back(std::move(buffer));
            mBusy[s].push_back(false);
        }
    }
    Say(Printf("opens camera %d: %s; %d memfd buffers per stream registered", mConfig.cameraId,
               list.c_str(), mConfig.buffersPerStream));
    if (mConfig.halReadyAfterMs == 0) {
        RegisterCallback();
    } else {
        Say(Printf("the HAL is still starting: its callback comes in %d ms",
                   mConfig.halReadyAfterMs));
        mHalReady = std::thread([this] {
            SleepFor(std::chrono::milliseconds(mConfig.halReadyAfterMs));
            RegisterCallback();
        });
    }
    return true;
}

void SimPipeline::RegisterCallback() {
    const auto status = mTranslator->RegisterCameraTranslatorCallback(mConfig.cameraId, mProxy);
    Say(Printf("HAL ready: RegisterCameraTranslatorCallback(%d) -> %s", mConfig.cameraId,
               status.isOk() ? StatusName(status) : status.description().c_str()));
}

void SimPipeline::Close() {
    StopStreaming();
    if (mHalReady.joinable()) {
        mHalReady.join();
    }
    if (mTranslator == nullptr) {
        return;
    }
    mTranslator->Close(mConfig.cameraId).isOk();
    mTranslator->UnregisterCameraTranslatorCallback(mConfig.cameraId).isOk();
    Say(Printf("closes camera %d and unregisters its callback", mConfig.cameraId));
}

bool SimPipeline::Virtual() {
    return mTranslator != nullptr &&
           mTranslator->RunCommonCmdTranslator(kVirtualStateQuery, "")
                   .withDefault(CameraStatus::INTERNAL_ERROR) == CameraStatus::OK;
}

void SimPipeline::StartStreaming() {
    if (mStreaming.exchange(true)) {
        return;
    }
    Say(Printf("streams at %.0f fps", mConfig.fps));
    mCapture = std::thread([this] { RunCapture(); });
}

void SimPipeline::StopStreaming() {
    if (mStreaming.exchange(false) && mCapture.joinable()) {
        mCapture.join();
    }
}

void SimPipeline::RunCapture() {
    const auto period =
        std::chrono::duration_cast<SimDuration>(std::chrono::duration<double>(1.0 / mConfig.fps));
    const int64_t start = NowUs();
    int64_t lastProgress = start;
    SimTime next = Now();
    while (mStreaming) {
        Tick(mNextFrame++);
        const int64_t now = NowUs();
        if (now - lastProgress >= kProgressEveryUs) {
            ReportProgress(now);
            lastProgress = now;
        }
        next += period;
        SleepUntil(next);
    }
    std::lock_guard<std::mutex> lock(mLock);
    mStreamingUs += NowUs() - start;
}

void SimPipeline::ReportProgress(int64_t nowUs) {
    FrameStats stats;
    size_t inFlight = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        stats = mStats;
        inFlight = mOutstanding.size();
    }
    const std::string text =
        Printf("frame %u: sent %lld, delivered %lld, in flight %zu, local %lld", mNextFrame,
               static_cast<long long>(stats.sent), static_cast<long long>(stats.delivered),
               inFlight, static_cast<long long>(stats.local));
    Say(text);
    mRecorder.Progress(Printf("%8.1f s  %s", static_cast<double>(nowUs) / 1e6, text.c_str()));
}

void SimPipeline::Tick(uint32_t frameNumber) {
    const bool isVirtual = Virtual();
    bool changed = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        ++mTicks;
        const int64_t now = NowUs();
        if (isVirtual && mWasVirtual && mLastTickUs > 0) {
            mVirtualUs += now - mLastTickUs;
        }
        mLastTickUs = now;
        changed = isVirtual != mWasVirtual;
        mWasVirtual = isVirtual;
        if (!isVirtual) {
            mStats.local += static_cast<int64_t>(mConfig.streams.size());
        }
    }
    if (changed) {
        Say(isVirtual ? Printf("frame %u on: the camera is virtual, requests go to the library",
                               frameNumber)
                      : Printf("frame %u on: the camera is physical, the local sensor serves",
                               frameNumber));
    }
    if (isVirtual) {
        SendToLibrary(frameNumber);
    }
}

int SimPipeline::TakeFreeBuffer(int32_t streamId) {
    auto& busy = mBusy[static_cast<size_t>(streamId)];
    for (size_t i = 0; i < busy.size(); ++i) {
        if (!busy[i]) {
            busy[i] = true;
            return static_cast<int>(i);
        }
    }
    return -1;
}

void SimPipeline::SendToLibrary(uint32_t frameNumber) {
    std::vector<vircam::VirImageBuffer> request;
    std::vector<FrameKey> keys;
    {
        std::lock_guard<std::mutex> lock(mLock);
        const int64_t now = NowUs();
        for (size_t s = 0; s < mConfig.streams.size(); ++s) {
            const auto streamId = static_cast<int32_t>(s);
            const int index = TakeFreeBuffer(streamId);
            if (index < 0) {
                ++mStats.skipped;
                continue;
            }
            SharedBuffer& buffer = *mBuffers[s][static_cast<size_t>(index)];
            WipeFrame(buffer.data(), buffer.size());
            mOutstanding[{frameNumber, streamId}] = Outstanding{index, now};
            vircam::VirImageBuffer element{};
            element.frameNumber = static_cast<int32_t>(frameNumber);
            element.streamId = streamId;
            element.bufferId = BufferId(streamId, index);
            request.push_back(element);
            keys.emplace_back(frameNumber, streamId);
        }
    }
    if (request.empty()) {
        return;
    }
    const auto status = mTranslator->ProcessCaptureRequest(mConfig.cameraId, request);
    if (!status.isOk() || status != CameraStatus::OK) {
        Refused(keys);
        return;
    }
    vircam::VirMetaRequest meta{};
    meta.frameNumber = static_cast<int32_t>(frameNumber);
    meta.settings = std::vector<uint8_t>{static_cast<uint8_t>(frameNumber), 0x01, 0x02};
    const bool metaOk = mTranslator->ProcessMetaRequest(mConfig.cameraId, meta)
                            .withDefault(CameraStatus::INTERNAL_ERROR) == CameraStatus::OK;
    std::lock_guard<std::mutex> lock(mLock);
    mStats.sent += static_cast<int64_t>(keys.size());
    ++mVirtualRequests;
    mStats.metaSent += metaOk ? 1 : 0;
}

void SimPipeline::Refused(const std::vector<FrameKey>& keys) {
    bool first = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        first = mStats.refused == 0;
        for (const auto& key : keys) {
            const auto found = mOutstanding.find(key);
            if (found == mOutstanding.end()) {
                continue;
            }
            mBusy[static_cast<size_t>(key.second)][static_cast<size_t>(found->second.bufferIndex)] =
                false;
            mOutstanding.erase(found);
            ++mStats.refused;
            mAbandoned.insert(key);
        }
        mResolved.notify_all();
    }
    if (first) {
        Say(Printf("frame %u refused by the library; the local sensor serves it", keys[0].first));
    }
}

void SimPipeline::OnImage(const vircam::VirImageResult& result) {
    const FrameKey key{result.frameNumber, result.streamId};
    std::lock_guard<std::mutex> lock(mLock);
    const auto found = mOutstanding.find(key);
    if (found == mOutstanding.end()) {
        ++(mAbandoned.erase(key) > 0 ? mStats.late : mStats.stray);
        return;
    }
    const Outstanding out = found->second;
    const SharedBuffer& buffer =
        *mBuffers[static_cast<size_t>(key.second)][static_cast<size_t>(out.bufferIndex)];
    const char* outcome = "delivered";
    if (result.bufferId != BufferId(key.second, out.bufferIndex)) {
        outcome = "corrupted: wrong buffer";
        ++mStats.corrupted;
    } else if (result.bufferStatus != 0) {
        outcome = "flushed by the remote";
        ++mStats.flushedByRemote;
    } else if (FrameMatches(buffer.data(), buffer.size(),
                            FrameStamp{result.frameNumber, result.streamId, result.bufferId})) {
        ++mStats.delivered;
    } else {
        outcome = "corrupted: wrong pattern";
        ++mStats.corrupted;
    }
    Resolve(key, out, outcome);
}

void SimPipeline::Resolve(const FrameKey& key, const Outstanding& out, const char* outcome) {
    mBusy[static_cast<size_t>(key.second)][static_cast<size_t>(out.bufferIndex)] = false;
    mOutstanding.erase(key);
    mResolved.notify_all();
    if (mRecorder.trace().Enabled()) {
        Json::Value args(Json::objectValue);
        args["outcome"] = outcome;
        mRecorder.trace().Complete(StreamTrack(key.second), Printf("frame %u", key.first),
                                   out.sentUs, NowUs(), args);
    }
}

// The flush that ends a virtual camera: what the remote has not returned by
// now it never will, so the pipeline returns those requests as errors itself.
void SimPipeline::OnCommand(uint32_t cmdId) {
    size_t abandoned = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        while (!mOutstanding.empty()) {
            const auto first = *mOutstanding.begin();
            ++mStats.flushedByPipeline;
            ++abandoned;
            mAbandoned.insert(first.first);
            Resolve(first.first, first.second, "flushed by the pipeline");
        }
    }
    Say(Printf("NotifyCommonCmd(%u): flush announced; %zu buffers still out, returned as errors",
               cmdId, abandoned));
    if (mConfig.flushNoticeDelayMs > 0) {
        Say(Printf("answers the flush notice %d ms later", mConfig.flushNoticeDelayMs));
        SleepFor(std::chrono::milliseconds(mConfig.flushNoticeDelayMs));
    }
}

bool SimPipeline::Drain(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    return WaitFor(mResolved, lock, timeout, [this] { return mOutstanding.empty(); });
}

FrameStats SimPipeline::Stats() {
    std::lock_guard<std::mutex> lock(mLock);
    FrameStats stats = mStats;
    stats.lost = static_cast<int64_t>(mOutstanding.size());
    return stats;
}

double SimPipeline::VirtualRequestRate() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mVirtualUs > 0
               ? static_cast<double>(mVirtualRequests) * 1e6 / static_cast<double>(mVirtualUs)
               : 0.0;
}

double SimPipeline::RequestRate() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mStreamingUs > 0 ? static_cast<double>(mTicks) * 1e6 / static_cast<double>(mStreamingUs)
                            : 0.0;
}

}  // namespace vircam_sim
