// Copyright (C) 2026 The libvircam Authors

// A remote's answer to a switch step reaches that step whenever it comes,
// whatever other waiter sleeps at the time.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "streamchange/AwaitedResult.h"
#include "support/LogCapture.h"
#include "support/SwitchHarness.h"
#include "utils/VirCamClock.h"

namespace vircam_test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kTag = "VirCam_StreamChange";

// The step shows as "hal init" a moment before its wait begins, and a report
// that lands before the wait is cleared with the step's flags: report until
// one reaches the waiter, and not once more, for the next switch-on's wait.
bool ReportHalReadyToItsWaiter(const SwitchHarness& h, const LogCapture& log) {
    const char* kWoken = "SetHalInitStatus: main task waiting on, notify it";
    const size_t before = log.Count(kTag, kWoken);
    return WaitUntil([&] {
        h.service->SetHalInitStatus();
        return log.Count(kTag, kWoken) > before;
    });
}

// Two switch-ons accepted while physical: B runs first, then A runs
// "vir -> vir". A waits in its HAL-init check; meanwhile the pipeline
// reconfigures B, whose remote never answers, so the reconfiguration sleeps
// through its 3 s. Then the HAL reports ready and A's remote answers A's
// control session at once. That answer must end A's step, not sit out the
// time-out and fail with 1.
TEST(StepResultTest, AResultReachesItsStepWhileAReconfigurationSleeps) {
    LogCapture log;
    SwitchHarness h(false, false);  // no pipeline callback, no workers yet
    h.translator->BackupPhyConfigStreams(PipelineStreams());
    RemoteChannel& b = h.AddRemote("devB", "cam2", 500);
    StepScript beforeReturn;
    beforeReturn.mode = AnswerMode::kBeforeReturn;
    h.remote.fake->Script(RemoteStep::kControlSession, beforeReturn);

    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devA", "cam1").status);  // seq 2
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devB", "cam2").status);  // seq 3, runs first
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->registerCameraSwitchCallback(h.devMgt.proxy)));
    ASSERT_TRUE(h.WaitForStep(3, "hal init"));
    ASSERT_TRUE(ReportHalReadyToItsWaiter(h, log));
    ASSERT_TRUE(h.WaitForResults(1));
    EXPECT_EQ((SwitchResult{true, 3, 300}), h.devMgt.fake->Results()[0]);
    ASSERT_TRUE(h.WaitForStep(2, "hal init"));

    StepScript silent;
    silent.mode = AnswerMode::kNever;
    b.fake->Script(RemoteStep::kConfigStream, silent);
    const int32_t bCamId = h.translator->GetCamStatus().camId;
    std::thread reconfiguration([&] { h.service->ConfigureStreams(bCamId, PipelineStreams()); });
    // B's own switch-on configured it once; the second is the reconfiguration.
    ASSERT_TRUE(WaitUntil([&] { return CallsStartingWith(b, "configStream") == 2; }));
    pelcamera::Clock().SleepFor(milliseconds(50));  // into its wait

    const auto halReady = pelcamera::Clock().Now();
    ASSERT_TRUE(ReportHalReadyToItsWaiter(h, log));
    ASSERT_TRUE(h.WaitForResults(2));
    EXPECT_EQ((SwitchResult{true, 2, 300}), h.devMgt.fake->Results()[1]);
    EXPECT_LT(pelcamera::Clock().Now() - halReady, milliseconds(2500)) << "A sat out the time-out";
    reconfiguration.join();
}

// While virtual every id is known, so no result falls back to a session being
// set up: one that names the other kind of session id matches nothing and
// flags nothing. A's control session is 10, its data session 11.
TEST(StepResultTest, ALookupByOneKindOfSessionIdNeverMatchesTheOther) {
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");
    ASSERT_TRUE(h.WaitUntilIdle());
    const auto succeeded = [&](RemoteStep step, uint32_t sessionId) {
        h.remote.fake->Report(step, sessionId, FakeRemoteChannel::SuccessOf(step));
    };
    succeeded(RemoteStep::kControlSession, 11);
    succeeded(RemoteStep::kConfigStream, 11);
    succeeded(RemoteStep::kDataSession, 10);
    const char* kNoneReturned = "results returned: control no, configuration no, data no";
    EXPECT_NE(std::string::npos, h.Dump().find(kNoneReturned)) << h.Dump();

    succeeded(RemoteStep::kControlSession, 10);  // its own kind: found and flagged
    EXPECT_NE(std::string::npos,
              h.Dump().find("results returned: control yes, configuration no, data no"));
}

