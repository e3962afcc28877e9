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

#include "streamchange/AwaitedResult.h"
#include "streamchange/SwitchHistory.h"
#include "streamchange/SwitchTask.h"
#include "streamchange/VirCamSession.h"
#include "utils/ThreadAnnotations.h"

namespace pelcamera {

class CVirtualSwitchCameraTranslator;
class DumpDeadline;
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

// Threads: HIDL binder threads of device management (switch commands and
// the switch callback), of the remote channels (registrations, results,
// images, notify) and of the pipeline (through the translator); the
// switch-on and the switch-off worker; the HIDL runtime's death-notification
// thread (ListenerDeathRecipient).
//
// Lock order (a lock is only ever taken after those above it):
//   1. mSwitchOnTaskMutex or mSwitchOffTaskMutex   the worker's queue, held
//                                                   through a whole sequence
//   2. mSwitchWorkMutex                            one sequence at a time
//      the translator's locks (TranslatorLocks.h) when a worker calls the
//      translator; the pipeline's own calls start here
//   3. mChannelCallbackMutex                       the remote channel registry
//   4. either mDeathRecipientMutex,
//      or one step's mutex (mOpenCtrlSession.mutex, mConfigStream.mutex,
//      mOpenDataSession.mutex; mHalInit.mutex for the HAL-init wait): a
//      waiter holds it except while it sleeps, a notifier for its whole call
// Leaf locks, held briefly with no other lock of the library taken inside:
// mSessionMutex, mModeMutex (the system property is set under it),
// mSeqNumMutex, mVirCamIdMutex, mPhysicalCameraIdMutex, mWorkerLifeMutex.
// mSwitchCallbackMutex is a leaf too, but the remote switch results are sent
// under it. mChannelOptMutex is the switch-on
// worker's own: no other thread takes it, so it stands outside the order.
class VirCameraChannelForStreamChange : public vircam::IVirCameraChannel {
public:
    // Watches one remote channel callback; its death queues a switch-off.
    class ListenerDeathRecipient : public ::android::hardware::hidl_death_recipient {
    public:
        // The registering binder thread; no lock.
        ListenerDeathRecipient(const sp<VirCameraChannelForStreamChange>& channel,
                               const std::string& deviceId, const std::string& serviceId);
        // The death-notification thread, the only one that touches the
        // members after construction. Takes the locks of
        // switchOffVirtualCamera, then mDeathRecipientMutex and
        // mChannelCallbackMutex one after the other, then mSwitchCallbackMutex.
        void serviceDied(uint64_t cookie,
                         const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;
        // The thread that drops the last reference; no lock.
        ~ListenerDeathRecipient() override = default;

    private:
        sp<VirCameraChannelForStreamChange> mChannel;
        std::string mDeviceId;
        std::string mServiceId;
        bool mDied = false;
    };

    // Once, in CreateVirtualCameraStreamChange (thread-safe static init).
    VirCameraChannelForStreamChange();
    // At process exit; waits for both workers to leave their loops, then
    // takes each registry's mutex alone.
    ~VirCameraChannelForStreamChange() override;

    // IVirCameraChannel, in slot order.

