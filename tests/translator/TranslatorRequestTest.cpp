// Copyright (C) 2026 The libvircam Authors

// The pipeline's buffers and requests on their way to the remote, the
// commands of the remote side, and closing the camera.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/LogCapture.h"
#include "support/NativeBuffer.h"
#include "support/SwitchHarness.h"
#include "utils/VirCamClock.h"

namespace vircam_test {
namespace {

constexpr const char* kTag = "VirCam_Translator";

vircam::VirImageBuffer Element(int32_t frame, int32_t stream, uint64_t buffer) {
    vircam::VirImageBuffer element{};
    element.frameNumber = frame;
    element.streamId = stream;
    element.bufferId = buffer;
    return element;
}

TEST(TranslatorRequestTest, CachedHandlesAreKeptReplacedAndLentToRequests) {
    LogCapture log;
    SwitchHarness h;
    NativeBuffer first;
    NativeBuffer second;
    NativeBuffer own;
    auto* t = h.translator;
    t->RegisterBuffer(3, 10, first.get());
    t->RegisterBuffer(3, 10, android::hardware::hidl_handle());
    EXPECT_EQ(first.get(), t->CachedHandle(3, 10));
    t->RegisterBuffer(3, 10, second.get());
    EXPECT_EQ(second.get(), t->CachedHandle(3, 10));
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_INFO, kTag, "RegisterBuffer: the buffer saved and update, update it"));
    t->RegisterBuffer((uint64_t{1} << 32) + 3, 11, android::hardware::hidl_handle());
    EXPECT_EQ(2u, t->CachedBufferCount());  // stream ids are cut to their low 32 bits
    EXPECT_EQ(nullptr, t->CachedHandle(3, 11));

    // On the physical camera a request is refused.
    android::hardware::hidl_vec<vircam::VirImageBuffer> request = {Element(1, 3, 10)};
    EXPECT_EQ(-1, t->ProcessCaptureRequest(request));
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_WARN, kTag, "ProcessCaptureRequest: current not using virtual camera"));

    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ(-1, t->ProcessCaptureRequest({}));
    EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, kTag,
                        "ProcessCaptureRequest: image capture hidlRequest is emtpy"));

    request = {Element(2, 3, 10), Element(2, 3, 11), Element(2, 9, 99), Element(2, 3, 10)};
    request[3].buffer = own.get();
    ASSERT_EQ(0, t->ProcessCaptureRequest(request));
    const auto seen = h.remote.fake->CaptureRequests();
    ASSERT_EQ(4u, seen.size());
    // The remote gets its own copy of each handle, over the same buffer.
    EXPECT_EQ(second.file(), seen[0].buffer);  // lent from the cache
    EXPECT_EQ(0u, seen[1].buffer);             // registered without a handle
    EXPECT_EQ(0u, seen[2].buffer);             // never registered
    EXPECT_EQ(99u, seen[2].bufferId);
    EXPECT_EQ(own.file(), seen[3].buffer);  // kept its own handle
    EXPECT_EQ(2u, log.Count(kTag, "find one req with no cached buffer"));
    EXPECT_EQ(nullptr, request[0].buffer.getNativeHandle());  // the caller's request is untouched
}

