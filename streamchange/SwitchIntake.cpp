// Switch commands: intake, the two workers, the camera mode and the
// HAL-init handshake.
#include "streamchange/StreamChangeConstants.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
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
        // The answer is given under the queue mutex, so it always precedes the
        // start of the task.
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
    {
        std::lock_guard<std::mutex> lock(mWorkerLifeMutex);
        mWorkersRunning = 2;
    }
    std::thread([this] { DoSwitchOnTask(); }).detach();
    std::thread([this] { DoSwitchOffTask(); }).detach();
}

// The workers live as long as the process; the service is destroyed only at
// exit, and glibc's pthread_cond_destroy blocks while a thread still waits on
// the condition variable, so the destructor lets them leave first. A running
// switch-on stops after the step it is in (a step can wait seconds on a
// remote); a switch-off is one step; the tasks still queued are dropped.
void VirCameraChannelForStreamChange::StopSwitchThreads() {
    mWorkersStopping = true;
    for (auto* queue : {&mSwitchOnTaskMutex, &mSwitchOffTaskMutex}) {
        std::lock_guard<std::mutex> lock(*queue);
    }
    mSwitchOnTaskCond.notify_all();
    mSwitchOffTaskCond.notify_all();
    std::unique_lock<std::mutex> lock(mWorkerLifeMutex);
    android::base::ScopedLockAssertion held(mWorkerLifeMutex);
    mWorkerLifeCond.wait(lock, [this] {
        android::base::ScopedLockAssertion heldInWait(mWorkerLifeMutex);
        return mWorkersRunning == 0;
    });
}

void VirCameraChannelForStreamChange::DoSwitchOnTask() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: Start Execute Switch On task Thread");
    // Held between the step waits, which release it while they sleep.
    std::unique_lock<std::mutex> channelOpt(mChannelOptMutex);
    mChannelOptOwner = std::this_thread::get_id();
    RunSwitchWorker(mSwitchOnTaskMutex, mSwitchOnTaskCond, mSwitchOnTasks, true);
    mChannelOptOwner = std::thread::id();
}

void VirCameraChannelForStreamChange::DoSwitchOffTask() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: Start Execute Switch Off task Thread");
    RunSwitchWorker(mSwitchOffTaskMutex, mSwitchOffTaskCond, mSwitchOffTasks, false);
}

// Tasks are worked newest first. The queue mutex is held through a whole
// sequence, so a command accepted meanwhile waits in the intake.
void VirCameraChannelForStreamChange::RunSwitchWorker(
    std::mutex& queueMutex, std::condition_variable& queueCond,
    const std::shared_ptr<std::vector<SwitchTask>>& queued, bool switchOn) {
    const char* const name = switchOn ? "DoSwitchOnTask" : "DoSwitchOffTask";
    std::unique_lock<std::mutex> queue(queueMutex);
    std::vector<SwitchTask>& tasks = *queued;
    while (!mWorkersStopping) {
        if (tasks.empty()) {
            kStreamChangeLog.I(switchOn ? "%s: NO switch on task now, wait on ..."
                                        : "%s: NO switch off task now, wait on ...",
                               name);
            // One wait per pass on purpose: every empty wake-up is logged again.
            queueCond.wait(queue);  // NOLINT(bugprone-spuriously-wake-up-functions)
            continue;
        }
        // At exit only the task already running is finished: each can take
        // seconds (indefinitely with a remote that never answers a call), so
        // the ones still queued are dropped.
        while (!tasks.empty() && !mWorkersStopping) {
            const SwitchTask task = tasks.back();
            kStreamChangeLog.I(
                switchOn ? "%s: start switch on, deviceid: %s, serviceid: %s, seqNum: %s"
                         : "%s: start switch off, deviceid: %s, serviceid: %s, seqNum: %s",
                name, GetAnonyString(task.deviceId).c_str(), GetAnonyString(task.serviceId).c_str(),
                GetAnonyUInt32(task.seqNum).c_str());
            std::lock_guard<std::mutex> work(mSwitchWorkMutex);
            if (mWorkersStopping) {
                // Exit began while the other worker ran its sequence.
                break;
            }
            const SwitchHistory::Sequence running(mHistory, task.seqNum, switchOn);
            if (switchOn) {
                DoSwitchOnVirtualCamera(task.deviceId, task.serviceId, task.seqNum).isOk();
            } else {
                DoSwitchOffVirtualCamera(task.seqNum, task.deviceId, task.serviceId);
            }
            tasks.pop_back();
        }
    }
    queue.unlock();
    std::lock_guard<std::mutex> life(mWorkerLifeMutex);
    --mWorkersRunning;
    mWorkerLifeCond.notify_all();
}

void VirCameraChannelForStreamChange::SetToSwitchingMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    if (mCameraMode == PHYSICAL) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: set to switching mode, phy -> swt");
        mCameraMode = ON_SWITCHING;
    } else if (mCameraMode == VIRTUAL) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: set to switching mode, vir -> vir");
    } else {
        VIRCAM_LOGW(kStreamChangeLog, "%s: current not on physical mode, no need set to switching");
    }
}

