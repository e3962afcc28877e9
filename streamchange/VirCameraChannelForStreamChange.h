// The process's IVirCameraChannel service: remote channel registry, session
// table, the two switch workers, and the request path of a virtual camera.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "streamchange/SwitchTask.h"
#include "streamchange/VirCamSession.h"

namespace pelcamera {

class CVirtualSwitchCameraTranslator;
struct ResultNotice;
struct OpenSessionStep;
struct StepWait;

namespace vircam = ::vendor::travik::hardware::camera::vircamera::V1_0;
using CameraStatus = ::android::hardware::camera::common::V1_0::Status;
using ::android::sp;
using ::android::hardware::hidl_string;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;

// (deviceId, serviceId) of one remote channel.
using ChannelKey = std::pair<std::string, std::string>;

class VirCameraChannelForStreamChange : public vircam::IVirCameraChannel {
public:
    // Watches one remote channel callback; its death queues a switch-off.
    class ListenerDeathRecipient : public ::android::hardware::hidl_death_recipient {
    public:
        ListenerDeathRecipient(const sp<VirCameraChannelForStreamChange>& channel,
                               const std::string& deviceId, const std::string& serviceId);
        void serviceDied(uint64_t cookie,
                         const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;
        ~ListenerDeathRecipient() override = default;

    private:
        sp<VirCameraChannelForStreamChange> mChannel;
        std::string mDeviceId;
        std::string mServiceId;
        bool mDied = false;
    };

    VirCameraChannelForStreamChange();
    ~VirCameraChannelForStreamChange() override;

    // IVirCameraChannel, in slot order.
    Return<CameraStatus> registerVirtualChannelCallback(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const sp<vircam::IVirCameraChannelCallback>& callback) override;
    Return<CameraStatus> unregisterVirtualChannelCallback(const hidl_string& deviceId,
                                                          const hidl_string& serviceId) override;
    Return<CameraStatus> registerCameraSwitchCallback(
        const sp<vircam::IVirCameraSwitchCallback>& callback) override;
    Return<CameraStatus> unregisterCameraSwitchCallback() override;
    Return<void> notifyOpenControlSessionResult(uint32_t sessionId,
                                                vircam::VirCamOptRet ret) override;
    Return<void> notifyConfigStreamResult(uint32_t sessionId, vircam::VirCamOptRet ret) override;
    Return<void> notifyOpenDataSessionResult(uint32_t sessionId, vircam::VirCamOptRet ret) override;
    Return<CameraStatus> onVirImageBufferDone(uint32_t sessionId,
                                              const vircam::VirImageResult& result) override;
    Return<void> notify(uint32_t id, const hidl_string& msg) override;
    Return<CameraStatus> registerVirtualCameraDevice(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const hidl_vec<vircam::CameraFormat>& formats,
        const hidl_vec<vircam::MetaItem>& metas) override;
    Return<CameraStatus> unregisterVirtualCameraDevice(const hidl_string& deviceId,
                                                       const hidl_string& serviceId) override;
    Return<void> switchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                       switchOnVirtualCamera_cb _hidl_cb) override;
    Return<void> switchOffVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                        switchOffVirtualCamera_cb _hidl_cb) override;
    Return<void> getVirtualCameraIdList(getVirtualCameraIdList_cb _hidl_cb) override;

    // The translator's side: traffic of a running virtual camera.
    int32_t ProcessCaptureRequest(int32_t virCamId,
                                  const hidl_vec<vircam::VirImageBuffer>& buffers);
    int32_t ProcessMetaRequest(int32_t virCamId, const vircam::VirMetaRequest& request);
    int32_t Flush(int32_t virCamId);
    int32_t Close(int32_t virCamId);
    int32_t ConfigureStreams(int32_t virCamId, const hidl_vec<vircam::VirStream>& streams);
    void SetHalInitStatus();
    void SavePhysicalCameraID(const std::string& msg);
    void InitCameraTrans();

    // Session table.
    std::shared_ptr<VirCamSession> GetVirCamSession(const std::string& deviceId,
                                                    const std::string& serviceId);
    std::shared_ptr<VirCamSession> GetVirCamSessionBySessionId(uint32_t sessionId,
                                                               SessionType type);
    std::shared_ptr<VirCamSession> GetVirCamSessionByVirCamId(int32_t virCamId);
    bool CheckVirCamBusy(const std::string& deviceId, const std::string& serviceId);

