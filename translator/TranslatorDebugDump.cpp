// Copyright (C) 2026 The libvircam Authors

// `lshal debug` on the translator channel: the translator's state, its
// pipeline callbacks, stream backup, buffer cache and counters.
#include <inttypes.h>

#include <map>
#include <vector>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "translator/TranslatorLocks.h"
#include "translator/VirCameraChannelForTranslator.h"
#include "utils/DebugDump.h"

namespace pelcamera {

namespace {

constexpr const char* kUsage =
    "usage: lshal debug <IVirCameraTranslator instance> [--history | --help]\n"
    "  (no option)  the translator's state and its counters since start\n"
    "  --history    the last 32 switch commands of the channel service\n"
    "  --help       this text\n";
constexpr const char* kUsageLine =
    "unknown option; usage: lshal debug <IVirCameraTranslator instance> [--history | --help]\n";

}  // namespace

std::string CVirtualSwitchCameraTranslator::DumpState(const DumpDeadline& deadline) const {
    std::string out = "translator\n";
    const VirCameraStatus status = GetCamStatus();
    AppendFormat(out, "status: camera id %d, mode %s\n", status.camId,
                 CameraModeName(status.camMode));
    VirCameraChannelForStreamChange* channel = LinkedChannel();
    if (deadline.TryLock(g_flushStateMutex)) {
        std::lock_guard<std::mutex> lock(g_flushStateMutex, std::adopt_lock);
        AppendFormat(out, "flushing: %s", m_isFlushing ? "yes" : "no");
    } else {
        out += "flushing: busy";
    }
    AppendFormat(out, ", flush done since the last request: %s\n", flushEventStatus ? "yes" : "no");
    AppendFormat(out, "channel service: %s\n", channel != nullptr ? "linked" : "not linked");
    DumpCallbacks(out, deadline);
    DumpStreamsAndBuffers(out, deadline);
    DumpCounters(out);
    return out;
}

// Held while an image or a flush goes to the pipeline.
void CVirtualSwitchCameraTranslator::DumpCallbacks(std::string& out,
                                                   const DumpDeadline& deadline) const {
    std::vector<std::pair<int32_t, bool>> callbacks;
    {
        if (!deadline.TryLock(g_callbackMutex)) {
            VirCameraChannelForStreamChange* channel = LinkedChannel();
            AppendFormat(out, "pipeline callbacks: %s\n",
                         channel != nullptr ? channel->BusyText().c_str()
                                            : "busy (held by a call in progress)");
            return;
        }
        std::lock_guard<std::mutex> lock(g_callbackMutex, std::adopt_lock);
        for (const auto& [cameraId, callback] : m_cbTranslatorCallback) {
            callbacks.emplace_back(cameraId, callback != nullptr);
        }
    }
    AppendFormat(out, "pipeline callbacks: %zu\n", callbacks.size());
    for (const auto& [cameraId, set] : callbacks) {
        AppendFormat(out, "  camera %d: %s\n", cameraId, set ? "registered" : "empty");
    }
}

// The backup is read from its published snapshot; the buffer cache is held
// through a close, which calls the remote.
void CVirtualSwitchCameraTranslator::DumpStreamsAndBuffers(std::string& out,
                                                           const DumpDeadline& deadline) const {
    const std::shared_ptr<const VirStreamVec> streams = ConfigStreamsSnapshot();
    AppendFormat(out, "backed-up streams: %zu\n", streams == nullptr ? size_t{0} : streams->size());
    if (streams != nullptr) {
        for (const auto& stream : *streams) {
            AppendFormat(out, "  stream %d: %ux%u, format %d\n", stream.streamId, stream.width,
                         stream.height, stream.format);
        }
    }
    std::map<int32_t, size_t> perStream;
    {
        if (!deadline.TryLock(g_bufferCacheMutex)) {
            VirCameraChannelForStreamChange* channel = LinkedChannel();
            AppendFormat(out, "cached buffers: %s\n",
                         channel != nullptr ? channel->BusyText().c_str()
                                            : "busy (held by a call in progress)");
            return;
        }
        std::lock_guard<std::mutex> lock(g_bufferCacheMutex, std::adopt_lock);
        for (const auto& entry : m_cachedBuffers) {
            ++perStream[entry.first.first];
        }
    }
    size_t total = 0;
    for (const auto& entry : perStream) {
        total += entry.second;
    }
    AppendFormat(out, "cached buffers: %zu\n", total);
    for (const auto& [streamId, count] : perStream) {
        AppendFormat(out, "  stream %d: %zu\n", streamId, count);
    }
}

void CVirtualSwitchCameraTranslator::DumpCounters(std::string& out) const {
    AppendFormat(out,
                 "since start: capture requests forwarded %" PRIu64 ", refused %" PRIu64
                 "; metadata requests %" PRIu64 "; images delivered %" PRIu64
                 ", delivery failures %" PRIu64 "; flushes %" PRIu64
                 ", switch-back flushes %" PRIu64 "\n",
                 m_counters.captureForwarded.Get(), m_counters.captureRefused.Get(),
                 m_counters.metaRequests.Get(), m_counters.imagesDelivered.Get(),
                 m_counters.deliveryFailures.Get(), m_counters.flushes.Get(),
                 m_counters.switchBackFlushes.Get());
}

VirCameraChannelForTranslator::Return<void> VirCameraChannelForTranslator::debug(
    const ::android::hardware::hidl_handle& fd, const hidl_vec<hidl_string>& options) {
    switch (ParseDebugOptions(options)) {
        case DebugRequest::EVERYTHING: {
            if (mCamTrans == nullptr) {
                WriteDebugText(fd, "translator: none\n");
                break;
            }
            const DumpDeadline deadline;
            WriteDebugText(fd, mCamTrans->DumpState(deadline));
            break;
        }
        case DebugRequest::HISTORY: {
            VirCameraChannelForStreamChange* channel =
                mCamTrans == nullptr ? nullptr : mCamTrans->LinkedChannel();
            WriteDebugText(fd, channel != nullptr ? channel->SwitchHistoryText()
                                                  : "switch history: no channel service linked\n");
            break;
        }
        case DebugRequest::HELP:
            WriteDebugText(fd, kUsage);
            break;
        case DebugRequest::UNKNOWN:
            WriteDebugText(fd, kUsageLine);
            break;
    }
    return ::android::hardware::Void();
}

}  // namespace pelcamera
