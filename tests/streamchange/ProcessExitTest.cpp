// What process exit does to switch tasks: the one running stops after the
// step it is in, the ones still queued are dropped. Each case runs the library in a child
// process of its own and lets it exit.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/SwitchHarness.h"

namespace vircam_test {
namespace {

struct ChildRun {
    std::string log;  // the child's stderr, where the host log goes
    double secondsFromExitToEnd = -1;
    int status = -1;
};

// Reads `fd` to its end.
std::string ReadAll(int fd) {
    std::string text;
    char chunk[4096];
    ssize_t n = 0;
    while ((n = read(fd, chunk, sizeof(chunk))) > 0) {
        text.append(chunk, static_cast<size_t>(n));
    }
    return text;
}

// Queues three switch-ons while no worker runs yet (the workers start with
// the first switch callback), so that they really wait in the queue. Every
// remote answers its control session after 1 s and never its stream
// configuration. Once the first task (the newest) is in Step1's wait, the
// child exits.
// Made before the channel service, so run after its destructor at exit: the
// remotes' answer threads are joined once the service has stopped its
// workers. The remotes themselves are never destroyed (they hold the service).
struct AnswerJoiner {
    std::vector<RemoteChannel*> remotes;
    ~AnswerJoiner() {
        for (RemoteChannel* remote : remotes) {
            remote->fake->JoinAnswers();
        }
    }
};

[[noreturn]] void QueueThreeSwitchOnsAndExit(int readyFd) {
    static AnswerJoiner joiner;
    std::vector<std::unique_ptr<RemoteChannel>> remotes;
    auto* service = CreateVirtualCameraStreamChange();
    android::sp<vircam::IVirCameraChannel> channel(service);
    RemoteTranslatorCallback pipeline;
    pelcamera::CVirtualSwitchCameraTranslator::GetInstance()->SetTransCallback(pipeline.proxy, 0);
    for (int i = 0; i < 3; ++i) {
        remotes.push_back(std::make_unique<RemoteChannel>(10 * (i + 1)));
        RemoteChannel& remote = *remotes.back();
        joiner.remotes.push_back(&remote);
        remote.fake->SetService(channel);
        StepScript late;
        late.mode = AnswerMode::kLate;
        late.delay = std::chrono::milliseconds(1000);
        remote.fake->Script(RemoteStep::kControlSession, late);
        remote.fake->Script(RemoteStep::kConfigStream, {AnswerMode::kNever});
        const std::string id = "cam" + std::to_string(i);
        channel->registerVirtualChannelCallback("dev", "W_" + id, remote.proxy).isOk();
        channel
            ->switchOnVirtualCamera("dev", id,
                                    [](CameraStatus status, uint32_t) {
                                        if (status != CameraStatus::OK) {
                                            _exit(3);
                                        }
                                    })
            .isOk();
    }
    RemoteSwitchCallback devMgt;
    channel->registerCameraSwitchCallback(devMgt.proxy).isOk();
    if (!WaitUntil([&] { return !remotes.back()->fake->Calls().empty(); })) {
        _exit(4);
    }
    const char ready = 'x';
    if (write(readyFd, &ready, 1) != 1) {
        _exit(5);
    }
    std::exit(0);
}

ChildRun RunChild() {
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
        QueueThreeSwitchOnsAndExit(ready[1]);
    }
    close(ready[1]);
    close(err[1]);
    ChildRun run;
    char byte = 0;
    const bool signalled = read(ready[0], &byte, 1) == 1;
    const auto exitAsked = std::chrono::steady_clock::now();
    run.log = ReadAll(err[0]);
    waitpid(pid, &run.status, 0);
    if (signalled) {
        run.secondsFromExitToEnd =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - exitAsked).count();
    }
    close(ready[0]);
    close(err[0]);
    return run;
}

size_t Occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

TEST(ProcessExitTest, QueuedSwitchTasksAreDroppedAndExitWaitsOnlyForTheRunningStep) {
    const ChildRun run = RunChild();
    ASSERT_GE(run.secondsFromExitToEnd, 0) << run.log;
    ASSERT_TRUE(WIFEXITED(run.status)) << run.log;
    EXPECT_EQ(0, WEXITSTATUS(run.status)) << run.log;
    // One task ran, the newest; the two behind it never started.
    EXPECT_EQ(1u, Occurrences(run.log, "[Step0]")) << run.log;
    EXPECT_EQ(1u, Occurrences(run.log, "DoSwitchOnTask: start switch on")) << run.log;
    // Step1 succeeds when its late answer comes; the sequence stops there
    // instead of sitting through Step2's 3 s wait.
    EXPECT_EQ(1u, Occurrences(run.log, "[Step1]")) << run.log;
    EXPECT_EQ(0u, Occurrences(run.log, "[Step2]")) << run.log;
    EXPECT_EQ(1u, Occurrences(run.log, "process exiting, switch on abandoned")) << run.log;
    EXPECT_LT(run.secondsFromExitToEnd, 2.5);
}

}  // namespace
}  // namespace vircam_test
