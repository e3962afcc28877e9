// Copyright (C) 2026 The libvircam Authors

// Camera status, pipeline callbacks, the stream backup, switching, flushing
// and the system property of the translator.
#include "translator/CVirtualSwitchCameraTranslator.h"

#include <cutils/properties.h>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/TranslatorLocks.h"
#include "utils/NoDestructor.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {

constexpr const char* kVirCamProperty = "vendor.vorsk_vircam_info";
constexpr uint32_t kFlushOccurredCmd = 2;
constexpr uint32_t kPhysicalCameraTarget = static_cast<uint32_t>(-1);

// Named by the unit for the pipeline's and the translator's ends of a
// session; nothing reads them.
[[maybe_unused]] constexpr const char* kCameraHalName = "C_CameraHal_";
[[maybe_unused]] constexpr const char* kTranslatorName = "W_Translator";

}  // namespace

VIRCAM_NO_DESTROY std::mutex g_requestMutex;
VIRCAM_NO_DESTROY std::mutex g_bufferMutex;
VIRCAM_NO_DESTROY std::mutex g_bufferCacheMutex;
VIRCAM_NO_DESTROY std::mutex g_metaMutex;
VIRCAM_NO_DESTROY std::mutex g_flushStateMutex;
VIRCAM_NO_DESTROY std::mutex g_callbackMutex;
VIRCAM_NO_DESTROY std::mutex g_configStreamMutex;

// Never destroyed: the pipeline's threads and the channel service reach it
// until the process has ended.
CVirtualSwitchCameraTranslator* CVirtualSwitchCameraTranslator::GetInstance() {
    static NoDestructor<CVirtualSwitchCameraTranslator> translator;
    return translator.get();
}

CVirtualSwitchCameraTranslator::CVirtualSwitchCameraTranslator()
    : m_camStatus(std::make_shared<VirCameraStatus>()) {
    VIRCAM_LOGI(kTranslatorLog, "%s: CVirtualSwitchCameraTranslator Construct");
}

void CVirtualSwitchCameraTranslator::SetHalInitStatus() {
    VirCameraChannelForStreamChange* channel = m_channel;
    if (channel == nullptr) {
        VIRCAM_LOGE(kTranslatorLog, "%s: the virtual channel is not inited");
        return;
    }
    channel->SetHalInitStatus();
}

void CVirtualSwitchCameraTranslator::SetTransCallback(
    const ::android::sp<TranslatorCallback>& callback, int32_t camRearOrFront) {
    std::lock_guard<std::mutex> lock(g_callbackMutex);
    VIRCAM_LOGI(kTranslatorLog,
                "%s: set trans callback m_cbTranslatorCallback.size is %d and camRearOrFront is %d",
                static_cast<int32_t>(m_cbTranslatorCallback.size()), camRearOrFront);
    // The first callback of a key stays; a second registration is dropped.
    m_cbTranslatorCallback.emplace(camRearOrFront, callback);
    VIRCAM_LOGE(kTranslatorLog, "%s: register trans callback success");
}

void CVirtualSwitchCameraTranslator::DelTransCallback(int32_t camRearOrFront) {
    std::lock_guard<std::mutex> lock(g_callbackMutex);
    m_cbTranslatorCallback.erase(camRearOrFront);
    VIRCAM_LOGE(kTranslatorLog, "%s: delete trans callback success");
}

bool CVirtualSwitchCameraTranslator::CheckTranslatorCallback() {
    std::lock_guard<std::mutex> lock(g_callbackMutex);
    return !m_cbTranslatorCallback.empty();
}

int32_t CVirtualSwitchCameraTranslator::BackupPhyConfigStreams(const VirStreamVec& streams) {
    {
        std::lock_guard<std::mutex> lock(g_configStreamMutex);
        m_phyConfigStreams = streams;
        PublishConfigStreamsLocked();
        VIRCAM_LOGI(kTranslatorLog,
                    "%s: backup config stream success, update config streams with size %d",
                    static_cast<int32_t>(m_phyConfigStreams.size()));
    }
    UpdateConfigureStreams();
    return 0;
}

// The lock is released before the caller reads the vector, as the interface
// has it; the switch-on sequence reads the published snapshot instead, which
// a reconfiguration or Close cannot change under it.
const CVirtualSwitchCameraTranslator::VirStreamVec&
CVirtualSwitchCameraTranslator::GetCachedConfigStreams() {
    std::lock_guard<std::mutex> lock(g_configStreamMutex);
    return m_phyConfigStreams;
}

