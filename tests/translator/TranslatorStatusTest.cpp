// Copyright (C) 2026 The libvircam Authors

// The translator's status, its flushes and its pipeline callbacks.
#include <gtest/gtest.h>

#include "support/LogCapture.h"
#include "support/SwitchHarness.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_test {
namespace {

using pelcamera::CVirtualSwitchCameraTranslator;
using SwitchType = vircam::VirtualCamSwitchTypeT;
constexpr const char* kTag = "VirCam_Translator";
constexpr uint32_t kToPhysical = static_cast<uint32_t>(-1);

TEST(TranslatorStatusTest, SwitchTriggersMoveTheStatusOnlyWhereTheyFit) {
    LogCapture log;
    CVirtualSwitchCameraTranslator* t = CVirtualSwitchCameraTranslator::GetInstance();
    EXPECT_TRUE(t->NeedSetChannel());
    EXPECT_FALSE(t->IsVirtualStatus());
    EXPECT_FALSE(t->IsFlushing());
    EXPECT_FALSE(t->CheckTranslatorCallback());

    EXPECT_EQ(-1, t->TriggerSwitchCamera(kToPhysical, 0));
    EXPECT_TRUE(log.Has(ANDROID_LOG_WARN, kTag,
                        "ValidSwitchCameraParam: the camera status is not on VIRTUAL mode, can not "
                        "switch to physical camera"));
    EXPECT_EQ(-1, t->TriggerSwitchCamera(0, 0));
    EXPECT_EQ(-1, t->TriggerSwitchCamera(static_cast<uint32_t>(-5), 0));
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag,
                        "ValidSwitchCameraParam: vir cam id is invalid, must be -1 or more than 0, "
                        "virCamId: -5"));
    EXPECT_EQ(3u, log.Count(kTag, "TriggerSwitchCamera: the switch cmd not match current status"));

    EXPECT_EQ(0, t->TriggerSwitchCamera(5, 0));
    EXPECT_EQ(5, t->GetCamStatus().camId);
    EXPECT_TRUE(t->IsVirtualStatus());
    EXPECT_EQ(-1, t->TriggerSwitchCamera(5, 0));
    EXPECT_TRUE(
        log.Has(kTag, "the target vir camera id same to the current vir cam id, vir cam id: 5"));
    EXPECT_EQ(0, t->TriggerSwitchCamera(7, 0));
    EXPECT_EQ(7, t->GetCamStatus().camId);

    t->RecordCameraMode(3, SwitchType::PHY_TO_VIR);
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_ERROR, kTag,
                "RecordCameraMode: switch for camera 3, switch type: 0 not match current mode: 1"));
    EXPECT_TRUE(log.Has(ANDROID_LOG_INFO, kTag, "set translator camera status Id:7 Mode:1"));
    t->RecordCameraMode(9, SwitchType::VIR_TO_PHY);
    EXPECT_FALSE(t->IsVirtualStatus());
    EXPECT_EQ(-1, t->GetCamStatus().camId);
    t->RecordCameraMode(9, SwitchType::VIR_TO_VIR);
    EXPECT_FALSE(t->IsVirtualStatus());
}

TEST(TranslatorStatusTest, TheWayBackFlushesOnceAndTellsEveryCallback) {
    LogCapture log;
    CVirtualSwitchCameraTranslator* t = CVirtualSwitchCameraTranslator::GetInstance();
    RemoteTranslatorCallback first;
    RemoteTranslatorCallback second;
    t->SetTransCallback(second.proxy, 2);
    t->SetTransCallback(first.proxy, 1);
    t->SetTransCallback(second.proxy, 1);  // the first callback of a key stays

    ASSERT_EQ(0, t->TriggerSwitchCamera(7, 0));
    EXPECT_EQ(0, t->TriggerSwitchCamera(kToPhysical, 0));
    EXPECT_EQ((std::vector<std::pair<uint32_t, std::string>>{{2, " "}}), first.fake->Commands());
    EXPECT_EQ(1u, second.fake->Commands().size());
    EXPECT_EQ(pelcamera::PHYSICAL, t->GetCamStatus().camMode);

    // No capture request since: the next way back only resets the status.
    ASSERT_EQ(0, t->TriggerSwitchCamera(8, 0));
    EXPECT_EQ(0, t->TriggerSwitchCamera(kToPhysical, 0));
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag, "FlushAndSetToPhyMode: flushEventStatus:1"));
    EXPECT_EQ(1u, first.fake->Commands().size());
    EXPECT_EQ(pelcamera::PHYSICAL, t->GetCamStatus().camMode);
}

TEST(TranslatorStatusTest, ImagesReachEveryCallbackInKeyOrderEvenWhenOneFails) {
    LogCapture log;
    CVirtualSwitchCameraTranslator* t = CVirtualSwitchCameraTranslator::GetInstance();
    vircam::VirImageResult image{};
    image.frameNumber = 42;
    t->OnImageBufferDone(image, 0);
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag, "onTranslatorImageBufferDone: callback null"));

    RemoteTranslatorCallback low;
    RemoteTranslatorCallback high;
    t->SetTransCallback(high.proxy, 4);
    t->SetTransCallback(low.proxy, 0);
    low.process->failNextCalls("ProcessCaptureResult");
    t->OnImageBufferDone(image, 0);
    image.frameNumber = 43;
    t->OnImageBufferDone(image, 0);
    EXPECT_EQ(std::vector<uint32_t>{43}, low.fake->Frames());
    EXPECT_EQ((std::vector<uint32_t>{42, 43}), high.fake->Frames());
    EXPECT_EQ(1u, log.Count(kTag, "run func failed"));
    t->DelTransCallback(0);
    t->DelTransCallback(4);
    EXPECT_FALSE(t->CheckTranslatorCallback());
}

