// Copyright (C) 2026 The libvircam Authors

// What the pipeline and device management may do while a camera is virtual
// or on its way there: flush, command again, reconfigure.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"
#include "utils/VirCamClock.h"

namespace vircam_test {
namespace {

constexpr const char* kTag = "VirCam_StreamChange";

size_t CountCalls(const RemoteChannel& remote, const std::string& call) {
    const auto calls = remote.fake->Calls();
    return static_cast<size_t>(std::count(calls.begin(), calls.end(), call));
}

// A pipeline flush while virtual counts as the flush the way back needs, until
// the next capture request makes another one necessary.
class FlushThenSwitchOffTest : public ::testing::TestWithParam<bool> {};

TEST_P(FlushThenSwitchOffTest, TheWayBackFlushesOnlyWhenARequestCameSince) {
    const bool requestInBetween = GetParam();
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");
    ASSERT_EQ(0, h.translator->Flush());
    EXPECT_EQ(1u, CountCalls(h.remote, "flush 11"));
    EXPECT_TRUE(h.pipeline.fake->Commands().empty());
    if (requestInBetween) {
        vircam::VirImageBuffer element{};
        element.frameNumber = 1;
        ASSERT_EQ(0, h.translator->ProcessCaptureRequest({element}));
    }

    ASSERT_EQ(CameraStatus::OK, h.SwitchOff("devA", "cam1").status);
    ASSERT_TRUE(h.WaitForResults(2));
    EXPECT_EQ(300, h.devMgt.fake->Results().back().code);
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_EQ(pelcamera::PHYSICAL, h.translator->GetCamStatus().camMode);
    EXPECT_EQ(requestInBetween ? 2u : 1u, CountCalls(h.remote, "flush 11"));
    const auto expectedCommands = requestInBetween
                                      ? std::vector<std::pair<uint32_t, std::string>>{{2, " "}}
                                      : std::vector<std::pair<uint32_t, std::string>>{};
    EXPECT_EQ(expectedCommands, h.pipeline.fake->Commands());
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutRequest, FlushThenSwitchOffTest, ::testing::Bool(),
                         [](const auto& info) {
                             return info.param ? "RequestInBetween" : "NoRequest";
                         });

TEST(WhileSwitchingTest, ASecondSwitchOnIsRefusedAtOnceAndTheFirstEndsWithItsOwnCode) {
    LogCapture log;
    SwitchHarness h;
    StepScript slow;
    slow.mode = AnswerMode::kLate;
    slow.delay = std::chrono::milliseconds(400);
    h.remote.fake->Script(RemoteStep::kControlSession, slow);
    RemoteChannel& other = h.AddRemote("devB", "cam2", 50);

    const auto first = h.SwitchOn("devA", "cam1");
    ASSERT_EQ(CameraStatus::OK, first.status);
    ASSERT_TRUE(h.WaitForMode(pelcamera::ON_SWITCHING));
    for (const char* id : {"cam1", "cam2"}) {
        const size_t before = h.devMgt.fake->Results().size();
        const auto second = h.SwitchOn(id == std::string("cam1") ? "devA" : "devB", id);
        EXPECT_EQ(CameraStatus::ILLEGAL_ARGUMENT, second.status);
        // Refused inside the call: the result is there before it returns.
        ASSERT_EQ(before + 1, h.devMgt.fake->Results().size());
        EXPECT_EQ((SwitchResult{true, second.seqNum, 301}), h.devMgt.fake->Results().back());
    }
    EXPECT_EQ(pelcamera::ON_SWITCHING, h.service->GetCameraMode());

    ASSERT_TRUE(h.WaitForResults(3));
    EXPECT_EQ((SwitchResult{true, first.seqNum, 300}), h.devMgt.fake->Results().back());
    EXPECT_TRUE(h.WaitForMode(pelcamera::VIRTUAL));
    EXPECT_TRUE(other.fake->Calls().empty());
    EXPECT_EQ(1u, log.Count(kTag, "[Step0]"));
}

// A reconfiguration while virtual that fails tears the virtual camera's
// sessions down; the pipeline's backup call still succeeds and the camera
// stays virtual until device management switches it off.
class FailedReconfigurationTest : public ::testing::TestWithParam<bool> {};

TEST_P(FailedReconfigurationTest, TearsTheSessionsDown) {
    const bool resultNeverComes = GetParam();
    LogCapture log;
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");
    if (resultNeverComes) {
        StepScript silent;
        silent.mode = AnswerMode::kNever;
        h.remote.fake->Script(RemoteStep::kConfigStream, silent);
    } else {
        h.remote.process->failNextCalls("configStream");
    }

    // The library's clock: the test may run on virtual time.
    const auto start = pelcamera::Clock().Now();
    EXPECT_EQ(0, h.translator->BackupPhyConfigStreams(PipelineStreams()));
    const double seconds = std::chrono::duration<double>(pelcamera::Clock().Now() - start).count();
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "VirCam_Translator",
                        "UpdateConfigureStreams: send camera config stream to virtual camera "
                        "failed"));
    if (resultNeverComes) {
        EXPECT_GE(seconds, 2.9);
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag,
                            "ConfigureStreams: wait for config stream timeout, return: -1"));
    } else {
        EXPECT_LT(seconds, 1.0);
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag,
                            "ConfigureStreams: config stream failed, deviceid: d**A, serviceid: "
                            "c**1, sessionId: 1*"));
    }
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    EXPECT_EQ(1u, CountCalls(h.remote, "closeDataSession 11"));
    EXPECT_EQ(1u, CountCalls(h.remote, "closeControlSession 10"));
    EXPECT_EQ(pelcamera::VIRTUAL, h.service->GetCameraMode());
    EXPECT_EQ(pelcamera::VIRTUAL, h.translator->GetCamStatus().camMode);
    vircam::VirImageBuffer element{};
    EXPECT_EQ(-1, h.translator->ProcessCaptureRequest({element}));
}

