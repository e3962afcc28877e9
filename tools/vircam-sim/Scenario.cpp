// Copyright (C) 2026 The libvircam Authors

#include "Scenario.h"

#include <json/json.h>

#include <array>
#include <set>
#include <utility>

namespace vircam_sim {

namespace {

constexpr int32_t kImplementationDefined = 34;
constexpr int32_t kYv12 = 0x32315659;
constexpr int32_t kYcbcr420 = 0x23;

constexpr std::array<std::pair<Stage, const char*>, 7> kStages{{
    {Stage::kControlSession, "controlSession"},
    {Stage::kConfigStream, "configStream"},
    {Stage::kDataSession, "dataSession"},
    {Stage::kSwitch, "switch"},
    {Stage::kStreaming, "streaming"},
    {Stage::kSwitchOff, "switchOff"},
    {Stage::kReconfigure, "reconfigure"},
}};
constexpr std::array<std::pair<FaultKind, const char*>, 3> kFaults{{
    {FaultKind::kTimeout, "timeout"},
    {FaultKind::kFailure, "failure"},
    {FaultKind::kDeath, "death"},
}};
constexpr std::array<std::pair<int32_t, const char*>, 6> kFormats{{
    {kImplementationDefined, "IMPLEMENTATION_DEFINED"},
    {kYv12, "YV12"},
    {kYcbcr420, "YCBCR_420_888"},
    {0x20, "RAW16"},
    {0x21, "BLOB"},
    {0x1, "RGBA_8888"},
}};

// Reading errors carry the path of the value at fault: "steps[2].expect".
class Reader {
public:
    explicit Reader(std::string& error) : mError(error) {}

