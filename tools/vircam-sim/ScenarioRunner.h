// Copyright (C) 2026 The libvircam Authors

// Plays a scenario against the library: builds the peers, runs the steps with
// the pipeline streaming throughout, checks every expectation, then closes the
// camera and counts what was left open.
#pragma once

#include <vendor/travik/hardware/camera/vircamera/1.0/IVirCameraChannel.h>

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Recorder.h"
#include "RunReport.h"
#include "Scenario.h"
#include "SimDevMgt.h"
#include "SimPipeline.h"
#include "SimRemote.h"

namespace vircam_sim {

class ScenarioRunner {
public:
    ScenarioRunner(const Scenario& scenario, Recorder& recorder);
    ~ScenarioRunner();

    RunReport Run();

private:
    struct Remote {
        android::sp<SimRemote> device;
        bool registered = false;
        bool deathHandled = false;
    };
    // A command sent without waiting for its result.
    struct Pending {
        std::string where;
        Step step;
        SwitchCommand command;
    };
    struct Reconfiguration {
        std::string where;
        std::optional<bool> expectSucceeds;
        std::thread thread;
        bool succeeded = false;
    };

    bool SetUp();
    void RunStep(size_t index, const Step& step);
    void SwitchOn(const std::string& where, const Step& step);
    void SwitchOff(const std::string& where, const Step& step);
    void AwaitSwitchOff(const std::string& where, const Step& step);
    // The methods below run on the runner thread and take no lock of their
    // own; device management's and the remotes' locks are taken inside them.
    void AwaitResult(const std::string& where, const Step& step);
    void Settle(const Pending& pending);
    // Returns the moment the last asynchronous command's result arrives.
    void AwaitLastResult(const std::string& where);
    // An asynchronous reconfiguration runs on a thread of its own, which
    // writes only its Reconfiguration; CheckLeftovers joins it.
    void Reconfigure(const std::string& where, const Step& step);
    void Flush(const std::string& where, const Step& step);
    // A remote registers; a dead one comes back as a new process.
    void Register(const std::string& name, int inMs);
    // Joins reconfigurations and collects asynchronous commands not yet
    // collected.
    void CheckLeftovers();
    // Reads the channel service's dump, which tries the library's locks for
    // at most 100 ms.
    void CheckDump(const std::string& where, const std::vector<std::string>& lines);
    void HandleDeaths();
    std::optional<SwitchResult> WaitForResult(const Step& step, const SwitchCommand& command);
    void CheckResult(const std::string& where, const Step& step, const SwitchCommand& command,
                     const std::optional<SwitchResult>& result, bool refused);
    // The library reports before its mode settles; device management waits
    // for the camera to be where the result says before it goes on.
    bool WaitForVirtual();
    bool WaitForPhysical();
    void Stream(double seconds);
    void Finish();
    void TearDown();
    void Expect(bool holds, const std::string& failure);
    void Say(const std::string& text) { mRecorder.Event("sim", text); }

    const Scenario mScenario;
    Recorder& mRecorder;
    android::sp<vircam::IVirCameraChannel> mService;
    android::sp<SimDevMgt> mDevMgt;
    std::unique_ptr<SimPipeline> mPipeline;
    std::map<std::string, Remote> mRemotes;
    // Dead remotes that a new process of the same device replaced.
    std::vector<android::sp<SimRemote>> mFormer;
    uint32_t mNextSessionBase = 10;
    std::vector<Pending> mPending;
    uint32_t mLastAsyncSeq = 0;
    std::vector<std::unique_ptr<Reconfiguration>> mReconfigurations;
    std::string mActive;  // the remote the camera is on, if virtual
    int mFdsAtStart = 0;
    RunReport mReport;
};

}  // namespace vircam_sim
