// Copyright (C) 2026 The libvircam Authors

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
//   4. either mDeathRecipientMutex, or one step's AwaitedResult::mutex
// Leaf locks, held briefly with no other lock of the library taken inside:
// mSessionMutex, mModeMutex, mSeqNumMutex, mVirCamIdMutex,
// mPhysicalCameraIdMutex, mCallbackSnapshotMutex, mSwitchCallbackMutex.
//
// What the annotations cannot say, each said here only:
// - Held across remote calls: the registry, by a switch step from its
//   callback lookup through the call, the 3 s result wait and any undo, so a
//   registration or death of that remote waits for the step; by a
//   registration around its unlink, by ClearChannelResource around the close
//   calls and by a reconfiguration around its configStream call.
//   mSwitchCallbackMutex, by every switch result sent to device management,
//   so a callback being replaced never receives one half-way. The property
//   is set under mModeMutex when the mode returns to physical.
// - Released while sleeping: a step's mutex, by its waiter; AwaitedResult.h
//   says why no result is lost. A worker's queue mutex, while it waits for a
//   task.
// - Outside the order: mChannelOptMutex guards no data. The switch-on worker
//   holds it for its whole life and drops it only around a step's sleep; no
//   other thread takes it, so no cycle through it can deadlock.
// - Try-locks only: `lshal debug` tries every lock it reads under until one
//   deadline and reports "busy" instead of waiting (ChannelDebugDump.cpp).
class VirCameraChannelForStreamChange : public vircam::IVirCameraChannel {
public:
    // Watches one remote channel callback; its death queues a switch-off.
    class ListenerDeathRecipient : public ::android::hardware::hidl_death_recipient {
    public:
        // The registering binder thread.
        ListenerDeathRecipient(const sp<VirCameraChannelForStreamChange>& channel,
                               const std::string& deviceId, const std::string& serviceId);
        // The death-notification thread, the only one that touches the
        // members after construction: switchOffVirtualCamera's locks, then
        // those of DirectClearLinkToDeath and DirectClearMgtCb.
        void serviceDied(uint64_t cookie,
                         const ::android::wp<::android::hidl::base::V1_0::IBase>& who) override;
        // The thread that drops the last reference.
        ~ListenerDeathRecipient() override = default;

    private:
        sp<VirCameraChannelForStreamChange> mChannel;
        std::string mDeviceId;
        std::string mServiceId;
        bool mDied = false;
    };

    // Once, in CreateVirtualCameraStreamChange (thread-safe static init).
    VirCameraChannelForStreamChange();
    // Never runs: the one service lives until the process ends.
    ~VirCameraChannelForStreamChange() override = default;

    // IVirCameraChannel, in slot order.

