// Copyright (C) 2026 The libvircam Authors

// What the host runtime does where a device's binder transport decides the
// outcome: deaths of peers that died unnoticed, deaths on several threads,
// arguments that die with their call, and bounded binder pools with nested
// calls on the waiting thread.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hidl/HidlRemote.h>
#include <hostproxy/HostProxyVirCameraChannel.h>
#include <hostproxy/HostProxyVirCameraChannelCallback.h>
#include <hostproxy/HostProxyVirCameraSwitchCallback.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "support/FakeRemoteChannel.h"
#include "support/NativeBuffer.h"

namespace vircam_test {
namespace {

using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hardware::hidl_handle;
using android::hardware::hidl_string;
using android::hardware::hidl_vec;
using android::hardware::RemoteProcess;
using android::hardware::Return;
using android::hidl::base::V1_0::IBase;
using CameraStatus = android::hardware::camera::common::V1_0::Status;
using std::chrono::milliseconds;

// A switch callback whose two methods run whatever the test says.
class ScriptedSwitchCallback : public vircam::IVirCameraSwitchCallback {
public:
    Return<CameraStatus> notifySwitchOnResult(uint32_t seqNum, int32_t result) override {
        onResult(seqNum, result);
        return CameraStatus::OK;
    }
    Return<CameraStatus> notifySwitchOffResult(uint32_t seqNum, int32_t result) override {
        offResult(seqNum, result);
        return CameraStatus::OK;
    }
    std::function<void(uint32_t, int32_t)> onResult = [](uint32_t, int32_t) {};
    std::function<void(uint32_t, int32_t)> offResult = [](uint32_t, int32_t) {};
};

struct ScriptedPeer {
    sp<ScriptedSwitchCallback> fake = new ScriptedSwitchCallback();
    sp<RemoteProcess> process = new RemoteProcess();
    sp<vircam::IVirCameraSwitchCallback> proxy =
        new vircam::HostProxyVirCameraSwitchCallback(fake, process);
};

class Recipient : public hidl_death_recipient {
public:
    void serviceDied(uint64_t /*cookie*/, const wp<IBase>& /*who*/) override {
        onDeathThread = android::hardware::onDeathNotificationThread();
        during();
        ++deaths;
    }
    std::function<void()> during = [] {};
    std::atomic<int> deaths{0};
    std::atomic<bool> onDeathThread{false};
};

// Both ends meet, or the wait gives up (a stand-in that serialises deaths).
class Meeting {
public:
    bool Arrive(int expected, milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mLock);
        ++mArrived;
        mWake.notify_all();
        return mWake.wait_for(lock, timeout, [&] { return mArrived >= expected; });
    }

private:
    std::mutex mLock;
    std::condition_variable mWake;
    int mArrived = 0;
};

TEST(UnnoticedDeathTest, ALinkToAPeerThatDiedUnnoticedSucceedsAndBringsTheNotice) {
    ScriptedPeer peer;
    peer.process->kill();  // nobody here was linked
    EXPECT_TRUE(peer.proxy->notifySwitchOnResult(2, 300).isDeadObject());

    sp<Recipient> first = new Recipient();
    std::promise<void> stored;
    std::shared_future<void> storedSeen = stored.get_future().share();
    std::atomic<bool> deliveredBeforeStored{false};
    first->during = [&] {
        deliveredBeforeStored = storedSeen.wait_for(milliseconds(0)) != std::future_status::ready;
    };
    ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(first, 1)));
    // The notice may come before the linking thread goes on.
    android::hardware::waitForDeathNotifications();
    stored.set_value();
    EXPECT_EQ(1, first->deaths.load());
    EXPECT_TRUE(first->onDeathThread.load());
    EXPECT_TRUE(deliveredBeforeStored.load());

    // The notice has been received: further links fail and nothing comes.
    sp<Recipient> second = new Recipient();
    EXPECT_FALSE(static_cast<bool>(peer.proxy->linkToDeath(second, 2)));
    android::hardware::waitForDeathNotifications();
    EXPECT_EQ(0, second->deaths.load());
    EXPECT_EQ(1, first->deaths.load());
}

