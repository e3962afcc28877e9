// Copyright (C) 2026 The libvircam Authors

// Switch commands: the intake that answers and queues them, and the two
// workers that run them. A switch-on goes on in DoSwitchOnVirtualCamera
// (SwitchOnSequence.cpp), a switch-off in DoSwitchOffVirtualCamera
// (SwitchOffSequence.cpp).
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/VirCameraStatus.h"
#include "utils/Anonymize.h"
#include "utils/VirCamLog.h"

namespace pelcamera {

uint32_t VirCameraChannelForStreamChange::NextSeqNum() {
    std::lock_guard<std::mutex> lock(mSeqNumMutex);
    return ++mSeqNum;
}

Return<void> VirCameraChannelForStreamChange::switchOnVirtualCamera(
    const hidl_string& deviceId, const hidl_string& serviceId, switchOnVirtualCamera_cb _hidl_cb) {
    // The generated stub always passes a result callback; an empty one is a
    // programming fault of the caller and throws std::bad_function_call.
    const uint32_t seqNum = NextSeqNum();
    VIRCAM_LOGI(kStreamChangeLog, "%s: receive swtich on cmd, seqNum: %s",
                GetAnonyUInt32(seqNum).c_str());
    const int32_t mode = GetCameraMode();
    if (mode == PHYSICAL && !CheckVirCamBusy(deviceId, serviceId)) {
        std::lock_guard<std::mutex> lock(mSwitchOnTaskMutex);
        mHistory.Command(seqNum, true, deviceId, serviceId, SwitchRefusal::NONE);
        mSwitchOnTasks->push_back({deviceId, serviceId, seqNum});
        mSwitchOnTaskCond.notify_one();
        _hidl_cb(CameraStatus::OK, seqNum);
        VIRCAM_LOGI(kStreamChangeLog,
                    "%s: Receive Switch On Cmd success, deviceid: %s, serviceid: %s, seqnum: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str(),
                    GetAnonyUInt32(seqNum).c_str());
        return ::android::hardware::Void();
    }
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: in virtual or switching mode, or virtual camera busy, can not switch on");
    mHistory.Command(seqNum, true, deviceId, serviceId,
                     mode == PHYSICAL ? SwitchRefusal::BUSY : SwitchRefusal::MODE);
    _hidl_cb(CameraStatus::ILLEGAL_ARGUMENT, seqNum);
    NotifySwitchOnResult(seqNum, SWITCH_RESULT_FAILED);
    return ::android::hardware::Void();
}

Return<void> VirCameraChannelForStreamChange::switchOffVirtualCamera(
    const hidl_string& deviceId, const hidl_string& serviceId, switchOffVirtualCamera_cb _hidl_cb) {
    const uint32_t seqNum = NextSeqNum();
    VIRCAM_LOGI(kStreamChangeLog, "%s: receive switch off cmd, seqNum: %u", seqNum);
    const int32_t mode = GetCameraMode();
    if (mode == VIRTUAL && CheckVirCamBusy(deviceId, serviceId)) {
        std::lock_guard<std::mutex> lock(mSwitchOffTaskMutex);
        mHistory.Command(seqNum, false, deviceId, serviceId, SwitchRefusal::NONE);
        mSwitchOffTasks->push_back({deviceId, serviceId, seqNum});
        mSwitchOffTaskCond.notify_one();
        _hidl_cb(CameraStatus::OK, seqNum);
        VIRCAM_LOGI(kStreamChangeLog,
                    "%s: Receive Switch Off Cmd success, deviceid: %s, serviceid: %s, seqnum: %s",
                    GetAnonyString(deviceId).c_str(), GetAnonyString(serviceId).c_str(),
                    GetAnonyUInt32(seqNum).c_str());
        return ::android::hardware::Void();
    }
    // A refused switch-off is reported as a success on purpose: the camera is
    // where the device-management side wants it.
    VIRCAM_LOGI(kStreamChangeLog,
                "%s: in physical or switching mode, or virtual camera free, can not switch off");
    mHistory.Command(seqNum, false, deviceId, serviceId,
                     mode == VIRTUAL ? SwitchRefusal::NOT_IN_USE : SwitchRefusal::MODE);
    _hidl_cb(CameraStatus::OK, seqNum);
    NotifySwitchOffResult(seqNum, SWITCH_RESULT_OK);
    return ::android::hardware::Void();
}

// A thread that cannot be started throws std::system_error out of the
// registration and ends the process: without its workers the service could
// never switch, and there is no status that says so.
void VirCameraChannelForStreamChange::StartSwitchThreads() {
    std::thread([this] { DoSwitchOnTask(); }).detach();
    std::thread([this] { DoSwitchOffTask(); }).detach();
}

void VirCameraChannelForStreamChange::DoSwitchOnTask() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: Start Execute Switch On task Thread");
    std::unique_lock<std::mutex> channelOpt(mChannelOptMutex);
    mChannelOptOwner = std::this_thread::get_id();
    RunSwitchWorker(mSwitchOnTaskMutex, mSwitchOnTaskCond, mSwitchOnTasks, true);
}

void VirCameraChannelForStreamChange::DoSwitchOffTask() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: Start Execute Switch Off task Thread");
    RunSwitchWorker(mSwitchOffTaskMutex, mSwitchOffTaskCond, mSwitchOffTasks, false);
}

// Tasks are worked newest first; a command that comes during a sequence
// waits in the intake until the sequence ends. A worker never returns and is
// never stopped: the service lives until the process ends, and exit takes the
// workers with it wherever they are, even inside a remote call that never
// returns.
void VirCameraChannelForStreamChange::RunSwitchWorker(
    std::mutex& queueMutex, std::condition_variable& queueCond,
    const std::shared_ptr<std::vector<SwitchTask>>& queued, bool switchOn) {
    const char* const name = switchOn ? "DoSwitchOnTask" : "DoSwitchOffTask";
    std::unique_lock<std::mutex> queue(queueMutex);
    std::vector<SwitchTask>& tasks = *queued;
    while (true) {
        if (tasks.empty()) {
            kStreamChangeLog.I(switchOn ? "%s: NO switch on task now, wait on ..."
                                        : "%s: NO switch off task now, wait on ...",
                               name);
            // One wait per pass on purpose: every empty wake-up is logged again.
            queueCond.wait(queue);  // NOLINT(bugprone-spuriously-wake-up-functions)
            continue;
        }
        while (!tasks.empty()) {
            const SwitchTask task = tasks.back();
            kStreamChangeLog.I(
                switchOn ? "%s: start switch on, deviceid: %s, serviceid: %s, seqNum: %s"
                         : "%s: start switch off, deviceid: %s, serviceid: %s, seqNum: %s",
                name, GetAnonyString(task.deviceId).c_str(), GetAnonyString(task.serviceId).c_str(),
                GetAnonyUInt32(task.seqNum).c_str());
            std::lock_guard<std::mutex> work(mSwitchWorkMutex);
            const SwitchHistory::Sequence running(mHistory, task.seqNum, switchOn);
            if (switchOn) {
                DoSwitchOnVirtualCamera(task.deviceId, task.serviceId, task.seqNum).isOk();
            } else {
                DoSwitchOffVirtualCamera(task.seqNum, task.deviceId, task.serviceId);
            }
            tasks.pop_back();
        }
    }
}

}  // namespace pelcamera
