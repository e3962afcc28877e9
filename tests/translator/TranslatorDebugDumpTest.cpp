// Copyright (C) 2026 The libvircam Authors

// `lshal debug` on the translator channel, read through a real pipe: the
// translator's status, callbacks, stream backup and buffer cache, and the
// counters the frame path keeps without a lock.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>

#include "support/DebugPipe.h"
#include "support/NativeBuffer.h"
#include "support/SwitchHarness.h"
#include "translator/TranslatorLocks.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_test {
namespace {

vircam::VirImageBuffer Element(int32_t frame, int32_t stream, uint64_t buffer) {
    vircam::VirImageBuffer element;
    element.frameNumber = frame;
    element.streamId = stream;
    element.bufferId = buffer;
    return element;
}

std::string Counters(const std::string& dump) {
    const size_t start = dump.find("since start: ");
    return start == std::string::npos ? "" : dump.substr(start, dump.find('\n', start) - start);
}

TEST(TranslatorDebugDumpTest, StatusCallbacksStreamsAndBuffers) {
    SwitchHarness h;
    android::sp<pelcamera::VirCameraChannelForTranslator> channel = CreateVirtualCameraTranslator();
    NativeBuffer buffer;
    h.translator->RegisterBuffer(0, 1, buffer.get());
    h.translator->RegisterBuffer(0, 2, buffer.get());
    h.translator->RegisterBuffer(1, 7, buffer.get());

    std::string dump = ReadDebug(*channel).text;
    for (const char* expected : {
             "translator\nstatus: camera id -1, mode PHYSICAL\n",
             "flushing: no, flush done since the last request: no\n",
             "channel service: linked\n",
             "pipeline callbacks: 1\n  camera 0: registered\n",
             // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one block of lines
             "backed-up streams: 3\n  stream 0: 1920x1080, format 34\n"
             "  stream 1: 640x480, format 842094169\n  stream 2: 320x240, format 33\n",
             "cached buffers: 3\n  stream 0: 2\n  stream 1: 1\n",
         }) {
        EXPECT_NE(std::string::npos, dump.find(expected)) << expected << "\nin\n" << dump;
    }

    h.SwitchOnAndWait("devA", "cam1");
    dump = ReadDebug(*channel).text;
    EXPECT_NE(std::string::npos, dump.find("status: camera id 101, mode VIRTUAL\n")) << dump;

    // Close forgets the backup and the cache.
    channel->Close(0).isOk();
    dump = ReadDebug(*channel).text;
    EXPECT_NE(std::string::npos, dump.find("backed-up streams: 0\ncached buffers: 0\n")) << dump;
    EXPECT_NE(std::string::npos, dump.find("status: camera id -1, mode PHYSICAL\n")) << dump;
}

// A call in progress holds the buffer cache (a Close through a slow remote)
// and the callbacks (an image on its way to the pipeline): the dump says so
// and returns within its budget instead of waiting for them.
TEST(TranslatorDebugDumpTest, LocksHeldByCallsInProgressReadAsBusy) {
    SwitchHarness h;
    android::sp<pelcamera::VirCameraChannelForTranslator> channel = CreateVirtualCameraTranslator();
    DebugOutput out;
    {
        std::lock_guard<std::mutex> cache(pelcamera::g_bufferCacheMutex);
        std::lock_guard<std::mutex> callbacks(pelcamera::g_callbackMutex);
        out = ReadDebug(*channel);
    }
    EXPECT_LT(out.took, std::chrono::milliseconds(500));
    EXPECT_NE(std::string::npos,
              out.text.find("pipeline callbacks: busy (held by a call in progress; no switch "
                            "running)\n"))
        << out.text;
    EXPECT_NE(std::string::npos, out.text.find("cached buffers: busy")) << out.text;
    // What needs neither lock is still there.
    EXPECT_NE(std::string::npos, out.text.find("backed-up streams: 3\n")) << out.text;
    EXPECT_NE(std::string::npos, out.text.find("since start: ")) << out.text;
}

TEST(TranslatorDebugDumpTest, CountersFollowTheFramePath) {
    SwitchHarness h;
    android::sp<pelcamera::VirCameraChannelForTranslator> channel = CreateVirtualCameraTranslator();
    EXPECT_EQ(
        "since start: capture requests forwarded 0, refused 0; metadata requests 0; images "
        "delivered 0, delivery failures 0; flushes 0, switch-back flushes 0",
        Counters(ReadDebug(*channel).text));

    // Physical: requests go nowhere.
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(channel->ProcessCaptureRequest(0, {Element(1, 0, 1)})));
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(channel->ProcessMetaRequest(0, {})));

    h.SwitchOnAndWait("devA", "cam1");
    h.remote.fake->EchoImages();
    for (int32_t frame = 2; frame <= 4; ++frame) {
        EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(
                                        channel->ProcessCaptureRequest(0, {Element(frame, 0, 1)})));
    }
    EXPECT_EQ(CameraStatus::INTERNAL_ERROR,
              static_cast<CameraStatus>(channel->ProcessCaptureRequest(0, {})));
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(channel->ProcessMetaRequest(0, {})));
    ASSERT_TRUE(h.pipeline.fake->WaitForFrames(3, std::chrono::seconds(5)));
    ASSERT_TRUE(WaitUntil([&] {
        return Counters(ReadDebug(*channel).text).find("images delivered 3") != std::string::npos;
    }));

    // An image with no pipeline callback to take it.
    h.translator->DelTransCallback(0);
    h.translator->OnImageBufferDone(vircam::VirImageResult(), 0);
    h.translator->SetTransCallback(h.pipeline.proxy, 0);
    channel->Flush(0).isOk();
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(h.SwitchOff("devA", "cam1").status));
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));

    EXPECT_EQ(
        "since start: capture requests forwarded 3, refused 2; metadata requests 2; images "
        "delivered 3, delivery failures 1; flushes 1, switch-back flushes 1",
        Counters(ReadDebug(*channel).text));
}

TEST(TranslatorDebugDumpTest, OptionsAndTheSharedHistory) {
    SwitchHarness h;
    android::sp<pelcamera::VirCameraChannelForTranslator> channel = CreateVirtualCameraTranslator();
    h.SwitchOff("devA", "cam1");
    const std::string history = ReadDebug(*channel, {"--history"}).text;
    EXPECT_EQ(h.service->SwitchHistoryText(), history);
    EXPECT_NE(std::string::npos, history.find("  seq 2 off"));
    EXPECT_EQ(0u, ReadDebug(*channel, {"--help"})
                      .text.find("usage: lshal debug <IVirCameraTranslator instance>"));
    EXPECT_EQ(
        "unknown option; usage: lshal debug <IVirCameraTranslator instance> [--history | "
        "--help]\n",
        ReadDebug(*channel, {"-a"}).text);
    EXPECT_TRUE(channel->debug(android::hardware::hidl_handle(), Options({})).isOk());
    EXPECT_TRUE(channel->debug(BorrowedFdHandle(-1).Handle(), Options({})).isOk());
}

}  // namespace
}  // namespace vircam_test
