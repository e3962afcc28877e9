// Copyright (C) 2026 The libvircam Authors

// A remote's answer that comes after its wait has ended still lands on a
// session of the table, and can decide a step of another remote's switch-on.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"
#include "utils/VirCamClock.h"

namespace vircam_test {
namespace {

using std::chrono::milliseconds;

constexpr const char* kTag = "VirCam_StreamChange";

// A answers a reconfiguration 100 ms after its 3 s wait timed out. Meanwhile A
// was switched off, a switch-on of A found no callback and left its session
// behind (control id 0), and B's switch-on sits in its control step, holding
// the registry. The reconfiguration's clean-up of A waits for that registry,
// so A's left-behind session is still in the table when A's answer comes: the
// lookup by id misses, the answer falls to the first session still being set
// up in key order (A's, before B's), and it is flagged for the configuration
// wait still to come. B's stream configuration then takes the flag for its own
// answer, reads B's session, which has no result yet, and fails with 101 at
// once, though B would have answered within 500 ms.
TEST(StaleResultTest, AReconfigurationAnswerAfterItsTimeOutFailsAnotherSwitchOnWith101) {
    LogCapture log;
    SwitchHarness h;
    RemoteChannel& b = h.AddRemote("devB", "cam2", 500);
    h.SwitchOnAndWait("devA", "cam1");  // seq 2
    const int32_t aCamId = h.translator->GetCamStatus().camId;

    StepScript afterTimeOut;
    afterTimeOut.mode = AnswerMode::kLate;
    afterTimeOut.delay = milliseconds(3100);
    h.remote.fake->Script(RemoteStep::kConfigStream, afterTimeOut);
    std::thread reconfiguration([&] { h.service->ConfigureStreams(aCamId, PipelineStreams()); });
    struct Joiner {
        std::thread& thread;
        ~Joiner() { thread.join(); }
    } joiner{reconfiguration};
    ASSERT_TRUE(WaitUntil([&] { return CallsStartingWith(h.remote, "configStream") == 2; }));
    const auto reconfigured = pelcamera::Clock().Now();

    ASSERT_EQ(3u, h.SwitchOff("devA", "cam1").seqNum);
    ASSERT_TRUE(h.WaitForResults(2));
    ASSERT_EQ((SwitchResult{false, 3, 300}), h.devMgt.fake->Results()[1]);
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devA", "cam1").status);  // seq 4
    ASSERT_TRUE(WaitUntil([&] {
        return log.Has(kTag, "OpenControlSession: the virtual camera cb has NOT been registed") &&
               h.service->GetCameraMode() == pelcamera::PHYSICAL;
    }));
    ASSERT_TRUE(h.HasSession("devA", "cam1"));

    StepScript slowControl;
    slowControl.mode = AnswerMode::kLate;
    slowControl.delay = milliseconds(2800);  // after A's answer, before B's own deadline
    b.fake->Script(RemoteStep::kControlSession, slowControl);
    StepScript quickConfig;
    quickConfig.mode = AnswerMode::kLate;
    quickConfig.delay = milliseconds(500);
    b.fake->Script(RemoteStep::kConfigStream, quickConfig);
    pelcamera::Clock().SleepFor(reconfigured + milliseconds(500) - pelcamera::Clock().Now());
    // Earlier steps may have had their answers before their waits too.
    const size_t noWaitsBefore = log.Count(kTag, "config stream has return, no wait");
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devB", "cam2").status);  // seq 5

    ASSERT_TRUE(h.WaitForResults(3));
    EXPECT_EQ((SwitchResult{true, 5, 101}), h.devMgt.fake->Results()[2]);
    EXPECT_EQ(noWaitsBefore + 1, log.Count(kTag, "config stream has return, no wait"));
}

}  // namespace
}  // namespace vircam_test
