// Copyright (C) 2026 The libvircam Authors

// A camera moved to a remote channel and back, end to end through the
// channel service, with the real translator.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"
#include "utils/VirCamClock.h"

namespace vircam_test {
namespace {

constexpr const char* kTag = "VirCam_StreamChange";

TEST(SwitchSequenceTest, SwitchOnThenOffMovesTheCameraAndCleansUp) {
    LogCapture log;
    SwitchHarness h;

    const auto on = h.SwitchOn("devA", "cam1");
    EXPECT_EQ(CameraStatus::OK, on.status);
    EXPECT_EQ(2u, on.seqNum);
    ASSERT_TRUE(h.WaitForResults(1));
    EXPECT_EQ((SwitchResult{true, 2, 300}), h.devMgt.fake->Results()[0]);
    ASSERT_TRUE(h.WaitForMode(pelcamera::VIRTUAL));
    EXPECT_EQ("Camera_2", VirCamProperty());
    EXPECT_EQ((std::vector<std::string>{"openControlSession W_cam1", "configStream 10",
                                        "openDataSession W_cam1"}),
              h.remote.fake->Calls());
    const pelcamera::VirCameraStatus status = h.translator->GetCamStatus();
    EXPECT_EQ(101, status.camId);
    EXPECT_EQ(pelcamera::VIRTUAL, status.camMode);

    const auto off = h.SwitchOff("devA", "cam1");
    EXPECT_EQ(CameraStatus::OK, off.status);
    EXPECT_EQ(3u, off.seqNum);
    ASSERT_TRUE(h.WaitForResults(2));
    EXPECT_EQ((SwitchResult{false, 3, 300}), h.devMgt.fake->Results()[1]);
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_EQ("0", VirCamProperty());
    EXPECT_EQ(pelcamera::PHYSICAL, h.translator->GetCamStatus().camMode);
    const auto calls = h.remote.fake->Calls();
    ASSERT_EQ(6u, calls.size());  // the flush on the way back, then both closes
    EXPECT_EQ("flush 11", calls[3]);
    EXPECT_EQ("closeDataSession 11", calls[4]);
    EXPECT_EQ("closeControlSession 10", calls[5]);
    EXPECT_FALSE(h.Registered("devA", "cam1"));
    EXPECT_FALSE(h.service->HasDeathRecipient({"devA", "cam1"}));
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    // The worker logs its success after the mode is already physical.
    EXPECT_TRUE(WaitUntil([&] {
        return log.Has(ANDROID_LOG_INFO, kTag,
                       "DoSwitchOffVirtualCamera: switch back to local camera success, "
                       "deviceid: d**A, serviceid: c**1");
    }));
}

// Formats reach the remote converted; everything else passes unchanged.
TEST(SwitchSequenceTest, StreamFormatsReachTheRemoteConverted) {
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");
    const auto streams = h.remote.fake->LastConfiguredStreams();
    ASSERT_EQ(3u, streams.size());
    EXPECT_EQ(1, streams[0].format);
    EXPECT_EQ(0x200u, streams[0].formatFlags);
    EXPECT_EQ(1920u, streams[0].width);
    EXPECT_EQ(5, streams[1].format);
    EXPECT_EQ(0x9u, streams[1].formatFlags);
    ASSERT_EQ(1u, streams[1].extras.size());
    EXPECT_EQ(android::hardware::hidl_string("value"), streams[1].extras[0].value);
    EXPECT_EQ(2, streams[2].format);
    EXPECT_EQ(0x40u, streams[2].formatFlags);
}

TEST(SwitchSequenceTest, VirtualCameraIdsGrowAndASecondDeviceReplacesTheFirst) {
    SwitchHarness h;
    RemoteChannel& other = h.AddRemote("devB", "cam2", 50);
    h.SwitchOnAndWait("devA", "cam1");
    ASSERT_TRUE(h.SwitchOff("devA", "cam1").status == CameraStatus::OK);
    ASSERT_TRUE(h.WaitForResults(2));
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));

    h.SwitchOnAndWait("devB", "cam2");
    EXPECT_EQ(102, h.translator->GetCamStatus().camId);
    EXPECT_EQ((std::vector<std::string>{"openControlSession W_cam2", "configStream 50",
                                        "openDataSession W_cam2"}),
              other.fake->Calls());
    EXPECT_TRUE(h.HasSession("devB", "cam2"));
}

