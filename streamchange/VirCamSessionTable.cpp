// Copyright (C) 2026 The libvircam Authors

// The session table: one VirCamSession per remote channel in use.
#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "utils/Anonymize.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

std::shared_ptr<VirCamSession> VirCameraChannelForStreamChange::GetVirCamSession(
    const std::string& deviceId, const std::string& serviceId) {
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        auto it = mVirCamSessionMap->find(ChannelKey(deviceId, serviceId));
        if (it != mVirCamSessionMap->end()) {
            return it->second;
        }
    }
    kStreamChangeLog.E(kNotRegisted, __func__, GetAnonyString(deviceId).c_str(),
                       GetAnonyString(serviceId).c_str());
    return nullptr;
}

// A result can arrive before the open call has returned the id it is to be
// found by, so an unmatched id falls back to the first session still being
// set up (one of its ids still 0).
std::shared_ptr<VirCamSession> VirCameraChannelForStreamChange::GetVirCamSessionBySessionId(
    uint32_t sessionId, SessionType type) {
    std::shared_ptr<VirCamSession> found;
    bool fellBack = false;
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        for (const auto& [key, session] : *mVirCamSessionMap) {
            if ((type == CONTROL_SESSION && session->controlSessionId == sessionId) ||
                (type == DATA_SESSION && session->dataSessionId == sessionId)) {
                found = session;
                break;
            }
        }
        for (auto it = mVirCamSessionMap->begin();
             found == nullptr && it != mVirCamSessionMap->end(); ++it) {
            if (it->second->controlSessionId == 0 || it->second->dataSessionId == 0) {
                found = it->second;
                fellBack = true;
            }
        }
    }
    if (fellBack) {
        VIRCAM_LOGW(kStreamChangeLog,
                    "%s: can not find the session with session id, return the latest one");
    }
    return found;
}

std::shared_ptr<VirCamSession> VirCameraChannelForStreamChange::GetVirCamSessionByVirCamId(
    int32_t virCamId) {
    std::lock_guard<std::mutex> lock(mSessionMutex);
    for (const auto& [key, session] : *mVirCamSessionMap) {
        if (session->virCamId == virCamId) {
            return session;
        }
    }
    return nullptr;
}

bool VirCameraChannelForStreamChange::CheckVirCamBusy(const std::string& deviceId,
                                                      const std::string& serviceId) {
    std::shared_ptr<VirCamSession> session = GetVirCamSession(deviceId, serviceId);
    if (session == nullptr) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: the virtual camera free, deviceid: %s, serviceid: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str());
        return false;
    }
    int32_t virCamId = -1;
    {
        std::lock_guard<std::mutex> lock(mSessionMutex);
        virCamId = session->virCamId;
    }
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: the virtual camera busy, deviceid: %s, serviceid: %s, virCamId: %d",
                GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str(), virCamId);
    return true;
}

VirCameraChannelForStreamChange::SessionRoute VirCameraChannelForStreamChange::RouteOf(
    const VirCamSession& session) {
    std::lock_guard<std::mutex> lock(mSessionMutex);
    return {ChannelKey(session.deviceId, session.serviceId), session.controlSessionId,
            session.dataSessionId};
}

bool VirCameraChannelForStreamChange::SessionFlag(const std::shared_ptr<VirCamSession>& session,
                                                  bool VirCamSession::*flag) {
    std::lock_guard<std::mutex> lock(mSessionMutex);
    return (*session).*flag;
}

void VirCameraChannelForStreamChange::EraseSession(const ChannelKey& key) {
    std::lock_guard<std::mutex> lock(mSessionMutex);
    mVirCamSessionMap->erase(key);
}

}  // namespace pelcamera
