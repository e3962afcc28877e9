// Copyright (C) 2026 The libvircam Authors

#include "support/SwitchHarness.h"

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/DebugPipe.h"
#include "utils/VirCamClock.h"

namespace vircam_test {

bool WaitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    pelcamera::VirCamClock& clock = pelcamera::Clock();
    const auto deadline = clock.Now() + timeout;
    while (!done()) {
        if (clock.Now() > deadline) {
            return false;
        }
        clock.SleepFor(std::chrono::milliseconds(2));
    }
    return true;
}

size_t CallsStartingWith(const RemoteChannel& remote, const std::string& prefix) {
    const auto calls = remote.fake->Calls();
    return static_cast<size_t>(std::count_if(
        calls.begin(), calls.end(), [&](const std::string& c) { return c.rfind(prefix, 0) == 0; }));
}

std::string VirCamProperty() {
    return android::base::GetProperty("vendor.vorsk_vircam_info", "<unset>");
}

android::hardware::hidl_vec<vircam::VirStream> PipelineStreams() {
    android::hardware::hidl_vec<vircam::VirStream> streams(3);
    streams[0].streamId = 0;
    streams[0].width = 1920;
    streams[0].height = 1080;
    streams[0].format = 34;  // implementation-defined
    streams[0].formatFlags = 0x7;
    streams[1].streamId = 1;
    streams[1].width = 640;
    streams[1].height = 480;
    streams[1].format = 0x32315659;  // YV12
    streams[1].formatFlags = 0x9;
    streams[1].extras = {{"key", "value"}};
    streams[2].streamId = 2;
    streams[2].width = 320;
    streams[2].height = 240;
    streams[2].format = 0x21;  // BLOB
    return streams;
}

SwitchHarness::SwitchHarness(bool withPipeline, bool withSwitchCallback)
    : service(CreateVirtualCameraStreamChange()),
      // Device management and the remotes reach the service from processes of
      // their own, through its binder pool.
      channel(new vircam::HostProxyVirCameraChannel(service, android::hardware::thisProcess())),
      translator(pelcamera::CVirtualSwitchCameraTranslator::GetInstance()),
      remote(AddRemote("devA", "cam1", 10)) {
    if (withSwitchCallback) {
        EXPECT_EQ(CameraStatus::OK,
                  static_cast<CameraStatus>(channel->registerCameraSwitchCallback(devMgt.proxy)));
    }
    if (withPipeline) {
        translator->SetTransCallback(pipeline.proxy, 0);
        translator->BackupPhyConfigStreams(PipelineStreams());
    }
    channel->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": [\"2\"]}"})")
        .isOk();
}

SwitchHarness::~SwitchHarness() {
    for (auto& r : mRemotes) {
        r->fake->JoinAnswers();
    }
}

RemoteChannel& SwitchHarness::AddRemote(const std::string& deviceId, const std::string& id,
                                        uint32_t firstSessionId) {
    mRemotes.push_back(std::make_unique<RemoteChannel>(firstSessionId));
    RemoteChannel& added = *mRemotes.back();
    added.fake->SetService(channel);
    EXPECT_EQ(CameraStatus::OK, static_cast<CameraStatus>(channel->registerVirtualChannelCallback(
                                    deviceId, "W_" + id, added.proxy)));
    return added;
}

SwitchHarness::Reply SwitchHarness::SwitchOn(const std::string& deviceId, const std::string& id) {
    Reply reply{CameraStatus::INTERNAL_ERROR, 0};
    channel
        ->switchOnVirtualCamera(deviceId, id,
                                [&](CameraStatus status, uint32_t seqNum) {
                                    reply = {status, seqNum};
                                })
        .isOk();
    return reply;
}

SwitchHarness::Reply SwitchHarness::SwitchOff(const std::string& deviceId, const std::string& id) {
    Reply reply{CameraStatus::INTERNAL_ERROR, 0};
    channel
        ->switchOffVirtualCamera(deviceId, id,
                                 [&](CameraStatus status, uint32_t seqNum) {
                                     reply = {status, seqNum};
                                 })
        .isOk();
    return reply;
}

void SwitchHarness::SwitchOnAndWait(const std::string& deviceId, const std::string& id) {
    const size_t before = devMgt.fake->Results().size();
    ASSERT_EQ(CameraStatus::OK, SwitchOn(deviceId, id).status);
    ASSERT_TRUE(WaitForResults(before + 1));
    ASSERT_EQ(300, devMgt.fake->Results().back().code);
    ASSERT_TRUE(WaitForMode(pelcamera::VIRTUAL));
}

bool SwitchHarness::WaitForResults(size_t count) const {
    return devMgt.fake->WaitForResults(count, std::chrono::seconds(15));
}

bool SwitchHarness::WaitForMode(int32_t mode) const {
    return WaitUntil([&] { return service->GetCameraMode() == mode; });
}

bool SwitchHarness::WaitUntilIdle() const {
    return WaitUntil([&] { return Dump().find("running now: nothing\n") != std::string::npos; });
}

std::string SwitchHarness::Dump(const std::vector<std::string>& options) const {
    return ReadDebug(*channel, options).text;
}

bool SwitchHarness::WaitForEnd(uint32_t seqNum) const {
    const std::string prefix = "\n  seq " + std::to_string(seqNum) + " ";
    return WaitUntil([&] {
        const std::string history = Dump({"--history"});
        const size_t at = history.find(prefix);
        return at != std::string::npos &&
               history.find(", took ", at) < history.find('\n', at + prefix.size());
    });
}

bool SwitchHarness::WaitForStep(uint32_t seqNum, const std::string& step) const {
    const std::string running = "seq " + std::to_string(seqNum) + ", step " + step;
    return WaitUntil([&] { return service->BusyText().find(running) != std::string::npos; });
}

bool SwitchHarness::HasSession(const std::string& deviceId, const std::string& id) const {
    return service->GetVirCamSession(deviceId, id) != nullptr;
}

bool SwitchHarness::Registered(const std::string& deviceId, const std::string& id) const {
    return service->HasChannelCallback({deviceId, id});
}

}  // namespace vircam_test