// Links made while the notice is on its way are told with it, once.
TEST(UnnoticedDeathTest, LinksMadeWhileTheNoticeIsInFlightAreToldOnce) {
    ScriptedPeer peer;
    sp<Recipient> early = new Recipient();
    sp<Recipient> late = new Recipient();
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    early->during = [&] { released.wait(); };
    ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(early, 0)));
    // Every notification thread busy with another peer's death: the notice
    // waits in the queue.
    std::vector<ScriptedPeer> blockers(android::hardware::deathNotificationThreads());
    std::vector<sp<Recipient>> holders;
    std::atomic<int> holding{0};
    for (auto& blocker : blockers) {
        sp<Recipient> holder = new Recipient();
        holder->during = [&] {
            ++holding;
            released.wait();
        };
        ASSERT_TRUE(static_cast<bool>(blocker.proxy->linkToDeath(holder, 0)));
        holders.push_back(holder);
        blocker.process->kill();
    }
    while (holding.load() < static_cast<int>(blockers.size())) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    peer.process->kill();
    EXPECT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(late, 0)));
    release.set_value();
    android::hardware::waitForDeathNotifications();
    EXPECT_EQ(1, early->deaths.load());
    EXPECT_EQ(1, late->deaths.load());
    for (const auto& holder : holders) {
        EXPECT_EQ(1, holder->deaths.load());
    }
}

TEST(DeathThreadsTest, TwoPeersDeathsAreHandledAtTheSameTime) {
    ScriptedPeer a;
    ScriptedPeer b;
    Meeting meeting;
    std::atomic<int> met{0};
    sp<Recipient> ra = new Recipient();
    sp<Recipient> rb = new Recipient();
    ra->during = [&] { met += meeting.Arrive(2, milliseconds(2000)) ? 1 : 0; };
    rb->during = [&] { met += meeting.Arrive(2, milliseconds(2000)) ? 1 : 0; };
    ASSERT_TRUE(static_cast<bool>(a.proxy->linkToDeath(ra, 0)));
    ASSERT_TRUE(static_cast<bool>(b.proxy->linkToDeath(rb, 0)));
    a.process->kill();
    b.process->kill();
    android::hardware::waitForDeathNotifications();  // "all delivered"
    EXPECT_EQ(1, ra->deaths.load());
    EXPECT_EQ(1, rb->deaths.load());
    EXPECT_EQ(2, met.load());
}

TEST(DeathThreadsTest, OnePeersRecipientsAreToldOnceEachOneAfterTheOther) {
    ScriptedPeer peer;
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::vector<sp<Recipient>> recipients;
    for (int i = 0; i < 4; ++i) {
        sp<Recipient> r = new Recipient();
        r->during = [&] {
            const int now = ++inside;
            most = std::max(most.load(), now);
            std::this_thread::sleep_for(milliseconds(5));
            --inside;
        };
        ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(r, 0)));
        recipients.push_back(r);
    }
    peer.process->kill();
    android::hardware::waitForDeathNotifications();
    for (const auto& r : recipients) {
        EXPECT_EQ(1, r->deaths.load());
    }
    EXPECT_EQ(1, most.load());
}