// A pipeline that registers buffers of a new stream while it streams another
// one: the cache grows under the lookups of the requests in flight (the
// sanitizer suite sees a race here if a lookup does not hold the cache's lock).
TEST(TranslatorRequestTest, RegistrationsWhileStreamingAreSafeForTheRequestsInFlight) {
    SwitchHarness h;
    NativeBuffer streaming;
    auto* t = h.translator;
    t->RegisterBuffer(1, 1, streaming.get());
    h.SwitchOnAndWait("devA", "cam1");
    h.remote.fake->ForgetRecords();
    std::atomic<bool> registering{true};
    // Lent to the cache, so it outlives every request that may carry it: the
    // remote's copy of a request duplicates its descriptors.
    NativeBuffer added;
    std::thread registrar([&] {
        for (uint64_t id = 0; id < 2000; ++id) {
            t->RegisterBuffer(2, id, added.get());
        }
        registering = false;
    });
    int32_t sent = 0;
    while (registering) {
        ASSERT_EQ(0, t->ProcessCaptureRequest({Element(sent, 1, 1), Element(sent, 2, 0)}));
        ++sent;
    }
    registrar.join();
    EXPECT_EQ(2001u, t->CachedBufferCount());
    const auto seen = h.remote.fake->CaptureRequests();
    ASSERT_EQ(2u * static_cast<size_t>(sent), seen.size());
    for (size_t i = 0; i < seen.size(); i += 2) {
        EXPECT_EQ(streaming.file(), seen[i].buffer);
    }
}

TEST(TranslatorRequestTest, NotifyRecordsThePhysicalCameraOfTheProperty) {
    LogCapture log;
    SwitchHarness h;
    h.channel
        ->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": [\"5\", \"6\"]}"})")
        .isOk();
    h.channel->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": []}"})").isOk();
    h.channel->notify(0, R"({"notifyKey": 7, "notifyMsgData": "x"})").isOk();
    h.channel->notify(0, "not json").isOk();
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_ERROR, "VirCam_StreamChange", "RecvNotifyCmd cmd:7 is not support"));
    EXPECT_TRUE(
        log.Has(ANDROID_LOG_ERROR, "VirCam_StreamChange", "notify: StringToJsonValue failed"));
    EXPECT_EQ("5", h.service->GetPhysicalCameraId());

    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ("Camera_5", VirCamProperty());
}

// Nesting deeper than the JSON reader's stack limit, as the whole command or
// inside the camera-info document, takes the ordinary parse-failure path.
TEST(TranslatorRequestTest, NotifyOfDeeplyNestedJsonIsAParseFailureAtBothLevels) {
    LogCapture log;
    SwitchHarness h(false);
    h.channel->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": [\"4\"]}"})")
        .isOk();
    for (size_t depth : {size_t{1001}, size_t{100000}}) {
        const std::string nested = std::string(depth, '[') + std::string(depth, ']');
        log.Clear();
        EXPECT_TRUE(h.channel->notify(0, nested).isOk());
        EXPECT_TRUE(
            h.channel->notify(0, R"({"notifyKey": 101, "notifyMsgData": )" + nested + "}").isOk());
        EXPECT_EQ(2u, log.Count("VirCam_StreamChange", "notify: StringToJsonValue failed"));
        EXPECT_TRUE(
            h.channel->notify(0, R"({"notifyKey": 101, "notifyMsgData": ")" + nested + "\"}")
                .isOk());
        EXPECT_TRUE(log.Has(ANDROID_LOG_ERROR, "VirCam_StreamChange",
                            "SavePhysicalCameraID: StringToJsonValue failed"));
        EXPECT_EQ("4", h.service->GetPhysicalCameraId()) << depth;
    }
}

TEST(TranslatorRequestTest, CloseEndsPhysicalWhateverFails) {
    SwitchHarness h;
    NativeBuffer buffer;
    std::shared_ptr<pelcamera::HidlCallbackMgrTranslator> noRegistry;

    // Nothing to close: the channel service refuses, the translator ends physical anyway.
    h.translator->RegisterBuffer(0, 1, buffer.get());
    EXPECT_EQ(-1, h.translator->Close(0, noRegistry));
    EXPECT_EQ(0u, h.translator->CachedBufferCount());
    EXPECT_EQ(0u, h.translator->GetCachedConfigStreams().size());
    EXPECT_EQ("0", VirCamProperty());

    h.translator->BackupPhyConfigStreams(PipelineStreams());
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ(0, h.translator->Close(0, noRegistry));
    EXPECT_EQ(pelcamera::PHYSICAL, h.service->GetCameraMode());
    EXPECT_EQ(pelcamera::PHYSICAL, h.translator->GetCamStatus().camMode);
    EXPECT_EQ("0", VirCamProperty());
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    EXPECT_FALSE(h.Registered("devA", "cam1"));  // the remote must register again
    EXPECT_EQ("closeControlSession 10", h.remote.fake->Calls().back());
}

