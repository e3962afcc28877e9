// Copyright (C) 2026 The libvircam Authors

// Process exit with the library busy: it neither waits for a switch step or a
// stuck peer nor frees anything that another thread still uses. Each case
// runs the library in a child process of its own and lets it exit.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/DebugPipe.h"
#include "support/SwitchHarness.h"
#include "utils/NoDestructor.h"

namespace vircam_test {
namespace {

using std::chrono::milliseconds;

struct ChildRun {
    std::string log;  // the child's stderr: the host log and any sanitizer report
    double secondsFromExitToEnd = -1;
    int status = -1;
    bool ended = false;
};

std::string ReadAll(int fd) {
    std::string text;
    char chunk[4096];
    ssize_t n = 0;
    while ((n = read(fd, chunk, sizeof(chunk))) > 0) {
        text.append(chunk, static_cast<size_t>(n));
    }
    return text;
}

// Runs `busy` in a child, which sets the library to work and returns once
// it is; the child then calls exit(). What `busy` makes for the threads it
// leaves running must outlive the exit too (NoDestructor), or the test
// itself frees memory under them. The child is killed if it has not ended
// within `limit` of that.
ChildRun RunChild(const std::function<void()>& busy, std::chrono::seconds limit) {
    int ready[2];
    int err[2];
    if (pipe(ready) != 0 || pipe(err) != 0) {
        ADD_FAILURE() << "pipe";
        return {};
    }
    const pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        close(err[0]);
        dup2(err[1], STDERR_FILENO);
        busy();
        const char byte = 'x';
        if (write(ready[1], &byte, 1) != 1) {
            _exit(5);
        }
        std::exit(0);
    }
    close(ready[1]);
    close(err[1]);
    ChildRun run;
    char byte = 0;
    const bool signalled = read(ready[0], &byte, 1) == 1;
    const auto exitAsked = std::chrono::steady_clock::now();
    std::thread reader([&] { run.log = ReadAll(err[0]); });
    while (std::chrono::steady_clock::now() - exitAsked < limit) {
        if (waitpid(pid, &run.status, WNOHANG) == pid) {
            run.ended = true;
            break;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    if (!run.ended) {
        kill(pid, SIGKILL);
        waitpid(pid, &run.status, 0);
    } else if (signalled) {
        run.secondsFromExitToEnd =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - exitAsked).count();
    }
    reader.join();
    close(ready[0]);
    close(err[0]);
    return run;
}

void ExpectCleanExit(const ChildRun& run) {
    ASSERT_TRUE(run.ended) << "exit hung\n" << run.log;
    ASSERT_TRUE(WIFEXITED(run.status)) << run.log;
    EXPECT_EQ(0, WEXITSTATUS(run.status)) << run.log;
    EXPECT_EQ(std::string::npos, run.log.find("Sanitizer")) << run.log;
}

// The pipeline's callback, stuck for good in the first image it gets, with
// the translator's callback lock held under it.
class StuckPipeline : public FakeTranslatorCallback {
public:
    android::hardware::Return<CameraStatus> ProcessCaptureResult(
        const VirImageResult& /*result*/) override {
        entered = true;
        while (true) {
            std::this_thread::sleep_for(std::chrono::hours(1));
        }
    }
    std::atomic<bool> entered{false};
};

vircam::VirImageResult AnImage() {
    vircam::VirImageResult image{};
    image.frameNumber = 1;
    image.lastImage = 1;
    return image;
}

// A switch-on whose remote never returns from its open call; a pipeline
// callback that never returns from an image.
TEST(ProcessExitTest, ExitNeverWaitsForAPeerThatNeverReturns) {
    const ChildRun remoteStuck = RunChild(
        [] {
            static pelcamera::NoDestructor<SwitchHarness> harness;
            SwitchHarness& h = *harness;
            StepScript stuck;
            stuck.hangOnCall = true;
            h.remote.fake->Script(RemoteStep::kControlSession, stuck);
            h.SwitchOn("devA", "cam1");
            if (!WaitUntil([&h] { return !h.remote.fake->Calls().empty(); })) {
                _exit(4);
            }
        },
        std::chrono::seconds(5));
    ExpectCleanExit(remoteStuck);
    EXPECT_LT(remoteStuck.secondsFromExitToEnd, 1.0);

    const ChildRun pipelineStuck = RunChild(
        [] {
            static pelcamera::NoDestructor<SwitchHarness> harness(false);
            static pelcamera::NoDestructor<
                RemotePeer<StuckPipeline, vircam::HostProxyVirCameraTranslatorCallback>>
                peer;
            SwitchHarness& h = *harness;
            auto& pipeline = *peer;
            h.translator->SetTransCallback(pipeline.proxy, 0);
            h.translator->BackupPhyConfigStreams(PipelineStreams());
            h.SwitchOnAndWait("devA", "cam1");
            h.remote.fake->JoinAnswers();  // a finished thread left unjoined is TSan's report
            std::thread([&h] { h.channel->onVirImageBufferDone(11, AnImage()).isOk(); }).detach();
            if (!WaitUntil([&pipeline] { return pipeline.fake->entered.load(); })) {
                _exit(4);
            }
        },
        std::chrono::seconds(5));
    ExpectCleanExit(pipelineStuck);
    EXPECT_LT(pipelineStuck.secondsFromExitToEnd, 1.0);
}

// Results, images, death notices and `debug` calls go on arriving on other
// threads while the process exits: nothing they touch may be gone.
TEST(ProcessExitTest, ExitWhileCallsKeepArrivingFreesNothingUnderThem) {
    for (int round = 0; round < 20; ++round) {
        const ChildRun run = RunChild(
            [] {
                static pelcamera::NoDestructor<SwitchHarness> harness;
                static SwitchHarness& h = *harness;
                h.SwitchOnAndWait("devA", "cam1");
                h.remote.fake->JoinAnswers();
                static pelcamera::NoDestructor<std::vector<std::unique_ptr<RemoteChannel>>> dying;
                static auto& doomed = *dying;
                for (int i = 0; i < 8; ++i) {
                    doomed.push_back(std::make_unique<RemoteChannel>(100 * (i + 2)));
                    h.channel
                        ->registerVirtualChannelCallback("devD", "W_d" + std::to_string(i),
                                                         doomed.back()->proxy)
                        .isOk();
                }
                static std::atomic<int> started{0};
                const auto forever = [](std::function<void(int)> call) {
                    std::thread([call] {
                        ++started;
                        for (int i = 0;; ++i) {
                            call(i);
                        }
                    }).detach();
                };
                forever([](int i) {
                    const uint32_t id = 10 + static_cast<uint32_t>(i % 3);
                    h.channel
                        ->notifyOpenControlSessionResult(id,
                                                         vircam::VirCamOptRet::OPT_CTRL_SESSION_OK)
                        .isOk();
                    h.channel
                        ->notifyConfigStreamResult(id, vircam::VirCamOptRet::OPT_CONFIG_STREAM_OK)
                        .isOk();
                    h.channel
                        ->notifyOpenDataSessionResult(id, vircam::VirCamOptRet::OPT_DATA_SESSION_OK)
                        .isOk();
                });
                forever([](int) { h.channel->onVirImageBufferDone(11, AnImage()).isOk(); });
                forever([](int) { ReadDebug(*h.channel, {}); });
                forever([](int i) {
                    if (i < static_cast<int>(doomed.size())) {
                        doomed[static_cast<size_t>(i)]->process->kill();
                    } else {
                        std::this_thread::sleep_for(milliseconds(1));
                    }
                });
                WaitUntil([] { return started == 4; });
                std::this_thread::sleep_for(milliseconds(5));
            },
            std::chrono::seconds(10));
        ExpectCleanExit(run);
        if (HasFailure()) {
            FAIL() << "round " << round;
        }
    }
}

}  // namespace
}  // namespace vircam_test