TEST(TranslatorStatusTest, ThePropertyNamesTheCameraOnlyWhenThereIsOne) {
    CVirtualSwitchCameraTranslator* t = CVirtualSwitchCameraTranslator::GetInstance();
    t->EnableProperity("Camera_4");
    EXPECT_EQ("Camera_4", VirCamProperty());
    t->EnableProperity("");
    EXPECT_EQ("Camera_4", VirCamProperty());
    t->DisableProperity();
    EXPECT_EQ("0", VirCamProperty());
}

// A property value holds at most 91 bytes on a device. The library ignores
// the refusal, so a physical camera id too long for "Camera_" + id leaves the
// property at "0" while the camera is virtual.
TEST(TranslatorStatusTest, APhysicalIdTooLongForThePropertyLeavesItsOldValue) {
    SwitchHarness h;
    auto notifyPhysicalId = [&](const std::string& id) {
        h.channel
            ->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": [\")" + id +
                            R"(\"]}"})")
            .isOk();
        ASSERT_EQ(id, h.service->GetPhysicalCameraId());
    };
    notifyPhysicalId(std::string(84, '7'));  // "Camera_" + 84 = 91 bytes: fits
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ("Camera_" + std::string(84, '7'), VirCamProperty());
    ASSERT_EQ(CameraStatus::OK, h.SwitchOff("devA", "cam1").status);
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    EXPECT_EQ("0", VirCamProperty());

    notifyPhysicalId(std::string(85, '7'));  // 92 bytes: refused
    h.AddRemote("devA", "cam1", 40);         // a switch-off forgets the remote
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ("0", VirCamProperty());
    EXPECT_EQ(pelcamera::VIRTUAL, h.service->GetCameraMode());
}

TEST(TranslatorChannelTest, CommandsAnswerInTheStatus) {
    android::sp<vircam::IVirCameraTranslator> channel = CreateVirtualCameraTranslator();
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(channel->RunCommonCmdTranslator(3, "x")));
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(channel->RunCommonCmdTranslator(1, "")));
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(channel->RunCommonCmdTranslator(2, "")));
    CVirtualSwitchCameraTranslator::GetInstance()->TriggerSwitchCamera(5, 0);
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(channel->RunCommonCmdTranslator(1, "")));
    EXPECT_EQ(0, RegisterVirCamStreamChangeLazyService());
}

TEST(TranslatorChannelTest, UnregisteringRemovesTheLastRegisteredCameraFromTheRegistry) {
    android::sp<pelcamera::VirCameraChannelForTranslator> channel = CreateVirtualCameraTranslator();
    android::sp<pelcamera::VirCameraChannelForTranslator> other = CreateVirtualCameraTranslator();
    auto* t = CVirtualSwitchCameraTranslator::GetInstance();
    RemoteTranslatorCallback cam0;
    RemoteTranslatorCallback cam1;
    EXPECT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->UnregisterCameraTranslatorCallback(0)));
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->RegisterCameraTranslatorCallback(0, cam0.proxy)));
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->RegisterCameraTranslatorCallback(1, cam1.proxy)));
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(other->RegisterCameraTranslatorCallback(2, nullptr)));

    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->UnregisterCameraTranslatorCallback(0)));
    // The translator forgot camera 0; the registry lost the entry of camera 1.
    EXPECT_TRUE(t->CheckTranslatorCallback());
    EXPECT_TRUE(channel->CallbackMgr()->HasCallback({"W_Translator", "CameraHal_0"}));
    EXPECT_FALSE(channel->CallbackMgr()->HasCallback({"W_Translator", "CameraHal_1"}));
    EXPECT_EQ(0u, cam1.process->linkedRecipients());

    // Only the characters from the third on name the entry.
    EXPECT_TRUE(channel->CallbackMgr()->DeleteCallback("W_Translator", "X_CameraHal_0"));
    EXPECT_FALSE(channel->CallbackMgr()->HasCallback({"W_Translator", "CameraHal_0"}));
    EXPECT_EQ(0u, cam0.process->linkedRecipients());
    t->DelTransCallback(1);
}

TEST(TranslatorChannelTest, ADeadPipelineCallbackUnregistersItsCameraOnce) {
    LogCapture log;
    auto* t = CVirtualSwitchCameraTranslator::GetInstance();
    RemoteTranslatorCallback pipeline;
    {
        android::sp<vircam::IVirCameraTranslator> channel = CreateVirtualCameraTranslator();
        ASSERT_EQ(CameraStatus::OK,
                  static_cast<CameraStatus>(
                      channel->RegisterCameraTranslatorCallback(3, pipeline.proxy)));
        ASSERT_EQ(CameraStatus::OK,
                  static_cast<CameraStatus>(
                      channel->RegisterCameraTranslatorCallback(3, pipeline.proxy)));
        EXPECT_EQ(1u, pipeline.process->linkedRecipients());
    }
    // The host dropped its channel; the linked recipient keeps it alive.
    pipeline.process->kill();
    android::hardware::waitForDeathNotifications();
    EXPECT_FALSE(t->CheckTranslatorCallback());
    EXPECT_EQ(1u,
              log.Count("VirCam_CTranslator",
                        "DoAfterTranslatorCallbackDead: DoAfterTranslatorCallbackDead serviceId is "
                        "CameraHal_3!!!"));
    EXPECT_TRUE(log.Has("VirCam_CTranslator", "VirCameraChannelForTranslator deconstruct"));
}

}  // namespace
}  // namespace vircam_test
