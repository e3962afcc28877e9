// Copyright (C) 2026 The libvircam Authors

// Registration of remote channels and of the switch callback, and what the
// death of a remote channel sets off.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "support/LogCapture.h"
#include "support/NativeBuffer.h"
#include "support/SwitchHarness.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_test {
namespace {

constexpr const char* kTag = "VirCam_StreamChange";

class ChannelRegistryTest : public ::testing::Test {
protected:
    CameraStatus Register(const std::string& deviceId, const std::string& serviceId,
                          const android::sp<vircam::IVirCameraChannelCallback>& cb) {
        return channel->registerVirtualChannelCallback(deviceId, serviceId, cb);
    }
    CameraStatus Unregister(const std::string& deviceId, const std::string& serviceId) {
        return channel->unregisterVirtualChannelCallback(deviceId, serviceId);
    }

    LogCapture log;
    pelcamera::VirCameraChannelForStreamChange* service = CreateVirtualCameraStreamChange();
    android::sp<vircam::IVirCameraChannel> channel = service;
    RemoteChannel remote;
};

TEST_F(ChannelRegistryTest, ServiceIdsAreKeyedWithoutTheirFirstTwoCharacters) {
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, Register("dev", "ab", remote.proxy));
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, Unregister("dev", "ab"));
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_ERROR, kTag,
                "registerVirtualChannelCallback: serviceid length invalid, service id: a*"));
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, Register("dev", "W_cam", nullptr));

    EXPECT_EQ(CameraStatus::OK, Register("dev", "abc", remote.proxy));
    EXPECT_TRUE(service->HasChannelCallback({"dev", "c"}));
    EXPECT_TRUE(service->HasDeathRecipient({"dev", "c"}));

    EXPECT_EQ(CameraStatus::OK, Register("dev", "W_cam", remote.proxy));
    EXPECT_EQ(CameraStatus::OK, Unregister("dev", "X_cam"));
    EXPECT_FALSE(service->HasChannelCallback({"dev", "cam"}));
    EXPECT_FALSE(service->HasDeathRecipient({"dev", "cam"}));

    log.Clear();
    EXPECT_EQ(CameraStatus::OK, Unregister("dev", "W_unknown"));
    ASSERT_EQ(1u, log.Lines(kTag).size());
    EXPECT_EQ(
        "unregisterVirtualChannelCallback: unregister Virtual Channel Callback, deviceid: d*v, "
        "serviceid: W*******n",
        log.Lines(kTag)[0].message);
}

TEST_F(ChannelRegistryTest, ReRegistrationReplacesAndMovesTheDeathWatch) {
    RemoteChannel replacement;
    ASSERT_EQ(CameraStatus::OK, Register("dev", "W_cam", remote.proxy));
    EXPECT_EQ(1u, remote.process->linkedRecipients());
    ASSERT_EQ(CameraStatus::OK, Register("dev", "W_cam", replacement.proxy));
    EXPECT_TRUE(log.Has(kTag, "the virtual camera has been registed, register again"));
    EXPECT_EQ(0u, remote.process->linkedRecipients());
    EXPECT_EQ(1u, replacement.process->linkedRecipients());

    // The old peer's death is no longer watched; the new one's is.
    remote.process->kill();
    android::hardware::waitForDeathNotifications();
    EXPECT_TRUE(service->HasChannelCallback({"dev", "cam"}));
    replacement.process->kill();
    android::hardware::waitForDeathNotifications();
    EXPECT_FALSE(service->HasChannelCallback({"dev", "cam"}));
    EXPECT_FALSE(service->HasDeathRecipient({"dev", "cam"}));
}

// A proxy that runs a hook just before the library links to it, so a test can
// order two registrations that race.
class GatedChannelProxy : public vircam::HostProxyVirCameraChannelCallback {
public:
    using HostProxyVirCameraChannelCallback::HostProxyVirCameraChannelCallback;
    android::hardware::Return<bool> linkToDeath(
        const android::sp<android::hardware::hidl_death_recipient>& recipient,
        uint64_t cookie) override {
        beforeLink();
        return HostProxyVirCameraChannelCallback::linkToDeath(recipient, cookie);
    }
    std::function<void()> beforeLink;
};

