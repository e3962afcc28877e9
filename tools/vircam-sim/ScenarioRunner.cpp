// Copyright (C) 2026 The libvircam Authors

#include "ScenarioRunner.h"

#include <android-base/properties.h>
#include <dirent.h>
#include <unistd.h>

#include <climits>
#include <thread>

#include "LibraryDump.h"
#include "Names.h"
#include "SimClock.h"
#include "streamchange/VirCameraChannelForStreamChange.h"

namespace vircam_sim {

namespace {

constexpr const char* kProperty = "vendor.vorsk_vircam_info";
// Longest a switch-on can take: HAL init 1 s, three 3 s steps, 1.5 s of
// stream polls, with room for a loaded machine.
constexpr std::chrono::milliseconds kResultTimeout{20000};
// A result that is not coming: longer than any single step's wait.
constexpr std::chrono::milliseconds kNoResultWait{4000};
constexpr std::chrono::milliseconds kSettleTimeout{3000};
// After the mode reads right, the service's own bookkeeping still runs.
constexpr std::chrono::milliseconds kSettle{100};
constexpr int kSwitchOffAttempts = 2;
constexpr std::chrono::milliseconds kDrainTimeout{3000};
// A step that a death has failed reports at once; a result later than this
// after the death is one the library will not send.
constexpr std::chrono::milliseconds kDeathGrace{2000};

// A thread's stat file under /proc: what the virtual clock keeps open, one per
// thread, to see who is blocked. Not the run's to account for.
bool ClockFile(int dirFd, const char* name) {
    char target[PATH_MAX] = {0};
    const ssize_t length = readlinkat(dirFd, name, target, sizeof(target) - 1);
    if (length <= 0) {
        return false;
    }
    const std::string path(target, static_cast<size_t>(length));
    static const std::string kStat = "/stat";
    return path.rfind("/proc/", 0) == 0 && path.find("/task/") != std::string::npos &&
           path.size() > kStat.size() &&
           path.compare(path.size() - kStat.size(), kStat.size(), kStat) == 0;
}

int OpenFds() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (const dirent* entry = readdir(dir)) {
            count += ClockFile(dirfd(dir), entry->d_name) ? 0 : 1;
        }
        closedir(dir);
    }
    return count;
}

std::string Property() {
    return android::base::GetProperty(kProperty, "");
}