    // State reads for diagnostics and tests.
    int32_t GetCameraMode();
    bool HasChannelCallback(const ChannelKey& key);
    bool HasDeathRecipient(const ChannelKey& key);
    bool HasSwitchCallback();
    std::string GetPhysicalCameraId() const;

private:
    using ChannelCallbackMap = std::map<ChannelKey, sp<vircam::IVirCameraChannelCallback>>;
    using DeathRecipientMap = std::map<ChannelKey, sp<ListenerDeathRecipient>>;
    using SessionMap = std::map<ChannelKey, std::shared_ptr<VirCamSession>>;

    // Callback registry and death watch.
    void SaveLinkToDeath(const ChannelKey& key,
                         const sp<vircam::IVirCameraChannelCallback>& callback);
    void ClearLinkToDeath(const sp<vircam::IVirCameraChannelCallback>& callback,
                          const std::string& deviceId, const std::string& serviceId);
    void DirectClearLinkToDeath(const std::string& deviceId, const std::string& serviceId);
    void DirectClearMgtCb();
    // An empty entry (left by an inserting lookup) counts as missing.
    sp<vircam::IVirCameraChannelCallback> FindChannelCallbackLocked(const ChannelKey& key);
    // The same, logging `format` (deviceid, serviceid) when there is none.
    sp<vircam::IVirCameraChannelCallback> FindChannelCallbackOrLog(const char* caller,
                                                                   const char* format,
                                                                   const ChannelKey& key);

    // Intake and workers.
    void StartSwitchThreads();
    void DoSwitchOnTask();
    void DoSwitchOffTask();
    void RunSwitchWorker(std::mutex& queueMutex, std::condition_variable& queueCond,
                         std::vector<SwitchTask>& tasks, bool switchOn);
    void StopSwitchThreads();
    uint32_t NextSeqNum();
    bool PrepareSwitchOn(uint32_t seqNum, const ChannelKey& key);
    bool CheckHalInitStatus(uint32_t seqNum);
    void NotifySwitchOnResult(uint32_t seqNum, int32_t code);
    void NotifySwitchOffResult(uint32_t seqNum, int32_t code);
    void SetToSwitchingMode();
    void SetToVirtualMode();
    void SetToPhysicalMode();  // caller holds mModeMutex
    void BackToPhysicalMode();
    void BindCameraHal();
    void UnBindCameraHal();
    void ClearReturnedFlags();

    // Asynchronous operations.
    void ReleaseChannelOpt();
    void ReacquireChannelOpt();
    int32_t WaitForChannelOptReturnLocked(std::unique_lock<std::mutex>& lock,
                                          std::condition_variable& cond, int32_t timeoutSeconds,
                                          SwitchStep step);
    bool* ReturnedFlag(SwitchStep step);
    // Called by a result notification with the step's mutex held.
    void FlagReturned(const char* caller, SwitchStep step, std::condition_variable& cond);
    void RecordResult(const ResultNotice& notice, uint32_t sessionId, vircam::VirCamOptRet ret,
                      std::condition_variable& cond);
    bool SessionFlag(const std::shared_ptr<VirCamSession>& session, bool VirCamSession::*flag);
    bool AfterOpenCtrSession(uint32_t seqNum, const ChannelKey& key,
                             const sp<vircam::IVirCameraChannelCallback>& callback,
                             std::shared_ptr<VirCamSession>& session);
    bool DealConfigStreamResult(Return<CameraStatus>& callResult,
                                const sp<vircam::IVirCameraChannelCallback>& callback,
                                uint32_t seqNum, const ChannelKey& key,
                                std::shared_ptr<VirCamSession>& session);
    bool DealOpenDataSessionResult(uint32_t seqNum,
                                   const sp<vircam::IVirCameraChannelCallback>& callback,
                                   const ChannelKey& key,
                                   const std::shared_ptr<VirCamSession>& session);
    bool AwaitStepResult(const char* caller, std::unique_lock<std::mutex>& lock,
                         std::condition_variable& cond, const StepWait& wait,
                         const std::shared_ptr<VirCamSession>& session);
    bool AwaitReconfiguration(const std::shared_ptr<VirCamSession>& session);
    bool UndoSwitchStep(const sp<vircam::IVirCameraChannelCallback>& callback,
                        const ChannelKey& key);