    // A remote channel's binder thread. Holds mChannelCallbackMutex while it
    // replaces the entry (mDeathRecipientMutex inside it), then takes
    // mDeathRecipientMutex alone for the new death link.
    Return<CameraStatus> registerVirtualChannelCallback(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const sp<vircam::IVirCameraChannelCallback>& callback) override
        EXCLUDES(mChannelCallbackMutex, mDeathRecipientMutex);
    // A remote channel's binder thread; mChannelCallbackMutex, then
    // mDeathRecipientMutex inside it.
    Return<CameraStatus> unregisterVirtualChannelCallback(const hidl_string& deviceId,
                                                          const hidl_string& serviceId) override
        EXCLUDES(mChannelCallbackMutex, mDeathRecipientMutex);
    // Device management's binder thread; mSwitchCallbackMutex. The first
    // call starts the two workers (mWorkerLifeMutex).
    Return<CameraStatus> registerCameraSwitchCallback(
        const sp<vircam::IVirCameraSwitchCallback>& callback) override
        EXCLUDES(mSwitchCallbackMutex);
    // Device management's binder thread; mSwitchCallbackMutex.
    Return<CameraStatus> unregisterCameraSwitchCallback() override EXCLUDES(mSwitchCallbackMutex);
    // The three step results: a remote channel's binder thread. Each holds
    // its step's mutex for the whole call (a waiter holds it only until it
    // sleeps) and takes mSessionMutex briefly inside it.
    Return<void> notifyOpenControlSessionResult(uint32_t sessionId,
                                                vircam::VirCamOptRet ret) override
        EXCLUDES(mOpenCtrlSession.mutex, mSessionMutex);
    Return<void> notifyConfigStreamResult(uint32_t sessionId, vircam::VirCamOptRet ret) override
        EXCLUDES(mConfigStream.mutex, mSessionMutex);
    Return<void> notifyOpenDataSessionResult(uint32_t sessionId, vircam::VirCamOptRet ret) override
        EXCLUDES(mOpenDataSession.mutex, mSessionMutex);
    // A remote channel's binder thread; hands the image to the translator
    // (g_callbackMutex there), no lock of its own.
    Return<CameraStatus> onVirImageBufferDone(uint32_t sessionId,
                                              const vircam::VirImageResult& result) override;
    // A remote channel's binder thread; mPhysicalCameraIdMutex for command 101.
    Return<void> notify(uint32_t id, const hidl_string& msg) override
        EXCLUDES(mPhysicalCameraIdMutex);
    // Any binder thread; no lock (not supported).
    Return<CameraStatus> registerVirtualCameraDevice(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const hidl_vec<vircam::CameraFormat>& formats,
        const hidl_vec<vircam::MetaItem>& metas) override;
    Return<CameraStatus> unregisterVirtualCameraDevice(const hidl_string& deviceId,
                                                       const hidl_string& serviceId) override;
    // Device management's binder thread (switch-off also the
    // death-notification thread). mSeqNumMutex, mModeMutex and mSessionMutex
    // one at a time; an accepted task is queued and answered under the queue
    // mutex; a refusal is reported under mSwitchCallbackMutex.
    Return<void> switchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                       switchOnVirtualCamera_cb _hidl_cb) override
        EXCLUDES(mSwitchOnTaskMutex, mSwitchCallbackMutex, mModeMutex, mSessionMutex);
    Return<void> switchOffVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                        switchOffVirtualCamera_cb _hidl_cb) override
        EXCLUDES(mSwitchOffTaskMutex, mSwitchCallbackMutex, mModeMutex, mSessionMutex);
    // Any binder thread; no lock.
    Return<void> getVirtualCameraIdList(getVirtualCameraIdList_cb _hidl_cb) override;

    // IBase, for `lshal debug`: the service's state and its switch history as
    // text. A binder thread. Never calls out and never waits on a remote: the
    // locks it reads under are only tried, each until a deadline shared by the
    // whole dump (ChannelDebugDump.cpp).
    Return<void> debug(const ::android::hardware::hidl_handle& fd,
                       const hidl_vec<hidl_string>& options) override;
    // The history as `--history` prints it. Any thread; takes the history's
    // leaf lock only.
    std::string SwitchHistoryText() const;
    // What a dump writes for a lock it could not get: "busy", and the switch
    // step running now, if any. Any thread; takes the history's leaf lock.
    std::string BusyText() const;

    // The translator's side: traffic of a running virtual camera.

