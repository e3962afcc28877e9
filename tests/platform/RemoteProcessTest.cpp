// Copyright (C) 2026 The libvircam Authors

#include <hidl/HidlRemote.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/FakeRemoteChannel.h"
#include "support/FakeSwitchCallback.h"

using android::sp;
using android::wp;
using android::hardware::hidl_death_recipient;
using android::hidl::base::V1_0::IBase;
using vendor::travik::hardware::camera::vircamera::V1_0::HostProxyVirCameraSwitchCallback;
using vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraChannelCallback;
using vendor::travik::hardware::camera::vircamera::V1_0::IVirCameraSwitchCallback;

namespace vircam_test {
namespace {

class CountingRecipient : public hidl_death_recipient {
public:
    void serviceDied(uint64_t cookie, const wp<IBase>& who) override {
        lastCookie = cookie;
        onRuntimeThread = android::hardware::onDeathNotificationThread();
        callerThread = std::this_thread::get_id();
        whoAlive = who.promote() != nullptr;
        ++deaths;
    }
    std::atomic<int> deaths{0};
    uint64_t lastCookie = 0;
    bool onRuntimeThread = false;
    bool whoAlive = false;
    std::thread::id callerThread;
};

TEST(RemoteProcessTest, DeathReachesLinkedRecipientsOnceOnTheRuntimeThread) {
    RemoteSwitchCallback peer;
    sp<CountingRecipient> linked = new CountingRecipient();
    sp<CountingRecipient> unlinked = new CountingRecipient();
    ASSERT_TRUE(peer.proxy->linkToDeath(linked, 7).isOk());
    ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(unlinked, 8)));
    EXPECT_TRUE(static_cast<bool>(peer.proxy->unlinkToDeath(unlinked)));

    peer.process->kill();
    peer.process->kill();  // a process dies once
    android::hardware::waitForDeathNotifications();

    EXPECT_EQ(1, linked->deaths.load());
    EXPECT_EQ(7u, linked->lastCookie);
    EXPECT_TRUE(linked->onRuntimeThread);
    EXPECT_NE(std::this_thread::get_id(), linked->callerThread);
    EXPECT_TRUE(linked->whoAlive);
    EXPECT_EQ(0, unlinked->deaths.load());

    // After the death nothing can be linked or unlinked any more.
    EXPECT_FALSE(static_cast<bool>(peer.proxy->linkToDeath(unlinked, 9)));
    EXPECT_FALSE(static_cast<bool>(peer.proxy->unlinkToDeath(linked)));
}

TEST(RemoteProcessTest, RuntimeKeepsOnlyAWeakReferenceToRecipients) {
    RemoteSwitchCallback peer;
    wp<CountingRecipient> weak;
    {
        sp<CountingRecipient> recipient = new CountingRecipient();
        weak = recipient;
        ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(recipient, 0)));
    }
    EXPECT_EQ(nullptr, weak.promote());
    peer.process->kill();
    android::hardware::waitForDeathNotifications();  // nothing left to tell, nothing crashes
}

// On a device every interface reference that arrives from another process is
// a proxy object of its own, and a death link lives on the proxy it was made
// on.
TEST(RemoteProcessTest, DeathLinksBelongToTheProxyTheyWereMadeOn) {
    RemoteSwitchCallback peer;
    sp<IVirCameraSwitchCallback> secondProxy =
        new HostProxyVirCameraSwitchCallback(peer.fake, peer.process);
    sp<CountingRecipient> recipient = new CountingRecipient();
    ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(recipient, 1)));
    EXPECT_FALSE(static_cast<bool>(secondProxy->unlinkToDeath(recipient)));
    EXPECT_EQ(1u, peer.process->linkedRecipients());

    // Linked twice: an unlink removes the newest link, so the first one fires.
    ASSERT_TRUE(static_cast<bool>(peer.proxy->linkToDeath(recipient, 2)));
    EXPECT_TRUE(static_cast<bool>(peer.proxy->unlinkToDeath(recipient)));
    peer.process->kill();
    android::hardware::waitForDeathNotifications();
    EXPECT_EQ(1, recipient->deaths.load());
    EXPECT_EQ(1u, recipient->lastCookie);
}

TEST(RemoteProcessTest, AProxyTakesItsDeathLinksWithIt) {
    RemoteSwitchCallback peer;
    sp<CountingRecipient> recipient = new CountingRecipient();
    {
        sp<IVirCameraSwitchCallback> transient =
            new HostProxyVirCameraSwitchCallback(peer.fake, peer.process);
        ASSERT_TRUE(static_cast<bool>(transient->linkToDeath(recipient, 3)));
        EXPECT_EQ(1u, peer.process->linkedRecipients());
    }
    EXPECT_EQ(0u, peer.process->linkedRecipients());
    peer.process->kill();
    android::hardware::waitForDeathNotifications();
    EXPECT_EQ(0, recipient->deaths.load());
}