    // A remote channel's binder thread. mDeathRecipientMutex is taken inside
    // the registry while a replaced entry is cleared, then alone for the new
    // death link.
    Return<CameraStatus> registerVirtualChannelCallback(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const sp<vircam::IVirCameraChannelCallback>& callback) override
        EXCLUDES(mChannelCallbackMutex, mDeathRecipientMutex);
    // A remote channel's binder thread.
    Return<CameraStatus> unregisterVirtualChannelCallback(const hidl_string& deviceId,
                                                          const hidl_string& serviceId) override
        EXCLUDES(mChannelCallbackMutex, mDeathRecipientMutex);
    // Device management's binder thread. The first call starts the two workers.
    Return<CameraStatus> registerCameraSwitchCallback(
        const sp<vircam::IVirCameraSwitchCallback>& callback) override
        EXCLUDES(mSwitchCallbackMutex);
    // Device management's binder thread.
    Return<CameraStatus> unregisterCameraSwitchCallback() override EXCLUDES(mSwitchCallbackMutex);
    // The three step results: a remote channel's binder thread (StepResults.cpp).
    Return<void> notifyOpenControlSessionResult(uint32_t sessionId,
                                                vircam::VirCamOptRet ret) override
        EXCLUDES(mOpenCtrlSession.mutex, mSessionMutex);
    Return<void> notifyConfigStreamResult(uint32_t sessionId, vircam::VirCamOptRet ret) override
        EXCLUDES(mConfigStream.mutex, mSessionMutex);
    Return<void> notifyOpenDataSessionResult(uint32_t sessionId, vircam::VirCamOptRet ret) override
        EXCLUDES(mOpenDataSession.mutex, mSessionMutex);
    // A remote channel's binder thread; hands the image to the translator.
    Return<CameraStatus> onVirImageBufferDone(uint32_t sessionId,
                                              const vircam::VirImageResult& result) override;
    // A remote channel's binder thread.
    Return<void> notify(uint32_t id, const hidl_string& msg) override
        EXCLUDES(mPhysicalCameraIdMutex);
    // Any binder thread (not supported).
    Return<CameraStatus> registerVirtualCameraDevice(
        const hidl_string& deviceId, const hidl_string& serviceId,
        const hidl_vec<vircam::CameraFormat>& formats,
        const hidl_vec<vircam::MetaItem>& metas) override;
    Return<CameraStatus> unregisterVirtualCameraDevice(const hidl_string& deviceId,
                                                       const hidl_string& serviceId) override;
    // Device management's binder thread (switch-off also the
    // death-notification thread). An accepted task is queued and answered
    // under the queue mutex, so the answer always precedes the task's start.
    Return<void> switchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                       switchOnVirtualCamera_cb _hidl_cb) override
        EXCLUDES(mSwitchOnTaskMutex, mSwitchCallbackMutex, mModeMutex, mSessionMutex);
    Return<void> switchOffVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                        switchOffVirtualCamera_cb _hidl_cb) override
        EXCLUDES(mSwitchOffTaskMutex, mSwitchCallbackMutex, mModeMutex, mSessionMutex);
    // Any binder thread.
    Return<void> getVirtualCameraIdList(getVirtualCameraIdList_cb _hidl_cb) override;

    // IBase, for `lshal debug`: the service's state and its switch history as
    // text. A binder thread. Never calls out and never waits on a remote.
    Return<void> debug(const ::android::hardware::hidl_handle& fd,
                       const hidl_vec<hidl_string>& options) override;
    // The history as `--history` prints it. Any thread.
    std::string SwitchHistoryText() const;
    // What a dump writes for a lock it could not get: "busy", and the switch
    // step running now, if any. Any thread.
    std::string BusyText() const;

    // The translator's side: traffic of a running virtual camera.

    // The pipeline's binder thread, through the translator with
    // g_requestMutex (capture, flush) or g_metaMutex (metadata) held. The
    // remote call holds no lock of the service.
    int32_t ProcessCaptureRequest(int32_t virCamId, const hidl_vec<vircam::VirImageBuffer>& buffers)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    int32_t ProcessMetaRequest(int32_t virCamId, const vircam::VirMetaRequest& request)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    int32_t Flush(int32_t virCamId) EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // The pipeline's binder thread, through the translator with g_bufferMutex
    // held. Its locks one at a time.
    int32_t Close(int32_t virCamId) EXCLUDES(mModeMutex, mChannelCallbackMutex, mSessionMutex);
    // The pipeline's binder thread, through the translator with
    // g_configStreamMutex held. The registry is released before the wait.
    int32_t ConfigureStreams(int32_t virCamId, const hidl_vec<vircam::VirStream>& streams)
        EXCLUDES(mChannelCallbackMutex, mConfigStream.mutex, mSessionMutex);
    // The pipeline's binder thread, through the translator (StepResults.cpp).
    void SetHalInitStatus() EXCLUDES(mHalInit.mutex);
    // A remote channel's binder thread (notify).
    void SavePhysicalCameraID(const std::string& msg) EXCLUDES(mPhysicalCameraIdMutex);
    // The constructor and the switch-on worker; the translator's channel link
    // is atomic.
    void InitCameraTrans();

    // Session table: any thread; each logs after releasing the table.
    std::shared_ptr<VirCamSession> GetVirCamSession(const std::string& deviceId,
                                                    const std::string& serviceId)
        EXCLUDES(mSessionMutex);
    std::shared_ptr<VirCamSession> GetVirCamSessionBySessionId(uint32_t sessionId, SessionType type)
        EXCLUDES(mSessionMutex);
    std::shared_ptr<VirCamSession> GetVirCamSessionByVirCamId(int32_t virCamId)
        EXCLUDES(mSessionMutex);
    bool CheckVirCamBusy(const std::string& deviceId, const std::string& serviceId)
        EXCLUDES(mSessionMutex);

    // State reads for diagnostics and tests: any thread.
    int32_t GetCameraMode() EXCLUDES(mModeMutex);
    bool HasChannelCallback(const ChannelKey& key) EXCLUDES(mChannelCallbackMutex);
    bool HasDeathRecipient(const ChannelKey& key) EXCLUDES(mDeathRecipientMutex);
    bool HasSwitchCallback() EXCLUDES(mSwitchCallbackMutex);
    std::string GetPhysicalCameraId() const EXCLUDES(mPhysicalCameraIdMutex);