    // The pipeline's binder thread, through the translator with
    // g_requestMutex (capture, flush) or g_metaMutex (metadata) held.
    // mSessionMutex briefly, then mChannelCallbackMutex through the remote call.
    int32_t ProcessCaptureRequest(int32_t virCamId, const hidl_vec<vircam::VirImageBuffer>& buffers)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    int32_t ProcessMetaRequest(int32_t virCamId, const vircam::VirMetaRequest& request)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    int32_t Flush(int32_t virCamId) EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // The pipeline's binder thread, through the translator with g_bufferMutex
    // held. mModeMutex, mSessionMutex and mChannelCallbackMutex one at a time.
    int32_t Close(int32_t virCamId) EXCLUDES(mModeMutex, mChannelCallbackMutex, mSessionMutex);
    // The pipeline's binder thread, through the translator with
    // g_configStreamMutex held. mChannelCallbackMutex through the remote
    // call, released before the wait on mConfigStream.mutex.
    int32_t ConfigureStreams(int32_t virCamId, const hidl_vec<vircam::VirStream>& streams)
        EXCLUDES(mChannelCallbackMutex, mConfigStream.mutex, mSessionMutex);
    // The pipeline's binder thread (through the translator); mHalInit.mutex.
    void SetHalInitStatus() EXCLUDES(mHalInit.mutex);
    // A remote channel's binder thread (notify); mPhysicalCameraIdMutex.
    void SavePhysicalCameraID(const std::string& msg) EXCLUDES(mPhysicalCameraIdMutex);
    // The constructor and the switch-on worker; no lock (the translator's
    // channel link is atomic).
    void InitCameraTrans();

    // Session table: any thread; each takes mSessionMutex alone and logs
    // after releasing it.
    std::shared_ptr<VirCamSession> GetVirCamSession(const std::string& deviceId,
                                                    const std::string& serviceId)
        EXCLUDES(mSessionMutex);
    std::shared_ptr<VirCamSession> GetVirCamSessionBySessionId(uint32_t sessionId, SessionType type)
        EXCLUDES(mSessionMutex);
    std::shared_ptr<VirCamSession> GetVirCamSessionByVirCamId(int32_t virCamId)
        EXCLUDES(mSessionMutex);
    bool CheckVirCamBusy(const std::string& deviceId, const std::string& serviceId)
        EXCLUDES(mSessionMutex);

    // State reads for diagnostics and tests: any thread, each under the one
    // lock of what it reads.
    int32_t GetCameraMode() EXCLUDES(mModeMutex);
    bool HasChannelCallback(const ChannelKey& key) EXCLUDES(mChannelCallbackMutex);
    bool HasDeathRecipient(const ChannelKey& key) EXCLUDES(mDeathRecipientMutex);
    bool HasSwitchCallback() EXCLUDES(mSwitchCallbackMutex);
    std::string GetPhysicalCameraId() const EXCLUDES(mPhysicalCameraIdMutex);

private:
    using ChannelCallbackMap = std::map<ChannelKey, sp<vircam::IVirCameraChannelCallback>>;
    using DeathRecipientMap = std::map<ChannelKey, sp<ListenerDeathRecipient>>;
    using SessionMap = std::map<ChannelKey, std::shared_ptr<VirCamSession>>;

    // Callback registry and death watch.

