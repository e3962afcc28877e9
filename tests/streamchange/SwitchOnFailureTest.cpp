// Copyright (C) 2026 The libvircam Authors

// Every way a switch-on can fail: the code reported, what is rolled back, and
// where the camera ends (physical, property "0").
#include <gtest/gtest.h>

#include <algorithm>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"

namespace vircam_test {
namespace {

struct FailureCase {
    const char* name;
    RemoteStep step;
    StepScript script;
    int32_t code;
    // Remote calls expected after the failing step, in order.
    std::vector<std::string> closes;
};

StepScript CallFails() {
    StepScript s;
    s.callStatus = CameraStatus::INTERNAL_ERROR;
    return s;
}
StepScript ResultIs(int32_t result) {
    StepScript s;
    s.result = result;
    return s;
}
StepScript NeverAnswers() {
    StepScript s;
    s.mode = AnswerMode::kNever;
    return s;
}
StepScript DiesOnCall() {
    StepScript s;
    s.dieOnCall = true;
    return s;
}

void PrintTo(const FailureCase& c, std::ostream* os) {
    *os << c.name;
}

class SwitchOnFailureTest : public ::testing::TestWithParam<FailureCase> {};

TEST_P(SwitchOnFailureTest, ReportsItsCodeAndRollsBack) {
    const FailureCase& c = GetParam();
    SwitchHarness h;
    h.remote.fake->Script(c.step, c.script);

    const auto reply = h.SwitchOn("devA", "cam1");
    ASSERT_EQ(CameraStatus::OK, reply.status);
    ASSERT_TRUE(h.WaitForResults(1));
    // A peer that dies also sets off a switch-off, whose result may come first.
    if (c.script.dieOnCall) {
        ASSERT_TRUE(h.WaitForResults(2));
    }
    const auto results = h.devMgt.fake->Results();
    EXPECT_NE(results.end(),
              std::find(results.begin(), results.end(), SwitchResult{true, reply.seqNum, c.code}));
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_TRUE(WaitUntil([&] { return VirCamProperty() == "0"; }));
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    EXPECT_EQ(pelcamera::PHYSICAL, h.translator->GetCamStatus().camMode);
    if (!c.closes.empty()) {
        const auto calls = h.remote.fake->Calls();
        ASSERT_GE(calls.size(), c.closes.size());
        EXPECT_EQ(c.closes, std::vector<std::string>(calls.end() - c.closes.size(), calls.end()));
    }
    if (h.remote.process->isDead()) {
        // The death queues a switch-off, refused on the physical camera and so
        // reported as 300; the device-management callback is then forgotten.
        android::hardware::waitForDeathNotifications();
        EXPECT_NE(results.end(), std::find(results.begin(), results.end(),
                                           SwitchResult{false, reply.seqNum + 1, 300}));
        EXPECT_FALSE(h.service->HasSwitchCallback());
        EXPECT_FALSE(h.Registered("devA", "cam1"));
        return;
    }
    // The channel can be switched again once the remote answers, and every
    // command got exactly one result.
    h.remote.fake->Script(c.step, StepScript{});
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ(2u, h.devMgt.fake->Results().size());
}

const std::vector<std::string> kCloseBoth0 = {"closeDataSession 0", "closeControlSession 0"};
const std::vector<std::string> kCloseCtrl10 = {"closeDataSession 0", "closeControlSession 10"};
const std::vector<std::string> kCloseBoth = {"closeDataSession 11", "closeControlSession 10"};

INSTANTIATE_TEST_SUITE_P(
    FailureTable, SwitchOnFailureTest,
    ::testing::Values(
        FailureCase{"ControlCallRefused", RemoteStep::kControlSession, CallFails(), 1, kCloseBoth0},
        FailureCase{"ControlResultFailed", RemoteStep::kControlSession, ResultIs(1), 1,
                    kCloseCtrl10},
        FailureCase{"ControlTimedOut", RemoteStep::kControlSession, NeverAnswers(), 1,
                    kCloseCtrl10},
        FailureCase{"ControlPeerDied", RemoteStep::kControlSession, DiesOnCall(), 1, {}},
        FailureCase{"ConfigCallRefused", RemoteStep::kConfigStream, CallFails(), 101, kCloseCtrl10},
        FailureCase{"ConfigResultZero", RemoteStep::kConfigStream, ResultIs(0), 101, kCloseCtrl10},
        FailureCase{"ConfigTimedOut", RemoteStep::kConfigStream, NeverAnswers(), 101, kCloseCtrl10},
        FailureCase{"DataCallRefused", RemoteStep::kDataSession, CallFails(), 201, kCloseCtrl10},
        FailureCase{"DataResultZero", RemoteStep::kDataSession, ResultIs(0), 201, kCloseBoth},
        FailureCase{"DataTimedOut", RemoteStep::kDataSession, NeverAnswers(), 201, kCloseBoth}),
    [](const ::testing::TestParamInfo<FailureCase>& info) { return info.param.name; });

TEST(SwitchOnFailureTest, TranslatorRefusingTheSwitchReports301) {
    SwitchHarness h;
    // The translator already runs virtual camera 101, the id this switch gets.
    h.translator->TriggerSwitchCamera(101, -1);
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devA", "cam1").status);
    ASSERT_TRUE(h.WaitForResults(1));
    EXPECT_EQ(301, h.devMgt.fake->Results()[0].code);
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    const auto calls = h.remote.fake->Calls();
    EXPECT_EQ("closeControlSession 10", calls.back());
}

TEST(SwitchOnFailureTest, HalInitTimeOutReports101WithoutTouchingTheRemote) {
    LogCapture log;
    SwitchHarness h(false);
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devA", "cam1").status);
    ASSERT_TRUE(h.WaitForResults(1));
    EXPECT_EQ(101, h.devMgt.fake->Results()[0].code);
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_TRUE(h.remote.fake->Calls().empty());
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "VirCam_StreamChange",
                        "CheckHalInitStatus: wait for hal init timeout, return: -1"));
}

TEST(SwitchOnFailureTest, WithoutAChannelCallbackTheSwitchFallsBackWithoutAResult) {
    SwitchHarness h;
    // A remote registered under the bare id is keyed without its first two
    // characters, so a switch of that id finds no channel callback.
    RemoteChannel bare;
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(h.channel->registerVirtualChannelCallback(
                                    "devC", "cam3", bare.proxy)));
    EXPECT_TRUE(h.Registered("devC", "m3"));
    const auto reply = h.SwitchOn("devC", "cam3");
    ASSERT_EQ(CameraStatus::OK, reply.status);
    ASSERT_TRUE(h.WaitForEnd(reply.seqNum));
    EXPECT_EQ(pelcamera::PHYSICAL, h.service->GetCameraMode());
    EXPECT_TRUE(bare.fake->Calls().empty());
    EXPECT_TRUE(h.devMgt.fake->Results().empty());
    // The session that the step entered is not rolled back on this path, so
    // the pair stays busy until the camera is closed.
    EXPECT_TRUE(h.HasSession("devC", "cam3"));
}

TEST(SwitchOnFailureTest, WithoutASwitchCallbackThePreparationFailsWithoutAResult) {
    SwitchHarness h;
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->unregisterCameraSwitchCallback()));
    ASSERT_TRUE(h.WaitForEnd(h.SwitchOn("devA", "cam1").seqNum));
    EXPECT_EQ(pelcamera::PHYSICAL, h.service->GetCameraMode());
    EXPECT_TRUE(h.remote.fake->Calls().empty());
    EXPECT_TRUE(h.devMgt.fake->Results().empty());
}

}  // namespace
}  // namespace vircam_test