    bool Fail(const std::string& where, const std::string& what) {
        if (mError.empty()) {
            mError = where + ": " + what;
        }
        return false;
    }
    bool Keys(const Json::Value& object, const std::string& where,
              const std::set<std::string>& allowed) {
        if (!object.isObject()) {
            return Fail(where, "must be an object");
        }
        for (const auto& name : object.getMemberNames()) {
            if (allowed.count(name) == 0) {
                return Fail(std::string(where).append(".").append(name), "unknown key");
            }
        }
        return true;
    }
    template <typename T>
    bool Number(const Json::Value& object, const std::string& key, const std::string& where, T& out,
                double min, double max) {
        if (!object.isMember(key)) {
            return true;
        }
        const Json::Value& value = object[key];
        if (!value.isNumeric() || value.asDouble() < min || value.asDouble() > max) {
            return Fail(where + "." + key, "must be a number from " + Json::Value(min).asString() +
                                               " to " + Json::Value(max).asString());
        }
        out = static_cast<T>(value.asDouble());
        return true;
    }
    bool Flag(const Json::Value& object, const std::string& key, const std::string& where,
              bool& out) {
        if (!object.isMember(key)) {
            return true;
        }
        if (!object[key].isBool()) {
            return Fail(where + "." + key, "must be true or false");
        }
        out = object[key].asBool();
        return true;
    }
    bool Text(const Json::Value& object, const std::string& key, const std::string& where,
              std::string& out) {
        if (!object.isMember(key)) {
            return true;
        }
        if (!object[key].isString() || object[key].asString().empty()) {
            return Fail(where + "." + key, "must be a non-empty string");
        }
        out = object[key].asString();
        return true;
    }

private:
    std::string& mError;
};

bool ReadFormat(Reader& reader, const Json::Value& value, const std::string& where,
                int32_t& format) {
    if (value.isInt()) {
        format = value.asInt();
        return true;
    }
    for (const auto& [code, name] : kFormats) {
        if (value.isString() && value.asString() == name) {
            format = code;
            return true;
        }
    }
    return reader.Fail(where,
                       "unknown pixel format (a number or IMPLEMENTATION_DEFINED, YV12, "
                       "YCBCR_420_888, RAW16, BLOB, RGBA_8888)");
}

bool ReadPipeline(Reader& reader, const Json::Value& json, PipelineConfig& pipeline) {
    const std::string where = "pipeline";
    if (!reader.Keys(json, where,
                     {"cameraId", "fps", "buffersPerStream", "bufferBytes", "halReadyAfterMs",
                      "flushNoticeDelayMs", "streams"}) ||
        !reader.Number(json, "cameraId", where, pipeline.cameraId, 0, 9) ||
        !reader.Number(json, "fps", where, pipeline.fps, 1, 1000) ||
        !reader.Number(json, "buffersPerStream", where, pipeline.buffersPerStream, 1, 64) ||
        !reader.Number(json, "bufferBytes", where, pipeline.bufferBytes, 64, 64 << 20) ||
        !reader.Number(json, "halReadyAfterMs", where, pipeline.halReadyAfterMs, 0, 60000) ||
        !reader.Number(json, "flushNoticeDelayMs", where, pipeline.flushNoticeDelayMs, 0, 10000)) {
        return false;
    }
    if (!json.isMember("streams")) {
        return true;
    }
    const Json::Value& streams = json["streams"];
    if (!streams.isArray() || streams.empty() || streams.size() > 8) {
        return reader.Fail("pipeline.streams", "must be an array of 1 to 8 streams");
    }
    pipeline.streams.clear();
    for (Json::ArrayIndex i = 0; i < streams.size(); ++i) {
        const std::string at = "pipeline.streams[" + std::to_string(i) + "]";
        StreamConfig stream;
        if (!reader.Keys(streams[i], at, {"width", "height", "format"}) ||
            !reader.Number(streams[i], "width", at, stream.width, 1, 16384) ||
            !reader.Number(streams[i], "height", at, stream.height, 1, 16384) ||
            !ReadFormat(reader, streams[i]["format"], at + ".format", stream.format)) {
            return false;
        }
        pipeline.streams.push_back(stream);
    }
    return true;
}

bool ReadFault(Reader& reader, const Json::Value& json, const std::string& where, Fault& fault) {
    if (!reader.Keys(json, where, {"stage", "kind", "afterRequests"}) ||
        !reader.Number(json, "afterRequests", where, fault.afterRequests, 1, 1000000)) {
        return false;
    }
    const auto stage = StageFromName(json["stage"].asString());
    if (!json["stage"].isString() || !stage) {
        return reader.Fail(where + ".stage",
                           "must be one of controlSession, configStream, "
                           "dataSession, switch, streaming, switchOff, reconfigure");
    }
    const auto kind = FaultFromName(json["kind"].asString());
    if (!json["kind"].isString() || !kind) {
        return reader.Fail(where + ".kind", "must be one of timeout, failure, death");
    }
    fault.stage = *stage;
    fault.kind = *kind;
    return true;
}

bool ReadRemotes(Reader& reader, const Json::Value& json, std::vector<RemoteConfig>& remotes) {
    if (!json.isArray() || json.empty()) {
        return reader.Fail("remotes", "must be a non-empty array");
    }
    remotes.clear();
    for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
        const std::string at = "remotes[" + std::to_string(i) + "]";
        const Json::Value& item = json[i];
        if (!reader.Keys(item, at,
                         {"name", "deviceId", "serviceId", "resultLatencyMs", "imageLatencyMs",
                          "fault", "rejectsUnknownSessions"})) {
            return false;
        }
        if (!item["name"].isString() || item["name"].asString().empty()) {
            return reader.Fail(at + ".name", "must be a non-empty string");
        }
        RemoteConfig remote = DefaultRemote(item["name"].asString());
        if (!reader.Text(item, "deviceId", at, remote.deviceId) ||
            !reader.Text(item, "serviceId", at, remote.serviceId) ||
            !reader.Number(item, "resultLatencyMs", at, remote.resultLatencyMs, 0, 60000) ||
            !reader.Number(item, "imageLatencyMs", at, remote.imageLatencyMs, 0, 60000) ||
            !reader.Flag(item, "rejectsUnknownSessions", at, remote.rejectsUnknownSessions) ||
            (item.isMember("fault") &&
             !ReadFault(reader, item["fault"], at + ".fault", remote.fault))) {
            return false;
        }
        remotes.push_back(remote);
    }
    return true;
}

bool ReadExpectedCode(Reader& reader, const Json::Value& json, const std::string& where,
                      Step& step) {
    if (!json.isMember("expect")) {
        return true;
    }
    const Json::Value& expect = json["expect"];
    if (expect.isString() && expect.asString() == "none") {
        step.expectNoResult = true;
        return true;
    }
    if (!expect.isInt()) {
        return reader.Fail(where + ".expect", "must be a result code or \"none\"");
    }
    step.expectCode = expect.asInt();
    return true;
}

bool ReadLines(Reader& reader, const Json::Value& value, const std::string& where,
               std::vector<std::string>& lines) {
    if (!value.isArray() || value.empty()) {
        return reader.Fail(where, "must be a non-empty array of lines");
    }
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
        if (!value[i].isString() || value[i].asString().empty()) {
            return reader.Fail(where + "[" + std::to_string(i) + "]", "must be a non-empty string");
        }
        lines.push_back(value[i].asString());
    }
    return true;
}

