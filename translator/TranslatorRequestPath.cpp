// Copyright (C) 2026 The libvircam Authors

// The pipeline's buffers and requests while the camera is virtual, and the
// finished images on their way back.
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "translator/TranslatorLocks.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

int32_t CVirtualSwitchCameraTranslator::RegisterBuffer(
    uint64_t streamId, uint64_t bufferId, const ::android::hardware::hidl_handle& buffer) {
    const native_handle_t* handle = buffer.getNativeHandle();
    std::lock_guard<std::mutex> registration(g_bufferMutex);
    std::lock_guard<std::mutex> cache(g_bufferCacheMutex);
    VIRCAM_LOGI(kTranslatorLog,
                "%s: register buffer, streamid: %lu, bufferid: %lu, buffer status: %d",
                static_cast<unsigned long>(streamId), static_cast<unsigned long>(bufferId),
                handle != nullptr ? 1 : 0);
    // Stream ids are int32 on the wire of the requests: cut to the low 32 bits.
    const auto key = std::make_pair(static_cast<int32_t>(streamId), bufferId);
    auto it = m_cachedBuffers.find(key);
    if (it != m_cachedBuffers.end()) {
        // An empty re-registration never erases a cached handle.
        if (handle != nullptr) {
            it->second->handle = handle;
            VIRCAM_LOGI(kTranslatorLog, "%s: the buffer saved and update, update it");
        }
        return 0;
    }
    VIRCAM_LOGI(kTranslatorLog, "%s: the buffer not saved, saved new one");
    auto entry = std::make_shared<VirtualImageBuffer>();
    entry->index = static_cast<int32_t>(m_cachedBuffers.size());
    entry->streamId = key.first;
    entry->bufferId = bufferId;
    entry->handle = handle;
    m_cachedBuffers.emplace(key, std::move(entry));
    return 0;
}

// The channel service while the camera is virtual; null, after logging why,
// when requests have nowhere to go.
VirCameraChannelForStreamChange* CVirtualSwitchCameraTranslator::VirtualChannel(
    const char* caller, VirCameraStatus& status) {
    VirCameraChannelForStreamChange* channel = m_channel;
    if (channel == nullptr) {
        kTranslatorLog.E("%s: the virtual channel is not inited", caller);
        return nullptr;
    }
    status = GetCamStatus();
    if (status.camMode != VIRTUAL) {
        kTranslatorLog.W("%s: current not using virtual camera", caller);
        return nullptr;
    }
    return channel;
}

int32_t CVirtualSwitchCameraTranslator::ProcessCaptureRequest(const VirImageBufferVec& request) {
    std::lock_guard<std::mutex> lock(g_requestMutex);
    VirCameraStatus status;
    VirCameraChannelForStreamChange* channel = VirtualChannel(__func__, status);
    if (channel == nullptr) {
        m_counters.captureRefused.Add();
        return -1;
    }
    if (request.size() == 0) {
        VIRCAM_LOGE(kTranslatorLog, "%s: image capture hidlRequest is emtpy");
        m_counters.captureRefused.Add();
        return -1;
    }
    VirImageBufferVec copy = BorrowingCopy(request);
    FillCachedHandles(copy);
    flushEventStatus = false;
    if (channel->ProcessCaptureRequest(status.camId, copy) != 0) {
        VIRCAM_LOGE(kTranslatorLog, "%s: send capture request to channel failed, frameNumber: %d",
                    request[0].frameNumber);
        m_counters.captureRefused.Add();
        return -1;
    }
    m_counters.captureForwarded.Add();
    return 0;
}

// Copying a hidl_handle duplicates its file descriptors; the copy sent on
// borrows every handle instead, so a frame never opens or closes one.
CVirtualSwitchCameraTranslator::VirImageBufferVec CVirtualSwitchCameraTranslator::BorrowingCopy(
    const VirImageBufferVec& request) {
    VirImageBufferVec copy(request.size());
    for (size_t i = 0; i < request.size(); ++i) {
        copy[i].frameNumber = request[i].frameNumber;
        copy[i].streamId = request[i].streamId;
        copy[i].bufferId = request[i].bufferId;
        copy[i].buffer = request[i].buffer.getNativeHandle();
    }
    return copy;
}