private:
    using ChannelCallbackMap = std::map<ChannelKey, sp<vircam::IVirCameraChannelCallback>>;
    using DeathRecipientMap = std::map<ChannelKey, sp<ListenerDeathRecipient>>;
    using SessionMap = std::map<ChannelKey, std::shared_ptr<VirCamSession>>;

    // ---- VirCameraChannelForStreamChange.cpp: mode, property, physical id.
    // The workers, and the pipeline's Close.

    void SetToSwitchingMode() EXCLUDES(mModeMutex);
    void SetToVirtualMode() EXCLUDES(mModeMutex);
    // Clears the property under the caller's lock.
    void SetToPhysicalMode() REQUIRES(mModeMutex);
    void BackToPhysicalMode() EXCLUDES(mModeMutex);
    void BindCameraHal() EXCLUDES(mPhysicalCameraIdMutex);
    void UnBindCameraHal();

    // Set in construction and by InitCameraTrans before the first switch; the
    // translator is a process-lifetime object.
    CVirtualSwitchCameraTranslator* mCamTrans = nullptr;
    // Never changes: the camera id passed on to the translator.
    int32_t mCameraId = -1;
    // PHYSICAL, ON_SWITCHING or VIRTUAL.
    std::mutex mModeMutex;
    int32_t mCameraMode GUARDED_BY(mModeMutex) = 0;
    // Written by a remote's binder thread, read by the switch-on worker.
    mutable std::mutex mPhysicalCameraIdMutex;
    std::string mPhysicalCameraId GUARDED_BY(mPhysicalCameraIdMutex);

    // ---- ChannelCallbackRegistry.cpp: remote channel callbacks and their
    // death watch, and the switch callback. Registering binder threads and the
    // death-notification thread; the lookups whoever holds the registry.

    // linkToDeath outside any lock, then the death registry.
    void SaveLinkToDeath(const ChannelKey& key,
                         const sp<vircam::IVirCameraChannelCallback>& callback)
        EXCLUDES(mDeathRecipientMutex);
    // Takes the death registry twice, unlinking between the two.
    void ClearLinkToDeath(const sp<vircam::IVirCameraChannelCallback>& callback,
                          const std::string& deviceId, const std::string& serviceId)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mDeathRecipientMutex);
    // The switch-off worker or the death-notification thread; the two
    // registries one after the other.
    void DirectClearLinkToDeath(const std::string& deviceId, const std::string& serviceId)
        EXCLUDES(mDeathRecipientMutex, mChannelCallbackMutex);
    void DirectClearMgtCb() EXCLUDES(mSwitchCallbackMutex);
    // An empty entry (left by an inserting lookup) counts as missing.
    sp<vircam::IVirCameraChannelCallback> FindChannelCallbackLocked(const ChannelKey& key)
        REQUIRES(mChannelCallbackMutex);
    // The same, logging `format` (deviceid, serviceid) when there is none.
    sp<vircam::IVirCameraChannelCallback> FindChannelCallbackOrLog(const char* caller,
                                                                   const char* format,
                                                                   const ChannelKey& key)
        REQUIRES(mChannelCallbackMutex);
    // Whoever changed the registry, before releasing it: publishes a copy for
    // the request path.
    void PublishCallbacksLocked() REQUIRES(mChannelCallbackMutex) EXCLUDES(mCallbackSnapshotMutex);
    // The pipeline's request path: the key's callback in the published copy.
    sp<vircam::IVirCameraChannelCallback> PublishedCallback(const ChannelKey& key)
        EXCLUDES(mCallbackSnapshotMutex);

    // By (deviceId, cut serviceId).
    std::mutex mChannelCallbackMutex;
    std::shared_ptr<ChannelCallbackMap> mChannelCallbackMap PT_GUARDED_BY(mChannelCallbackMutex);
    // Under the same keys.
    std::mutex mDeathRecipientMutex;
    std::shared_ptr<DeathRecipientMap> mDeathRecipientMap PT_GUARDED_BY(mDeathRecipientMutex);
    // What the request path reads instead of the registry: a copy of the
    // callback map, replaced whole, never changed in place.
    std::mutex mCallbackSnapshotMutex;
    std::shared_ptr<const ChannelCallbackMap> mCallbackSnapshot GUARDED_BY(mCallbackSnapshotMutex);
    std::mutex mSwitchCallbackMutex;
    sp<vircam::IVirCameraSwitchCallback> mSwitchCallback GUARDED_BY(mSwitchCallbackMutex);

    // ---- VirCamSessionTable.cpp: the session table and every lookup in
    // it. Any thread.

    // The pair and the session ids of a session, read together.
    struct SessionRoute {
        ChannelKey key;
        uint32_t controlSessionId = 0;
        uint32_t dataSessionId = 0;
    };
    SessionRoute RouteOf(const VirCamSession& session) EXCLUDES(mSessionMutex);
    bool SessionFlag(const std::shared_ptr<VirCamSession>& session, bool VirCamSession::*flag)
        EXCLUDES(mSessionMutex);
    void EraseSession(const ChannelKey& key) EXCLUDES(mSessionMutex);

    // The table, and every field of its sessions.
    std::mutex mSessionMutex;
    std::shared_ptr<SessionMap> mVirCamSessionMap PT_GUARDED_BY(mSessionMutex);

    // ---- SwitchWorkers.cpp: the two workers and their queues. The intake
    // runs on binder threads, each worker on its own detached thread.

    // The binder thread of the first switch-callback registration. The
    // workers run until the process ends.
    void StartSwitchThreads();
    // The switch-on worker's body; holds mChannelOptMutex for its whole life.
    void DoSwitchOnTask();
    void DoSwitchOffTask();
    // A worker's loop; never returns. `queued` is guarded by `queueMutex`.
    void RunSwitchWorker(std::mutex& queueMutex, std::condition_variable& queueCond,
                         const std::shared_ptr<std::vector<SwitchTask>>& queued, bool switchOn)
        EXCLUDES(queueMutex, mSwitchWorkMutex);
    uint32_t NextSeqNum() EXCLUDES(mSeqNumMutex);

    // Switch command sequence numbers, one counter for on and off.
    std::mutex mSeqNumMutex;
    uint32_t mSeqNum GUARDED_BY(mSeqNumMutex) = 1;
    std::mutex mSwitchOnTaskMutex;
    std::condition_variable mSwitchOnTaskCond;
    std::mutex mSwitchOffTaskMutex;
    std::condition_variable mSwitchOffTaskCond;
    std::shared_ptr<std::vector<SwitchTask>> mSwitchOnTasks PT_GUARDED_BY(mSwitchOnTaskMutex);
    std::shared_ptr<std::vector<SwitchTask>> mSwitchOffTasks PT_GUARDED_BY(mSwitchOffTaskMutex);
    // Keeps switch-on and switch-off sequences from overlapping; no data.
    std::mutex mSwitchWorkMutex;
    // Set once by the first switch-callback registration; the dump reads it
    // from any thread.
    std::atomic<bool> mSwitchThreadStarted{false};

    // ---- SwitchOnSequence.cpp: the switch-on, in the order it runs. The
    // switch-on worker, with its queue mutex and mSwitchWorkMutex held.

    // One remote step (control session, stream configuration, data session):
    // its call, its wait, its result notice, its session field, its code and
    // its texts, in one row (RemoteStep.h). The rows are indexed by SwitchStep.
    struct RemoteStep;
    static const RemoteStep kOpenControlStep;
    static const RemoteStep kConfigStreamStep;
    static const RemoteStep kOpenDataStep;
    static const RemoteStep& StepOf(SwitchStep step);

    Return<void> DoSwitchOnVirtualCamera(const hidl_string& deviceId, const hidl_string& serviceId,
                                         uint32_t seqNum) REQUIRES(mSwitchWorkMutex);
    bool CheckHalInitStatus(uint32_t seqNum) REQUIRES(mSwitchWorkMutex) EXCLUDES(mHalInit.mutex);
    bool PrepareSwitchOn(uint32_t seqNum, const ChannelKey& key) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    // Step1 to Step3: short calls into RunRemoteStep with their rows.
    bool OpenControlSession(uint32_t seqNum, const ChannelKey& key,
                            std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    bool ConfigStream(uint32_t seqNum, const ChannelKey& key,
                      std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    bool OpenDataSession(uint32_t seqNum, const ChannelKey& key,
                         std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    bool RunRemoteStep(const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
                       std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex);
    // A row's call: the control or the data session's open call, and the
    // stream configuration's. Each goes on to the step's result.
    bool CallOpenSession(const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
                         const sp<vircam::IVirCameraChannelCallback>& callback,
                         std::shared_ptr<VirCamSession>& session) REQUIRES(mChannelCallbackMutex)
        EXCLUDES(mSessionMutex);
    bool CallConfigStream(const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
                          const sp<vircam::IVirCameraChannelCallback>& callback,
                          std::shared_ptr<VirCamSession>& session) REQUIRES(mChannelCallbackMutex)
        EXCLUDES(mConfigStream.mutex, mSessionMutex);
    // Polls the translator's snapshot (its leaf lock), never
    // g_configStreamMutex, so the order cannot invert with a reconfiguration.
    hidl_vec<vircam::VirStream> WaitForCachedConfigStreams() REQUIRES(mChannelCallbackMutex);
    // The caller's own copy; also the reconfiguration's.
    void ConvertToHidlVirStream(hidl_vec<vircam::VirStream>& streams);
    void ConvertOneToHidlVirStream(vircam::VirStream& stream);
    // A step's result, after its call: short calls into AwaitRemoteStep.
    bool AfterOpenCtrSession(uint32_t seqNum, const ChannelKey& key,
                             const sp<vircam::IVirCameraChannelCallback>& callback,
                             std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mOpenCtrlSession.mutex);
    bool DealConfigStreamResult(Return<CameraStatus>& callResult,
                                const sp<vircam::IVirCameraChannelCallback>& callback,
                                uint32_t seqNum, const ChannelKey& key,
                                std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mConfigStream.mutex);
    bool DealOpenDataSessionResult(uint32_t seqNum, const ChannelKey& key,
                                   const sp<vircam::IVirCameraChannelCallback>& callback,
                                   std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mOpenDataSession.mutex);
    // The step's mutex is held from the wait through any undo.
    bool AwaitRemoteStep(const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
                         const sp<vircam::IVirCameraChannelCallback>& callback,
                         const std::shared_ptr<VirCamSession>& session)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mSessionMutex);
    // A failed step: its code to device management, then the undo.
    bool FailRemoteStep(const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
                        const sp<vircam::IVirCameraChannelCallback>& callback)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mSwitchCallbackMutex, mSessionMutex);
    bool UndoSwitchStep(const sp<vircam::IVirCameraChannelCallback>& callback,
                        const ChannelKey& key) REQUIRES(mChannelCallbackMutex)
        EXCLUDES(mSessionMutex);
    // Step4.
    bool DoSwitchWork(uint32_t seqNum, const ChannelKey& key,
                      std::shared_ptr<VirCamSession>& session) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mVirCamIdMutex, mSessionMutex);
    // Step5.
    void DoWorkAfterSwitch(const ChannelKey& key, uint32_t seqNum) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // The result; also the intake's refusal, on a binder thread.
    void NotifySwitchOnResult(uint32_t seqNum, int32_t code) EXCLUDES(mSwitchCallbackMutex);
    using SwitchReport = Return<CameraStatus> (vircam::IVirCameraSwitchCallback::*)(uint32_t,
                                                                                    int32_t);
    // Either switch result: sends `report` and logs `failed` with `caller`
    // when the transport fails.
    void NotifySwitchResult(const char* caller, SwitchReport report, const char* failed,
                            uint32_t seqNum, int32_t code) EXCLUDES(mSwitchCallbackMutex);

    // Virtual camera ids, one per Step4.
    std::mutex mVirCamIdMutex;
    int32_t mVirCamIdCounter GUARDED_BY(mVirCamIdMutex) = 100;

    // ---- StepResults.cpp: the wait/notify protocol of the step results.
    // The waiter is the switch-on worker or a reconfiguring binder thread, the
    // notifier a remote channel's binder thread.

    // With the step's mutex held in `lock`. mChannelOptMutex is dropped
    // around the sleep.
    int32_t WaitForChannelOptReturnLocked(std::unique_lock<std::mutex>& lock, AwaitedResult& result,
                                          AwaitedResult::Subject subject, int32_t timeoutSeconds,
                                          SwitchStep step) REQUIRES(result.mutex);
    // The wait, then the session's flag; `caller` names the lines. `result`
    // is the step's own, named for the analysis.
    bool AwaitStepResult(const char* caller, std::unique_lock<std::mutex>& lock,
                         AwaitedResult& result, const RemoteStep& step,
                         const std::shared_ptr<VirCamSession>& session) REQUIRES(result.mutex)
        EXCLUDES(mSessionMutex);
    // Around a wait's sleep, if this thread is the switch-on worker. Whether
    // it holds mChannelOptMutex depends on the calling thread, which the
    // analysis cannot express.
    void ReleaseChannelOpt() NO_THREAD_SAFETY_ANALYSIS;
    void ReacquireChannelOpt() NO_THREAD_SAFETY_ANALYSIS;
    // A notifier's whole call, under the step's mutex.
    void RecordResult(const RemoteStep& step, uint32_t sessionId, vircam::VirCamOptRet ret)
        EXCLUDES(mSessionMutex);
    // Hands the result to its sleeping waiter or flags it.
    void FlagReturned(const char* caller, AwaitedResult& result, AwaitedResult::Subject subject)
        REQUIRES(result.mutex);
    // At the start and the end of a switch-on; each flag under its own mutex.
    void ClearReturnedFlags() EXCLUDES(mOpenCtrlSession.mutex, mConfigStream.mutex,
                                       mOpenDataSession.mutex, mHalInit.mutex);

    AwaitedResult mOpenCtrlSession;
    AwaitedResult mOpenDataSession;
    AwaitedResult mConfigStream;
    // Pairs the HAL-init wait with SetHalInitStatus; the wait never reads its flag.
    AwaitedResult mHalInit;
    std::mutex mChannelOptMutex;
    std::atomic<std::thread::id> mChannelOptOwner{};

    // ---- SwitchOffSequence.cpp: the switch-off and channel teardown. The
    // switch-off worker, with its queue mutex and mSwitchWorkMutex held;
    // ClearChannelResource any thread.

    void DoSwitchOffVirtualCamera(uint32_t seqNum, const std::string& deviceId,
                                  const std::string& serviceId) REQUIRES(mSwitchWorkMutex)
        EXCLUDES(mChannelCallbackMutex, mModeMutex, mSwitchCallbackMutex);
    void NotifySwitchOffResult(uint32_t seqNum, int32_t code) EXCLUDES(mSwitchCallbackMutex);
    bool ClearChannelResource(const std::string& deviceId, const std::string& serviceId)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // The same for a caller that holds the registry.
    bool ClearChannelResource(const sp<vircam::IVirCameraChannelCallback>& callback,
                              const std::string& deviceId, const std::string& serviceId)
        REQUIRES(mChannelCallbackMutex) EXCLUDES(mSessionMutex);
    void CloseRemoteSessions(const sp<vircam::IVirCameraChannelCallback>& callback,
                             const VirCamSession& session) REQUIRES(mChannelCallbackMutex)
        EXCLUDES(mSessionMutex);

    // ---- VirCamRequestPath.cpp: traffic of a running virtual camera. The
    // pipeline's binder threads; notify a remote's.

    void RecvNotifyCmd(int32_t cmd, const std::string& data) EXCLUDES(mPhysicalCameraIdMutex);
    template <typename Call>
    int32_t CallRemote(const char* caller, int32_t virCamId, const char* missingFormat, Call&& call)
        EXCLUDES(mChannelCallbackMutex, mSessionMutex);
    // The session of a virtual camera and its route; null after logging.
    std::shared_ptr<VirCamSession> FindRoute(const char* caller, int32_t virCamId,
                                             SessionRoute& route) EXCLUDES(mSessionMutex);
    // A reconfiguration's wait, as Step2's, with the registry released.
    bool AwaitReconfiguration(const std::shared_ptr<VirCamSession>& session)
        EXCLUDES(mChannelCallbackMutex, mConfigStream.mutex);

    // ---- ChannelDebugDump.cpp: `lshal debug`, on the binder thread of the
    // call. Each Dump* method reads only under a lock it got by trying.

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
