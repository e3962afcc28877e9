// Copyright (C) 2026 The libvircam Authors

// Traffic of a running virtual camera: requests out to the remote channel's
// data session, images and commands back from it.
#include "streamchange/RemoteStep.h"
#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "utils/Anonymize.h"
#include "utils/JsonUtil.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

namespace {
constexpr int32_t kNotifyPhysicalCameraId = 101;
}  // namespace

// The session of a virtual camera and where its traffic goes; null after
// logging when the camera has no session.
std::shared_ptr<VirCamSession> VirCameraChannelForStreamChange::FindRoute(const char* caller,
                                                                          int32_t virCamId,
                                                                          SessionRoute& route) {
    std::shared_ptr<VirCamSession> session = GetVirCamSessionByVirCamId(virCamId);
    if (session == nullptr) {
        kStreamChangeLog.E("%s: can not find virtual camera session info by virCamId: %d", caller,
                           virCamId);
        return nullptr;
    }
    route = RouteOf(*session);
    return session;
}

// Finds the virtual camera's remote in the published copy of the registry
// and calls it holding no lock of the service: the pipeline's request thread
// never waits for a switch step, which holds the registry through remote
// calls and their 3 s waits. The pipeline itself sends one request or flush
// at a time (g_requestMutex).
template <typename Call>
int32_t VirCameraChannelForStreamChange::CallRemote(const char* caller, int32_t virCamId,
                                                    const char* missingFormat, Call&& call) {
    SessionRoute route;
    if (FindRoute(caller, virCamId, route) == nullptr) {
        return -1;
    }
    sp<vircam::IVirCameraChannelCallback> callback = PublishedCallback(route.key);
    if (callback == nullptr) {
        kStreamChangeLog.E(missingFormat, caller, GetAnonyString(route.key.first).c_str(),
                           GetAnonyString(route.key.second).c_str());
        return -1;
    }
    return call(*callback, route);
}

int32_t VirCameraChannelForStreamChange::ProcessCaptureRequest(
    int32_t virCamId, const hidl_vec<vircam::VirImageBuffer>& buffers) {
    return CallRemote(
        __func__, virCamId, kNotRegisted,
        [&](vircam::IVirCameraChannelCallback& remote, const SessionRoute& route) {
            CameraStatus status = CameraStatus::INTERNAL_ERROR;
            uint32_t processed = 0;
            const bool transportOk = remote
                                         .processCaptureRequest(route.dataSessionId, buffers,
                                                                [&](CameraStatus s, uint32_t n) {
                                                                    status = s;
                                                                    processed = n;
                                                                })
                                         .isOk();
            if (!transportOk || status != CameraStatus::OK || processed != buffers.size()) {
                kStreamChangeLog.E(
                    "%s: send capture request to channel failed, status: %d, num request "
                    "processed: %d",
                    "ProcessCaptureRequest", static_cast<int32_t>(status),
                    static_cast<int32_t>(processed));
                return -1;
            }
            return 0;
        });
}

int32_t VirCameraChannelForStreamChange::ProcessMetaRequest(int32_t virCamId,
                                                            const vircam::VirMetaRequest& request) {
    return CallRemote(
        __func__, virCamId, kNotRegisted,
        [&](vircam::IVirCameraChannelCallback& remote, const SessionRoute& route) {
            Return<CameraStatus> ret = remote.processMetaRequest(route.dataSessionId, request);
            if (!ret.isOk() || static_cast<CameraStatus>(ret) != CameraStatus::OK) {
                kStreamChangeLog.E("%s: process meta request failed", "ProcessMetaRequest");
                return -1;
            }
            return 0;
        });
}

int32_t VirCameraChannelForStreamChange::Flush(int32_t virCamId) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: flush vir cam");
    return CallRemote(__func__, virCamId, kCbNotRegisted,
                      [&](vircam::IVirCameraChannelCallback& remote, const SessionRoute& route) {
                          kStreamChangeLog.I("%s: begin flush vir cam", "Flush");
                          Return<CameraStatus> ret = remote.flush(route.dataSessionId);
                          kStreamChangeLog.I("%s: end flush vir cam", "Flush");
                          if (!ret.isOk() || static_cast<CameraStatus>(ret) != CameraStatus::OK) {
                              kStreamChangeLog.E("%s: call the virtual camera channel flush failed",
                                                 "Flush");
                              return -1;
                          }
                          return 0;
                      });
}