std::shared_ptr<const CVirtualSwitchCameraTranslator::VirStreamVec>
CVirtualSwitchCameraTranslator::ConfigStreamsSnapshot() const {
    std::lock_guard<std::mutex> lock(m_snapshotMutex);
    return m_configStreamsSnapshot;
}

// Caller holds g_configStreamMutex, so snapshots are published in the order
// the backup changes.
void CVirtualSwitchCameraTranslator::PublishConfigStreamsLocked() {
    auto snapshot = m_phyConfigStreams.size() == 0
                        ? nullptr
                        : std::make_shared<const VirStreamVec>(m_phyConfigStreams);
    std::lock_guard<std::mutex> lock(m_snapshotMutex);
    m_configStreamsSnapshot = std::move(snapshot);
}

int32_t CVirtualSwitchCameraTranslator::UpdateConfigureStreams() {
    VirCameraChannelForStreamChange* channel = m_channel;
    if (channel == nullptr) {
        VIRCAM_LOGE(kTranslatorLog, "%s: m_channel is null, can not config stream");
        return 0;
    }
    const VirCameraStatus status = GetCamStatus();
    if (status.camMode != VIRTUAL) {
        VIRCAM_LOGE(kTranslatorLog, "%s: current not on virtual mode, can not config stream");
        return 0;
    }
    std::lock_guard<std::mutex> lock(g_configStreamMutex);
    if (channel->ConfigureStreams(status.camId, m_phyConfigStreams) != 0) {
        VIRCAM_LOGE(kTranslatorLog, "%s: send camera config stream to virtual camera failed");
        return -1;
    }
    VIRCAM_LOGI(kTranslatorLog, "%s: send camera config stream to virtual camera success");
    return 0;
}

bool CVirtualSwitchCameraTranslator::IsVirtualStatus() const {
    return GetCamStatus().camMode == VIRTUAL;
}

bool CVirtualSwitchCameraTranslator::IsFlushing() {
    std::lock_guard<std::mutex> lock(g_flushStateMutex);
    return m_isFlushing;
}

VirCameraStatus CVirtualSwitchCameraTranslator::GetCamStatus() const {
    std::lock_guard<std::mutex> lock(m_statusMutex);
    return *m_camStatus;
}

void CVirtualSwitchCameraTranslator::SetStatus(int32_t camId, int32_t camMode) {
    std::lock_guard<std::mutex> lock(m_statusMutex);
    m_camStatus->camId = camId;
    m_camStatus->camMode = camMode;
}

void CVirtualSwitchCameraTranslator::RecordCameraMode(int32_t camId, SwitchType type) {
    std::lock_guard<std::mutex> lock(m_statusMutex);
    VirCameraStatus& status = *m_camStatus;
    const auto mismatch = [&] {
        kTranslatorLog.E("%s: switch for camera %d, switch type: %d not match current mode: %d",
                         "RecordCameraMode", camId, static_cast<int32_t>(type), status.camMode);
    };
    if (status.camMode == ON_SWITCHING) {
        VIRCAM_LOGE(kTranslatorLog, "%s: ON_SWITCHING mode in translator is invalid");
    } else if (status.camMode == VIRTUAL) {
        if (type == SwitchType::VIR_TO_PHY) {
            status = {-1, PHYSICAL};
        } else if (type == SwitchType::VIR_TO_VIR) {
            status.camId = camId;
        } else if (type == SwitchType::PHY_TO_VIR) {
            mismatch();
        }
    } else if (status.camMode == PHYSICAL) {
        if (type == SwitchType::VIR_TO_VIR || type == SwitchType::VIR_TO_PHY) {
            mismatch();
        } else if (type == SwitchType::PHY_TO_VIR) {
            status = {camId, VIRTUAL};
        }
    }
    kTranslatorLog.I("set translator camera status Id:%d Mode:%d", status.camId, status.camMode);
}

bool CVirtualSwitchCameraTranslator::ValidSwitchCameraParam(uint32_t virCamId) {
    const auto signedId = static_cast<int32_t>(virCamId);
    if (signedId < 1) {
        VIRCAM_LOGE(kTranslatorLog,
                    "%s: vir cam id is invalid, must be -1 or more than 0, virCamId: %d", signedId);
        return false;
    }
    if (signedId == GetCamStatus().camId) {
        VIRCAM_LOGE(kTranslatorLog,
                    "%s: the target vir camera id same to the current vir cam id, vir cam id: %d, "
                    "CAN NOT switch",
                    signedId);
        return false;
    }
    return true;
}