// A remote channel that keeps what a device would free: pointers into its
// arguments and the descriptors of a handle.
class KeepingRemote : public FakeRemoteChannel {
public:
    Return<void> openControlSession(const hidl_string& deviceId, const hidl_string& name,
                                    openControlSession_cb cb) override {
        nameSeen = name.c_str();
        deviceIdSeen = &deviceId;
        cb(CameraStatus::OK, 41);
        returned = true;
        return android::hardware::Void();
    }
    Return<void> processCaptureRequest(uint32_t /*id*/,
                                       const hidl_vec<vircam::VirImageBuffer>& buffers,
                                       processCaptureRequest_cb cb) override {
        handleSeen = buffers[0].buffer.getNativeHandle();
        fdSeen = handleSeen->data[0];
        fdOpenDuringCall = fcntl(fdSeen, F_GETFD) != -1;
        fileSeen = FileOf(handleSeen);
        cb(CameraStatus::OK, static_cast<uint32_t>(buffers.size()));
        return android::hardware::Void();
    }
    const char* nameSeen = nullptr;
    const hidl_string* deviceIdSeen = nullptr;
    const native_handle_t* handleSeen = nullptr;
    int fdSeen = -1;
    bool fdOpenDuringCall = false;
    ino_t fileSeen = 0;
    std::atomic<bool> returned{false};
};

TEST(CallArgumentsTest, TheCalleeGetsCopiesThatDieWithTheCall) {
    sp<KeepingRemote> remote = new KeepingRemote();
    sp<RemoteProcess> process = new RemoteProcess();
    sp<vircam::IVirCameraChannelCallback> proxy =
        new vircam::HostProxyVirCameraChannelCallback(remote, process);

    const hidl_string deviceId = "dev";
    const hidl_string name = "W_cam";
    bool calledAfterReturn = false;
    uint32_t session = 0;
    ASSERT_TRUE(proxy
                    ->openControlSession(deviceId, name,
                                         [&](CameraStatus, uint32_t id) {
                                             calledAfterReturn = remote->returned.load();
                                             session = id;
                                         })
                    .isOk());
    EXPECT_NE(name.c_str(), remote->nameSeen);
    EXPECT_NE(&deviceId, remote->deviceIdSeen);
    EXPECT_EQ(41u, session);
    // A _cb result reaches the caller once the callee has returned.
    EXPECT_TRUE(calledAfterReturn);

    NativeBuffer buffer;
    hidl_vec<vircam::VirImageBuffer> request(1);
    request[0].buffer = buffer.get();  // lent, not owned, as the buffer cache lends it
    uint32_t processed = 0;
    ASSERT_TRUE(
        proxy->processCaptureRequest(7, request, [&](CameraStatus, uint32_t n) { processed = n; })
            .isOk());
    EXPECT_EQ(1u, processed);
    EXPECT_NE(buffer.get(), remote->handleSeen);
    EXPECT_NE(buffer.get()->data[0], remote->fdSeen);
    EXPECT_TRUE(remote->fdOpenDuringCall);
    EXPECT_EQ(buffer.file(), remote->fileSeen);
    // The callee's descriptor was closed when the call returned; the
    // caller's is untouched.
    EXPECT_EQ(-1, fcntl(remote->fdSeen, F_GETFD));
    EXPECT_NE(-1, fcntl(buffer.get()->data[0], F_GETFD));
    EXPECT_EQ(buffer.get(), request[0].buffer.getNativeHandle());
}