bool ReadStep(Reader& reader, const Json::Value& json, const std::string& at,
              const std::vector<RemoteConfig>& remotes, Step& step) {
    enum class Operand { kRemote, kSeconds, kTrue, kLines };
    struct Kind {
        const char* name;
        Action action;
        Operand operand;
    };
    static const std::vector<Kind> kActions{
        {"switchOn", Action::kSwitchOn, Operand::kRemote},
        {"switchOff", Action::kSwitchOff, Operand::kRemote},
        {"stream", Action::kStream, Operand::kSeconds},
        {"wait", Action::kWait, Operand::kSeconds},
        {"kill", Action::kKill, Operand::kRemote},
        {"awaitSwitchOff", Action::kAwaitSwitchOff, Operand::kRemote},
        {"awaitResult", Action::kAwaitResult, Operand::kRemote},
        {"register", Action::kRegister, Operand::kRemote},
        {"withdraw", Action::kWithdraw, Operand::kRemote},
        {"reconfigure", Action::kReconfigure, Operand::kTrue},
        {"flush", Action::kFlush, Operand::kTrue},
        {"registerSwitchCallback", Action::kRegisterSwitchCallback, Operand::kTrue},
        {"dump", Action::kDump, Operand::kLines}};
    if (!reader.Keys(
            json, at,
            {"switchOn", "switchOff", "stream", "wait", "kill", "awaitSwitchOff", "awaitResult",
             "register", "withdraw", "inMs", "reconfigure", "flush", "registerSwitchCallback",
             "dump", "expect", "refused", "async", "afterResult", "succeeds"})) {
        return false;
    }
    double inMs = 0;
    if (!reader.Number(json, "inMs", at, inMs, 0, 60000)) {
        return false;
    }
    step.inMs = static_cast<int>(inMs);
    int actions = 0;
    for (const auto& kind : kActions) {
        if (!json.isMember(kind.name)) {
            continue;
        }
        ++actions;
        step.action = kind.action;
        const Json::Value& value = json[kind.name];
        if (kind.operand == Operand::kSeconds) {
            if (!reader.Number(json, kind.name, at, step.seconds, 0, 3600)) {
                return false;
            }
        } else if (kind.operand == Operand::kLines) {
            if (!ReadLines(reader, value, at + "." + kind.name, step.dumpLines)) {
                return false;
            }
        } else if (kind.operand == Operand::kTrue) {
            if (!value.isBool() || !value.asBool()) {
                return reader.Fail(at + "." + kind.name, "must be true");
            }
        } else {
            step.remote = value.asString();
            bool known = false;
            for (const auto& remote : remotes) {
                known = known || (value.isString() && remote.name == step.remote);
            }
            if (!known) {
                return reader.Fail(at + "." + kind.name, "names no remote of \"remotes\"");
            }
        }
    }
    if (actions != 1) {
        return reader.Fail(at,
                           "needs exactly one of switchOn, switchOff, stream, wait, kill, "
                           "awaitSwitchOff, awaitResult, register, withdraw, reconfigure, flush, "
                           "registerSwitchCallback, dump");
    }
    const bool command = step.action == Action::kSwitchOn || step.action == Action::kSwitchOff;
    if (!reader.Flag(json, "refused", at, step.expectRefused) ||
        !reader.Flag(json, "async", at, step.async) ||
        !reader.Flag(json, "afterResult", at, step.afterResult)) {
        return false;
    }
    if (step.async && !command && step.action != Action::kReconfigure) {
        return reader.Fail(at + ".async", "only for switchOn, switchOff and reconfigure");
    }
    if (step.afterResult && !command) {
        return reader.Fail(at + ".afterResult", "only for switchOn and switchOff");
    }
    if (json.isMember("succeeds")) {
        bool succeeds = false;
        if (step.action != Action::kReconfigure && step.action != Action::kFlush) {
            return reader.Fail(at + ".succeeds", "only for reconfigure and flush");
        }
        if (!reader.Flag(json, "succeeds", at, succeeds)) {
            return false;
        }
        step.expectSucceeds = succeeds;
    }
    return ReadExpectedCode(reader, json, at, step);
}

