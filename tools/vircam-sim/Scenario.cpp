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

constexpr std::array<std::pair<Stage, const char*>, 6> kStages{{
    {Stage::kControlSession, "controlSession"},
    {Stage::kConfigStream, "configStream"},
    {Stage::kDataSession, "dataSession"},
    {Stage::kSwitch, "switch"},
    {Stage::kStreaming, "streaming"},
    {Stage::kSwitchOff, "switchOff"},
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
    if (!reader.Keys(
            json, where,
            {"cameraId", "fps", "buffersPerStream", "bufferBytes", "halReadyAfterMs", "streams"}) ||
        !reader.Number(json, "cameraId", where, pipeline.cameraId, 0, 9) ||
        !reader.Number(json, "fps", where, pipeline.fps, 1, 1000) ||
        !reader.Number(json, "buffersPerStream", where, pipeline.buffersPerStream, 1, 64) ||
        !reader.Number(json, "bufferBytes", where, pipeline.bufferBytes, 64, 64 << 20) ||
        !reader.Number(json, "halReadyAfterMs", where, pipeline.halReadyAfterMs, 0, 60000)) {
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
                           "dataSession, switch, streaming, switchOff");
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
        if (!reader.Keys(
                item, at,
                {"name", "deviceId", "serviceId", "resultLatencyMs", "imageLatencyMs", "fault"})) {
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

bool ReadStep(Reader& reader, const Json::Value& json, const std::string& at,
              const std::vector<RemoteConfig>& remotes, Step& step) {
    static const std::vector<std::pair<const char*, Action>> kActions{
        {"switchOn", Action::kSwitchOn}, {"switchOff", Action::kSwitchOff},
        {"stream", Action::kStream},     {"wait", Action::kWait},
        {"kill", Action::kKill},         {"awaitSwitchOff", Action::kAwaitSwitchOff},
        {"register", Action::kRegister}, {"withdraw", Action::kWithdraw}};
    if (!reader.Keys(json, at,
                     {"switchOn", "switchOff", "stream", "wait", "kill", "awaitSwitchOff",
                      "register", "withdraw", "inMs", "expect", "refused"})) {
        return false;
    }
    double inMs = 0;
    if (!reader.Number(json, "inMs", at, inMs, 0, 60000)) {
        return false;
    }
    step.inMs = static_cast<int>(inMs);
    int actions = 0;
    for (const auto& [name, action] : kActions) {
        if (!json.isMember(name)) {
            continue;
        }
        ++actions;
        step.action = action;
        const Json::Value& value = json[name];
        if (action == Action::kStream || action == Action::kWait) {
            if (!reader.Number(json, name, at, step.seconds, 0, 3600)) {
                return false;
            }
        } else {
            step.remote = value.asString();
            bool known = false;
            for (const auto& remote : remotes) {
                known = known || (value.isString() && remote.name == step.remote);
            }
            if (!known) {
                return reader.Fail(at + "." + name, "names no remote of \"remotes\"");
            }
        }
    }
    if (actions != 1) {
        return reader.Fail(at,
                           "needs exactly one of switchOn, switchOff, stream, wait, kill, "
                           "awaitSwitchOff, register, withdraw");
    }
    if (json.isMember("refused") && !json["refused"].isBool()) {
        return reader.Fail(at + ".refused", "must be true or false");
    }
    step.expectRefused = json.get("refused", false).asBool();
    return ReadExpectedCode(reader, json, at, step);
}

bool ReadExpectations(Reader& reader, const Json::Value& json, Expectations& expect) {
    return reader.Keys(json, "expect", {"framesLost", "framesCorrupted", "mode", "property"}) &&
           reader.Number(json, "framesLost", "expect", expect.framesLost, 0, 1e12) &&
           reader.Number(json, "framesCorrupted", "expect", expect.framesCorrupted, 0, 1e12) &&
           reader.Text(json, "mode", "expect", expect.mode) &&
           reader.Text(json, "property", "expect", expect.property) &&
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
                     {"name", "description", "pipeline", "remotes", "steps", "expect"})) {
        return false;
    }
    scenario = Scenario();
    scenario.name = "custom";
    scenario.pipeline = DefaultPipeline();
    scenario.remotes = {DefaultRemote("A"), DefaultRemote("B")};
    if (!reader.Text(root, "name", "scenario", scenario.name) ||
        !reader.Text(root, "description", "scenario", scenario.description) ||
        (root.isMember("pipeline") && !ReadPipeline(reader, root["pipeline"], scenario.pipeline)) ||
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
