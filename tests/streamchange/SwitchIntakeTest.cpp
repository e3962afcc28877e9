// Copyright (C) 2026 The libvircam Authors

// Switch commands are answered at once; refusals never reach a worker.
#include <gtest/gtest.h>

#include <thread>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"

namespace vircam_test {
namespace {

constexpr const char* kTag = "VirCam_StreamChange";

TEST(SwitchIntakeTest, RefusalsAreAnsweredAtOnceWithSharedSequenceNumbers) {
    LogCapture log;
    SwitchHarness h;

    // Physical: a switch-off is refused but reported as a success.
    const auto off = h.SwitchOff("devA", "cam1");
    EXPECT_EQ(CameraStatus::OK, off.status);
    EXPECT_EQ(2u, off.seqNum);
    ASSERT_EQ(1u, h.devMgt.fake->Results().size());  // sent before the call returned
    EXPECT_EQ((SwitchResult{false, 2, 300}), h.devMgt.fake->Results()[0]);
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, kTag,
                        "switchOffVirtualCamera: receive switch off cmd, seqNum: 2"));

    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ(3u, h.devMgt.fake->Results()[1].seqNum);

    // Virtual: a switch-on anywhere is refused with 1 and 301.
    RemoteChannel& other = h.AddRemote("devB", "cam2", 50);
    const auto on = h.SwitchOn("devB", "cam2");
    EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, on.status);
    EXPECT_EQ(4u, on.seqNum);
    ASSERT_EQ(3u, h.devMgt.fake->Results().size());
    EXPECT_EQ((SwitchResult{true, 4, 301}), h.devMgt.fake->Results()[2]);
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, kTag,
                        "switchOnVirtualCamera: in virtual or switching mode, or virtual camera "
                        "busy, can not switch on"));
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_INFO, kTag, "switchOnVirtualCamera: receive swtich on cmd, seqNum: *"));

    // Virtual but the pair is free: a switch-off of it is refused as well.
    const auto offOther = h.SwitchOff("devB", "cam2");
    EXPECT_EQ(5u, offOther.seqNum);
    EXPECT_EQ((SwitchResult{false, 5, 300}), h.devMgt.fake->Results()[3]);

    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(other.fake->Calls().empty());
    EXPECT_EQ(4u, h.devMgt.fake->Results().size());
    EXPECT_EQ(pelcamera::VIRTUAL, h.service->GetCameraMode());
}

TEST(SwitchIntakeTest, WithoutASwitchCallbackRefusalsGoOnlyThroughTheReply) {
    auto* service = CreateVirtualCameraStreamChange();
    android::sp<vircam::IVirCameraChannel> channel(service);
    uint32_t seqNum = 0;
    CameraStatus status = CameraStatus::INTERNAL_ERROR;
    channel
        ->switchOffVirtualCamera("devA", "cam1",
                                 [&](CameraStatus s, uint32_t n) {
                                     status = s;
                                     seqNum = n;
                                 })
        .isOk();
    EXPECT_EQ(CameraStatus::OK, status);
    EXPECT_EQ(2u, seqNum);
    EXPECT_EQ(service, CreateVirtualCameraStreamChange());
}

}  // namespace
}  // namespace vircam_test