// An object in this process: links to a recipient succeed and never fire,
// and a null recipient is refused.
TEST(LocalObjectTest, LinksButNeverDies) {
    sp<FakeSwitchCallback> local = new FakeSwitchCallback();
    sp<CountingRecipient> recipient = new CountingRecipient();
    EXPECT_TRUE(static_cast<bool>(local->linkToDeath(recipient, 0)));
    EXPECT_FALSE(static_cast<bool>(local->linkToDeath(nullptr, 0)));
    EXPECT_TRUE(static_cast<bool>(local->unlinkToDeath(recipient)));
    EXPECT_FALSE(local->isRemote());
}

TEST(RemoteProcessTest, CallsFailAsDeadObjectsAfterDeathAndOnDemandBefore) {
    RemoteSwitchCallback peer;
    peer.process->failNextCalls("notifySwitchOnResult");

    auto failed = peer.proxy->notifySwitchOnResult(2, 300);
    EXPECT_FALSE(failed.isOk());
    EXPECT_FALSE(failed.isDeadObject());
    EXPECT_TRUE(peer.proxy->notifySwitchOnResult(3, 300).isOk());
    EXPECT_TRUE(peer.proxy->notifySwitchOffResult(4, 300).isOk());
    ASSERT_EQ(2u, peer.fake->Results().size());  // the failed call never reached the peer

    peer.process->kill();
    auto dead = peer.proxy->notifySwitchOffResult(5, 300);
    EXPECT_TRUE(dead.isDeadObject());
    EXPECT_EQ(2u, peer.fake->Results().size());
}

TEST(RemoteProcessTest, APeerDyingDuringACallNeverReplies) {
    RemoteChannel peer;
    StepScript script;
    script.dieOnCall = true;
    peer.fake->Script(RemoteStep::kConfigStream, script);
    auto ret = peer.proxy->configStream(10, {});
    EXPECT_TRUE(ret.isDeadObject());
    EXPECT_TRUE(peer.process->isDead());
}

TEST(CastFromTest, ARemoteParentBecomesANewProxyOfTheChildType) {
    RemoteSwitchCallback peer;
    sp<IBase> base = peer.proxy;

    sp<IVirCameraSwitchCallback> child = IVirCameraSwitchCallback::castFrom(base);
    ASSERT_NE(nullptr, child);
    EXPECT_NE(peer.proxy.get(), child.get());
    EXPECT_TRUE(child->isRemote());
    EXPECT_TRUE(child->notifySwitchOnResult(2, 300).isOk());
    EXPECT_EQ(1u, peer.fake->Results().size());
    // A link made through the new proxy is its own.
    sp<CountingRecipient> recipient = new CountingRecipient();
    ASSERT_TRUE(static_cast<bool>(child->linkToDeath(recipient, 0)));
    EXPECT_FALSE(static_cast<bool>(peer.proxy->unlinkToDeath(recipient)));

    EXPECT_EQ(nullptr, static_cast<sp<IVirCameraChannelCallback>>(
                           IVirCameraChannelCallback::castFrom(base)));
    EXPECT_EQ(nullptr, static_cast<sp<IVirCameraSwitchCallback>>(
                           IVirCameraSwitchCallback::castFrom(sp<IBase>())));

    // In this process the object itself comes back.
    sp<FakeSwitchCallback> local = new FakeSwitchCallback();
    sp<IVirCameraSwitchCallback> same = IVirCameraSwitchCallback::castFrom(sp<IBase>(local));
    EXPECT_EQ(local.get(), same.get());
}

TEST(CastFromTest, SameTypeReturnsTheArgumentWithoutCallingThePeer) {
    RemoteSwitchCallback peer;
    const sp<IVirCameraSwitchCallback> typed = peer.proxy;
    peer.process->failNextCalls("interfaceChain");
    sp<IVirCameraSwitchCallback> same = IVirCameraSwitchCallback::castFrom(typed);
    EXPECT_EQ(peer.proxy.get(), same.get());
    // The failure is still pending: the cast above never reached the peer.
    sp<IBase> base = peer.proxy;
    EXPECT_EQ(nullptr,
              static_cast<sp<IVirCameraSwitchCallback>>(IVirCameraSwitchCallback::castFrom(base)));
    peer.process->kill();
    EXPECT_EQ(
        peer.proxy.get(),
        static_cast<sp<IVirCameraSwitchCallback>>(IVirCameraSwitchCallback::castFrom(typed)).get());
}

}  // namespace
}  // namespace vircam_test