// Elements that already carry a handle, or whose buffer was never registered,
// go on as they are. Cached handles are lent, never duplicated.
void CVirtualSwitchCameraTranslator::FillCachedHandles(VirImageBufferVec& request) {
    std::lock_guard<std::mutex> cache(g_bufferCacheMutex);
    for (auto& element : request) {
        auto it = m_cachedBuffers.find(std::make_pair(element.streamId, element.bufferId));
        if (it == m_cachedBuffers.end() || element.buffer.getNativeHandle() != nullptr) {
            kTranslatorLog.W(
                "%s: find one req with no cached buffer, stream id: %d, buffer id: %lu",
                "ProcessCaptureRequest", element.streamId,
                static_cast<unsigned long>(element.bufferId));
            continue;
        }
        element.buffer = it->second->handle;
        kTranslatorLog.I(
            "%s: find one req item with buffer, set it, frameNumber: %d, streamId: %d, bufferId: "
            "%lu",
            "ProcessCaptureRequest", element.frameNumber, element.streamId,
            static_cast<unsigned long>(element.bufferId));
    }
}

int32_t CVirtualSwitchCameraTranslator::ProcessMetaRequest(const VirMetaRequest& request) {
    std::lock_guard<std::mutex> lock(g_metaMutex);
    m_counters.metaRequests.Add();
    VirCameraStatus status;
    VirCameraChannelForStreamChange* channel = VirtualChannel(__func__, status);
    if (channel == nullptr) {
        return -1;
    }
    if (channel->ProcessMetaRequest(status.camId, request) != 0) {
        VIRCAM_LOGE(kTranslatorLog, "%s: send meta request to channel failed, frameNumber: %d",
                    request.frameNumber);
        return -1;
    }
    return 0;
}

int32_t CVirtualSwitchCameraTranslator::OnImageBufferDone(const VirImageResult& result,
                                                          int32_t unused) {
    onTranslatorImageBufferDone(result, unused);
    return 0;
}

// Every callback gets every image: results are not routed by camera.
void CVirtualSwitchCameraTranslator::onTranslatorImageBufferDone(const VirImageResult& result,
                                                                 int32_t /*unused*/) {
    std::lock_guard<std::mutex> lock(g_callbackMutex);
    if (m_cbTranslatorCallback.empty()) {
        VIRCAM_LOGE(kTranslatorLog, "%s: callback null");
        m_counters.deliveryFailures.Add();
        return;
    }
    for (const auto& [key, callback] : m_cbTranslatorCallback) {
        if (callback == nullptr) {
            continue;
        }
        if (callback->ProcessCaptureResult(result).isOk()) {
            m_counters.imagesDelivered.Add();
        } else {
            VIRCAM_LOGE(kTranslatorLog, "%s: run func failed");
            m_counters.deliveryFailures.Add();
        }
        VIRCAM_LOGD(kTranslatorLog, "%s: send to chi callback, %u %zu %d %zu %u %d",
                    result.frameNumber, static_cast<size_t>(result.bufferId), result.streamId,
                    static_cast<size_t>(result.timestamp), static_cast<unsigned>(result.lastImage),
                    result.bufferStatus);
    }
}

// Whatever the channel service answers, the translator ends on the physical
// camera with no cached buffers and no stream backup.
int32_t CVirtualSwitchCameraTranslator::Close(
    int32_t /*cameraId*/, std::shared_ptr<HidlCallbackMgrTranslator>& /*callbackMgr*/) {
    VIRCAM_LOGI(kTranslatorLog, "%s: close enter.");
    std::lock_guard<std::mutex> lock(g_bufferMutex);
    {
        std::lock_guard<std::mutex> cache(g_bufferCacheMutex);
        m_cachedBuffers.clear();
    }
    {
        std::lock_guard<std::mutex> streams(g_configStreamMutex);
        m_phyConfigStreams = VirStreamVec();
        PublishConfigStreamsLocked();
    }
    VIRCAM_LOGI(kTranslatorLog, "%s: close virtual camera channel.");
    int32_t result = -1;
    VirCameraChannelForStreamChange* channel = m_channel;
    if (channel == nullptr) {
        VIRCAM_LOGE(kTranslatorLog, "%s: the virtual channel is not inited, can not close");
    } else if (channel->Close(GetCamStatus().camId) == 0) {
        VIRCAM_LOGI(kTranslatorLog, "%s: close success");
        result = 0;
    } else {
        VIRCAM_LOGE(kTranslatorLog, "%s: send close cmd to channel failed");
    }
    SetStatus(-1, PHYSICAL);
    return result;
}

size_t CVirtualSwitchCameraTranslator::CachedBufferCount() const {
    std::lock_guard<std::mutex> lock(g_bufferCacheMutex);
    return m_cachedBuffers.size();
}

const native_handle_t* CVirtualSwitchCameraTranslator::CachedHandle(int32_t streamId,
                                                                    uint64_t bufferId) const {
    std::lock_guard<std::mutex> lock(g_bufferCacheMutex);
    auto it = m_cachedBuffers.find(std::make_pair(streamId, bufferId));
    return it == m_cachedBuffers.end() ? nullptr : it->second->handle;
}

}  // namespace pelcamera