// Two registrations of one channel that race, each through a proxy of its own
// as a device gives every incoming call: B replaces A in the callback map
// before A's death link is saved, so B's SaveLinkToDeath finds A's recipient
// and unlinks it through B's proxy. On a device that unlink fails: A's link
// stays on A's proxy, with a recipient that nothing holds any more. The
// library keeps doing it this way; the peer's death is still reported once,
// through B's link.
TEST_F(ChannelRegistryTest, RacingRegistrationsLeaveTheOldLinkOnTheOldProxy) {
    android::sp<GatedChannelProxy> proxyA = new GatedChannelProxy(remote.fake, remote.process);
    android::sp<GatedChannelProxy> proxyB = new GatedChannelProxy(remote.fake, remote.process);
    std::promise<void> aAtLink;
    std::promise<void> bAtLink;
    std::promise<void> aDone;
    std::shared_future<void> bAtLinkSeen = bAtLink.get_future().share();
    std::shared_future<void> aDoneSeen = aDone.get_future().share();
    proxyA->beforeLink = [&] {
        aAtLink.set_value();
        bAtLinkSeen.wait();
    };
    proxyB->beforeLink = [&] {
        bAtLink.set_value();
        aDoneSeen.wait();
    };

    std::thread registerA([&] {
        EXPECT_EQ(CameraStatus::OK, Register("dev", "W_cam", proxyA));
        aDone.set_value();
    });
    aAtLink.get_future().wait();  // A is in the map; its link is not saved yet
    EXPECT_EQ(CameraStatus::OK, Register("dev", "W_cam", proxyB));
    registerA.join();

    EXPECT_TRUE(log.Has(kTag, "the vircam lnk2death registerd, clear and register again"));
    EXPECT_TRUE(service->HasChannelCallback({"dev", "cam"}));
    // A's link was not removed through B's proxy; its recipient is gone.
    EXPECT_EQ(2u, remote.process->linkedRecipients());
    EXPECT_EQ(1u, remote.process->liveRecipients());

    remote.process->kill();
    android::hardware::waitForDeathNotifications();
    EXPECT_FALSE(service->HasChannelCallback({"dev", "cam"}));
    EXPECT_FALSE(service->HasDeathRecipient({"dev", "cam"}));
}

// Registration casts to the same type and never calls the peer: a peer that
// fails its calls, or is already dead, still registers. A dead remote then
// fails each switch-on in Step1 with 1 and leaves nothing behind, so the next
// command is not refused as busy.
TEST_F(ChannelRegistryTest, RegistrationNeverCallsThePeer) {
    remote.process->failNextCalls("interfaceChain");
    EXPECT_EQ(CameraStatus::OK, Register("dev", "W_cam", remote.proxy));
    EXPECT_TRUE(service->HasChannelCallback({"dev", "cam"}));

    RemoteSwitchCallback devMgt;
    devMgt.process->kill();
    EXPECT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(devMgt.proxy)));
    EXPECT_TRUE(service->HasSwitchCallback());
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(nullptr)));
}

// A proxy whose link waits, once linked, until the runtime has delivered
// every death notice it owes: the death of a peer that died unnoticed is then
// handled before the library stores the recipient.
class DeathFirstChannelProxy : public vircam::HostProxyVirCameraChannelCallback {
public:
    using HostProxyVirCameraChannelCallback::HostProxyVirCameraChannelCallback;
    android::hardware::Return<bool> linkToDeath(
        const android::sp<android::hardware::hidl_death_recipient>& recipient,
        uint64_t cookie) override {
        beforeLink();
        android::hardware::Return<bool> linked =
            HostProxyVirCameraChannelCallback::linkToDeath(recipient, cookie);
        android::hardware::waitForDeathNotifications();
        return linked;
    }
    std::function<void()> beforeLink = [] {};
};