    // Switch-on sequence.
    Return<void> DoSwitchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                         uint32_t seqNum);
    bool OpenControlSession(uint32_t seqNum, const ChannelKey& key,
                            std::shared_ptr<VirCamSession>& session);
    bool OpenRemoteSession(const OpenSessionStep& step, uint32_t seqNum, const ChannelKey& key,
                           std::shared_ptr<VirCamSession>& session);
    bool ConfigStream(uint32_t seqNum, const ChannelKey& key,
                      std::shared_ptr<VirCamSession>& session);
    bool OpenDataSession(uint32_t seqNum, const ChannelKey& key,
                         std::shared_ptr<VirCamSession>& session);
    bool DoSwitchWork(uint32_t seqNum, const ChannelKey& key,
                      std::shared_ptr<VirCamSession>& session);
    void DoWorkAfterSwitch(const ChannelKey& key, uint32_t seqNum);
    hidl_vec<vircam::VirStream> WaitForCachedConfigStreams();
    void ConvertToHidlVirStream(hidl_vec<vircam::VirStream>& streams);
    void ConvertOneToHidlVirStream(vircam::VirStream& stream);
    void EraseSession(const ChannelKey& key);

    // Switch-off and teardown.
    void DoSwitchOffVirtualCamera(uint32_t seqNum, const std::string& deviceId,
                                  const std::string& serviceId);
    bool ClearChannelResource(const std::string& deviceId, const std::string& serviceId);
    bool ClearChannelResource(const sp<vircam::IVirCameraChannelCallback>& callback,
                              const std::string& deviceId, const std::string& serviceId);
    void CloseRemoteSessions(const sp<vircam::IVirCameraChannelCallback>& callback,
                             const VirCamSession& session);

    // Request path.
    void RecvNotifyCmd(int32_t cmd, const std::string& data);
    // The pair and data session id of a session, read under its lock.
    struct SessionRoute {
        ChannelKey key;
        uint32_t controlSessionId = 0;
        uint32_t dataSessionId = 0;
    };
    SessionRoute RouteOf(const VirCamSession& session);
    template <typename Call>
    int32_t CallRemote(const char* caller, int32_t virCamId, const char* missingFormat,
                       Call&& call);
    std::shared_ptr<VirCamSession> FindRoute(const char* caller, int32_t virCamId,
                                             SessionRoute& route);

    std::shared_ptr<ChannelCallbackMap> mChannelCallbackMap;
    std::shared_ptr<DeathRecipientMap> mDeathRecipientMap;
    sp<vircam::IVirCameraSwitchCallback> mSwitchCallback;
    std::shared_ptr<SessionMap> mVirCamSessionMap;
    std::mutex mChannelCallbackMutex;
    std::mutex mDeathRecipientMutex;
    std::mutex mSwitchCallbackMutex;
    std::mutex mSessionMutex;
    std::mutex mOpenCtrlSessionMutex;
    std::condition_variable mOpenCtrlSessionCond;
    std::mutex mOpenDataSessionMutex;
    std::condition_variable mOpenDataSessionCond;
    std::mutex mConfigStreamMutex;
    std::condition_variable mConfigStreamCond;
    std::mutex mChannelOptMutex;
    CVirtualSwitchCameraTranslator* mCamTrans = nullptr;
    std::mutex mSeqNumMutex;
    uint32_t mSeqNum = 1;
    std::mutex mVirCamIdMutex;
    int32_t mVirCamIdCounter = 100;
    std::mutex mSwitchOnTaskMutex;
    std::condition_variable mSwitchOnTaskCond;
    std::mutex mSwitchOffTaskMutex;
    std::condition_variable mSwitchOffTaskCond;
    std::mutex mSwitchWorkMutex;
    std::shared_ptr<std::vector<SwitchTask>> mSwitchOnTasks;
    std::shared_ptr<std::vector<SwitchTask>> mSwitchOffTasks;
    std::mutex mModeMutex;
    int32_t mCameraMode = 0;
    std::mutex mAsyncTaskInfoMutex;
    bool mOpenCtrlSessionReturned = false;
    bool mConfigStreamReturned = false;
    bool mOpenDataSessionReturned = false;
    bool mHalInitDone = false;
    std::atomic<bool> mSwitchThreadStarted{false};
    std::mutex mHalInitMutex;
    std::condition_variable mHalInitCond;
    int32_t mCameraId = -1;
    // Written by a binder thread, read by the switch-on worker: a leaf lock
    // keeps the string whole.
    mutable std::mutex mPhysicalCameraIdMutex;
    std::string mPhysicalCameraId;

    // The switch-on worker holds mChannelOptMutex between waits; a wait on any
    // other thread (a stream reconfiguration) has nothing to release.
    std::atomic<std::thread::id> mChannelOptOwner{};
    // Lets the destructor wake the workers and wait until both have left
    // their loops: a condition variable must not be destroyed under a waiter.
    std::mutex mWorkerLifeMutex;
    std::condition_variable mWorkerLifeCond;
    std::atomic<bool> mWorkersStopping{false};
    int32_t mWorkersRunning = 0;
};

}  // namespace pelcamera

extern "C" {
__attribute__((visibility("default"))) pelcamera::VirCameraChannelForStreamChange*
CreateVirtualCameraStreamChange();
}