// A switch-on that finds no channel callback leaves the session it entered
// behind. The next successful switch-on closes the sessions of every pair
// but its own: at the remote where one is registered by now, and in the
// table for all of them.
TEST(SwitchSequenceTest, ASwitchOnClosesTheSessionsOfEveryOtherPair) {
    SwitchHarness h;
    for (const char* id : {"cam3", "cam4"}) {
        ASSERT_TRUE(h.WaitForEnd(h.SwitchOn("devC", id).seqNum));
        ASSERT_TRUE(h.HasSession("devC", id));
    }
    RemoteChannel& late = h.AddRemote("devC", "cam3", 70);

    h.SwitchOnAndWait("devA", "cam1");
    ASSERT_TRUE(h.WaitUntilIdle());
    EXPECT_EQ((std::vector<std::string>{"closeDataSession 0", "closeControlSession 0"}),
              late.fake->Calls());
    EXPECT_FALSE(h.HasSession("devC", "cam3"));
    EXPECT_FALSE(h.HasSession("devC", "cam4"));
    EXPECT_TRUE(h.HasSession("devA", "cam1"));
    EXPECT_EQ(2u, h.remote.fake->OpenSessions());  // its own stay open
}

TEST(SwitchSequenceTest, AResultBeforeTheOpenCallReturnsIsNotLost) {
    LogCapture log;
    SwitchHarness h;
    StepScript early;
    early.mode = AnswerMode::kBeforeReturn;
    h.remote.fake->Script(RemoteStep::kControlSession, early);
    h.remote.fake->Script(RemoteStep::kDataSession, early);

    h.SwitchOnAndWait("devA", "cam1");
    // The control session had no id yet: found as the session being set up.
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "GetVirCamSessionBySessionId: can not find the session with session id, "
                        "return the latest one"));
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, kTag,
                        "WaitForChannelOptReturnLocked: open control session has return, no wait"));
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, kTag,
                        "WaitForChannelOptReturnLocked: open data session has return, no wait"));
}

TEST(SwitchSequenceTest, LateResultsWithinTheTimeOutStillSwitch) {
    SwitchHarness h;
    StepScript late;
    late.mode = AnswerMode::kLate;
    late.delay = std::chrono::milliseconds(1500);
    h.remote.fake->Script(RemoteStep::kConfigStream, late);
    const auto start = pelcamera::Clock().Now();
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_GE(pelcamera::Clock().Now() - start, std::chrono::milliseconds(1500));
}

TEST(SwitchSequenceTest, HalInitAfterTheWaitStartsLetsTheSwitchGoOn) {
    LogCapture log;
    SwitchHarness h(false);
    h.translator->BackupPhyConfigStreams(PipelineStreams());
    const auto reply = h.SwitchOn("devA", "cam1");
    ASSERT_EQ(CameraStatus::OK, reply.status);
    ASSERT_TRUE(h.WaitForStep(reply.seqNum, "hal init"));
    // The HAL comes up while the switch waits. A report that lands before the
    // wait has begun is not seen by it, so keep reporting, from a thread of
    // its own, until the switch has gone on.
    std::atomic<bool> done{false};
    std::thread hal([&] {
        while (!done) {
            h.service->SetHalInitStatus();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    const bool switched = h.WaitForResults(1);
    done = true;
    hal.join();
    ASSERT_TRUE(switched);
    EXPECT_EQ(300, h.devMgt.fake->Results()[0].code);
    EXPECT_TRUE(log.Has(kTag, "SetHalInitStatus: main task waiting on, notify it"));
}

TEST(SwitchSequenceTest, WithoutStreamsTheSwitchPollsThenSendsAnEmptyConfiguration) {
    LogCapture log;
    SwitchHarness h(false);
    h.translator->SetTransCallback(h.pipeline.proxy, 0);
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_TRUE(h.remote.fake->LastConfiguredStreams().empty());
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag, "ConfigStream: wait for configstream 300 times"));
    EXPECT_FALSE(log.Has(kTag, "wait for configstream 301 times"));
}

}  // namespace
}  // namespace vircam_test