// On a device a remote whose process died before anyone here linked to it
// still links, and its death is reported at once: the registration succeeds
// and its own death handling then removes it, queues a switch-off for the
// pair and forgets the switch callback. Handled before SaveLinkToDeath stores
// the recipient, the death leaves that recipient behind with no callback; it
// holds nothing of the channel service any more and goes with the next
// registration of the pair. A switch-on of the pair before it registers again
// finds no callback, reports nothing and leaves the pair busy.
TEST(DeadPeerRegistrationTest, ARemoteThatDiedUnnoticedRegistersAndIsGoneAtOnce) {
    LogCapture log;
    SwitchHarness h;
    RemoteChannel dead;
    android::sp<DeathFirstChannelProxy> proxy = new DeathFirstChannelProxy(dead.fake, dead.process);
    dead.process->kill();
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(h.channel->registerVirtualChannelCallback(
                                    "devB", "W_cam2", proxy)));
    android::hardware::waitForDeathNotifications();
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "VirCam_StreamChange",
                        "serviceDied: transport channel callback service died"));
    EXPECT_FALSE(h.Registered("devB", "cam2"));
    EXPECT_TRUE(h.service->HasDeathRecipient({"devB", "cam2"}));
    EXPECT_FALSE(h.service->HasSwitchCallback());
    // The death's switch-off is refused: the pair was never switched on.
    ASSERT_TRUE(WaitUntil(
        [&] { return h.Dump({"--history"}).find(" off d**B / c**2 at ") != std::string::npos; }));

    // Switched on before it registers again, the pair has no callback: Step1
    // reports nothing and leaves its session, so the pair stays busy and the
    // next switch-on of it is refused.
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->registerCameraSwitchCallback(h.devMgt.proxy)));
    const size_t resultsBefore = h.devMgt.fake->Results().size();
    const uint32_t seqNum = h.SwitchOn("devB", "cam2").seqNum;
    ASSERT_TRUE(h.WaitForEnd(seqNum));
    EXPECT_TRUE(h.HasSession("devB", "cam2"));
    EXPECT_EQ(resultsBefore, h.devMgt.fake->Results().size());
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, h.SwitchOn("devB", "cam2").status);

    // The notice has reached this process now: a second link to the dead peer
    // fails and nothing more is delivered, so this registration stays.
    log.Clear();
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(h.channel->registerVirtualChannelCallback(
                                    "devB", "W_cam2", proxy)));
    android::hardware::waitForDeathNotifications();
    EXPECT_TRUE(h.Registered("devB", "cam2"));
    EXPECT_TRUE(
        log.Has("VirCam_StreamChange", "the vircam lnk2death registerd, clear and register"));
    EXPECT_FALSE(log.Has("VirCam_StreamChange", "transport channel callback service died"));

    // Still busy: the left session refuses it until a switch-on of another
    // remote clears the sessions of other channels.
    const size_t before = h.devMgt.fake->Results().size();
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, h.SwitchOn("devB", "cam2").status);
    ASSERT_TRUE(h.WaitForResults(before + 1));
    EXPECT_EQ(301, h.devMgt.fake->Results().back().code);
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_FALSE(h.HasSession("devB", "cam2"));
}

// The peer dies between the cast and the link, the death being handled
// while the registering thread still runs: whichever comes first, nothing
// crashes, no registry lock is held across the death, and the pair ends
// unregistered with the switch callback forgotten.
TEST(DeadPeerRegistrationTest, ARemoteDyingBetweenCastAndLinkIsHandledOnce) {
    LogCapture log;
    SwitchHarness h;
    RemoteChannel remote;
    android::sp<DeathFirstChannelProxy> proxy =
        new DeathFirstChannelProxy(remote.fake, remote.process);
    proxy->beforeLink = [&] { remote.process->kill(); };
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(h.channel->registerVirtualChannelCallback(
                                    "devC", "W_cam3", proxy)));
    android::hardware::waitForDeathNotifications();
    EXPECT_EQ(1u, log.Count("VirCam_StreamChange", "transport channel callback service died"));
    EXPECT_FALSE(h.Registered("devC", "cam3"));
    EXPECT_FALSE(h.service->HasSwitchCallback());
    // The registry is free: another remote registers at once.
    RemoteChannel other;
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(h.channel->registerVirtualChannelCallback(
                                    "devD", "W_cam4", other.proxy)));
    EXPECT_TRUE(h.Registered("devD", "cam4"));
}

