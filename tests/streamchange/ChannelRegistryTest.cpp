// Registration of remote channels and of the switch callback, and what the
// death of a remote channel sets off.
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"

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

TEST_F(ChannelRegistryTest, CastFailuresAreInternalErrors) {
    remote.process->failNextCalls("interfaceChain");
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR, Register("dev", "W_cam", remote.proxy));
    EXPECT_FALSE(service->HasChannelCallback({"dev", "cam"}));

    RemoteSwitchCallback devMgt;
    devMgt.process->failNextCalls("interfaceChain");
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(devMgt.proxy)));
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(nullptr)));
    EXPECT_FALSE(service->HasSwitchCallback());
    EXPECT_FALSE(log.Has(kTag, "start camera switch thread"));
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

TEST_F(ChannelRegistryTest, UnusedMethodsAnswerAsDocumented) {
    EXPECT_EQ(CameraStatus::OPERATION_NOT_SUPPORTED,
              static_cast<CameraStatus>(channel->registerVirtualCameraDevice("d", "W_s", {}, {})));
    EXPECT_EQ(CameraStatus::OPERATION_NOT_SUPPORTED,
              static_cast<CameraStatus>(channel->unregisterVirtualCameraDevice("d", "W_s")));
    size_t ids = 1;
    CameraStatus status = CameraStatus::INTERNAL_ERROR;
    channel
        ->getVirtualCameraIdList([&](CameraStatus s, const auto& list) {
            status = s;
            ids = list.size();
        })
        .isOk();
    EXPECT_EQ(CameraStatus::OK, status);
    EXPECT_EQ(0u, ids);
    EXPECT_EQ(service, CreateVirtualCameraStreamChange());
    EXPECT_EQ(1u, log.Count(kTag, "construct VirCameraChannelForStreamChange()"));
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

}  // namespace
}  // namespace vircam_test