// A result that comes while no step waits (here: while virtual) is flagged
// for the wait still to come. Each switch-on clears the flags first, so the
// next switch-on's step waits for its own remote's answer instead of going
// on at once and finding its session without a result.
struct StaleResult {
    const char* name;
    RemoteStep step;
    uint32_t sessionId;  // A's session the result names
    const char* flagged;
};

void PrintTo(const StaleResult& c, std::ostream* os) {
    *os << c.name;
}

class StaleResultTest : public ::testing::TestWithParam<StaleResult> {};

TEST_P(StaleResultTest, DoesNotStandInForTheNextSwitchOnsAnswer) {
    const StaleResult& c = GetParam();
    SwitchHarness h;
    RemoteChannel& b = h.AddRemote("devB", "cam2", 50);
    h.SwitchOnAndWait("devA", "cam1");
    ASSERT_TRUE(h.WaitUntilIdle());
    h.remote.fake->Report(c.step, c.sessionId, FakeRemoteChannel::SuccessOf(c.step));
    ASSERT_EQ(CameraStatus::OK, h.SwitchOff("devA", "cam1").status);
    ASSERT_TRUE(h.WaitForResults(2));
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    ASSERT_NE(std::string::npos, h.Dump().find(c.flagged)) << h.Dump();

    StepScript late;
    late.mode = AnswerMode::kLate;
    late.delay = milliseconds(300);
    b.fake->Script(c.step, late);
    h.SwitchOnAndWait("devB", "cam2");
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, StaleResultTest,
    ::testing::Values(StaleResult{"Control", RemoteStep::kControlSession, 10,
                                  "results returned: control yes, configuration no, data no"},
                      StaleResult{"Config", RemoteStep::kConfigStream, 10,
                                  "results returned: control no, configuration yes, data no"},
                      StaleResult{"Data", RemoteStep::kDataSession, 11,
                                  "results returned: control no, configuration no, data yes"}),
    [](const ::testing::TestParamInfo<StaleResult>& info) { return info.param.name; });

// Waiters for two sessions of one step: a result goes to its own session's
// waiter only, and neither a result for another session nor a spurious
// wake-up ends a wait.
TEST(AwaitedResultTest, AResultWakesOnlyTheWaiterOfItsSession) {
    pelcamera::AwaitedResult result;
    int sessionA = 0;
    int sessionB = 0;
    bool aGot = true;
    bool bGot = false;
    std::thread waiterA([&] {
        std::unique_lock<std::mutex> lock(result.mutex);
        aGot = result.SleepUntil(lock, &sessionA, steady_clock::now() + milliseconds(400));
    });
    std::thread waiterB([&] {
        std::unique_lock<std::mutex> lock(result.mutex);
        bGot = result.SleepUntil(lock, &sessionB, steady_clock::now() + std::chrono::seconds(5));
    });
    std::this_thread::sleep_for(milliseconds(100));
    {
        std::lock_guard<std::mutex> lock(result.mutex);
        result.cond.notify_all();  // spurious for both
        EXPECT_TRUE(result.Deliver(&sessionB));
        EXPECT_FALSE(result.returned);
    }
    waiterB.join();
    waiterA.join();
    EXPECT_TRUE(bGot);
    EXPECT_FALSE(aGot) << "A's wait ended without its result";

    // Nobody waits: the result is flagged for the wait still to come.
    std::lock_guard<std::mutex> lock(result.mutex);
    EXPECT_FALSE(result.Deliver(&sessionA));
    EXPECT_TRUE(result.returned);
}

}  // namespace
}  // namespace vircam_test