class DeathFirstTranslatorProxy : public vircam::HostProxyVirCameraTranslatorCallback {
public:
    using HostProxyVirCameraTranslatorCallback::HostProxyVirCameraTranslatorCallback;
    android::hardware::Return<bool> linkToDeath(
        const android::sp<android::hardware::hidl_death_recipient>& recipient,
        uint64_t cookie) override {
        android::hardware::Return<bool> linked =
            HostProxyVirCameraTranslatorCallback::linkToDeath(recipient, cookie);
        android::hardware::waitForDeathNotifications();
        return linked;
    }
};

// The same for a pipeline callback: a pipeline that died unnoticed registers,
// and the death reported at once unregisters its camera before the
// registry stores the recipient. The recipient stays with no callback; having
// reported its death it no longer holds the translator channel, which goes
// when the host drops it.
TEST(DeadPeerRegistrationTest, APipelineThatDiedUnnoticedRegistersAndIsUnregisteredAtOnce) {
    LogCapture log;
    RemoteTranslatorCallback pipeline;
    android::sp<DeathFirstTranslatorProxy> proxy =
        new DeathFirstTranslatorProxy(pipeline.fake, pipeline.process);
    pipeline.process->kill();
    {
        android::sp<pelcamera::VirCameraChannelForTranslator> translatorChannel =
            CreateVirtualCameraTranslator();
        EXPECT_EQ(CameraStatus::OK,
                  static_cast<CameraStatus>(
                      translatorChannel->RegisterCameraTranslatorCallback(0, proxy)));
        android::hardware::waitForDeathNotifications();
        EXPECT_FALSE(
            pelcamera::CVirtualSwitchCameraTranslator::GetInstance()->CheckTranslatorCallback());
        EXPECT_EQ(
            1u, log.Count("VirCam_CTranslator", "UnregisterCameraTranslatorCallback caminfo is 0"));
        const pelcamera::HidlCallbackMgrTranslator::Key key{"W_Translator", "CameraHal_0"};
        EXPECT_FALSE(translatorChannel->CallbackMgr()->HasCallback(key));
        EXPECT_TRUE(translatorChannel->CallbackMgr()->HasDeathRecipient(key));
    }
    EXPECT_TRUE(log.Has("VirCam_CTranslator", "VirCameraChannelForTranslator deconstruct"));
}

TEST_F(ChannelRegistryTest, OnlyTheFirstSwitchCallbackStartsTheWorkers) {
    RemoteSwitchCallback first;
    RemoteSwitchCallback second;
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(first.proxy)));
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(second.proxy)));
    EXPECT_EQ(1u, log.Count(kTag, "start camera switch thread"));
    EXPECT_TRUE(WaitUntil([&] {
        return log.Count(kTag, "Start Execute Switch On task Thread") == 1 &&
               log.Count(kTag, "Start Execute Switch Off task Thread") == 1;
    }));
}

// Two switch-ons of a pair whose remote is not registered, queued before the
// workers start: the newer one leaves its session behind (Step1 finds no
// callback and reports nothing), so the older one's preparation clears it
// through the inserting lookup and leaves an empty registry entry. That entry
// is missing for every lookup, but a registration over it and an
// unregistration of it still treat it as an entry.
TEST(EmptyRegistryEntryTest, RegisteringOverAndUnregisteringAnEmptyEntryClearItsDeathLink) {
    LogCapture log;
    auto* service = CreateVirtualCameraStreamChange();
    android::sp<vircam::IVirCameraChannel> channel(service);
    RemoteTranslatorCallback pipeline;
    pelcamera::CVirtualSwitchCameraTranslator::GetInstance()->SetTransCallback(pipeline.proxy, 0);
    for (const char* id : {"cam1", "cam1", "cam2", "cam2"}) {
        channel
            ->switchOnVirtualCamera(
                "dev", id,
                [](CameraStatus status, uint32_t) { EXPECT_EQ(CameraStatus::OK, status); })
            .isOk();
    }
    RemoteSwitchCallback devMgt;
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(devMgt.proxy)));
    ASSERT_TRUE(WaitUntil([&] { return log.Count(kTag, "set to physical mode") == 4; }));
    ASSERT_EQ(2u, log.Count(kTag, "old switch on session exist, clear it"));
    EXPECT_FALSE(service->HasChannelCallback({"dev", "cam1"}));
    EXPECT_FALSE(service->HasChannelCallback({"dev", "cam2"}));

    log.Clear();
    RemoteChannel remote;
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(channel->registerVirtualChannelCallback(
                                    "dev", "W_cam1", remote.proxy)));
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, kTag,
                        "registerVirtualChannelCallback: the virtual camera has been registed, "
                        "register again, deviceid: d*v, serviceid: W****1"));
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag,
                        "ClearLinkToDeath: can not find callback and linkToDeath info, deviceid: "
                        "d*v, serviceid: c**1"));
    EXPECT_TRUE(service->HasChannelCallback({"dev", "cam1"}));
    EXPECT_TRUE(service->HasDeathRecipient({"dev", "cam1"}));
    EXPECT_EQ(1u, remote.process->linkedRecipients());

    log.Clear();
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(
                                    channel->unregisterVirtualChannelCallback("dev", "W_cam2")));
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag,
                        "ClearLinkToDeath: can not find callback and linkToDeath info, deviceid: "
                        "d*v, serviceid: c**2"));
    // The entry is gone: a second unregistration finds nothing to clear.
    log.Clear();
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(
                                    channel->unregisterVirtualChannelCallback("dev", "W_cam2")));
    EXPECT_EQ(1u, log.Lines(kTag).size());
}