// A service of this process, reached by a peer: the same copies, on this
// process's pool, and a _cb's results only inside the callback.
class EchoChannel : public vircam::IVirCameraChannel {
public:
#define UNUSED_STATUS(...)                      \
    Return<CameraStatus> __VA_ARGS__ override { \
        return CameraStatus::OK;                \
    }
    UNUSED_STATUS(registerVirtualChannelCallback(const hidl_string&, const hidl_string&,
                                                 const sp<vircam::IVirCameraChannelCallback>&))
    UNUSED_STATUS(unregisterVirtualChannelCallback(const hidl_string&, const hidl_string&))
    UNUSED_STATUS(registerCameraSwitchCallback(const sp<vircam::IVirCameraSwitchCallback>&))
    UNUSED_STATUS(unregisterCameraSwitchCallback())
    UNUSED_STATUS(registerVirtualCameraDevice(const hidl_string&, const hidl_string&,
                                              const hidl_vec<vircam::CameraFormat>&,
                                              const hidl_vec<vircam::MetaItem>&))
    UNUSED_STATUS(unregisterVirtualCameraDevice(const hidl_string&, const hidl_string&))
#undef UNUSED_STATUS
    Return<void> notifyOpenControlSessionResult(uint32_t, vircam::VirCamOptRet) override {
        return android::hardware::Void();
    }
    Return<void> notifyConfigStreamResult(uint32_t, vircam::VirCamOptRet) override {
        return android::hardware::Void();
    }
    Return<void> notifyOpenDataSessionResult(uint32_t, vircam::VirCamOptRet) override {
        return android::hardware::Void();
    }
    Return<CameraStatus> onVirImageBufferDone(uint32_t, const vircam::VirImageResult&) override {
        return CameraStatus::OK;
    }
    Return<void> notify(uint32_t, const hidl_string& msg) override {
        msgSeen = msg.c_str();
        servedBy = std::this_thread::get_id();
        return android::hardware::Void();
    }
    Return<void> switchOnVirtualCamera(const hidl_string&, const hidl_string&,
                                       switchOnVirtualCamera_cb cb) override {
        cb(CameraStatus::OK, 2);
        return android::hardware::Void();
    }
    Return<void> switchOffVirtualCamera(const hidl_string&, const hidl_string&,
                                        switchOffVirtualCamera_cb cb) override {
        cb(CameraStatus::OK, 3);
        return android::hardware::Void();
    }
    Return<void> getVirtualCameraIdList(getVirtualCameraIdList_cb cb) override {
        hidl_vec<hidl_string> ids = {"101"};
        idsGiven = ids.data();
        cb(CameraStatus::OK, ids);
        return android::hardware::Void();
    }
    const char* msgSeen = nullptr;
    const hidl_string* idsGiven = nullptr;
    std::thread::id servedBy;
};

TEST(CallArgumentsTest, ThisProcessesServiceServesPeersOnItsPoolWithCopies) {
    sp<EchoChannel> service = new EchoChannel();
    sp<vircam::IVirCameraChannel> proxy =
        new vircam::HostProxyVirCameraChannel(service, android::hardware::thisProcess());
    const hidl_string msg = "{}";
    ASSERT_TRUE(proxy->notify(0, msg).isOk());
    EXPECT_NE(msg.c_str(), service->msgSeen);
    EXPECT_NE(std::this_thread::get_id(), service->servedBy);

    const hidl_string* idsSeen = nullptr;
    std::string first;
    ASSERT_TRUE(proxy
                    ->getVirtualCameraIdList([&](CameraStatus, const hidl_vec<hidl_string>& ids) {
                        idsSeen = ids.data();
                        first = ids[0];
                    })
                    .isOk());
    EXPECT_EQ("101", first);
    EXPECT_NE(service->idsGiven, idsSeen);
    uint32_t seq = 0;
    ASSERT_TRUE(
        proxy->switchOffVirtualCamera("d", "s", [&](CameraStatus, uint32_t s) { seq = s; }).isOk());
    EXPECT_EQ(3u, seq);
}