bool ReadDevMgt(Reader& reader, const Json::Value& json, DevMgtConfig& devmgt) {
    return reader.Keys(json, "devmgt", {"reregisterAfterDeath", "resultReturnDelayMs"}) &&
           reader.Flag(json, "reregisterAfterDeath", "devmgt", devmgt.reregisterAfterDeath) &&
           reader.Number(json, "resultReturnDelayMs", "devmgt", devmgt.resultReturnDelayMs, 0,
                         10000);
}

bool ReadOptionalCount(Reader& reader, const Json::Value& json, const std::string& key,
                       std::optional<int64_t>& out) {
    if (!json.isMember(key)) {
        return true;
    }
    int64_t value = 0;
    if (!reader.Number(json, key, "expect", value, 0, 1e12)) {
        return false;
    }
    out = value;
    return true;
}

bool ReadExpectations(Reader& reader, const Json::Value& json, Expectations& expect) {
    return reader.Keys(json, "expect",
                       {"framesLost", "framesCorrupted", "mode", "property", "framesRefusedAtLeast",
                        "unknownSessionCallsAtLeast", "unknownSessionCallsAtMost", "dump"}) &&
           reader.Number(json, "framesLost", "expect", expect.framesLost, 0, 1e12) &&
           reader.Number(json, "framesCorrupted", "expect", expect.framesCorrupted, 0, 1e12) &&
           reader.Text(json, "mode", "expect", expect.mode) &&
           reader.Text(json, "property", "expect", expect.property) &&
           ReadOptionalCount(reader, json, "framesRefusedAtLeast", expect.framesRefusedAtLeast) &&
           ReadOptionalCount(reader, json, "unknownSessionCallsAtLeast",
                             expect.unknownSessionCallsAtLeast) &&
           ReadOptionalCount(reader, json, "unknownSessionCallsAtMost",
                             expect.unknownSessionCallsAtMost) &&
           (!json.isMember("dump") ||
            ReadLines(reader, json["dump"], "expect.dump", expect.dump)) &&
           (expect.mode == "physical" || expect.mode == "virtual" ||
            reader.Fail("expect.mode", "must be \"physical\" or \"virtual\""));
}

}  // namespace

const RemoteConfig* Scenario::FindRemote(const std::string& wanted) const {
    for (const auto& remote : remotes) {
        if (remote.name == wanted) {
            return &remote;
        }
    }
    return nullptr;
}

const char* StageName(Stage stage) {
    for (const auto& [value, name] : kStages) {
        if (value == stage) {
            return name;
        }
    }
    return "none";
}