TEST(RemoteDeathTest, ARemoteDyingWhileVirtualBringsTheCameraBack) {
    LogCapture log;
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");

    h.remote.process->kill();
    android::hardware::waitForDeathNotifications();
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_TRUE(WaitUntil([&] { return VirCamProperty() == "0"; }));
    EXPECT_TRUE(WaitUntil([&] { return !h.HasSession("devA", "cam1"); }));
    EXPECT_EQ(pelcamera::PHYSICAL, h.translator->GetCamStatus().camMode);
    EXPECT_FALSE(h.Registered("devA", "cam1"));
    EXPECT_FALSE(h.service->HasDeathRecipient({"devA", "cam1"}));
    // The device-management side must register its callback again.
    EXPECT_FALSE(h.service->HasSwitchCallback());
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "VirCam_StreamChange",
                        "serviceDied: transport channel callback service died"));

    // After registering again, the camera can be switched to a new remote.
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->registerCameraSwitchCallback(h.devMgt.proxy)));
    RemoteChannel& back = h.AddRemote("devA", "cam1", 70);
    const size_t before = h.devMgt.fake->Results().size();
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devA", "cam1").status);
    ASSERT_TRUE(h.WaitForResults(before + 1));
    EXPECT_EQ(300, h.devMgt.fake->Results().back().code);
    EXPECT_EQ("openControlSession W_cam1", back.fake->Calls().at(0));
}

// Step2 keeps the registry for the whole step, so a death during its wait for
// the pipeline's streams waits for the step, and the step's own failure still
// reaches the switch callback before the death forgets it.
TEST(RemoteDeathTest, ARemoteDyingWhileStepTwoWaitsForStreamsGetsTheStepsResult) {
    LogCapture log;
    SwitchHarness h(false);
    h.translator->SetTransCallback(h.pipeline.proxy, 0);  // HAL ready, no streams backed up
    const auto reply = h.SwitchOn("devA", "cam1");
    ASSERT_EQ(CameraStatus::OK, reply.status);
    ASSERT_TRUE(h.WaitForStep(reply.seqNum, "configuration"));
    h.remote.process->kill();
    android::hardware::waitForDeathNotifications();

    ASSERT_TRUE(WaitUntil([&] {
        for (const auto& result : h.devMgt.fake->Results()) {
            if (result.switchOn && result.seqNum == reply.seqNum) {
                return true;
            }
        }
        return false;
    }));
    const auto results = h.devMgt.fake->Results();
    const auto on = std::find_if(results.begin(), results.end(),
                                 [](const SwitchResult& r) { return r.switchOn; });
    ASSERT_NE(results.end(), on);
    EXPECT_EQ(101, on->code);
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, "VirCam_StreamChange",
                        "ConfigStream: wait for configstream 300 times"));
    EXPECT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    EXPECT_FALSE(h.Registered("devA", "cam1"));
    EXPECT_FALSE(h.service->HasSwitchCallback());
}