INSTANTIATE_TEST_SUITE_P(NeverAnsweredOrFailedInTransport, FailedReconfigurationTest,
                         ::testing::Bool(), [](const auto& info) {
                             return info.param ? "ResultNeverComes" : "CallFailsInTransport";
                         });

// Two threads waiting for the same step's result: the first sleeps holding
// the async-info lock, and the second must not hold the step's lock while it
// waits for that one, or the first can never wake. Two reconfigurations
// stand in for the rarer pair of a reconfiguration and the switch-on
// worker's stream step; both end by their own time-outs.
TEST(StepWaitersTest, TwoWaitersForOneStepTakeTurns) {
    LogCapture log;
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");
    StepScript silent;
    silent.mode = AnswerMode::kNever;
    h.remote.fake->Script(RemoteStep::kConfigStream, silent);
    const int32_t virCamId = h.translator->GetCamStatus().camId;

    std::atomic<int> finished{0};
    std::atomic<int32_t> firstResult{0};
    std::atomic<int32_t> secondResult{0};
    std::thread first([&] {
        firstResult = h.service->ConfigureStreams(virCamId, PipelineStreams());
        ++finished;
    });
    ASSERT_TRUE(WaitUntil([&] { return CountCalls(h.remote, "configStream 10") == 2; }));
    pelcamera::Clock().SleepFor(std::chrono::milliseconds(300));  // into its wait
    std::thread second([&] {
        secondResult = h.service->ConfigureStreams(virCamId, PipelineStreams());
        ++finished;
    });
    const bool bothEnded = WaitUntil([&] { return finished == 2; }, std::chrono::seconds(12));
    if (!bothEnded) {
        // Locked out of each other: nothing would ever end them.
        first.detach();
        second.detach();
        FAIL() << "the two waiters deadlocked";
    }
    first.join();
    second.join();
    EXPECT_EQ(-1, firstResult);
    EXPECT_EQ(-1, secondResult);
    EXPECT_EQ(2u, log.Count(kTag, "ConfigureStreams: wait for config stream timeout, return: -1"));
}

}  // namespace
}  // namespace vircam_test