TEST(TranslatorRequestTest, MetadataAndReconfigurationReachTheRemoteWhileVirtual) {
    SwitchHarness h;
    vircam::VirMetaRequest meta{};
    meta.frameNumber = 9;
    EXPECT_EQ(-1, h.translator->ProcessMetaRequest(meta));
    h.SwitchOnAndWait("devA", "cam1");
    EXPECT_EQ(0, h.translator->ProcessMetaRequest(meta));
    EXPECT_EQ("processMetaRequest 11", h.remote.fake->Calls().back());

    // A reconfiguration the remote fails tears the virtual camera's sessions down.
    StepScript failing;
    failing.result = 0;
    h.remote.fake->Script(RemoteStep::kConfigStream, failing);
    EXPECT_EQ(0, h.translator->BackupPhyConfigStreams(PipelineStreams()));
    EXPECT_FALSE(h.HasSession("devA", "cam1"));
    EXPECT_EQ(-1, h.translator->ProcessMetaRequest(meta));
}

// The pipeline's request thread never waits on another thread's remote call
// or timed wait: not behind a Close (holding the registration lock while it
// waits for a reconfiguration), not behind the reconfiguration (waiting for
// a silent remote), not behind a switch step (holding the channel registry
// through its 3 s wait).
TEST(TranslatorRequestTest, ACaptureRequestNeverWaitsForCloseReconfigurationOrASwitchStep) {
    SwitchHarness h(true, false);  // no workers yet: both switch-ons queue
    RemoteChannel& b = h.AddRemote("devB", "cam2", 500);
    StepScript silent;
    silent.mode = AnswerMode::kNever;
    b.fake->Script(RemoteStep::kControlSession, silent);
    NativeBuffer buffer;
    h.translator->RegisterBuffer(0, 1, buffer.get());
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devB", "cam2").status);
    ASSERT_EQ(CameraStatus::OK, h.SwitchOn("devA", "cam1").status);  // runs first
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->registerCameraSwitchCallback(h.devMgt.proxy)));
    ASSERT_TRUE(h.WaitForResults(1));
    ASSERT_TRUE(WaitUntil([&] { return !b.fake->Calls().empty(); }));  // B's Step1 waits

    h.remote.fake->Script(RemoteStep::kConfigStream, silent);
    std::thread reconfiguration([&] { h.translator->BackupPhyConfigStreams(PipelineStreams()); });
    pelcamera::Clock().SleepFor(std::chrono::milliseconds(50));
    std::shared_ptr<pelcamera::HidlCallbackMgrTranslator> noRegistry;
    std::thread close([&] { h.translator->Close(0, noRegistry); });
    ASSERT_TRUE(WaitUntil([&] { return h.translator->CachedBufferCount() == 0; }));

    for (int frame = 1; frame <= 3; ++frame) {
        // On virtual time, a request held by any of them would let time run
        // to that wait's deadline.
        const auto start = pelcamera::Clock().Now();
        pelcamera::CVirtualSwitchCameraTranslator::VirImageBufferVec request(1);
        request[0] = Element(frame, 0, 1);
        EXPECT_EQ(0, h.translator->ProcessCaptureRequest(request));
        EXPECT_LT(pelcamera::Clock().Now() - start, std::chrono::milliseconds(50))
            << "frame " << frame;
    }
    EXPECT_EQ("processCaptureRequest 11", h.remote.fake->Calls().back());
    reconfiguration.join();
    close.join();
}

}  // namespace
}  // namespace vircam_test
