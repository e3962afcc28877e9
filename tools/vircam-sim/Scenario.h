// Copyright (C) 2026 The libvircam Authors

// A scenario: the peers around the library, what device management commands,
// and what must hold at the end. Built in (the default handover, the fault
// tour's cells) or read from a JSON file (format in this folder's README.md
// and --help).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vircam_sim {

// Where in a switch's life a fault strikes.
enum class Stage {
    kNone,
    kControlSession,
    kConfigStream,
    kDataSession,
    kSwitch,
    kStreaming,
    kSwitchOff,
    // A configStream on a control session that is already configured: the
    // pipeline reconfiguring a running virtual camera.
    kReconfigure
};
enum class FaultKind { kNone, kTimeout, kFailure, kDeath };

struct Fault {
    Stage stage = Stage::kNone;
    FaultKind kind = FaultKind::kNone;
    // While streaming: the capture request of the remote's that triggers it.
    int afterRequests = 10;
};

struct StreamConfig {
    uint32_t width = 0;
    uint32_t height = 0;
    int32_t format = 0;
};

struct PipelineConfig {
    int32_t cameraId = 0;
    double fps = 30.0;
    int buffersPerStream = 8;
    size_t bufferBytes = size_t{16} * 1024;
    std::vector<StreamConfig> streams;
    // The camera HAL registers its translator callback this long after
    // opening; a switch-on waits 1 s for it.
    int halReadyAfterMs = 0;
    // The HAL holds the library's flush notice this long before it answers,
    // which keeps a switch-off between its flush and its teardown.
    int flushNoticeDelayMs = 0;
};

struct DevMgtConfig {
    // Registers the switch callback again as soon as it learns of a remote's
    // death, and switches off a camera left on the dead remote.
    bool reregisterAfterDeath = true;
    // Each switch result is answered this long after it arrived.
    int resultReturnDelayMs = 0;
};

struct RemoteConfig {
    std::string name;       // the label on the timeline: "A"
    std::string deviceId;   // as device management knows the device
    std::string serviceId;  // switched as is, registered as "W_" + serviceId
    int resultLatencyMs = 0;
    int imageLatencyMs = 0;
    Fault fault;
    // Answers a flush, capture or close naming a session it does not have
    // open with ILLEGAL_ARGUMENT instead of OK.
    bool rejectsUnknownSessions = false;
};

enum class Action {
    kSwitchOn,
    kSwitchOff,
    kStream,
    kWait,
    kKill,
    kAwaitSwitchOff,
    kAwaitResult,
    kReconfigure,
    kFlush,
    kRegister,
    kRegisterSwitchCallback,
    kDump,
    kWithdraw
};

struct Step {
    Action action = Action::kWait;
    std::string remote;  // switchOn, switchOff, kill, awaitSwitchOff, awaitResult, register,
                         // withdraw
    double seconds = 0;  // stream, wait
    int inMs = 0;        // register, withdraw: from the remote's thread, this much later
    // The switch result the step must see. kAwaitSwitchOff waits for the
    // switch-off that a remote's death sets off; its result may be missing,
    // as the death also makes the library forget the switch callback.
    std::optional<int32_t> expectCode;
    bool expectNoResult = false;
    bool expectRefused = false;
    // switchOn, switchOff, reconfigure: sent without waiting for the outcome;
    // awaitResult (or the end of the steps) collects it.
    bool async = false;
    // switchOn, switchOff: sent the moment the last asynchronous command's
    // result arrives, without waiting for the camera to settle.
    bool afterResult = false;
    // reconfigure, flush: whether the library must report success.
    std::optional<bool> expectSucceeds;
    // dump: lines the channel service's dump must contain at this moment.
    std::vector<std::string> dumpLines;
};

struct Expectations {
    int64_t framesLost = 0;
    int64_t framesCorrupted = 0;
    std::string mode = "physical";
    std::string property = "0";
    std::optional<int64_t> framesRefusedAtLeast;
    // Calls the remotes got naming a session they did not have open.
    std::optional<int64_t> unknownSessionCallsAtLeast;
    std::optional<int64_t> unknownSessionCallsAtMost;
    // Lines the channel service's `lshal debug` dump must contain at the end
    // of the steps, before the camera closes.
    std::vector<std::string> dump;
};

struct Scenario {
    std::string name;
    std::string description;
    PipelineConfig pipeline;
    DevMgtConfig devmgt;
    std::vector<RemoteConfig> remotes;
    std::vector<Step> steps;
    Expectations expect;

    const RemoteConfig* FindRemote(const std::string& name) const;
};

const char* StageName(Stage stage);
const char* FaultName(FaultKind kind);
std::optional<Stage> StageFromName(const std::string& name);
std::optional<FaultKind> FaultFromName(const std::string& name);
const char* FormatName(int32_t format);

// The built-in peers: a pipeline with three streams, remotes "A" and "B".
PipelineConfig DefaultPipeline();
RemoteConfig DefaultRemote(const std::string& name);
// Physical, on to A, stream, on to B refused, off, on to B, stream, off.
Scenario DefaultScenario();

// Reads a scenario; false with a message naming the place on a bad file.
bool ParseScenario(const std::string& text, Scenario& scenario, std::string& error);

}  // namespace vircam_sim
