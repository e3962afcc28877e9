// Copyright (C) 2026 The libvircam Authors

#include "translator/VirCameraChannelForTranslator.h"

#include "translator/CVirtualSwitchCameraTranslator.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {

constexpr const char* kTranslatorDeviceId = "W_Translator";
constexpr const char* kCameraHalServicePrefix = "C_CameraHal_";
constexpr uint32_t kCmdVirtualStatus = 1;
constexpr uint32_t kCmdFlushStatus = 2;

std::string CameraServiceId(int32_t cameraId) {
    return kCameraHalServicePrefix + std::to_string(cameraId);
}

}  // namespace

VirCameraChannelForTranslator::VirCameraChannelForTranslator()
    : mCamTrans(nullptr), mCallbackMgr(nullptr) {
    VIRCAM_LOGE(kChannelTranslatorLog, "%s: VirCameraChannelForTranslator construct()");
    mCamTrans = CVirtualSwitchCameraTranslator::GetInstance();
    mCallbackMgr = std::make_shared<HidlCallbackMgrTranslator>(this);
}

VirCameraChannelForTranslator::~VirCameraChannelForTranslator() {
    VIRCAM_LOGE(kChannelTranslatorLog, "%s: VirCameraChannelForTranslator deconstruct");
    mCallbackMgr.reset();
}

#define VIRCAM_REQUIRE_TRANSLATOR()                                 \
    if (mCamTrans == nullptr) {                                     \
        VIRCAM_LOGE(kChannelTranslatorLog, "%s mCamTrans is null"); \
        return CameraStatus::INTERNAL_ERROR;                        \
    }

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::ProcessCaptureRequest(int32_t /*cameraId*/,
                                                     const hidl_vec<VirImageBuffer>& buffers) {
    VIRCAM_REQUIRE_TRANSLATOR();
    return mCamTrans->ProcessCaptureRequest(buffers) == 0 ? CameraStatus::OK
                                                          : CameraStatus::INTERNAL_ERROR;
}

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::RegisterBuffer(int32_t /*cameraId*/, uint64_t streamId,
                                              uint64_t bufferId,
                                              const ::android::hardware::hidl_handle& buffer) {
    VIRCAM_REQUIRE_TRANSLATOR();
    mCamTrans->RegisterBuffer(streamId, bufferId, buffer);
    return CameraStatus::OK;
}

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::ProcessMetaRequest(int32_t /*cameraId*/,
                                                  const VirMetaRequest& request) {
    VIRCAM_REQUIRE_TRANSLATOR();
    return mCamTrans->ProcessMetaRequest(request) == 0 ? CameraStatus::OK
                                                       : CameraStatus::INTERNAL_ERROR;
}

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::BackupPhyConfigStreams(int32_t /*cameraId*/,
                                                      const hidl_vec<VirStream>& streams) {
    VIRCAM_REQUIRE_TRANSLATOR();
    mCamTrans->BackupPhyConfigStreams(streams);
    return CameraStatus::OK;
}

VirCameraChannelForTranslator::Return<void> VirCameraChannelForTranslator::RecordCameraMode(
    int32_t cameraId, SwitchType mode) {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s mCamTrans is null");
        return ::android::hardware::Void();
    }
    mCamTrans->RecordCameraMode(cameraId, mode);
    return ::android::hardware::Void();
}

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::Close(int32_t cameraId) {
    VIRCAM_REQUIRE_TRANSLATOR();
    VIRCAM_LOGI(kChannelTranslatorLog, "%s: translator get close msg");
    mCamTrans->Close(cameraId, mCallbackMgr);
    return CameraStatus::OK;
}

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::Flush(int32_t /*cameraId*/) {
    VIRCAM_REQUIRE_TRANSLATOR();
    VIRCAM_LOGI(kChannelTranslatorLog, "%s: translator get flush msg");
    mCamTrans->Flush();
    return CameraStatus::OK;
}

#undef VIRCAM_REQUIRE_TRANSLATOR

VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::RegisterCameraTranslatorCallback(
    int32_t cameraId, const ::android::sp<TranslatorCallback>& cb) {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s mCamTrans is null");
        return CameraStatus::INTERNAL_ERROR;
    }
    if (cb == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s callback is null");
        return CameraStatus::INTERNAL_ERROR;
    }
    // Same-type cast: no call into the pipeline's process.
    ::android::sp<TranslatorCallback> callback = TranslatorCallback::castFrom(cb);
    if (callback == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s: cast register IVirCameraChannelCallback failed");
        return CameraStatus::INTERNAL_ERROR;
    }
    VIRCAM_LOGI(kChannelTranslatorLog,
                "%s: translator get register callback msg and serviceID is %d", cameraId);
    mCamTrans->SetTransCallback(callback, cameraId);
    mCameraId = cameraId;
    if (mCallbackMgr != nullptr) {
        mCallbackMgr->AddCallback(kTranslatorDeviceId, CameraServiceId(cameraId), callback);
    }
    kChannelTranslatorLog.I("%s: hal init notify", "SetHalInitStatus");
    mCamTrans->SetHalInitStatus();
    return CameraStatus::OK;
}

// The translator forgets the callback of the given camera; the registry entry
// removed is the one of the camera registered last through this channel.
// With one camera per channel, the usual case, the two agree.
VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::UnregisterCameraTranslatorCallback(int32_t cameraId) {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s: mCamTrans null");
        return CameraStatus::INTERNAL_ERROR;
    }
    VIRCAM_LOGI(kChannelTranslatorLog, "%s: translator get unregister callback msg serviceID is %d",
                cameraId);
    mCamTrans->DelTransCallback(cameraId);
    if (mCallbackMgr != nullptr) {
        mCallbackMgr->DeleteCallback(kTranslatorDeviceId, CameraServiceId(mCameraId));
    }
    return CameraStatus::OK;
}

// Both answers travel in the status itself: OK means yes.
VirCameraChannelForTranslator::Return<VirCameraChannelForTranslator::CameraStatus>
VirCameraChannelForTranslator::RunCommonCmdTranslator(uint32_t cmdId, const hidl_string& value) {
    VIRCAM_LOGD(kChannelTranslatorLog, "%s get id %d value [%s]", static_cast<int32_t>(cmdId),
                value.c_str());
    if (cmdId == kCmdVirtualStatus) {
        return GetVirtualStatus();
    }
    if (cmdId == kCmdFlushStatus) {
        return GetFlushStatus();
    }
    return CameraStatus::OK;
}

VirCameraChannelForTranslator::CameraStatus VirCameraChannelForTranslator::GetVirtualStatus() {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s: mCamTrans null");
        return CameraStatus::INTERNAL_ERROR;
    }
    return mCamTrans->IsVirtualStatus() ? CameraStatus::OK : CameraStatus::INTERNAL_ERROR;
}

VirCameraChannelForTranslator::CameraStatus VirCameraChannelForTranslator::GetFlushStatus() {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kChannelTranslatorLog, "%s: mCamTrans null");
        return CameraStatus::INTERNAL_ERROR;
    }
    return mCamTrans->IsFlushing() ? CameraStatus::OK : CameraStatus::INTERNAL_ERROR;
}

// Only the last character of the service id names the camera: camera ids are
// single digits in practice, and CameraHal_12 means camera 2. A last character
// that is not a digit makes stoi throw and ends the process, deliberately
// kept: the id is the registry's own key, always built from
// "C_CameraHal_" and a number by this channel, never a peer's text.
void VirCameraChannelForTranslator::DoAfterTranslatorCallbackDead(const std::string& /*deviceId*/,
                                                                  const std::string& serviceId) {
    VIRCAM_LOGI(kChannelTranslatorLog, "%s: DoAfterTranslatorCallbackDead serviceId is %s!!!",
                serviceId.c_str());
    const int32_t cameraId = std::stoi(serviceId.substr(serviceId.size() - 1), nullptr, 10);
    VIRCAM_LOGI(kChannelTranslatorLog, "%s: UnregisterCameraTranslatorCallback caminfo is %d",
                cameraId);
    UnregisterCameraTranslatorCallback(cameraId).isOk();
}

}  // namespace pelcamera

extern "C" pelcamera::VirCameraChannelForTranslator* CreateVirtualCameraTranslator() {
    return new pelcamera::VirCameraChannelForTranslator();
}

extern "C" int32_t RegisterVirCamStreamChangeLazyService() {
    pelcamera::kRegisterServiceLog.I("%s: RegisterStreamChangeService, funSetTrans=%p",
                                     "RegisterStreamChangeService", nullptr);
    return 0;
}