    // The registering binder thread, no lock held: linkToDeath outside any
    // lock, then mDeathRecipientMutex (with the unlink of a replaced
    // recipient inside it).
    void SaveLinkToDeath(const ChannelKey& key,
                         const sp<vircam::IVirCameraChannelCallback>& callback)
        EXCLUDES(mDeathRecipientMutex);
    // A registration's binder thread inside mChannelCallbackMutex; takes
    // mDeathRecipientMutex twice, unlinking between the two.
    void ClearLinkToDeath(const sp<vircam::IVirCameraChannelCallback>& callback,
                          const std::string& deviceId, const std::string& serviceId)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mDeathRecipientMutex);
    // The switch-off worker or the death-notification thread;
    // mDeathRecipientMutex, then mChannelCallbackMutex, never together.
    void DirectClearLinkToDeath(const std::string& deviceId, const std::string& serviceId)
        EXCLUDES(mDeathRecipientMutex, mChannelCallbackMutex);
    // The death-notification thread; mSwitchCallbackMutex.
    void DirectClearMgtCb() EXCLUDES(mSwitchCallbackMutex);
    // Whichever thread holds the registry (a step, a request, a
    // registration). An empty entry (left by an inserting lookup) counts as
    // missing.
    sp<vircam::IVirCameraChannelCallback> FindChannelCallbackLocked(const ChannelKey& key)
        REQUIRES(mChannelCallbackMutex);
    // The same, logging `format` (deviceid, serviceid) when there is none.
    // Same threads and lock.
    sp<vircam::IVirCameraChannelCallback> FindChannelCallbackOrLog(const char* caller,
                                                                   const char* format,
                                                                   const ChannelKey& key)
        REQUIRES(mChannelCallbackMutex);

    // Intake and workers.

    // The binder thread of the first switch-callback registration;
    // mWorkerLifeMutex.
    void StartSwitchThreads() EXCLUDES(mWorkerLifeMutex);
    // The switch-on worker's body: takes mChannelOptMutex for its whole life.
    void DoSwitchOnTask();
    // The switch-off worker's body.
    void DoSwitchOffTask();
    // A worker's loop: holds the queue mutex throughout (released only while
    // waiting), mSwitchWorkMutex through each sequence, mWorkerLifeMutex on
    // the way out. `queued` is guarded by `queueMutex`.
    void RunSwitchWorker(std::mutex& queueMutex, std::condition_variable& queueCond,
                         const std::shared_ptr<std::vector<SwitchTask>>& queued, bool switchOn)
        EXCLUDES(queueMutex, mSwitchWorkMutex, mWorkerLifeMutex);
    // The destructor's thread; each queue mutex alone, then mWorkerLifeMutex.
    void StopSwitchThreads() EXCLUDES(mSwitchOnTaskMutex, mSwitchOffTaskMutex, mWorkerLifeMutex);
    // Binder threads of switch commands; mSeqNumMutex.
    uint32_t NextSeqNum() EXCLUDES(mSeqNumMutex);
    // The switch-on worker (sequence locks held): mSwitchCallbackMutex,
    // mSessionMutex, then mChannelCallbackMutex for the clean-up of an old
    // session (mSessionMutex again inside it).
    bool PrepareSwitchOn(uint32_t seqNum, const ChannelKey& key) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    // The switch-on worker: g_callbackMutex (translator), then
    // mHalInit.mutex for the wait.
    bool CheckHalInitStatus(uint32_t seqNum) REQUIRES(mSwitchWorkMutex) EXCLUDES(mHalInit.mutex);
    // Any thread; the remote result is sent under mSwitchCallbackMutex (a
    // leaf: nothing is taken inside it). The switch-on worker calls it with
    // the registry and a step mutex held.
    void NotifySwitchOnResult(uint32_t seqNum, int32_t code) EXCLUDES(mSwitchCallbackMutex);
    void NotifySwitchOffResult(uint32_t seqNum, int32_t code) EXCLUDES(mSwitchCallbackMutex);
    using SwitchReport = Return<CameraStatus> (vircam::IVirCameraSwitchCallback::*)(uint32_t,
                                                                                    int32_t);
    // Either of the two above: sends `report` under mSwitchCallbackMutex and
    // logs `failed` with `caller` when the transport fails.
    void NotifySwitchResult(const char* caller, SwitchReport report, const char* failed,
                            uint32_t seqNum, int32_t code) EXCLUDES(mSwitchCallbackMutex);
    // The workers; mModeMutex.
    void SetToSwitchingMode() EXCLUDES(mModeMutex);
    void SetToVirtualMode() EXCLUDES(mModeMutex);
    // Clears the property (translator) under the caller's mModeMutex.
    void SetToPhysicalMode() REQUIRES(mModeMutex);
    // The workers and the pipeline's Close; mModeMutex.
    void BackToPhysicalMode() EXCLUDES(mModeMutex);
    // The switch-on worker; mPhysicalCameraIdMutex, then the property.
    void BindCameraHal() EXCLUDES(mPhysicalCameraIdMutex);
    // Any thread; sets the property, no lock.
    void UnBindCameraHal();
    // The switch-on worker; each step's mutex in turn.
    void ClearReturnedFlags() EXCLUDES(mOpenCtrlSession.mutex, mConfigStream.mutex,
                                       mOpenDataSession.mutex, mHalInit.mutex);

    // Asynchronous operations.

    // The thread of a step wait, around its sleep: release and re-take
    // mChannelOptMutex if this thread is the switch-on worker, which holds it
    // between waits. Whether it is held depends on the calling thread, which
    // the analysis cannot express.
    void ReleaseChannelOpt() NO_THREAD_SAFETY_ANALYSIS;
    void ReacquireChannelOpt() NO_THREAD_SAFETY_ANALYSIS;
    // The awaited result of `step`. Any thread; no lock.
    AwaitedResult& ResultOf(SwitchStep step);
    // The switch-on worker (or a reconfiguring binder thread) with the step's
    // mutex held in `lock`, released while it sleeps for `subject`'s result;
    // mChannelOptMutex dropped around the sleep. The mutex is held again on
    // return, through whatever undo the caller runs.
    int32_t WaitForChannelOptReturnLocked(std::unique_lock<std::mutex>& lock, AwaitedResult& result,
                                          AwaitedResult::Subject subject, int32_t timeoutSeconds,
                                          SwitchStep step) REQUIRES(result.mutex);
    // A notifier's binder thread with the result's mutex held: hands the
    // result to its sleeping waiter or flags it.
    void FlagReturned(const char* caller, AwaitedResult& result, AwaitedResult::Subject subject)
        REQUIRES(result.mutex);
    // The same thread and lock: records the session's flag under mSessionMutex.
    void RecordResult(const ResultNotice& notice, uint32_t sessionId, vircam::VirCamOptRet ret,
                      AwaitedResult& result) REQUIRES(result.mutex) EXCLUDES(mSessionMutex);
    // Any thread; mSessionMutex.
    bool SessionFlag(const std::shared_ptr<VirCamSession>& session, bool VirCamSession::*flag)
        EXCLUDES(mSessionMutex);
    // Steps 1 to 3 after their remote call, on the switch-on worker with the
    // registry held: the step mutex for the wait and any undo.
    bool AfterOpenCtrSession(uint32_t seqNum, const ChannelKey& key,
                             const sp<vircam::IVirCameraChannelCallback>& callback,
                             std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mOpenCtrlSession.mutex);
    bool DealConfigStreamResult(Return<CameraStatus>& callResult,
                                const sp<vircam::IVirCameraChannelCallback>& callback,
                                uint32_t seqNum, const ChannelKey& key,
                                std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mConfigStream.mutex);
    bool DealOpenDataSessionResult(uint32_t seqNum,
                                   const sp<vircam::IVirCameraChannelCallback>& callback,
                                   const ChannelKey& key,
                                   const std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mOpenDataSession.mutex);
    // With the step mutex held in `lock`: the wait and the session's flag.
    bool AwaitStepResult(const char* caller, std::unique_lock<std::mutex>& lock,
                         AwaitedResult& result, const StepWait& wait,
                         const std::shared_ptr<VirCamSession>& session) REQUIRES(result.mutex)
        EXCLUDES(mSessionMutex);
    // A reconfiguring binder thread, registry released; mConfigStream.mutex.
    bool AwaitReconfiguration(const std::shared_ptr<VirCamSession>& session)
        EXCLUDES(mChannelCallbackMutex, mConfigStream.mutex);
    // The registry (and a step mutex) held: closes the remote's sessions,
    // then mSessionMutex to forget the session.
    bool UndoSwitchStep(const sp<vircam::IVirCameraChannelCallback>& callback,
                        const ChannelKey& key) REQUIRES(mChannelCallbackMutex)
        EXCLUDES(mSessionMutex);

    // Switch-on sequence: the switch-on worker, with its queue mutex and
    // mSwitchWorkMutex held. Steps 1 to 3 hold mChannelCallbackMutex each
    // from the callback lookup to the end of the step; session fields are
    // written under mSessionMutex, the id counter under mVirCamIdMutex.
    Return<void> DoSwitchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                         uint32_t seqNum) REQUIRES(mSwitchWorkMutex);
    bool OpenControlSession(uint32_t seqNum, const ChannelKey& key,
                            std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    bool OpenRemoteSession(const OpenSessionStep& step, uint32_t seqNum, const ChannelKey& key,
                           std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    bool ConfigStream(uint32_t seqNum, const ChannelKey& key,
                      std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    bool OpenDataSession(uint32_t seqNum, const ChannelKey& key,
                         std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    // Step4: mVirCamIdMutex, mSessionMutex, then the translator's status.
    bool DoSwitchWork(uint32_t seqNum, const ChannelKey& key,
                      std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mVirCamIdMutex, mSessionMutex);
    // Step5: mSessionMutex to list the old sessions, then the teardown of each.
    void DoWorkAfterSwitch(const ChannelKey& key, uint32_t seqNum) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // Step2 with the registry held: polls the translator's snapshot (its
    // leaf lock), never g_configStreamMutex.
    hidl_vec<vircam::VirStream> WaitForCachedConfigStreams() REQUIRES(mChannelCallbackMutex);
    // No lock: the caller's own copy.
    void ConvertToHidlVirStream(hidl_vec<vircam::VirStream>& streams);
    void ConvertOneToHidlVirStream(vircam::VirStream& stream);
    // Any thread; mSessionMutex.
    void EraseSession(const ChannelKey& key) EXCLUDES(mSessionMutex);

    // Switch-off and teardown.

    // The switch-off worker, queue mutex and mSwitchWorkMutex held; takes
    // its locks one at a time (mModeMutex, mSwitchCallbackMutex, the
    // registry inside ClearChannelResource, mDeathRecipientMutex,
    // mSessionMutex, ...).
    void DoSwitchOffVirtualCamera(uint32_t seqNum, const std::string& deviceId,
                                  const std::string& serviceId) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mModeMutex, mSwitchCallbackMutex);
    // Any thread but the registry's holder: mSessionMutex, then
    // mChannelCallbackMutex through the remote close calls.
    bool ClearChannelResource(const std::string& deviceId, const std::string& serviceId)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // The same for a caller that holds the registry.
    bool ClearChannelResource(const sp<vircam::IVirCameraChannelCallback>& callback,
                              const std::string& deviceId, const std::string& serviceId)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mSessionMutex);
    // The registry held: mSessionMutex for the ids, released before the
    // remote calls.
    void CloseRemoteSessions(const sp<vircam::IVirCameraChannelCallback>& callback,
                             const VirCamSession& session) REQUIRES(mChannelCallbackMutex)
        EXCLUDES(mSessionMutex);

    // Request path.

    // A remote channel's binder thread (notify); no lock but
    // mPhysicalCameraIdMutex in SavePhysicalCameraID.
    void RecvNotifyCmd(int32_t cmd, const std::string& data) EXCLUDES(mPhysicalCameraIdMutex);
    // The pair and data session id of a session, read under its lock.
    struct SessionRoute {
        ChannelKey key;
        uint32_t controlSessionId = 0;
        uint32_t dataSessionId = 0;
    };
    // Any thread; mSessionMutex.
    SessionRoute RouteOf(const VirCamSession& session) EXCLUDES(mSessionMutex);
    // The pipeline's binder thread: mSessionMutex briefly, then the registry
    // through `call`.
    template <typename Call>
    int32_t CallRemote(const char* caller, int32_t virCamId, const char* missingFormat, Call&& call)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    std::shared_ptr<VirCamSession> FindRoute(const char* caller, int32_t virCamId,
                                             SessionRoute& route) EXCLUDES(mSessionMutex);

    // The remote channel callbacks by (deviceId, cut serviceId).
    std::mutex mChannelCallbackMutex;
    std::shared_ptr<ChannelCallbackMap> mChannelCallbackMap PT_GUARDED_BY(mChannelCallbackMutex);
    // Their death recipients, under the same keys.
    std::mutex mDeathRecipientMutex;
    std::shared_ptr<DeathRecipientMap> mDeathRecipientMap PT_GUARDED_BY(mDeathRecipientMutex);
    // Device management's switch callback; the results are sent under it.
    std::mutex mSwitchCallbackMutex;
    sp<vircam::IVirCameraSwitchCallback> mSwitchCallback GUARDED_BY(mSwitchCallbackMutex);
    // The session table, and every field of its sessions.
    std::mutex mSessionMutex;
    std::shared_ptr<SessionMap> mVirCamSessionMap PT_GUARDED_BY(mSessionMutex);

    // Each step's mutex, condition variable and returned-flag, and who waits
    // for it now.
    AwaitedResult mOpenCtrlSession;
    AwaitedResult mOpenDataSession;
    AwaitedResult mConfigStream;
    // Guards no data: held by the switch-on worker between waits, released
    // while it sleeps; no other thread takes it (ReleaseChannelOpt).
    std::mutex mChannelOptMutex;
    // Set in construction and by InitCameraTrans before the first switch;
    // the translator is a process-lifetime object.
    CVirtualSwitchCameraTranslator* mCamTrans = nullptr;
    // Switch command sequence numbers.
    std::mutex mSeqNumMutex;
    uint32_t mSeqNum GUARDED_BY(mSeqNumMutex) = 1;
    // Virtual camera ids, one per Step4.
    std::mutex mVirCamIdMutex;
    int32_t mVirCamIdCounter GUARDED_BY(mVirCamIdMutex) = 100;
    // The workers' queues, each with its condition variable; a worker holds
    // its queue mutex through a whole sequence.
    std::mutex mSwitchOnTaskMutex;
    std::condition_variable mSwitchOnTaskCond;
    std::mutex mSwitchOffTaskMutex;
    std::condition_variable mSwitchOffTaskCond;
    std::shared_ptr<std::vector<SwitchTask>> mSwitchOnTasks PT_GUARDED_BY(mSwitchOnTaskMutex);
    std::shared_ptr<std::vector<SwitchTask>> mSwitchOffTasks PT_GUARDED_BY(mSwitchOffTaskMutex);
    // Keeps switch-on and switch-off sequences from overlapping; no data.
    std::mutex mSwitchWorkMutex;
    // Guards the channel's mode (PHYSICAL, ON_SWITCHING or VIRTUAL); the
    // property is set under it when the mode returns to physical.
    std::mutex mModeMutex;
    int32_t mCameraMode GUARDED_BY(mModeMutex) = 0;
    // Set once by the first switch-callback registration; atomic, as the
    // dump reads it from any thread.
    std::atomic<bool> mSwitchThreadStarted{false};
    // Pairs the HAL-init wait with SetHalInitStatus; the wait never reads
    // its flag.
    AwaitedResult mHalInit;
    // Never changes: the camera id passed on to the translator.
    int32_t mCameraId = -1;
    // Written by a binder thread, read by the switch-on worker: a leaf lock
    // keeps the string whole.
    mutable std::mutex mPhysicalCameraIdMutex;
    std::string mPhysicalCameraId GUARDED_BY(mPhysicalCameraIdMutex);

    // The switch-on worker holds mChannelOptMutex between waits; a wait on any
    // other thread (a stream reconfiguration) has nothing to release.
    std::atomic<std::thread::id> mChannelOptOwner{};
    // Lets the destructor wake the workers and wait until both have left
    // their loops: a condition variable must not be destroyed under a waiter.
    std::mutex mWorkerLifeMutex;
    std::condition_variable mWorkerLifeCond;
    std::atomic<bool> mWorkersStopping{false};
    int32_t mWorkersRunning GUARDED_BY(mWorkerLifeMutex) = 0;

    // For `lshal debug` (ChannelDebugDump.cpp), on the binder thread of the
    // call. Each Dump* method tries its own locks through the deadline, one
    // at a time, reads only while it owns one, and writes "busy" with the
    // running step when one stays held.
    std::string DumpState(const DumpDeadline& deadline);
    void DumpSwitching(std::string& out, const DumpDeadline& deadline);
    void DumpSessions(std::string& out, const DumpDeadline& deadline);
    void DumpChannelCallbacks(std::string& out, const DumpDeadline& deadline);
    // Written by the intake, the workers and the result reports; its own leaf
    // lock, taken last.
    SwitchHistory mHistory;
};

}  // namespace pelcamera

extern "C" {
// Any thread; the one service is made under the static's own initialisation lock.
__attribute__((visibility("default"))) pelcamera::VirCameraChannelForStreamChange*
CreateVirtualCameraStreamChange();
}