// A switch to a virtual camera only records it; the way back always flushes.
int32_t CVirtualSwitchCameraTranslator::TriggerSwitchCamera(uint32_t virCamId, int32_t /*unused*/) {
    if (virCamId == kPhysicalCameraTarget) {
        if (!IsVirtualStatus()) {
            kTranslatorLog.W(
                "%s: the camera status is not on VIRTUAL mode, can not switch to physical camera",
                "ValidSwitchCameraParam");
            VIRCAM_LOGE(kTranslatorLog, "%s: the switch cmd not match current status");
            return -1;
        }
        FlushAndSetToPhyMode(static_cast<int32_t>(virCamId));
        return 0;
    }
    if (!ValidSwitchCameraParam(virCamId)) {
        VIRCAM_LOGE(kTranslatorLog, "%s: the switch cmd not match current status");
        return -1;
    }
    const SwitchType type =
        GetCamStatus().camMode == PHYSICAL ? SwitchType::PHY_TO_VIR : SwitchType::VIR_TO_VIR;
    RecordCameraMode(static_cast<int32_t>(virCamId), type);
    return 0;
}

int32_t CVirtualSwitchCameraTranslator::FlushAndSetToPhyMode(int32_t /*virCamId*/) {
    VIRCAM_LOGI(kTranslatorLog, "%s: enter.");
    m_counters.switchBackFlushes.Add();
    {
        std::lock_guard<std::mutex> lock(g_flushStateMutex);
        m_isFlushing = true;
    }
    bool notify = false;
    {
        // Waits for a capture request in progress and keeps new ones out.
        std::lock_guard<std::mutex> request(g_requestMutex);
        if (flushEventStatus) {
            VIRCAM_LOGE(kTranslatorLog, "%s: flushEventStatus:%d", 1);
        } else {
            VIRCAM_LOGI(kTranslatorLog, "%s: clear all requests");
            VirCameraChannelForStreamChange* channel = m_channel;
            if (channel != nullptr) {
                channel->Flush(GetCamStatus().camId);
            }
            notify = true;
        }
        SetStatus(-1, PHYSICAL);
    }
    if (notify) {
        NotifyFlushToPipeline();
        flushEventStatus = true;
        VIRCAM_LOGI(kTranslatorLog, "%s: FlushAndRecord success flushEventStatus");
    }
    std::lock_guard<std::mutex> lock(g_flushStateMutex);
    m_isFlushing = false;
    return 0;
}

void CVirtualSwitchCameraTranslator::NotifyFlushToPipeline() {
    std::lock_guard<std::mutex> lock(g_callbackMutex);
    for (const auto& [key, callback] : m_cbTranslatorCallback) {
        if (callback == nullptr) {
            continue;
        }
        // The pipeline's answer does not change the flush; only the transport is checked.
        callback->NotifyCommonCmd(kFlushOccurredCmd, " ").isOk();
        kTranslatorLog.I("%s: the flush Occurred cmd to hal", "FlushAndSetToPhyMode");
    }
}

int32_t CVirtualSwitchCameraTranslator::Flush() {
    VIRCAM_LOGI(kTranslatorLog, "%s: flush enter.");
    m_counters.flushes.Add();
    std::lock_guard<std::mutex> request(g_requestMutex);
    VIRCAM_LOGI(kTranslatorLog, "%s: clear all requests");
    {
        std::lock_guard<std::mutex> lock(g_flushStateMutex);
        m_isFlushing = true;
    }
    int32_t result = -1;
    VirCameraChannelForStreamChange* channel = m_channel;
    if (channel == nullptr) {
        VIRCAM_LOGE(kTranslatorLog, "%s: the virtual channel is not inited, can not flush");
    } else if (channel->Flush(GetCamStatus().camId) == 0) {
        flushEventStatus = true;
        VIRCAM_LOGI(kTranslatorLog, "%s: flush success, flushEventStatus:%d", 1);
        result = 0;
    } else {
        VIRCAM_LOGE(kTranslatorLog, "%s: send flush cmd to channel failed");
    }
    std::lock_guard<std::mutex> lock(g_flushStateMutex);
    m_isFlushing = false;
    return result;
}

void CVirtualSwitchCameraTranslator::EnableProperity(const std::string& value) {
    if (value.empty()) {
        VIRCAM_LOGD(kTranslatorLog, "%s: strCamServiceID is null. [%s]", value.c_str());
        return;
    }
    property_set(kVirCamProperty, value.c_str());
    VIRCAM_LOGD(kTranslatorLog, "%s: set properity with value: [%s]", value.c_str());
}

void CVirtualSwitchCameraTranslator::DisableProperity() {
    property_set(kVirCamProperty, "0");
    VIRCAM_LOGD(kTranslatorLog, "%s: set properity with value: [%s]", "0");
}

}  // namespace pelcamera