bool PollUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const SimTime end = Now() + timeout;
    while (!done()) {
        if (Now() > end) {
            return false;
        }
        SleepFor(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace

ScenarioRunner::ScenarioRunner(const Scenario& scenario, Recorder& recorder)
    : mScenario(scenario), mRecorder(recorder) {}

ScenarioRunner::~ScenarioRunner() {
    for (auto& reconfiguration : mReconfigurations) {
        if (reconfiguration->thread.joinable()) {
            reconfiguration->thread.join();
        }
    }
    for (auto& [name, remote] : mRemotes) {
        remote.device->Shutdown();
    }
    for (auto& former : mFormer) {
        former->Shutdown();
    }
    if (mDevMgt != nullptr) {
        mDevMgt->Shutdown();
    }
}

void ScenarioRunner::Expect(bool holds, const std::string& failure) {
    if (!holds) {
        mReport.failures.push_back(failure);
        Say("EXPECTATION FAILED: " + failure);
    }
}

bool ScenarioRunner::SetUp() {
    mFdsAtStart = OpenFds();
    mReport.scenario = mScenario.name;
    Say(Printf("scenario \"%s\": %s", mScenario.name.c_str(), mScenario.description.c_str()));
    mService = CreateVirtualCameraStreamChange();
    mPipeline = std::make_unique<SimPipeline>(mScenario.pipeline, mRecorder);
    if (!mPipeline->Open()) {
        Expect(false, "the pipeline could not open its camera");
        return false;
    }
    mDevMgt = new SimDevMgt(mService, mRecorder);
    mDevMgt->SetResultReturnDelay(std::chrono::milliseconds(mScenario.devmgt.resultReturnDelayMs));
    mDevMgt->Start("0");
    for (const auto& config : mScenario.remotes) {
        Remote remote;
        remote.device = new SimRemote(config, mService, mRecorder, mNextSessionBase);
        mNextSessionBase += 10;
        remote.device->Register();
        remote.registered = true;
        mRemotes.emplace(config.name, remote);
    }
    mPipeline->StartStreaming();
    return true;
}

RunReport ScenarioRunner::Run() {
    const int64_t start = NowUs();
    if (SetUp()) {
        for (size_t i = 0; i < mScenario.steps.size(); ++i) {
            RunStep(i, mScenario.steps[i]);
        }
        Finish();
        TearDown();
    }
    mReport.durationUs = NowUs() - start;
    mRecorder.trace().EndAll(NowUs());
    mRecorder.Progress("");
    return mReport;
}

void ScenarioRunner::RunStep(size_t index, const Step& step) {
    const std::string where = Printf("step %zu", index + 1);
    mRecorder.Progress(Printf("%s of %zu", where.c_str(), mScenario.steps.size()));
    switch (step.action) {
        case Action::kSwitchOn:
            SwitchOn(where, step);
            break;
        case Action::kSwitchOff:
            SwitchOff(where, step);
            break;
        case Action::kStream:
        case Action::kWait:
            Stream(step.seconds);
            break;
        case Action::kKill:
            mRemotes.at(step.remote).device->Kill("on the scenario's cue");
            mRemotes.at(step.remote).registered = false;
            break;
        case Action::kAwaitSwitchOff:
            AwaitSwitchOff(where, step);
            break;
        case Action::kAwaitResult:
            AwaitResult(where, step);
            break;
        case Action::kReconfigure:
            Reconfigure(where, step);
            break;
        case Action::kFlush:
            Flush(where, step);
            break;
        case Action::kRegister:
            Register(step.remote, step.inMs);
            break;
        case Action::kWithdraw:
            mRemotes.at(step.remote).device->WithdrawIn(step.inMs);
            mRemotes.at(step.remote).registered = false;
            break;
        case Action::kRegisterSwitchCallback:
            mDevMgt->RegisterCallback();
            break;
        case Action::kDump:
            CheckDump(where, step.dumpLines);
            break;
    }
    HandleDeaths();
}

void ScenarioRunner::Stream(double seconds) {
    SleepFor(std::chrono::duration_cast<SimDuration>(std::chrono::duration<double>(seconds)));
}

bool ScenarioRunner::WaitForVirtual() {
    const bool settled = PollUntil([this] { return mPipeline->Virtual(); }, kSettleTimeout);
    SleepFor(kSettle);
    return settled;
}

bool ScenarioRunner::WaitForPhysical() {
    const bool settled =
        PollUntil([this] { return !mPipeline->Virtual() && Property() == "0"; }, kSettleTimeout);
    SleepFor(kSettle);
    return settled;
}

std::optional<SwitchResult> ScenarioRunner::WaitForResult(const Step& step,
                                                          const SwitchCommand& command) {
    const android::sp<SimRemote> device = mRemotes.at(step.remote).device;
    const auto timeout = step.expectNoResult ? kNoResultWait : kResultTimeout;
    auto result = mDevMgt->WaitForResult(
        command.seqNum, timeout, [&device] { return device->Dead(); }, kDeathGrace);
    if (!result && !step.expectNoResult && device->Dead()) {
        Say(
            Printf("no result for seq %u: the remote's death made the library forget the "
                   "switch callback",
                   command.seqNum));
        mReport.forgotten.push_back(command);
    }
    return result;
}

void ScenarioRunner::SwitchOn(const std::string& where, const Step& step) {
    Remote& remote = mRemotes.at(step.remote);
    // The library forgets a remote's channel at switch-off: it offers it again.
    if (!remote.registered && !remote.device->Dead()) {
        remote.device->Register();
        remote.registered = true;
    }
    if (step.afterResult) {
        AwaitLastResult(where);
    }
    const SwitchCommand command = mDevMgt->SwitchOn(remote.device->config());
    if (step.async) {
        mPending.push_back({where, step, command});
        mLastAsyncSeq = command.seqNum;
        return;
    }
    const bool refused = command.status != android::hardware::camera::common::V1_0::Status::OK;
    const auto result = WaitForResult(step, command);
    mReport.commands.push_back(command);
    CheckResult(where, step, command, result, refused);
    if (result && result->code == 300) {
        mActive = step.remote;
        mReport.switchOnMs.push_back(static_cast<double>(result->atUs - command.atUs) / 1000.0);
        // A remote that dies during the hand-over takes the camera back at once.
        Expect(WaitForVirtual() || remote.device->Dead(),
               where + ": the camera did not turn virtual after 300");
    } else if (!refused) {
        Expect(WaitForPhysical(), where + ": the camera did not settle physical after the failure");
    }
}

void ScenarioRunner::SwitchOff(const std::string& where, const Step& step) {
    Remote& remote = mRemotes.at(step.remote);
    if (step.afterResult) {
        AwaitLastResult(where);
    }
    for (int attempt = 1;; ++attempt) {
        const SwitchCommand command = mDevMgt->SwitchOff(remote.device->config());
        if (step.async) {
            mPending.push_back({where, step, command});
            mLastAsyncSeq = command.seqNum;
            return;
        }
        const auto result = WaitForResult(step, command);
        mReport.commands.push_back(command);
        // A refused switch-off is reported as 300 too: only the camera staying
        // virtual tells it apart.
        const bool backOnPhysical = WaitForPhysical();
        const bool refused = result && result->code == 300 && !backOnPhysical;
        if (refused) {
            Say(Printf("the switch-off seq %u was refused: 300 reported, the camera stays virtual",
                       command.seqNum));
        }
        // The library reports a switch-on's 300 before its own mode settles; on
        // a loaded machine the switch-off can still find it switching. Device
        // management asks once more when a refusal was not what it expected.
        if (refused && !step.expectRefused && attempt < kSwitchOffAttempts) {
            Say("devmgt asks again");
            continue;
        }
        CheckResult(where, step, command, result, refused);
        if (backOnPhysical) {
            remote.registered = false;
            mActive.clear();
            if (result && result->code == 300) {
                mReport.switchOffMs.push_back(static_cast<double>(result->atUs - command.atUs) /
                                              1000.0);
            }
        }
        return;
    }
}

// What device management does when a remote dies: the library has forgotten
// its switch callback, so it registers again; and if the camera is still on
// the dead remote once the library's own switch-off has had its chance, it
// switches off itself.
void ScenarioRunner::HandleDeaths() {
    for (auto& [name, remote] : mRemotes) {
        if (!remote.device->Dead() || remote.deathHandled) {
            continue;
        }
        remote.deathHandled = true;
        remote.registered = false;
        android::hardware::waitForDeathNotifications();
        if (!mScenario.devmgt.reregisterAfterDeath) {
            mRecorder.Event("devmgt", "learns that remote " + name +
                                          " died; does not register its switch callback again");
            continue;
        }
        mRecorder.Event("devmgt", "learns that remote " + name + " died; registers again");
        mDevMgt->RegisterCallback();
        if (mActive != name) {
            continue;
        }
        if (WaitForPhysical()) {
            mActive.clear();
            continue;
        }
        mRecorder.Event("devmgt", "the camera is still on the dead remote " + name +
                                      ": switches it off itself");
        const SwitchCommand command = mDevMgt->SwitchOff(remote.device->config());
        mReport.commands.push_back(command);
        Expect(mDevMgt->WaitForResult(command.seqNum, kResultTimeout).has_value(),
               Printf("no result for the switch-off seq %u after %s died", command.seqNum,
                      name.c_str()));
        Expect(WaitForPhysical(), "the camera stayed on the dead remote " + name);
        mActive.clear();
    }
}

void ScenarioRunner::AwaitSwitchOff(const std::string& where, const Step& step) {
    Expect(mRemotes.at(step.remote).device->Dead(),
           where + ": remote " + step.remote + " is alive; only a death switches off unasked");
    HandleDeaths();
    Expect(WaitForPhysical(), where + ": the camera did not return to physical");
    const auto result = mDevMgt->WaitForUnasked(false, std::chrono::milliseconds(0));
    if (!result) {
        Say("the library's own switch-off reported nothing: the death had cleared the switch "
            "callback");
        return;
    }
    Say(Printf("seq %u was nobody's command: the library switched off on its own", result->seqNum));
    if (step.expectCode) {
        Expect(result->code == *step.expectCode,
               Printf("%s: switch-off result %d, expected %d", where.c_str(), result->code,
                      *step.expectCode));
    }
}

void ScenarioRunner::AwaitLastResult(const std::string& where) {
    Expect(mLastAsyncSeq != 0, where + ": afterResult needs an asynchronous command before it");
    if (mLastAsyncSeq != 0) {
        Expect(mDevMgt->WaitForResult(mLastAsyncSeq, kResultTimeout).has_value(),
               Printf("%s: no result for seq %u to send after", where.c_str(), mLastAsyncSeq));
    }
}

void ScenarioRunner::AwaitResult(const std::string& where, const Step& step) {
    for (auto it = mPending.begin(); it != mPending.end(); ++it) {
        if (it->step.remote == step.remote) {
            const Pending pending = *it;
            mPending.erase(it);
            Settle(pending);
            return;
        }
    }
    Expect(false, where + ": no asynchronous command to remote " + step.remote + " is waiting");
}

// Checks an asynchronous command's result, then waits, as device management
// does, for the camera to be where the result says.
void ScenarioRunner::Settle(const Pending& pending) {
    const auto result = WaitForResult(pending.step, pending.command);
    mReport.commands.push_back(pending.command);
    const bool refused =
        pending.command.status != android::hardware::camera::common::V1_0::Status::OK;
    CheckResult(pending.where, pending.step, pending.command, result, refused);
    if (!result || result->code != 300) {
        if (pending.command.on && !refused) {
            WaitForPhysical();
        }
        return;
    }
    if (pending.command.on) {
        mActive = pending.step.remote;
        WaitForVirtual();
    } else if (WaitForPhysical()) {
        mActive.clear();
        mRemotes.at(pending.step.remote).registered = false;
    }
}

void ScenarioRunner::Reconfigure(const std::string& where, const Step& step) {
    auto reconfiguration = std::make_unique<Reconfiguration>();
    reconfiguration->where = where;
    reconfiguration->expectSucceeds = step.expectSucceeds;
    Reconfiguration* raw = reconfiguration.get();
    if (step.async) {
        raw->thread = std::thread([this, raw] { raw->succeeded = mPipeline->Reconfigure(); });
    } else {
        raw->succeeded = mPipeline->Reconfigure();
    }
    mReconfigurations.push_back(std::move(reconfiguration));
}

void ScenarioRunner::Flush(const std::string& where, const Step& step) {
    const bool ok = mPipeline->Flush();
    if (step.expectSucceeds) {
        Expect(ok == *step.expectSucceeds,
               Printf("%s: the flush %s, expected it to %s", where.c_str(),
                      ok ? "succeeded" : "failed", *step.expectSucceeds ? "succeed" : "fail"));
    }
}

void ScenarioRunner::Register(const std::string& name, int inMs) {
    Remote& remote = mRemotes.at(name);
    if (remote.device->Dead()) {
        // The device's service restarts: a new process with a new callback.
        mFormer.push_back(remote.device);
        remote.device =
            new SimRemote(remote.device->config(), mService, mRecorder, mNextSessionBase + 100);
        mNextSessionBase += 10;
        mRecorder.Event("remote " + name, "restarts as a new process");
        remote.deathHandled = false;
    }
    if (inMs > 0) {
        remote.device->RegisterIn(inMs);
    } else {
        remote.device->Register();
    }
    remote.registered = true;
}

void ScenarioRunner::CheckDump(const std::string& where, const std::vector<std::string>& lines) {
    if (lines.empty()) {
        return;
    }
    const std::string dump = ChannelDumpText();
    bool all = true;
    for (const auto& line : lines) {
        const bool found = dump.find(line) != std::string::npos;
        all = all && found;
        Expect(found, where + ": the channel service's dump has no \"" + line + "\"");
        if (found) {
            Say("lshal debug IVirCameraChannel shows \"" + line + "\"");
        }
    }
    if (!all) {
        Say("lshal debug IVirCameraChannel:\n" + dump);
    }
}

void ScenarioRunner::CheckLeftovers() {
    for (auto& reconfiguration : mReconfigurations) {
        if (reconfiguration->thread.joinable()) {
            reconfiguration->thread.join();
        }
        if (reconfiguration->expectSucceeds) {
            const bool ok = reconfiguration->succeeded;
            Expect(ok == *reconfiguration->expectSucceeds,
                   Printf("%s: the reconfiguration %s, expected it to %s",
                          reconfiguration->where.c_str(), ok ? "succeeded" : "failed",
                          *reconfiguration->expectSucceeds ? "succeed" : "fail"));
        }
    }
    while (!mPending.empty()) {
        const Pending pending = mPending.front();
        mPending.erase(mPending.begin());
        Settle(pending);
    }
}

void ScenarioRunner::CheckResult(const std::string& where, const Step& step,
                                 const SwitchCommand& command,
                                 const std::optional<SwitchResult>& result, bool refused) {
    const char* verb = command.on ? "switch-on" : "switch-off";
    if (step.expectNoResult) {
        Expect(!result, Printf("%s: %s seq %u got result %d, expected none", where.c_str(), verb,
                               command.seqNum, result ? result->code : 0));
        if (!result) {
            Say(Printf("no result for seq %u, as expected", command.seqNum));
        }
        return;
    }
    Expect(result.has_value(),
           Printf("%s: no result for %s seq %u", where.c_str(), verb, command.seqNum));
    if (result && step.expectCode) {
        Expect(result->code == *step.expectCode,
               Printf("%s: %s result %d, expected %d", where.c_str(), verb, result->code,
                      *step.expectCode));
    }
    Expect(refused == step.expectRefused,
           Printf("%s: %s was %s, expected %s", where.c_str(), verb,
                  refused ? "refused" : "accepted", step.expectRefused ? "refused" : "accepted"));
}

void ScenarioRunner::Finish() {
    CheckLeftovers();
    // Deaths and their switch-offs still under way get their moment.
    SleepFor(kSettle);
    android::hardware::waitForDeathNotifications();
    CheckDump("end of steps", mScenario.expect.dump);
    mReport.mode = mPipeline->Virtual() ? "virtual" : "physical";
    mReport.property = Property();
    mPipeline->StopStreaming();
    mPipeline->Drain(kDrainTimeout);
    mReport.frames = mPipeline->Stats();
    mReport.requestRate = mPipeline->RequestRate();
    mReport.virtualRequestRate = mPipeline->VirtualRequestRate();
    mReport.results = mDevMgt->Results();
    Say(Printf("end of steps: camera %s, property \"%s\"", mReport.mode.c_str(),
               mReport.property.c_str()));

    const Expectations& expect = mScenario.expect;
    Expect(mReport.mode == expect.mode, "final mode " + mReport.mode + ", expected " + expect.mode);
    Expect(mReport.property == expect.property,
           "property \"" + mReport.property + "\", expected \"" + expect.property + "\"");
    Expect((mReport.mode == "virtual") == (mReport.property != "0"),
           "mode " + mReport.mode + " and property \"" + mReport.property + "\" disagree");
    Expect(mReport.frames.lost <= expect.framesLost,
           Printf("%lld frames lost", static_cast<long long>(mReport.frames.lost)));
    Expect(mReport.frames.corrupted <= expect.framesCorrupted,
           Printf("%lld frames corrupted", static_cast<long long>(mReport.frames.corrupted)));
    Expect(mReport.frames.stray == 0, Printf("%lld images for no outstanding buffer",
                                             static_cast<long long>(mReport.frames.stray)));
    if (expect.framesRefusedAtLeast) {
        Expect(mReport.frames.refused >= *expect.framesRefusedAtLeast,
               Printf("%lld frames refused, expected at least %lld",
                      static_cast<long long>(mReport.frames.refused),
                      static_cast<long long>(*expect.framesRefusedAtLeast)));
    }
    int64_t unknown = 0;
    for (const auto& [name, remote] : mRemotes) {
        unknown += remote.device->UnknownSessionCalls();
    }
    for (const auto& former : mFormer) {
        unknown += former->UnknownSessionCalls();
    }
    if (expect.unknownSessionCallsAtLeast) {
        Expect(unknown >= *expect.unknownSessionCallsAtLeast,
               Printf("%lld calls named a session the remote did not have open, expected at "
                      "least %lld",
                      static_cast<long long>(unknown),
                      static_cast<long long>(*expect.unknownSessionCallsAtLeast)));
    }
    if (expect.unknownSessionCallsAtMost) {
        Expect(unknown <= *expect.unknownSessionCallsAtMost,
               Printf("%lld calls named a session the remote did not have open, expected at "
                      "most %lld",
                      static_cast<long long>(unknown),
                      static_cast<long long>(*expect.unknownSessionCallsAtMost)));
    }
}

// The camera closes as an app would close it; then nothing may be left open:
// no session at a remote, no death link on a peer, no file descriptor.
void ScenarioRunner::TearDown() {
    if (!mActive.empty()) {
        Say("closing: the camera goes back to physical first");
        const auto command = mDevMgt->SwitchOff(mRemotes.at(mActive).device->config());
        mDevMgt->WaitForResult(command.seqNum, kResultTimeout);
        WaitForPhysical();
    }
    for (auto& [name, remote] : mRemotes) {
        remote.device->Unregister();
    }
    mPipeline->Close();
    android::hardware::waitForDeathNotifications();
    for (auto& [name, remote] : mRemotes) {
        mReport.sessionsOpen += remote.device->OpenSessions();
        mReport.deathLinks += remote.device->DeathLinks();
        remote.device->Shutdown();
    }
    for (auto& former : mFormer) {
        mReport.sessionsOpen += former->OpenSessions();
        mReport.deathLinks += former->DeathLinks();
        former->Shutdown();
    }
    mReport.deathLinks += mPipeline->DeathLinks();
    mPipeline.reset();
    mReport.fdsLeaked = OpenFds() - mFdsAtStart;
    Expect(mReport.ResourcesOpen() == 0,
           Printf("left open: %zu sessions, %zu death links, %d file descriptors",
                  mReport.sessionsOpen, mReport.deathLinks, mReport.fdsLeaked));
}

}  // namespace vircam_sim