TEST(BinderPoolTest, CallsBeyondThePoolsBoundWaitForAFreeThread) {
    ScriptedPeer peer;
    peer.process->setBinderThreads(2);
    EXPECT_EQ(2u, peer.process->binderThreads());
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    std::set<std::thread::id> servers;
    std::mutex serversLock;
    peer.fake->onResult = [&](uint32_t, int32_t) {
        const int now = ++inside;
        most = std::max(most.load(), now);
        {
            std::lock_guard<std::mutex> lock(serversLock);
            servers.insert(std::this_thread::get_id());
        }
        std::this_thread::sleep_for(milliseconds(30));
        --inside;
    };
    std::vector<std::thread> callers;
    for (uint32_t i = 0; i < 5; ++i) {
        callers.emplace_back(
            [&, i] { EXPECT_TRUE(peer.proxy->notifySwitchOnResult(i, 0).isOk()); });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(2, most.load());
    EXPECT_EQ(2u, peer.process->peakBusyThreads());
    EXPECT_GE(peer.process->callsThatWaited(), 3u);
    EXPECT_LE(servers.size(), 2u);
}

// Two calls that reach a pool with one idle thread at the same moment: the
// woken thread takes one, and the pool starts another for the second, which
// must not queue behind the first. Here each call waits for the other inside
// its handler, so queued behind each other they would never meet. The race
// lies in the instant between the wake-up and the woken thread running, so
// fresh pools play it several times.
TEST(BinderPoolTest, CallsThatArriveTogetherAtOneIdleThreadRunSideBySide) {
    for (int round = 0; round < 10; ++round) {
        ScriptedPeer peer;
        peer.process->setBinderThreads(2);
        ASSERT_TRUE(peer.proxy->notifySwitchOffResult(0, 0).isOk());  // leaves one idle thread
        std::this_thread::sleep_for(milliseconds(5));                 // and lets it go idle
        Meeting meeting;
        std::atomic<int> met{0};
        peer.fake->onResult = [&](uint32_t, int32_t) {
            met += meeting.Arrive(2, milliseconds(500));
        };
        std::atomic<bool> go{false};
        std::vector<std::thread> callers;
        for (uint32_t i = 0; i < 2; ++i) {
            callers.emplace_back([&, i] {
                while (!go) {
                }
                EXPECT_TRUE(peer.proxy->notifySwitchOnResult(i, 0).isOk());
            });
        }
        go = true;
        for (auto& caller : callers) {
            caller.join();
        }
        ASSERT_EQ(2, met.load()) << "round " << round << ": one call waited behind the other";
    }
}

TEST(BinderPoolTest, ANestedCallRunsOnTheThreadThatWaitsForTheChain) {
    ScriptedPeer caller;  // a peer whose own thread makes the first call
    ScriptedPeer callee;
    caller.process->setBinderThreads(1);
    callee.process->setBinderThreads(1);
    std::thread::id nestedOn;
    std::thread::id calleeOn;
    caller.fake->offResult = [&](uint32_t, int32_t) { nestedOn = std::this_thread::get_id(); };
    callee.fake->onResult = [&](uint32_t, int32_t) {
        calleeOn = std::this_thread::get_id();
        // Back into the caller's process while its thread waits for us.
        EXPECT_TRUE(caller.proxy->notifySwitchOffResult(1, 0).isOk());
    };
    std::thread::id callerThread;
    std::thread run([&] {
        RemoteProcess::ThreadScope scope(caller.process.get());
        callerThread = std::this_thread::get_id();
        EXPECT_TRUE(callee.proxy->notifySwitchOnResult(1, 0).isOk());
    });
    run.join();
    EXPECT_NE(callerThread, calleeOn);
    EXPECT_EQ(callerThread, nestedOn);
    EXPECT_EQ(0u, caller.process->peakBusyThreads());  // never reached the caller's pool
}

TEST(BinderPoolTest, APeersCallsUnrelatedToTheChainStillTakeItsPool) {
    ScriptedPeer a;
    ScriptedPeer b;
    std::thread::id servedOn;
    a.fake->onResult = [&](uint32_t, int32_t) { servedOn = std::this_thread::get_id(); };
    b.fake->onResult = [&](uint32_t, int32_t) {
        EXPECT_TRUE(a.proxy->notifySwitchOnResult(1, 0).isOk());
    };
    const std::thread::id self = std::this_thread::get_id();
    EXPECT_TRUE(b.proxy->notifySwitchOnResult(1, 0).isOk());
    EXPECT_NE(self, servedOn);
    EXPECT_EQ(1u, a.process->peakBusyThreads());
}

}  // namespace
}  // namespace vircam_test