// Whatever fails, the service ends physical with the property at "0", and
// the remote must register again before it can be switched on.
int32_t VirCameraChannelForStreamChange::Close(int32_t virCamId) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: close vir cam");
    BackToPhysicalMode();
    SessionRoute route;
    std::shared_ptr<VirCamSession> session = FindRoute(__func__, virCamId, route);
    if (session == nullptr) {
        return -1;
    }
    if (!ClearChannelResource(route.key.first, route.key.second)) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: close channel resource failed");
    }
    EraseSession(route.key);
    {
        std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
        mChannelCallbackMap->erase(route.key);
        PublishCallbacksLocked();
    }
    UnBindCameraHal();
    return 0;
}

int32_t VirCameraChannelForStreamChange::ConfigureStreams(
    int32_t virCamId, const hidl_vec<vircam::VirStream>& streams) {
    VIRCAM_LOGI(kStreamChangeLog, "%s: config stream for vir cam, VirCamId: %d", virCamId);
    SessionRoute route;
    std::shared_ptr<VirCamSession> session = FindRoute(__func__, virCamId, route);
    if (session == nullptr) {
        return -1;
    }
    hidl_vec<vircam::VirStream> converted = streams;
    ConvertToHidlVirStream(converted);
    {
        std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
        sp<vircam::IVirCameraChannelCallback> callback =
            FindChannelCallbackOrLog(__func__, kCbNotRegisted, route.key);
        if (callback == nullptr) {
            return 0;  // a camera whose remote is gone is left to the death handling
        }
        Return<CameraStatus> ret = callback->configStream(route.controlSessionId, converted);
        if (!ret.isOk() || static_cast<CameraStatus>(ret) != CameraStatus::OK) {
            VIRCAM_LOGE(kStreamChangeLog,
                        "%s: config stream failed, deviceid: %s, serviceid: %s, sessionId: %s",
                        GetAnonyString(route.key.first).c_str(),
                        GetAnonyString(route.key.second).c_str(),
                        GetAnonyInt32(static_cast<int32_t>(route.controlSessionId)).c_str());
            ClearChannelResource(callback, route.key.first, route.key.second);
            EraseSession(route.key);
            return -1;
        }
    }
    if (AwaitReconfiguration(session)) {
        return 0;
    }
    ClearChannelResource(route.key.first, route.key.second);
    EraseSession(route.key);
    return -1;
}

// A stream reconfiguration of a running virtual camera waits as Step2 does.
bool VirCameraChannelForStreamChange::AwaitReconfiguration(
    const std::shared_ptr<VirCamSession>& session) {
    std::unique_lock<std::mutex> lock(mConfigStream.mutex);
    android::base::ScopedLockAssertion held(mConfigStream.mutex);
    return AwaitStepResult("ConfigureStreams", lock, mConfigStream, kConfigStreamStep, session);
}

Return<CameraStatus> VirCameraChannelForStreamChange::onVirImageBufferDone(
    uint32_t /*sessionId*/, const vircam::VirImageResult& result) {
    if (mCamTrans != nullptr) {
        mCamTrans->OnImageBufferDone(result, mCameraId);
    }
    return CameraStatus::OK;
}

Return<void> VirCameraChannelForStreamChange::notify(uint32_t /*id*/, const hidl_string& msg) {
    Json::Value root;
    if (JsonUtil::StringToJsonValue(msg, root) != 0) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: StringToJsonValue failed");
        return ::android::hardware::Void();
    }
    int32_t cmd = 0;
    std::string data;
    JsonUtil::JsonParseInt32(root, kNotifyKey, cmd);  // a missing key leaves command 0
    if (JsonUtil::JsonParseString(root, kNotifyMsgDataKey, data) != 0) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: prase jsonArray failed");
        return ::android::hardware::Void();
    }
    RecvNotifyCmd(cmd, data);
    return ::android::hardware::Void();
}

void VirCameraChannelForStreamChange::RecvNotifyCmd(int32_t cmd, const std::string& data) {
    VIRCAM_LOGI(kStreamChangeLog, "%s cmd:%d", cmd);
    if (cmd == kNotifyPhysicalCameraId) {
        SavePhysicalCameraID(data);
        return;
    }
    VIRCAM_LOGE(kStreamChangeLog, "%s cmd:%d is not support", cmd);
}

}  // namespace pelcamera
