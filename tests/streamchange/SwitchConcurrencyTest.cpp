// Copyright (C) 2026 The libvircam Authors

// Switch commands, result notifications and registrations from several
// threads at once: nothing deadlocks, every command is answered, and the
// engine ends in a consistent state.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "support/SwitchHarness.h"

namespace vircam_test {
namespace {

TEST(SwitchConcurrencyTest, CommandsNotificationsAndRegistrationsRaceSafely) {
    SwitchHarness h;
    RemoteChannel& other = h.AddRemote("devB", "cam2", 500);
    StepScript quick;
    quick.mode = AnswerMode::kLate;
    quick.delay = std::chrono::milliseconds(1);
    for (auto step :
         {RemoteStep::kControlSession, RemoteStep::kConfigStream, RemoteStep::kDataSession}) {
        h.remote.fake->Script(step, quick);
        other.fake->Script(step, quick);
    }

    std::mutex seqLock;
    std::set<uint32_t> seqNums;
    auto record = [&](const SwitchHarness::Reply& reply) {
        std::lock_guard<std::mutex> lock(seqLock);
        EXPECT_TRUE(seqNums.insert(reply.seqNum).second) << "sequence number given twice";
    };
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    auto running = [&] { return std::chrono::steady_clock::now() < deadline; };

    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        while (running()) {
            record(h.SwitchOn("devA", "cam1"));
            record(h.SwitchOff("devA", "cam1"));
        }
    });
    threads.emplace_back([&] {
        while (running()) {
            record(h.SwitchOn("devB", "cam2"));
            record(h.SwitchOff("devB", "cam2"));
        }
    });
    threads.emplace_back([&] {
        std::mt19937 random(7);
        while (running()) {
            const uint32_t id = random() % 520;
            h.channel->notifyOpenControlSessionResult(id, vircam::VirCamOptRet::OPT_CTRL_SESSION_OK)
                .isOk();
            h.channel->notifyConfigStreamResult(id, vircam::VirCamOptRet::OPT_CONFIG_STREAM_FAILED)
                .isOk();
            h.channel->notifyOpenDataSessionResult(id, vircam::VirCamOptRet::OPT_DATA_SESSION_OK)
                .isOk();
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    threads.emplace_back([&] {
        RemoteChannel flapping;
        while (running()) {
            h.channel->registerVirtualChannelCallback("devC", "W_cam3", flapping.proxy).isOk();
            h.channel->unregisterVirtualChannelCallback("devC", "W_cam3").isOk();
            // Switch-offs after the death of a remote re-register the callbacks.
            h.channel->registerCameraSwitchCallback(h.devMgt.proxy).isOk();
            h.channel->registerVirtualChannelCallback("devA", "W_cam1", h.remote.proxy).isOk();
            h.channel->registerVirtualChannelCallback("devB", "W_cam2", other.proxy).isOk();
            h.channel
                ->notify(0, R"({"notifyKey": 101, "notifyMsgData": "{\"virCamInfo\": [\"3\"]}"})")
                .isOk();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    for (auto& t : threads) {
        t.join();
    }

    // Quiesce: every accepted command finishes and nothing stays switching.
    // Racing commands may leave the two modes apart (a switch-on that runs
    // on a virtual camera and fails falls back to physical while the
    // translator keeps the old camera); closing the camera reconciles them.
    ASSERT_TRUE(WaitUntil([&] {
        const std::string dump = h.Dump();
        return dump.find("queued: switch-on 0, switch-off 0\n") != std::string::npos &&
               dump.find("running now: nothing\n") != std::string::npos;
    }));
    EXPECT_NE(pelcamera::ON_SWITCHING, h.service->GetCameraMode());
    // A switch-on whose remote was unregistered meanwhile reports nothing;
    // none is answered twice or under a number never given out.
    std::map<uint32_t, int> answers;
    for (const SwitchResult& result : h.devMgt.fake->Results()) {
        EXPECT_EQ(1, ++answers[result.seqNum]) << result.seqNum;
        EXPECT_EQ(1u, seqNums.count(result.seqNum)) << result.seqNum;
    }
    std::shared_ptr<pelcamera::HidlCallbackMgrTranslator> noRegistry;
    h.translator->Close(0, noRegistry);
    EXPECT_EQ(pelcamera::PHYSICAL, h.service->GetCameraMode());
    EXPECT_EQ(pelcamera::PHYSICAL, h.translator->GetCamStatus().camMode);
    EXPECT_EQ("0", VirCamProperty());
}

}  // namespace
}  // namespace vircam_test
