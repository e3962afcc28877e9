// Copyright (C) 2026 The libvircam Authors

// The whole library through its public surfaces only: the exported factories
// of libvircam.so and the HIDL interfaces, with fake peers around it.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <android-base/properties.h>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "support/FakeRemoteChannel.h"
#include "support/FakeSwitchCallback.h"
#include "support/FakeTranslatorCallback.h"
#include "support/NativeBuffer.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_test {
namespace {

using android::sp;
using android::hardware::hidl_vec;
using CameraStatus = android::hardware::camera::common::V1_0::Status;

constexpr int kFrames = 100;
constexpr int32_t kCameraId = 0;

bool WaitFor(const std::function<bool()>& done) {
    for (int i = 0; i < 5000 && !done(); ++i) {
        usleep(2000);
    }
    return done();
}

hidl_vec<vircam::VirStream> PreviewStreams(uint32_t width) {
    hidl_vec<vircam::VirStream> streams(2);
    streams[0].streamId = 0;
    streams[0].width = width;
    streams[0].height = 1080;
    streams[0].format = 34;
    streams[1].streamId = 1;
    streams[1].width = 640;
    streams[1].height = 480;
    streams[1].format = 0x32315659;
    return streams;
}

TEST(FramesEndToEndTest, FramesFlowToTheRemoteAndImagesBackToEveryPipelineCallback) {
    sp<vircam::IVirCameraTranslator> translator = CreateVirtualCameraTranslator();
    sp<vircam::IVirCameraTranslator> secondTranslator = CreateVirtualCameraTranslator();
    sp<vircam::IVirCameraChannel> channel = CreateVirtualCameraStreamChange();
    ASSERT_NE(translator.get(), secondTranslator.get());

    // The pipeline: one callback per camera, streams backed up, buffers registered.
    RemoteTranslatorCallback front;
    RemoteTranslatorCallback rear;
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(
                  translator->RegisterCameraTranslatorCallback(kCameraId, front.proxy)));
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(
                  secondTranslator->RegisterCameraTranslatorCallback(1, rear.proxy)));
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(translator->BackupPhyConfigStreams(
                                    kCameraId, PreviewStreams(1920))));
    std::vector<std::unique_ptr<NativeBuffer>> buffers;
    for (uint64_t id = 0; id < 8; ++id) {
        buffers.push_back(std::make_unique<NativeBuffer>());
        ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(translator->RegisterBuffer(
                                        kCameraId, id % 2, id, buffers.back()->get())));
    }

    // Device management: switch callback, the remote channel, the physical id.
    RemoteSwitchCallback devMgt;
    RemoteChannel remote;
    remote.fake->SetService(channel);
    remote.fake->EchoImages();
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(channel->registerCameraSwitchCallback(devMgt.proxy)));
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(channel->registerVirtualChannelCallback(
                                    "devA", "W_cam1", remote.proxy)));
    channel->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": [\"0\"]}"})")
        .isOk();

    // Physical: the pipeline's requests are refused.
    hidl_vec<vircam::VirImageBuffer> request(1);
    request[0].bufferId = 0;
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(translator->ProcessCaptureRequest(kCameraId, request)));

    channel
        ->switchOnVirtualCamera("devA", "cam1",
                                [](CameraStatus s, uint32_t) { EXPECT_EQ(CameraStatus::OK, s); })
        .isOk();
    ASSERT_TRUE(devMgt.fake->WaitForResults(1, std::chrono::seconds(10)));
    ASSERT_EQ(300, devMgt.fake->Results()[0].code);
    EXPECT_EQ("Camera_0", android::base::GetProperty("vendor.vorsk_vircam_info", ""));
    ASSERT_TRUE(WaitFor([&] {
        return translator->RunCommonCmdTranslator(1, "").withDefault(
                   CameraStatus::INTERNAL_ERROR) == CameraStatus::OK;
    }));

    for (int frame = 0; frame < kFrames; ++frame) {
        hidl_vec<vircam::VirImageBuffer> buffersOfFrame(1);
        buffersOfFrame[0].frameNumber = frame;
        buffersOfFrame[0].streamId = frame % 2;
        buffersOfFrame[0].bufferId = static_cast<uint64_t>(frame % 8);
        ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(translator->ProcessCaptureRequest(
                                        kCameraId, buffersOfFrame)));
    }
    const auto seen = remote.fake->CaptureRequests();
    ASSERT_EQ(static_cast<size_t>(kFrames), seen.size());
    for (int frame = 0; frame < kFrames; ++frame) {
        EXPECT_EQ(frame, seen[frame].frameNumber);
        EXPECT_EQ(buffers[frame % 8]->file(), seen[frame].buffer) << "frame " << frame;
    }
    ASSERT_TRUE(front.fake->WaitForFrames(kFrames, std::chrono::seconds(10)));
    ASSERT_TRUE(rear.fake->WaitForFrames(kFrames, std::chrono::seconds(10)));
    std::vector<uint32_t> expected(kFrames);
    for (int frame = 0; frame < kFrames; ++frame) {
        expected[frame] = static_cast<uint32_t>(frame);
    }
    EXPECT_EQ(expected, front.fake->Frames());
    EXPECT_EQ(expected, rear.fake->Frames());

    // A reconfiguration while virtual reaches the remote, converted.
    ASSERT_EQ(CameraStatus::OK, static_cast<CameraStatus>(translator->BackupPhyConfigStreams(
                                    kCameraId, PreviewStreams(1280))));
    const auto streams = remote.fake->LastConfiguredStreams();
    ASSERT_EQ(2u, streams.size());
    EXPECT_EQ(1280u, streams[0].width);
    EXPECT_EQ(1, streams[0].format);

    // The switch-on's 300 comes before the service's own mode settles, so on a
    // loaded machine this switch-off can find it still switching and be
    // refused, reported as 300 as well. As device management must, ask again
    // while the camera stays virtual.
    bool physical = false;
    for (size_t attempt = 1; attempt <= 3 && !physical; ++attempt) {
        channel->switchOffVirtualCamera("devA", "cam1", [](CameraStatus, uint32_t) {}).isOk();
        ASSERT_TRUE(devMgt.fake->WaitForResults(1 + attempt, std::chrono::seconds(10)));
        EXPECT_EQ(300, devMgt.fake->Results().back().code);
        // The result is sent just before the service returns to physical.
        physical = WaitFor(
            [] { return android::base::GetProperty("vendor.vorsk_vircam_info", "") == "0"; });
    }
    ASSERT_TRUE(physical);
    // The flush on the way back was announced to every pipeline callback.
    EXPECT_EQ(1u, front.fake->Commands().size());
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(translator->ProcessCaptureRequest(kCameraId, request)));
    EXPECT_EQ(static_cast<size_t>(kFrames), remote.fake->CaptureRequests().size());

    // The pipeline closes: its callbacks go, and with them the registries'
    // hold on the translator channels.
    EXPECT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(translator->UnregisterCameraTranslatorCallback(kCameraId)));
    EXPECT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(secondTranslator->UnregisterCameraTranslatorCallback(1)));
    EXPECT_EQ(0u, front.process->linkedRecipients());
}

}  // namespace
}  // namespace vircam_test