const char* FaultName(FaultKind kind) {
    for (const auto& [value, name] : kFaults) {
        if (value == kind) {
            return name;
        }
    }
    return "none";
}

std::optional<Stage> StageFromName(const std::string& wanted) {
    for (const auto& [value, name] : kStages) {
        if (wanted == name) {
            return value;
        }
    }
    return std::nullopt;
}

std::optional<FaultKind> FaultFromName(const std::string& wanted) {
    for (const auto& [value, name] : kFaults) {
        if (wanted == name) {
            return value;
        }
    }
    return std::nullopt;
}

const char* FormatName(int32_t format) {
    for (const auto& [code, name] : kFormats) {
        if (code == format) {
            return name;
        }
    }
    return "format";
}

PipelineConfig DefaultPipeline() {
    PipelineConfig pipeline;
    pipeline.streams = {
        {1920, 1080, kImplementationDefined}, {1280, 720, kYv12}, {640, 480, kYcbcr420}};
    return pipeline;
}

RemoteConfig DefaultRemote(const std::string& name) {
    RemoteConfig remote;
    remote.name = name;
    remote.deviceId = "pad-" + name;
    remote.serviceId = "cam" + name;
    return remote;
}

Scenario DefaultScenario() {
    Scenario scenario;
    scenario.name = "handover";
    scenario.description =
        "physical, on to A, stream, on to B refused while virtual, off, on to B, stream, off";
    scenario.pipeline = DefaultPipeline();
    scenario.remotes = {DefaultRemote("A"), DefaultRemote("B")};
    Step on;
    on.action = Action::kSwitchOn;
    on.expectCode = 300;
    Step off = on;
    off.action = Action::kSwitchOff;
    Step stream;
    stream.action = Action::kStream;
    stream.seconds = 1.0;
    Step refused = on;
    refused.expectCode = 301;
    refused.expectRefused = true;
    Step physical = stream;
    physical.seconds = 0.3;
    on.remote = off.remote = "A";
    refused.remote = "B";
    scenario.steps = {physical, on, stream, refused, off, physical};
    on.remote = off.remote = "B";
    scenario.steps.insert(scenario.steps.end(), {on, stream, off, physical});
    return scenario;
}

bool ParseScenario(const std::string& text, Scenario& scenario, std::string& error) {
    Json::Value root;
    Json::Reader json(Json::Features::strictMode());
    if (!json.parse(text, root, false)) {
        error = "not valid JSON: " + json.getFormattedErrorMessages();
        return false;
    }
    Reader reader(error);
    if (!reader.Keys(root, "scenario",
                     {"name", "description", "pipeline", "devmgt", "remotes", "steps", "expect"})) {
        return false;
    }
    scenario = Scenario();
    scenario.name = "custom";
    scenario.pipeline = DefaultPipeline();
    scenario.remotes = {DefaultRemote("A"), DefaultRemote("B")};
    if (!reader.Text(root, "name", "scenario", scenario.name) ||
        !reader.Text(root, "description", "scenario", scenario.description) ||
        (root.isMember("pipeline") && !ReadPipeline(reader, root["pipeline"], scenario.pipeline)) ||
        (root.isMember("devmgt") && !ReadDevMgt(reader, root["devmgt"], scenario.devmgt)) ||
        (root.isMember("remotes") && !ReadRemotes(reader, root["remotes"], scenario.remotes)) ||
        (root.isMember("expect") && !ReadExpectations(reader, root["expect"], scenario.expect))) {
        return false;
    }
    const Json::Value& steps = root["steps"];
    if (!steps.isArray() || steps.empty()) {
        return reader.Fail("steps", "must be a non-empty array");
    }
    for (Json::ArrayIndex i = 0; i < steps.size(); ++i) {
        Step step;
        if (!ReadStep(reader, steps[i], "steps[" + std::to_string(i) + "]", scenario.remotes,
                      step)) {
            return false;
        }
        scenario.steps.push_back(step);
    }
    return true;
}

}  // namespace vircam_sim