// Several remotes and a pipeline callback die at the same moment while a
// switch-on runs and images flow: on a device their notices are handled on
// several binder threads at once, each taking the registries and queueing a
// switch-off. Each death is handled once, no handler waits for another
// forever, and what they leave is what each would leave alone.
TEST(RemoteDeathTest, DeathsAtOnceDuringASwitchOnWithImagesFlowing) {
    LogCapture log;
    SwitchHarness h;
    StepScript late;
    late.mode = AnswerMode::kLate;
    late.delay = std::chrono::milliseconds(150);
    for (RemoteStep step :
         {RemoteStep::kControlSession, RemoteStep::kConfigStream, RemoteStep::kDataSession}) {
        h.remote.fake->Script(step, late);
    }
    std::vector<RemoteChannel*> dying;
    for (const char* id : {"cam2", "cam3", "cam4"}) {
        dying.push_back(&h.AddRemote("devB", id, 100));
    }
    RemoteTranslatorCallback pipeline;
    android::sp<pelcamera::VirCameraChannelForTranslator> translatorChannel =
        CreateVirtualCameraTranslator();
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(
                  translatorChannel->RegisterCameraTranslatorCallback(1, pipeline.proxy)));

    // Images from a remote arrive all along, each crossing into the library.
    struct ImageFlow {
        explicit ImageFlow(const android::sp<vircam::IVirCameraChannel>& channel)
            : thread([this, channel] {
                  vircam::VirImageResult image{};
                  NativeBuffer fence;
                  image.releaseFence = fence.get();
                  while (flowing) {
                      image.frameNumber = static_cast<uint32_t>(sent.load());
                      EXPECT_TRUE(channel->onVirImageBufferDone(0, image).isOk());
                      ++sent;
                  }
              }) {}
        ~ImageFlow() {
            flowing = false;
            thread.join();
        }
        std::atomic<bool> flowing{true};
        std::atomic<int> sent{0};
        std::thread thread;
    } images(h.channel);
    ASSERT_TRUE(pipeline.fake->WaitForFrames(5, std::chrono::seconds(5)));

    const auto reply = h.SwitchOn("devA", "cam1");
    ASSERT_EQ(CameraStatus::OK, reply.status);
    ASSERT_TRUE(h.WaitForStep(reply.seqNum, "control"));
    for (RemoteChannel* remote : dying) {
        remote->process->kill();
    }
    pipeline.process->kill();
    android::hardware::waitForDeathNotifications();

    EXPECT_EQ(3u, log.Count("VirCam_StreamChange", "transport channel callback service died"));
    EXPECT_EQ(1u,
              log.Count("VirCam_TransaltorCBMgr", "transport translator callback service died"));
    for (const char* id : {"cam2", "cam3", "cam4"}) {
        EXPECT_FALSE(h.Registered("devB", id)) << id;
        EXPECT_FALSE(h.service->HasDeathRecipient({"devB", id})) << id;
    }
    const pelcamera::HidlCallbackMgrTranslator::Key key{"W_Translator", "CameraHal_1"};
    EXPECT_FALSE(translatorChannel->CallbackMgr()->HasCallback(key));
    EXPECT_FALSE(translatorChannel->CallbackMgr()->HasDeathRecipient(key));
    EXPECT_FALSE(h.service->HasSwitchCallback());
    // The remote being switched to was not among the dead: its switch-on ends,
    // though no one hears its result, and the three switch-offs are refused.
    ASSERT_TRUE(h.WaitForMode(pelcamera::VIRTUAL));
    EXPECT_TRUE(h.Registered("devA", "cam1"));
    ASSERT_TRUE(WaitUntil([&] {
        const std::string history = h.Dump({"--history"});
        size_t refused = 0;
        for (size_t at = history.find(" off d**B / "); at != std::string::npos;
             at = history.find(" off d**B / ", at + 1)) {
            ++refused;
        }
        return refused == 3 && h.service->GetCameraMode() == pelcamera::VIRTUAL;
    }));
    EXPECT_GT(images.sent.load(), 5);
    EXPECT_TRUE(h.pipeline.fake->WaitForFrames(1, std::chrono::seconds(1)));

    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->registerCameraSwitchCallback(h.devMgt.proxy)));
    EXPECT_EQ(CameraStatus::OK, h.SwitchOff("devA", "cam1").status);
    EXPECT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
}

}  // namespace
}  // namespace vircam_test