void VirCameraChannelForStreamChange::SetToVirtualMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    if (mCameraMode != ON_SWITCHING) {
        VIRCAM_LOGW(kStreamChangeLog, "%s: current not on switching mode, no need set to virtual");
        return;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: set to virtual mode");
    mCameraMode = VIRTUAL;
}

void VirCameraChannelForStreamChange::SetToPhysicalMode() {
    VIRCAM_LOGI(kStreamChangeLog, "%s: set to physical mode");
    mCameraMode = PHYSICAL;
    UnBindCameraHal();
}

void VirCameraChannelForStreamChange::BackToPhysicalMode() {
    std::lock_guard<std::mutex> lock(mModeMutex);
    SetToPhysicalMode();
}

void VirCameraChannelForStreamChange::BindCameraHal() {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: mCamTrans nullptr");
        return;
    }
    mCamTrans->EnableProperity(kCameraPropertyPrefix + GetPhysicalCameraId());
}

void VirCameraChannelForStreamChange::UnBindCameraHal() {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGI(kStreamChangeLog, "%s: mCamTrans nullptr");
        return;
    }
    mCamTrans->DisableProperity();
}

void VirCameraChannelForStreamChange::NotifySwitchOnResult(uint32_t seqNum, int32_t code) {
    NotifySwitchResult(__func__, &vircam::IVirCameraSwitchCallback::notifySwitchOnResult,
                       "%s: notify switch on failed", seqNum, code);
}

void VirCameraChannelForStreamChange::NotifySwitchOffResult(uint32_t seqNum, int32_t code) {
    NotifySwitchResult(__func__, &vircam::IVirCameraSwitchCallback::notifySwitchOffResult,
                       "%s: notify switch off failed", seqNum, code);
}

// The report is sent under mSwitchCallbackMutex, so a callback being replaced
// or cleared never receives it half-way; with none registered it is dropped.
void VirCameraChannelForStreamChange::NotifySwitchResult(const char* caller, SwitchReport report,
                                                         const char* failed, uint32_t seqNum,
                                                         int32_t code) {
    bool delivered = false;
    {
        std::lock_guard<std::mutex> lock(mSwitchCallbackMutex);
        if (mSwitchCallback != nullptr) {
            delivered = ((*mSwitchCallback).*report)(seqNum, code).isOk();
            if (!delivered) {
                kStreamChangeLog.E(failed, caller);
            }
        }
    }
    mHistory.Result(seqNum, code, delivered);
}

bool VirCameraChannelForStreamChange::PrepareSwitchOn(uint32_t /*seqNum*/, const ChannelKey& key) {
    if (!HasSwitchCallback()) {
        VIRCAM_LOGE(kStreamChangeLog,
                    "%s: the DevMgt callback not exist, deviceid: %s, serviceid: %s",
                    GetAnonyString(key.first).c_str(), GetAnonyString(key.second).c_str());
        return false;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: init Camera Device Session for set translator");
    InitCameraTrans();
    if (GetVirCamSession(key.first, key.second) == nullptr) {
        return true;
    }
    VIRCAM_LOGI(kStreamChangeLog, "%s: old switch on session exist, clear it");
    std::lock_guard<std::mutex> registry(mChannelCallbackMutex);
    // The inserting lookup can leave an empty entry; every lookup treats it as missing.
    ClearChannelResource((*mChannelCallbackMap)[key], key.first, key.second);
    EraseSession(key);
    return true;
}

bool VirCameraChannelForStreamChange::CheckHalInitStatus(uint32_t seqNum) {
    if (mCamTrans == nullptr) {
        VIRCAM_LOGE(kStreamChangeLog, "%s: mCamTrans nullptr");
        return false;
    }
    if (mCamTrans->CheckTranslatorCallback()) {
        VIRCAM_LOGD(kStreamChangeLog, "%s: callback already register");
        return true;
    }
    std::unique_lock<std::mutex> lock(mHalInit.mutex);
    android::base::ScopedLockAssertion held(mHalInit.mutex);
    if (WaitForChannelOptReturnLocked(lock, mHalInit, nullptr, kHalInitTimeoutSeconds, HAL_INIT) ==
        0) {
        return true;
    }
    VIRCAM_LOGE(kStreamChangeLog, "%s: wait for hal init timeout, return: %d", -1);
    NotifySwitchOnResult(seqNum, SWITCH_ON_ERR_CONFIG);
    return false;
}

void VirCameraChannelForStreamChange::SetHalInitStatus() {
    std::lock_guard<std::mutex> lock(mHalInit.mutex);
    FlagReturned(__func__, mHalInit, nullptr);
}

// Each flag under its own step's mutex, one at a time.
void VirCameraChannelForStreamChange::ClearReturnedFlags() {
    for (AwaitedResult* result :
         {&mOpenCtrlSession, &mConfigStream, &mOpenDataSession, &mHalInit}) {
        std::lock_guard<std::mutex> lock(result->mutex);
        result->returned = false;
    }
}

}  // namespace pelcamera
